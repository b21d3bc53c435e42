# SPDX-License-Identifier: MIT
"""What the block holds of each value that is passed, and what each value in the block comes back as. The module exact
shows and gives the block's own bytes; block.py reads them."""

import array
import ctypes
import decimal
import os
import random
import subprocess
import warnings
from decimal import Decimal
from fractions import Fraction

import pytest

import block
import kahost
from block import INTEGER, REAL, STRING
from conftest import FULL, PYTHON, SEED

ROUNDS = int(os.environ.get("KA_ROUNDS", "10" if FULL else "1"))
ROOM = 200000
pytestmark = pytest.mark.filterwarnings("ignore::kahost.LossyKind")


@pytest.fixture(scope="module")
def exact(modules):
    with kahost.open(modules["exact"], deadline=60, segment=4 << 20, room=16) as m:
        yield m


def shown(function, *args):
    """What the block held of the arguments."""
    return block.read(function(*args, kahost.Text(b"", ROOM)).shown)


def passed(function, value):
    """The one argument that was shown, and what its elements mean."""
    (argument,) = shown(function, value)
    return argument, block.values(argument)


def echo(function, value):
    """What came back of the argument."""
    return function(value, kahost.Text(b"", ROOM)).x


class Index:
    def __init__(self, value):
        self.value = value

    def __index__(self):
        return self.value


class IndexArray(array.array):
    """As arrays are that can be an index when they have one element."""

    def __index__(self):
        raise TypeError("only one element can be an index")


class MyInt(int):
    def __str__(self):
        return "666"


class MyDecimal(Decimal):
    def __str__(self):
        return "nonsense"


# ---- INTEGER ---------------------------------------------------------------------------------------------------------

INTEGERS = [0, 1, -1, 2**31 - 1, -(2**31), True, False, MyInt(7), Index(-5)]
WIDE = [2**31, -(2**31) - 1, 2**64, Index(2**40), 10**5000]
NO_INTEGERS = [1.0, Decimal(1), Fraction(1), "1", b"1", None, [], object()]


@pytest.mark.parametrize("name, ref", [("int_by_value", 0), ("int_by_reference", 1)])
def test_integers(exact, name, ref):
    for value in INTEGERS:
        argument, values = passed(exact[name], value)
        assert (argument.type, bool(argument.ref), values) == (INTEGER, bool(ref), [Index(value).value.__index__()])
    for value in WIDE:
        with pytest.raises(OverflowError):
            exact[name](value)
    for value in NO_INTEGERS:
        with pytest.raises(TypeError) as caught:
            exact[name](value)
        assert caught.value.argument == (1, "x")
        assert caught.value.code == 8


def test_integers_come_back(exact):
    for value in INTEGERS:
        back = echo(exact.int_by_reference, value)
        assert type(back) is int and back == value.__index__()
    assert echo(exact.int_array, INTEGERS) == [value.__index__() for value in INTEGERS]


@pytest.mark.parametrize("make", [list, tuple, lambda values: array.array("i", values), lambda values: array.array("q", values)])
def test_integer_arrays(exact, make):
    for values in ([], [5], list(range(-1000, 1000))):
        argument, got = passed(exact.int_array, make(values))
        assert (argument.type, argument.elcnt, got) == (INTEGER, len(values), values)


def test_other_sequences_of_integers(exact):
    assert passed(exact.int_array, range(3))[1] == [0, 1, 2]
    assert passed(exact.int_array, b"ab")[1] == [97, 98]
    for value in (3, "12", {1, 2}, {1: 2}, iter([1]), None):
        with pytest.raises(TypeError):
            exact.int_array(value)
    for values in ([1, 2.0], [1, None], [1, "2"]):
        with pytest.raises(TypeError):
            exact.int_array(values)
    with pytest.raises(OverflowError):
        exact.int_array([1, 2**31])


BUFFERS_OF_INTEGERS = [
    array.array("i", [1, -2, 3]),
    memoryview(array.array("i", [1, -2, 3])),
    (ctypes.c_int32 * 3)(1, -2, 3),
]


@pytest.mark.parametrize("buffer", BUFFERS_OF_INTEGERS, ids=lambda buffer: type(buffer).__name__)
def test_buffers_of_integers(exact, buffer):
    assert passed(exact.int_array, buffer)[1] == [1, -2, 3]
    back = echo(exact.int_array, buffer)
    assert back is not buffer and type(back) is type(buffer) and list(back) == [1, -2, 3]


