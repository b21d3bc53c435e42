# SPDX-License-Identifier: MIT
"""Every kind with every type, both ways, compared with the bytes that the module was passed or gave back."""

import array
import itertools
import random
import struct
import subprocess
import warnings
from decimal import Decimal
from fractions import Fraction

import pytest

import block
import kahost
from conftest import CHECKED, FULL, PYTHON, SEED
from kahost import InPlace, Ref, Text

pytestmark = pytest.mark.filterwarnings("ignore::kahost.LossyKind")
ROOM = 1 << 16
VALUE, REFERENCE = 0, 1


@pytest.fixture
def m(modules, bits):
    with kahost.open(modules["exact", bits], deadline=60) as module:
        yield module


def shown(m, function, value):
    """The one argument of a function of module exact, as the block had it."""
    (argument,) = block.read(m[function](value, Text(b"", room=ROOM)).shown)
    return argument


def shown_more(m, *values):
    return block.read(m.more(Text(b"", room=ROOM), *values).shown)


class Index:
    """A number by its __index__ alone."""

    def __init__(self, value):
        self.value = value

    def __index__(self):
        return self.value


# ---- Every type to every kind ----------------------------------------------------------------------------------------

SAMPLES = {
    "int": 5,
    "bool": True,
    "index": Index(7),
    "Decimal": Decimal("2.5"),
    "float": 2.5,
    "Fraction": Fraction(5, 2),
    "str": "wörld",
    "bytes": b"w\xf6rld",
    "Text": Text("wörld", room=20),
    "Text of bytes": Text(b"w\xf6rld", room=20),
    "empty list": [],
    "ints": [1, -2, 3],
    "tuple of ints": (1, -2, 3),
    "Decimals": [Decimal("2.5"), 3, 0.5, Fraction(1, 4)],
    "strs": ["a", "", "wörld"],
    "list of bytes": [b"a", b"\0"],
    "Text of strs": Text(["a", "bc"], room=9),
    "ints in a buffer": array.array("i", [1, -2, 3]),
    "doubles in a buffer": array.array("d", [1.5, -2.0]),
    "None": None,
    "complex": 2j,
    "dict": {1: 2},
    "set": {1, 2},
    "object": object(),
    "floats in a list of ints": [1, 2.0],
    "list of None": [None],
    "nested list": [[1]],
    "mixed list": [1, "a"],
}
NUMBERS = {"Decimal", "float", "Fraction", "int", "bool"}
INTS = {"ints", "tuple of ints", "ints in a buffer", "empty list"}
# By kind: the samples that it takes, and how the values arrive.
TAKES = {
    "int_by_value": ({"int", "bool", "index"}, block.INTEGER, VALUE),
    "int_by_reference": ({"int", "bool", "index"}, block.INTEGER, REFERENCE),
    "int_array": (INTS, block.INTEGER, REFERENCE),
    "real_by_value": (NUMBERS, block.REAL, VALUE),
    "real_by_reference": (NUMBERS, block.REAL, REFERENCE),
    "real_array": ({"ints", "tuple of ints", "Decimals", "floats in a list of ints", "doubles in a buffer", "empty list"}, block.REAL, REFERENCE),
    "zstring": ({"str", "bytes"}, block.STRING, VALUE),
    "string": ({"str", "bytes", "Text", "Text of bytes"}, block.STRING, REFERENCE),
    "string_array": ({"strs", "list of bytes", "Text of strs", "empty list"}, block.STRING, REFERENCE),
}
# Not promised either way.
OPEN = {("real_array", "ints in a buffer"), ("real_by_value", "index"), ("real_by_reference", "index"), ("int_array", "bytes"), ("real_array", "bytes"),
        ("zstring", "Text"), ("zstring", "Text of bytes")}  # fmt: skip
SCALARS = ("int", "bool", "index", "Decimal", "float", "Fraction", "str", "bytes", "Text", "Text of bytes")


def meaning(name):
    """The values of a sample, as the block holds them."""
    sample = SAMPLES[name]
    if isinstance(sample, Text):
        sample = sample.value
    values = [sample] if name in SCALARS else list(sample)
    return [value.encode() if isinstance(value, str) else value.value if isinstance(value, Index) else value for value in values]


