# SPDX-License-Identifier: MIT
"""Functions and arguments whose names are no names of Python's, are taken, or are there twice; wrong tables."""

import functools
import inspect
import keyword
import pickle
import pydoc

import pytest

import kahost

LATIN = "\xe9t\xe9"  # as Latin-1 has it
FUNCTIONS = {"close": 0, "class": 1, "a b": 2, LATIN: 3, "_x": 4, "twice": 5, "__init__": 7, "callback": 8, "": 9}


@pytest.fixture
def m(modules, bits):
    with kahost.open(modules["names", bits], encoding="latin-1", deadline=60) as module:
        yield module


def test_every_name_of_the_table_is_a_key(m):
    for name, number in FUNCTIONS.items():
        assert m[name]().number == number
        assert m[name].__name__ == name
    assert set(m.functions) == {*FUNCTIONS, "strange", "fields"}
    assert all(m.functions[name]().number == number for name, number in FUNCTIONS.items())


def test_a_name_is_an_attribute_unless_the_module_has_one(m):
    assert m._x().number == 4
    assert getattr(m, "class")().number == 1
    assert getattr(m, "a b")().number == 2
    assert getattr(m, LATIN)().number == 3
    assert m.callback is None
    assert m.close.__name__ == "close" and not isinstance(m.close, type(m["close"]))
    assert {"class", LATIN, "_x", "twice", "strange", "close"} <= set(dir(m))
    assert all(name.isidentifier() for name in dir(m))
    m.close()
    with pytest.raises(kahost.ClosedError):
        m["close"]()


def test_a_name_that_is_not_there(m):
    with pytest.raises(KeyError):
        m["nowhere"]
    with pytest.raises(AttributeError):
        m.nowhere
    assert not hasattr(m, "__array__")
    assert m.functions.get("nowhere") is None


def test_the_encoding_decides_how_a_name_is_read(modules, bits):
    with kahost.open(modules["names", bits], deadline=60) as m:
        assert m["\udce9t\udce9"]().number == 3
    with kahost.open(modules["names", bits], errors="replace", deadline=60) as m:
        assert m["\ufffdt\ufffd"]().number == 3


def test_parameters_have_names_of_python(m):
    names = list(inspect.signature(m["strange"]).parameters)
    assert names[:10] == ["argument_1", "argument_2", "x", "argument_4", "argument_5", "argument_6", "argument_7", LATIN, "_under", "self"]
    assert len(set(names)) == 12 and names[11] == "number"
    assert all(name.isidentifier() and not keyword.iskeyword(name) for name in names)
    assert [prototype.name for prototype in m["strange"].prototypes][:4] == ["class", "a b", "x", "x"]
    assert [prototype.name for prototype in m["strange"].prototypes][6:] == ["1st", LATIN, "_under", "self", "argument_5", "number"]
    arguments = dict.fromkeys(names[:11], 1) | {names[8]: 3}
    assert m["strange"](**arguments) == (3, 10)


def test_fields_of_results_are_renamed_as_a_named_tuple_does(m):
    assert m["strange"](*[1] * 11)._fields == ("_0", "number")
    result = m.fields(5, 6)
    assert result._fields == ("_0", "count", "number")
    assert result == (5, 6, 11) and result.number == 11
    assert repr(result) == "fields(_0=5, count=6, number=11)"
    again = pickle.loads(pickle.dumps(result))
    assert again == result and again._fields == result._fields and again.number == 11


def test_a_function_is_one_to_the_tools_of_python(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        assert {name: each.default for name, each in inspect.signature(m.scale).parameters.items()} == {
            "factor": inspect.Parameter.empty, "values": inspect.Parameter.empty, "largest": 0}  # fmt: skip
        assert [each.kind.name for each in inspect.signature(m.join).parameters.values()][-1] == "VAR_POSITIONAL"
        text = pydoc.plain(pydoc.render_doc(m.scale))
        lines = [line.split("|")[-1].strip() for line in text.splitlines()]
        assert any(line.startswith("factor") and "RealByValue" in line for line in lines)
        assert any(line.startswith("values") and "RealArray" in line and "2" in line and "takes REAL" in line for line in lines)
        assert len(m.scale.__doc__.splitlines()) >= 3

        @functools.wraps(m.scale)
        def wrapped(*arguments):
            return m.scale(*arguments)

        assert wrapped.__name__ == "scale" and wrapped.__doc__ == m.scale.__doc__
        assert inspect.signature(wrapped) == inspect.signature(m.scale)
        assert "tour" in repr(m) and str(m.pid) in repr(m)
        assert callable(m.total) and "total" in repr(m.total)


def test_wrong_tables_are_read_and_wrong_functions_refused(modules, bits):
    path = modules["wrong_tables", bits]
    with kahost.open(path, encoding="latin-1", deadline=60) as m:
        pid = m.pid
        for name in ("wrong_kind", "wrong_count", "wrong_index", "too_many"):
            with pytest.raises((kahost.RefusedError, TypeError)):
                m[name](1)
            inspect.signature(m[name])
            assert isinstance(m[name].__doc__, str)
        assert m["twice"]().number == 5 and m.pid == pid


def test_the_tables_of_a_file_are_read_without_running_it(modules, bits):
    tables = kahost.read(modules["names", bits])
    assert list(tables.functions)[:3] == ["close", "class", "a b"]
    assert tables.functions["a b"].prototypes[0][:2] == ("number", "IntByReference")
    with pytest.raises((kahost.Error, OSError)):
        kahost.read("/nowhere")