def test_buffers_in_place(modules):
    values, reals = array.array("i", [1, 2]), array.array("d", [1.0, 2.0])
    with kahost.open(modules["tasks"], deadline=60) as m:
        assert m.double(kahost.InPlace(values))[0] is values and list(values) == [2, 4]
        assert list(m.double(values)[0]) == [4, 8] and list(values) == [2, 4]
        assert m.scale(kahost.InPlace(reals), 3)[0] is reals and list(reals) == [3.0, 6.0]
        view = memoryview(reals)[:1]
        assert m.scale(kahost.InPlace(view), 2)[0] is view and list(reals) == [6.0, 6.0]
        for value in ([1, 2], array.array("q", [1]), 5):
            with pytest.raises(TypeError):
                m.double(kahost.InPlace(value))
        with pytest.raises(BufferError):
            m.double(kahost.InPlace(memoryview(values).toreadonly()))
    values.append(3)  # nobody holds it any more


def test_a_buffer_that_is_not_contiguous_is_a_sequence(exact):
    assert echo(exact.int_array, memoryview(array.array("i", range(6)))[::2]) == [0, 2, 4]


# ---- REAL ------------------------------------------------------------------------------------------------------------

D = Decimal
REALS = [D(0), D(1), D("-1.5"), D("0.1"), D("1E-130"), D("9.99E+125"), D("1234567890123456"), D("0.1234567890123456"), D("-4E+20")]
ODD_REALS = [(D("-0"), 0), (D("0E+5"), 0), (D("0E-5000"), 0), (D("1_000"), 1000), (D("٣"), 3), (MyDecimal("2.5"), D("2.5")), (D("1.50"), D("1.5"))]
ODD_REALS += [(D("1" + "0" * 1200 + "E-1200"), 1)]
NUMBERS = [(7, 7), (True, 1), (2**31, 2**31), (-(2**40), -(2**40)), (10**125, D("1E+125")), (0.5, D("0.5")), (0.1, D("0.1"))]
NUMBERS += [(0.30000000000000004, D("0.3")), (1 / 3, D("0.3333333333333333")), (1e-5, D("0.00001")), (Fraction(1, 8), D("0.125"))]
NUMBERS += [(Fraction(-3, 1), -3), (Index(12), 12), (1.5e300 / 1e200, D("1.5E+100"))]
NUMBERS += [(MyInt(5), 5), (MyInt(10**24), D("1E+24"))]
LOST = [D("1.2345678901234567"), D("12345678901234567"), 2**62 + 1, 12345678901234567890, D(1) / 3, Fraction(1, 3), D("1" + "0" * 99 + "1")]
LOST += [Fraction(10**300 + 1, 10**300), Fraction(10**5000 - 1, 10**5000)]
BEYOND = [D("NaN"), D("sNaN"), D("Infinity"), D("-Infinity"), D("1E+126"), D("1E-131"), D("1E+5000"), float("nan"), float("inf"), 1e127]
BEYOND += [10**126, 10**5000, -(10**5000), None, 1e-200, Fraction(1, 10**140)]
BEYOND += [Fraction(10**5000), Fraction(10**5000, 3)]
NO_REALS = ["1", b"1", "", [], {}, 1j, object()]


@pytest.mark.parametrize("name", ["real_by_value", "real_by_reference"])
def test_reals(exact, name):
    by_reference = name == "real_by_reference"
    for value, expected in [(value, value) for value in REALS] + ODD_REALS + NUMBERS:
        argument, values = passed(exact[name], value)
        integer = not by_reference and isinstance(value, int) and abs(value) < 2**31
        assert values == [expected], value
        assert argument.type == (INTEGER if integer else REAL)
        assert bool(argument.ref) == by_reference