@pytest.mark.parametrize("kind", TAKES)
def test_a_kind_takes_its_types(m, kind):
    takes, type_, ref = TAKES[kind]
    for name in sorted(takes):
        argument = shown(m, kind, SAMPLES[name])
        expected = block.INTEGER if kind == "real_by_value" and name in ("int", "bool") else type_
        assert (argument.type, argument.ref) == (expected, ref), name
        assert block.values(argument) == meaning(name), name


@pytest.mark.parametrize("kind", TAKES)
def test_a_kind_refuses_all_other_types(m, kind):
    takes, _, _ = TAKES[kind]
    pid = m.pid
    for name in sorted(set(SAMPLES) - takes):
        if (kind, name) in OPEN:
            continue
        with pytest.raises((kahost.RefusedError, kahost.ArgumentError)) as error:
            shown(m, kind, SAMPLES[name])
        assert error.value.argument == (1, "x"), name
        assert error.value.retry == "no", name
    assert m.pid == pid
    assert m.give_code.raw(0).code == 0


VARIABLE = {
    "int": block.INTEGER, "bool": block.INTEGER, "Decimal": block.REAL, "float": block.REAL, "str": block.STRING, "bytes": block.STRING,
    "ints": block.INTEGER, "tuple of ints": block.INTEGER, "strs": block.STRING, "list of bytes": block.STRING,
    "ints in a buffer": block.INTEGER, "doubles in a buffer": block.REAL,
}  # fmt: skip


def test_a_vararg_takes_what_the_type_says(m):
    for name, type_ in VARIABLE.items():
        for wrapped, ref in ((SAMPLES[name], VALUE), (Ref(SAMPLES[name]), REFERENCE)):
            (argument,) = shown_more(m, wrapped)
            assert (argument.type, argument.ref) == (type_, ref), name
            assert block.values(argument) == meaning(name), name


def test_a_vararg_refuses_what_has_no_type(m):
    for name in ("None", "complex", "dict", "set", "object", "list of None", "nested list", "mixed list"):
        with pytest.raises((kahost.RefusedError, kahost.ArgumentError)) as error:
            shown_more(m, 1, SAMPLES[name])
        assert error.value.argument[0] == 3, name


def test_a_buffer_in_more_comes_back_only_of_a_ref(m):
    values = array.array("i", [1, 2])
    assert m.leave_more(values, Ref(values), array.array("d", [1.5])).more == (values,)


def test_only_what_was_a_ref_comes_back_in_more(m):
    assert m.leave_more(1, Ref(2), "a", Ref("b"), Ref([1, 2]), Ref(Decimal("0.5")), Ref(b"c")).more == (2, "b", [1, 2], Decimal("0.5"), b"c")
    assert m.leave_more().more == ()


# ---- INTEGER ---------------------------------------------------------------------------------------------------------


def test_integers_of_32_bits_arrive_and_others_overflow(m):
    for value in (0, 1, -1, 2**31 - 1, -(2**31)):
        for kind in ("int_by_value", "int_by_reference"):
            assert block.values(shown(m, kind, value)) == [value]
        assert block.values(shown(m, "int_array", [value, value])) == [value, value]
        assert block.values(shown_more(m, value)[0]) == [value]
    for value in (2**31, -(2**31) - 1, 2**32, 2**63, 2**64, 10**40, -(10**40)):
        for wrong in (value, Index(value)):
            for kind in ("int_by_value", "int_by_reference"):
                with pytest.raises(OverflowError):
                    shown(m, kind, wrong)
            with pytest.raises(OverflowError):
                shown(m, "int_array", [1, wrong])
        with pytest.raises(OverflowError):
            shown_more(m, value)


def fits(value):
    try:
        block.record(Decimal(value))
        return True
    except ValueError:
        return False


def test_integers_of_1_to_40_digits_are_exact_reals_or_lost_digits(m):
    rng = random.Random(SEED)
    for digits in range(1, 41):
        for trailing in {0, 1, 2, digits - 1, max(0, digits - 15), max(0, digits - 16)}:
            trailing = min(trailing, digits - 1)
            value = rng.choice((1, -1)) * rng.randrange(10 ** (digits - trailing - 1), 10 ** (digits - trailing)) * 10**trailing
            if not fits(value):
                for kind in ("real_by_value", "real_by_reference"):
                    with pytest.raises(kahost.LostDigits) as error:
                        shown(m, kind, value)
                    assert error.value.value == value
                    assert abs(error.value.nearest - value) <= abs(value) * Decimal("1e-14")
                continue
            argument = shown(m, "real_by_value", value)
            assert argument.type == (block.INTEGER if -(2**31) <= value < 2**31 else block.REAL)
            assert block.values(argument) == [value]
            assert block.values(shown(m, "real_by_reference", value)) == [value]