@pytest.mark.parametrize("name", ["real_by_value", "real_by_reference", "real_array", "more"])
def test_no_digit_is_lost_in_silence(exact, name):
    function = exact[name] if name != "more" else lambda value: exact.more("", value)
    for value in LOST:
        if name == "more" and isinstance(value, int):
            continue
        with pytest.raises(kahost.LostDigits) as caught:
            function([value] if name == "real_array" else value)
        error = caught.value
        assert isinstance(error, (kahost.ArgumentError, ArithmeticError, ValueError))
        assert error.value is value and error.nearest != value and str(error.nearest) in str(error)
        assert abs(Fraction(error.nearest) - Fraction(value)) <= abs(Fraction(value)) / 10**14
        assert passed(exact.real_by_reference, kahost.rounded(value))[1] == [error.nearest]


def test_rounded():
    class MyFloat(float):
        def __repr__(self):
            return f"MyFloat({float(self)})"

    assert kahost.rounded([MyFloat(0.1), 10**30 + 1, Fraction(1, 4), D("1.5")]) == [D("0.1"), D("1E+30"), D("0.25"), D("1.5")]
    assert kahost.rounded(Index(10**18 + 1)) == 10**18
    for value in BEYOND:
        if value is not None:
            with pytest.raises(kahost.ArgumentError):
                kahost.rounded(value)


CONTEXTS = """
import decimal, sys
from decimal import Decimal
from fractions import Fraction
def spoil(context):
    context.prec, context.Emin, context.Emax, context.capitals = 3, -3, 3, 0
    context.traps = dict.fromkeys(context.traps, True)
spoil(decimal.DefaultContext)
spoil(decimal.getcontext())
import kahost
values = [Decimal("12345678901234"), Decimal("1E+120"), Decimal("-1.5E-120"), Fraction(12345, 8), 0.1, 10**13 + 1]
with kahost.open(sys.argv[1], deadline=60) as m:
    got = [m.real_by_reference(value, kahost.Text("", 1000)).x for value in values]
    for lost in (Fraction(1, 3), Decimal("1.23456789012345678901")):
        try:
            m.real_by_reference(lost, kahost.Text("", 1000))
        except kahost.LostDigits as error:
            got += [error.nearest, kahost.rounded(lost)]
print([str(each).upper() for each in got])
"""


def test_contexts_of_the_program_change_nothing(modules):
    done = subprocess.run([*PYTHON, "-c", CONTEXTS, modules["exact"]], capture_output=True, text=True, timeout=120)
    expected = ["12345678901234", "1E+120", "-1.5E-120", "1543.125", "0.1", "10000000000001"]
    expected += 2 * ["0.3333333333333333"] + 2 * ["1.23456789012346"]
    assert (done.stdout.strip(), done.stderr) == (str(expected), "")


@pytest.mark.parametrize("name", ["real_by_value", "real_by_reference", "real_array"])
def test_numbers_that_are_no_reals(exact, name):
    for value in BEYOND:
        with pytest.raises(kahost.ArgumentError) as caught:
            exact[name]([value] if name == "real_array" else value)
        assert caught.value.argument == (1, "x") and not isinstance(caught.value, kahost.LostDigits)
    for value in NO_REALS:
        with pytest.raises(TypeError) as refused:
            exact[name]([value] if name == "real_array" else value)
        assert refused.value.argument == (1, "x")


def random_decimal(draw):
    digits = draw.randrange(1, 17)
    coefficient = draw.randrange(10 ** (digits - 1), 10**digits)
    return Decimal(coefficient * draw.choice((1, -1))).scaleb(draw.randrange(-129 - digits, 127), decimal.Context(prec=40))


def test_random_decimals_are_the_very_ones_or_refused(exact):
    draw = random.Random(SEED)
    there = refused = 0
    for _ in range(100 * ROUNDS):
        sent = []
        for value in (random_decimal(draw) for _ in range(1000)):
            try:
                nearest = kahost.rounded(value)
            except kahost.ArgumentError:
                assert not D("1E-130") <= abs(value) < D("1E+126"), value
                nearest = None
            if nearest == value:
                sent.append(value)
                continue
            refused += 1
            with pytest.raises(kahost.ArgumentError) as caught:
                exact.real_by_reference(value)
            assert isinstance(caught.value, kahost.LostDigits) == (nearest is not None)
        (argument,) = shown(exact.real_array, sent)
        records = [block.record(value) for value in sent]
        assert [element[: 4 + element[3]] for element in argument.elements] == [record[: 4 + record[3]] for record in records]
        back = exact.put_reals(sent, [0] * len(sent), kahost.Text(b"".join(records), 0)).x
        assert back == sent and all(type(value) is Decimal for value in back)
        there += len(sent)
    assert there > 50000 * ROUNDS and refused > 1000 * ROUNDS


def test_integers_of_1_to_40_digits(exact):
    draw = random.Random(SEED)
    for digits in range(1, 41):
        for _ in range(20 * ROUNDS):
            value = draw.randrange(10 ** (digits - 1), 10**digits) * draw.choice((1, -1))
            nearest = kahost.rounded(value)
            if nearest == value:
                assert passed(exact.real_by_value, value)[1] == [value]
            else:
                assert digits > 15
                with pytest.raises(kahost.LostDigits):
                    exact.real_by_value(value)


def test_random_floats_lose_at_most_a_decimal_of_the_last_place(exact):
    draw = random.Random(SEED)
    for _ in range(2 * ROUNDS):
        values = [draw.uniform(-1, 1) * 10.0 ** draw.randrange(-100, 100) for _ in range(1000)]
        values += [round(value, 12) for value in values if 1e-3 < abs(value) < 100]
        for value, got in zip(values, passed(exact.real_array, values)[1], strict=True):
            assert got == kahost.rounded(value)
            assert abs(Fraction(got) - Fraction(value)) <= abs(Fraction(value)) / 10**14
            if len(repr(value).partition("e")[0].replace(".", "").strip("-0")) <= 15:
                assert float(got) == value


def test_a_null_real_is_none(exact):
    records = b"".join(map(block.record, [None, D("2.5"), None]))
    assert exact.put_reals([1, 2, 3], [0, 0, 0], kahost.Text(records, 0)).x == [None, D("2.5"), None]
    assert exact.put_real(1, 0, kahost.Text(records[:12], 0)).x is None
    with_buffer = exact.put_reals(array.array("d", [1, 2, 3]), [0, 0, 0], kahost.Text(records, 0)).x
    assert [str(value) for value in with_buffer] == ["nan", "2.5", "nan"]
    as_floats = exact.put_reals.options(reals="float")([1, 2, 3], [0, 0, 0], kahost.Text(records, 0)).x
    assert [str(value) for value in as_floats] == ["nan", "2.5", "nan"] and type(as_floats[1]) is float


def test_buffers_of_doubles(exact):
    values = [0.5, -2.25, 1e100, 0.1]
    for buffer in (array.array("d", values), memoryview(array.array("d", values)), (ctypes.c_double * 4)(*values)):
        assert [float(value) for value in passed(exact.real_array, buffer)[1]] == values
        back = echo(exact.real_array, buffer)
        assert back is not buffer and type(back) is type(buffer) and list(back) == values
    with pytest.raises(kahost.ArgumentError):
        exact.real_array(array.array("d", [1.0, float("nan")]))


def test_numpy_without_its_import(exact):
    numpy = pytest.importorskip("numpy")
    reals, integers = numpy.array([[0.5, 1.5], [2.5, 3.5]]), numpy.array([1, 2, 3], dtype=numpy.int32)
    back = echo(exact.real_array, reals)
    assert type(back) is numpy.ndarray and back.shape == (2, 2) and (back == reals).all() and back is not reals
    back = echo(exact.int_array, integers)
    assert back.dtype == numpy.int32 and list(back) == [1, 2, 3]
    assert echo(exact.int_array, numpy.array([1, 2, 3])) == [1, 2, 3]


def test_reals_as_floats(modules):
    with kahost.open(modules["exact"], deadline=60, reals="float") as m:
        back = echo(m.real_by_reference, D("2.5"))
        assert type(back) is float and back == 2.5
        assert echo(m.real_array, [1, 0.25]) == [1.0, 0.25]
        assert echo(m.real_by_reference.options(reals="decimal"), D("2.5")) == D("2.5")
    with pytest.raises(ValueError):
        kahost.open(modules["exact"], reals="double")