# ---- REAL ------------------------------------------------------------------------------------------------------------


def random_decimal(rng):
    """1 to 16 digits, any exponent that a REAL has."""
    digits = rng.randrange(1, 17)
    number = rng.randrange(10 ** (digits - 1), 10**digits)
    highest = rng.randrange(-130, 126)
    return rng.choice((1, -1)) * Decimal(number).scaleb(highest - digits + 1)


def test_random_decimals_are_equal_or_lost_digits(m, bits):
    """Through the record's bytes: whatever a REAL can hold arrives, and nothing else is ever sent."""
    rng = random.Random(SEED)
    count = 100_000 if FULL else 500 if CHECKED else 5000
    decimals = [random_decimal(rng) for _ in range(count)]
    whole = [value for value in decimals if fits(value)]
    others = [value for value in decimals if not fits(value)]
    assert len(whole) > count // 2 and others
    for some in (whole[i : i + 1000] for i in range(0, len(whole), 1000)):
        argument = shown(m, "real_array", some)
        assert argument.elements == [block.record(value) for value in some]
        back = m.put_reals(some, [0] * len(some), b"".join(argument.elements)).x
        assert back == some and all(type(value) is Decimal for value in back)
    for value in others:
        with pytest.raises(kahost.LostDigits) as error:
            m.real_by_reference(value, "")
        assert error.value.value == value
        assert fits(error.value.nearest) and abs(error.value.nearest - value) <= abs(value) * Decimal("1e-14")
    for value in whole[:100]:
        assert block.values(shown(m, "real_by_value", value)) == [value]
        assert block.values(shown(m, "real_by_reference", value)) == [value]
        assert block.values(shown_more(m, value)[0]) == [value]


def test_rounded_allows_what_would_be_lost(m):
    for value in (Decimal("1234567890.1234567890"), 12345678901234567890, -12345678901234567890, Decimal("-0.12345678901234567")):
        with pytest.raises(kahost.LostDigits) as error:
            shown(m, "real_by_reference", value)
        nearest = error.value.nearest
        assert nearest != value and str(nearest) in str(error.value)
        assert block.values(shown(m, "real_by_reference", kahost.rounded(value))) == [nearest]
        assert block.values(shown(m, "real_array", [1, kahost.rounded(value)])) == [1, nearest]


def test_numbers_that_no_real_can_be_are_argument_errors(m):
    for value in (Decimal("NaN"), Decimal("-sNaN"), Decimal("Infinity"), float("nan"), float("inf"), -float("inf"), Decimal("1e126"),
                  Decimal("-1e126"), 10**126, 1e126, 1e300, Decimal("1e-131"), 1e-131, 5e-324):  # fmt: skip
        for kind, passed in (("real_by_value", value), ("real_by_reference", value), ("real_array", [1, value])):
            with pytest.raises(kahost.ArgumentError) as error:
                shown(m, kind, passed)
            assert error.value.argument == (1, "x")
    for value in (Decimal("99999999999999e112"), Decimal("-99999999999999e112"), Decimal("1e-130"), Decimal("1.5e-129")):
        assert block.values(shown(m, "real_by_reference", value)) == [value]


def test_numbers_as_decimal_reads_them(m):
    for text, value in (("-0", 0), ("0E+5", 0), ("1_000", 1000), ("\u0661\u0662.\u0665", Decimal("12.5")), ("1.500", Decimal("1.5")), ("  7 ", 7)):
        assert block.values(shown(m, "real_by_reference", Decimal(text))) == [value]
    assert block.values(shown(m, "real_by_reference", Fraction(1, 8))) == [Decimal("0.125")]
    assert block.values(shown(m, "real_by_reference", Fraction(-7))) == [-7]
    for value in (Fraction(1, 3), Fraction(1, 10**17 + 1)):
        with pytest.raises(kahost.LostDigits):
            shown(m, "real_by_reference", value)