def test_the_warning_of_decimals_that_doubles_lose(exact):
    many = D("1.23456789012345")
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("ignore")
        warnings.filterwarnings("always", category=kahost.LossyKind)
        echo(exact.real_by_reference, D("1.2345678901234"))
        echo(exact.real_by_reference, 1.23456789012345)
        assert caught == []
        echo(exact.real_by_reference, many)
        echo(exact.real_array, [many, many])
        assert [warning.category for warning in caught] == [kahost.LossyKind] * 2
        assert caught[0].filename == __file__
    with warnings.catch_warnings():
        warnings.simplefilter("error", kahost.LossyKind)
        with pytest.raises(kahost.LossyKind):
            exact.real_by_value(many)
    assert exact.real_by_value(many, kahost.Text(b"", ROOM)).shown


def test_the_warning_is_off_by_default(modules):
    program = f"import kahost, decimal; m = kahost.open({modules['exact']!r}); m.real_by_reference(decimal.Decimal('1.23456789012345')); m.close()"
    done = subprocess.run([*PYTHON, "-c", program], stderr=subprocess.PIPE, check=True)
    assert done.stderr == b""


# ---- STRING ----------------------------------------------------------------------------------------------------------

EVERY_BYTE = bytes(range(256))


@pytest.mark.parametrize("value", [b"", b"x", EVERY_BYTE, EVERY_BYTE * 40, "", "wörld", "\udc80\udcff", "a\0b", "😀"], ids=repr)
def test_strings(exact, value):
    data = value if isinstance(value, bytes) else value.encode("utf-8", "surrogateescape")
    argument, values = passed(exact.string, value)
    assert (argument.type, bool(argument.ref), values) == (STRING, True, [data])
    assert argument.maxlen == max(16, len(data))
    back = echo(exact.string, value)
    assert back == value and type(back) is type(value)


def test_strings_without_a_zero(exact):
    for value in (b"", EVERY_BYTE[1:], "", "wörld", "\udc80"):
        data = value if isinstance(value, bytes) else value.encode("utf-8", "surrogateescape")
        argument, values = passed(exact.zstring, value)
        assert (argument.type, bool(argument.ref), values) == (STRING, False, [data])
    for value in ("a\0b", b"\0"):
        with pytest.raises(ValueError) as caught:
            exact.zstring(value)
        assert caught.value.argument == (1, "x")


@pytest.mark.parametrize("room", [0, 1, 2, 15, 16, 17, 1000])
def test_room(exact, room):
    for length in {0, max(room - 1, 0), room, room + 1}:
        argument, values = passed(exact.string, kahost.Text("x" * length, room))
        assert argument.maxlen == max(room, length) and values == [b"x" * length]
    full = exact.octets(kahost.Text(b"", room)).shown
    assert full == (EVERY_BYTE * 4)[:room]
    assert exact.octets.options(room=room)(b"").shown == full


def test_string_arrays(exact):
    for values in ([], ["a"], ["", "wörld", "x" * 40], [b"", EVERY_BYTE], ("a", "b")):
        data = [value if isinstance(value, bytes) else value.encode() for value in values]
        argument, got = passed(exact.string_array, values)
        assert (argument.type, argument.elcnt, got) == (STRING, len(values), data)
        assert echo(exact.string_array, values) == list(values)
    assert passed(exact.string_array, kahost.Text(["a", "b"], 99))[0].maxlen == 99
    assert echo(exact.string_array, ["a", b"\xff"]) == ["a", "\udcff"]
    for value in ("abc", b"abc", ["a", 1], [None], 5, kahost.Text("abc", 9)):
        with pytest.raises(TypeError):
            exact.string_array(value)


@pytest.mark.parametrize("name", ["zstring", "string"])
def test_no_strings(exact, name):
    for value in (1, None, D(1), ["a"], bytearray(b"a"), memoryview(b"a"), 1.5):
        with pytest.raises(TypeError) as caught:
            exact[name](value)
        assert caught.value.argument == (1, "x")


def test_encodings(modules):
    with kahost.open(modules["exact"], deadline=60, encoding="latin-1", errors="strict") as m:
        assert passed(m.string, "é")[1] == [b"\xe9"]
        assert echo(m.string, "é") == "é"
        assert m.octets(kahost.Text("", 256)).shown == EVERY_BYTE.decode("latin-1")
        with pytest.raises(UnicodeEncodeError):
            m.string("€")
    with kahost.open(modules["exact"], deadline=60, errors="strict") as m:
        with pytest.raises(UnicodeDecodeError):
            m.octets(kahost.Text("", 256))
        with pytest.raises(UnicodeEncodeError):
            m.string("\udc80")
    with pytest.raises(LookupError):
        kahost.open(modules["exact"], encoding="no such encoding")