def test_a_float_goes_as_its_shortest_decimal_that_a_real_holds(m):
    rng = random.Random(SEED)
    fixed = {0.1: "0.1", 0.30000000000000004: "0.3", 2.5: "2.5", 1e22: "1e22", 0.0: "0", -0.0: "0", 123456.789: "123456.789", 1e-9: "1e-9"}
    for value, text in fixed.items():
        for kind, passed in (("real_by_value", value), ("real_by_reference", value), ("real_array", [value])):
            assert block.values(shown(m, kind, passed)) == [Decimal(text)]
    (third,) = block.values(shown(m, "real_by_reference", 1 / 3))
    assert abs(third - Decimal(1 / 3)) <= Decimal("1e-14") / 3
    values = [rng.uniform(-1, 1) * 10.0 ** rng.randrange(-100, 100) for _ in range(200 if CHECKED else 1000)]
    values += [round(rng.uniform(-1e6, 1e6), rng.randrange(8)) for _ in range(200)]
    for value, real in zip(values, block.values(shown(m, "real_array", values)), strict=True):
        exact = Decimal(repr(value))
        assert real == exact if len(exact.as_tuple().digits) <= 15 else abs(real - exact) <= abs(exact) * Decimal("1e-14")
    in_buffer = block.values(shown(m, "real_array", array.array("d", values)))
    assert all(abs(float(real) - value) <= abs(value) * 1e-14 for real, value in zip(in_buffer, values, strict=True))


NULL = block.record(None)
IMPOSSIBLE = struct.pack("<hBb", 3, 1, 2) + bytes([200, 100]).ljust(8, b"\0")


def test_null_and_impossible_reals_come_back_as_none(m):
    for bad in (NULL, IMPOSSIBLE):
        assert m.put_real(1, 2, bad).x is None
        assert m.put_reals([1, 2], [3, 4], block.record(Decimal(7)) + bad).x == [7, None]
        (back,) = m.put_reals(array.array("d", [1.0]), [3], bad)[:1]
        assert list(back) != list(back)  # NaN


def test_results_as_floats(modules):
    with kahost.open(modules["exact"], reals="float", deadline=60) as m:
        result = m.put_reals([1, 2], [3, 4], block.record(Decimal("0.1")) + block.record(Decimal("-2.5e20")))
        assert result.x == [0.1, -2.5e20] and all(type(value) is float for value in result.x)
        assert type(m.put_real(1, 2, block.record(Decimal(3))).x) is float


def test_a_warning_where_the_function_sees_fewer_decimals(m):
    long, short = Decimal("0.123456789012345"), Decimal("0.12345678901234")
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("default")
        warnings.simplefilter("ignore", kahost.LossyKind)
        m.real_by_value(long, "")
    assert caught == []
    for kind, passed in (("real_by_value", long), ("real_by_reference", long), ("real_array", [1, long])):
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always", kahost.LossyKind)
            shown(m, kind, passed)
            shown(m, kind, [short] if isinstance(passed, list) else short)
        assert [warning.category for warning in caught] == [kahost.LossyKind]


def test_the_warning_is_off_by_default(modules):
    program = f"import kahost\nfrom decimal import Decimal\nwith kahost.open({modules['exact']!r}) as m: m.real_by_value(Decimal('0.123456789012345'), '')"
    done = subprocess.run([*PYTHON, "-c", program], stderr=subprocess.PIPE, check=True)
    assert done.stderr == b""


# ---- Buffers ---------------------------------------------------------------------------------------------------------


def test_a_buffer_comes_back_as_its_type(m):
    ints, doubles = array.array("i", [1, -2]), array.array("d", [0.5, 2.0])
    result = m.int_array(ints, "")
    assert type(result.x) is array.array and result.x == ints and result.x is not ints
    result = m.real_array(doubles, "")
    assert type(result.x) is array.array and result.x == doubles and result.x is not doubles


def test_a_buffer_in_place_is_written(m):
    doubles = array.array("d", [0.0, 0.0])
    result = m.put_reals(InPlace(doubles), [0, 0], block.record(Decimal("1.5")) + block.record(Decimal("-3")))
    assert result.x is doubles and list(doubles) == [1.5, -3.0]


def test_buffers_of_other_formats_and_shapes_are_refused_or_sequences(m):
    for values in (array.array("h", [1, 2]), array.array("q", [1, 2]), memoryview(array.array("i", [1, 5, 2]))[::2]):
        assert block.values(shown(m, "int_array", values)) == [1, 2]
    assert block.values(shown(m, "int_array", memoryview(array.array("i", [1, 2])).cast("B").cast("i", (1, 2)))) == [1, 2]
    with pytest.raises(kahost.RefusedError):
        shown(m, "int_array", memoryview(b"ab").cast("c"))
    read_only = memoryview(bytes(8)).cast("i")
    with pytest.raises((kahost.RefusedError, kahost.ArgumentError, BufferError)):
        m.int_array(InPlace(read_only), "")


# ---- STRING ----------------------------------------------------------------------------------------------------------


def test_strings_of_all_bytes_go_and_come(m):
    octets = bytes(range(256))
    assert block.values(shown(m, "string", octets)) == [octets]
    assert block.values(shown(m, "string_array", [octets, octets[::-1]])) == [octets, octets[::-1]]
    assert m.octets(Text(b"", room=256)).shown == octets
    assert m.octets(Text("", room=256)).shown.encode("utf-8", "surrogateescape") == octets
    assert block.values(shown(m, "string", octets.decode("utf-8", "surrogateescape"))) == [octets]
    assert block.values(shown(m, "zstring", octets[1:])) == [octets[1:]]
    for wrong in (octets, "a\0", b"\0"):
        with pytest.raises((kahost.RefusedError, kahost.ArgumentError)):
            shown(m, "zstring", wrong)


def test_a_string_has_the_room_that_it_is_given(m):
    for length in (0, 8, 9):
        argument = shown(m, "string", Text("x" * length, room=9))
        assert argument.maxlen == 9 and block.values(argument) == [b"x" * length]
    assert shown(m, "string", Text("x" * 10, room=9)).maxlen == 10
    assert shown(m, "string", "").maxlen == 256
    assert shown(m, "string", "x" * 255).maxlen == 256
    assert shown(m, "string", "x" * 256).maxlen == 256
    assert shown(m, "string", "x" * 257).maxlen == 257
    assert shown(m, "string_array", Text(["a", "bcd"], room=3)).maxlen == 3
    assert shown(m, "string_array", ["a", "b" * 300]).maxlen == 300


def test_the_room_of_a_module_and_its_encoding(modules):
    with kahost.open(modules["exact"], room=10, encoding="latin-1", deadline=60) as m:
        assert shown(m, "string", "été").maxlen == 10
        assert block.values(shown(m, "string", "été")) == [b"\xe9t\xe9"]
        assert m.octets("").shown == "".join(map(chr, range(10)))
        with pytest.raises(UnicodeEncodeError):
            shown(m, "string", "\u20ac")


def test_text_that_cannot_be_encoded_sends_nothing(m):
    with pytest.raises(UnicodeEncodeError):
        shown(m, "string", "\ud800")
    assert block.values(shown(m, "string", "ok")) == [b"ok"]


# ---- Numbers of arguments and of elements ----------------------------------------------------------------------------


def test_a_call_has_50_arguments_at_most(m):
    assert [block.values(each) for each in shown_more(m, *range(49))] == [[i] for i in range(49)]
    with pytest.raises((kahost.RefusedError, kahost.ArgumentError)):
        shown_more(m, *range(50))
    assert shown_more(m) == []


def test_arrays_have_their_least_numbers_of_elements(m):
    assert m.at_least([1, 2, 3], [1, 2], ["a"]).values == [1, 2, 3]
    for arguments, wrong in ((([1, 2], [1, 2], ["a"]), (1, "values")), (([1, 2, 3], [1], ["a"]), (2, "reals")), (([1, 2, 3], [1, 2], []), (3, "words"))):
        with pytest.raises(kahost.RefusedError) as error:
            m.at_least(*arguments)
        assert error.value.argument == wrong


def test_too_few_too_many_and_unknown_arguments_are_type_errors(m):
    for arguments, named in (((), {}), ((1, "", 2), {}), ((1,), {"y": 2}), ((1,), {"x": 1})):
        with pytest.raises(TypeError):
            m.int_by_value(*arguments, **named)
    assert block.values(block.read(m.int_by_value(x=4, shown=Text(b"", room=99)).shown)[0]) == [4]


def test_what_the_module_withdraws_is_none(m):
    names = ("i", "r", "s")
    for taken in itertools.product((0, 1), repeat=4):
        which = sum(bit << place for place, bit in enumerate(taken, 1))
        result = m.withdraw(which, 1, Decimal("0.5"), "a", Ref(4))
        assert [getattr(result, name) is None for name in names] == [bool(bit) for bit in taken[:3]]
        assert result.more == ((None,) if taken[3] else (4,))