# ---- VarArg ----------------------------------------------------------------------------------------------------------

MORE = [
    (5, INTEGER, [5]),
    (True, INTEGER, [1]),
    (D("2.5"), REAL, [D("2.5")]),
    (2.5, REAL, [D("2.5")]),
    (Fraction(1, 4), REAL, [D("0.25")]),
    ("text", STRING, [b"text"]),
    (b"\0\xff", STRING, [b"\0\xff"]),
    ([1, 2], INTEGER, [1, 2]),
    ((D(1), 2.5), REAL, [D(1), D("2.5")]),
    (["a", b"b"], STRING, [b"a", b"b"]),
    (array.array("i", [3, 4]), INTEGER, [3, 4]),
    (array.array("d", [0.5]), REAL, [D("0.5")]),
    (IndexArray("i", [5]), INTEGER, [5]),
]


def test_further_arguments(exact):
    values = [value for value, _, _ in MORE]
    arguments = block.read(exact.more(kahost.Text(b"", ROOM), *values).shown)
    assert [(each.type, block.values(each)) for each in arguments] == [(type_, expected) for _, type_, expected in MORE]
    assert exact.more(kahost.Text(b"", ROOM)).shown == b""
    assert exact.more(kahost.Text(b"", ROOM)).more == ()


def test_further_arguments_by_reference(exact):
    values = [kahost.Ref(value) for value, _, _ in MORE if not isinstance(value, Fraction)]
    result = exact.more(kahost.Text(b"", ROOM), *values)
    arguments = block.read(result.shown)
    assert all(argument.ref for argument in arguments)
    for got, value in zip(result.more, values):
        value = list(value.value) if isinstance(value.value, tuple) else value.value
        assert got == (value if value != ["a", b"b"] else ["a", "b"])
    assert exact.more(kahost.Text(b"", ROOM), 1, kahost.Ref(2), "x", kahost.Ref("y")).more == (2, "y")
    (argument,) = block.read(exact.more(kahost.Text(b"", ROOM), kahost.Ref(kahost.Text("a", 77))).shown)
    assert argument.maxlen == 77


def test_further_arguments_that_are_refused(exact):
    for value in ([1, "a"], [1, D(1)], [], [None], None, object(), {}, [[1]]):
        with pytest.raises((TypeError, kahost.ArgumentError)) as caught:
            exact.more("", 1, value)
        assert caught.value.argument == (3, "more")
    with pytest.raises(OverflowError):
        exact.more("", 2**31)


@pytest.mark.parametrize("count", [49, 50, 51, 60])
def test_fifty_arguments(exact, count):
    if count <= 50:
        result = exact.more(kahost.Text(b"", ROOM), *[kahost.Ref(i) for i in range(count - 1)])
        assert result.more == tuple(range(count - 1))
    else:
        with pytest.raises(kahost.ArgumentError):
            exact.more("", *range(count - 1))


# ---- What a module takes back ----------------------------------------------------------------------------------------


def test_what_is_withdrawn_is_none(exact):
    assert exact.withdraw(0b0010, 1, 2, "s") == (None, D(2), "s", ())
    assert exact.withdraw(0b1100, 1, 2, "s", kahost.Ref(5)) == (1, None, None, (5,))
    assert exact.withdraw(0b10000, 1, 2, "s", kahost.Ref(5)).more == (None,)


# ---- Values that work while they are converted -----------------------------------------------------------------------


def test_an_index_that_uses_the_host_is_refused(exact):
    class Greedy:
        def __index__(self):
            return exact.int_by_reference(5, kahost.Text(b"", ROOM)).x

    with pytest.raises(kahost.ArgumentError):
        exact.int_by_reference(Greedy())
    assert echo(exact.int_by_reference, 5) == 5


def test_an_index_that_raises_or_changes_the_list(exact):
    class Raises:
        def __index__(self):
            raise KeyError("mine")

    with pytest.raises(KeyError):
        exact.int_array([1, Raises()])
    values = [1, None, 3]

    class Clears:
        def __index__(self):
            values.clear()
            return 2

    values[1] = Clears()
    assert echo(exact.int_array, values) == [1, 2, 3]
