# SPDX-License-Identifier: MIT
"""Modules and their functions: how they are opened and closed, and what their tables become."""

import contextlib
import errno
import functools
import inspect
import os
import pathlib
import pickle
import pydoc
import signal
import sys
import typing
from decimal import Decimal

import pytest

import kahost
from conftest import wait_until


@pytest.fixture(scope="module")
def tour(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        yield m


# ---- Opening ---------------------------------------------------------------------------------------------------------


def test_the_quick_start(modules):
    with kahost.open(modules["tour"], deadline=5) as m:
        result = m.scale(2.5, [1, Decimal("2.5")])
        assert repr(result) == "scale(values=[Decimal('2.5'), Decimal('6.25')], largest=Decimal('6.25'))"
        assert m.total([1, 2, 3]) == ([1, 2, 3], 6)
        assert m.greet("wörld").greeting == "hello, wörld"
        with pytest.raises(kahost.ReturnedCode) as caught:
            m.greet("x", kahost.Text("", room=3))
        assert (str(caught.value), caught.value.code, caught.value.function) == ("greet returned 18", 18, "greet")
        assert caught.value.results.greeting == ""
        assert m.total.raw([1, 2, 3]) == (0, ([1, 2, 3], 6))
        assert m.greet.raw("x", kahost.Text("", 3)).code == 18
    assert m.closed


def test_the_names_of_the_package():
    assert {"Pool", *kahost.__all__} <= set(dir(kahost)) and not {"Any", "annotations"} & set(dir(kahost))


def test_both_word_sizes(modules, bits):
    with kahost.open(modules["tour", bits], deadline=60) as m:
        assert m.total([1, 2]).sum == 3


def test_what_does_not_start(modules, tmp_path):
    with pytest.raises(kahost.StartError) as caught:
        kahost.open(tmp_path / "missing")
    assert isinstance(caught.value, OSError) and caught.value.retry == "no" and caught.value.errno == errno.ENOENT
    (tmp_path / "no_module").write_text("#!/bin/sh\n")
    (tmp_path / "looped").symlink_to("looped")
    for name, number in (("no_module", errno.EACCES), ("", errno.EACCES), ("no_module/x", errno.ENOTDIR), ("looped", errno.ELOOP)):
        with pytest.raises(kahost.StartError) as caught:  # as the system says of execve
            kahost.open(tmp_path / name)
        assert caught.value.errno == number, name
    for name, number in (("missing", errno.ENOENT), ("", errno.EACCES)):
        with pytest.raises(kahost.StartError) as caught:
            kahost.read(tmp_path / name)
        assert caught.value.errno == number, name
    for function in (kahost.open, kahost.read):
        with pytest.raises(ValueError):
            function(modules["tour"] + "\0x")
    with pytest.raises(kahost.StartError) as caught:
        kahost.open("no-such-module")
    assert "not searched for" in str(caught.value)


def test_a_missing_library_is_known_when_it_is_opened(modules):
    with pytest.raises(kahost.StartError) as caught:
        kahost.open(modules["no_library"], deadline=60)
    error = caught.value
    assert error.exit_status == 127 and ".so" in error.report
    assert any(".so" in line for line in error.details["error_output"])


def test_a_module_that_ends_at_start(modules):
    with pytest.raises(kahost.StartError) as caught:
        kahost.open(modules["tasks"], deadline=60, env={**os.environ, "KA_TEST_SETUP": "exit7"})
    error = caught.value
    assert error.exit_status == 7 and error.retry == "no" and "status 7" in error.report
    assert error.details["retry"] == "no" and error.details["error"] == "not started" and error.details["error_class"] == 1
    assert "try again  no" in error.report and "try again  yes" not in error.report


@pytest.mark.parametrize(
    "options, error",
    [
        ({"deadline": 0}, ValueError),
        ({"deadline": float("nan")}, ValueError),
        ({"restart": "sometimes"}, ValueError),
        ({"transport": "pigeon"}, ValueError),
        ({"segment": 1000}, kahost.ArgumentError),
        ({"trace": 9}, kahost.ArgumentError),
        ({"stderr": "file"}, ValueError),
        ({"callback": 5}, TypeError),
        ({"room": "x"}, TypeError),
        ({"room": -1}, kahost.ArgumentError),
        ({"unknown": 1}, TypeError),
        ({"cwd": "/no/such/folder"}, kahost.Error),
        ({"cwd": "/tmp\0/x"}, ValueError),
        ({"env": {"A": "b\0c"}}, ValueError),
        ({"env": {"A=B": "c"}}, ValueError),
        ({"env": {"": "c"}}, ValueError),
        ({"env": {"A": 1}}, TypeError),
        ({"errors": "unheard-of"}, LookupError),
    ],
    ids=lambda value: repr(value) if isinstance(value, dict) else "",
)
def test_options_that_are_refused(modules, options, error):
    with pytest.raises(error):
        kahost.open(modules["tour"], **options)


def test_every_option(modules, tmp_path):
    options = dict(deadline=60, grace=1.5, restart="next call", segment=1 << 18, scratch=1 << 12, restart_pause=(0.01, 0.1), ring=4096)
    options |= dict(trace=1, env=dict(os.environ), cwd=tmp_path, encoding="latin-1", errors="replace", room=32, reals="float", spin=0)
    for transport in ("signals", "plain", "fast"):
        with kahost.open(modules["tour"], **options, transport=transport) as m:
            assert os.readlink(f"/proc/{m.pid}/cwd") == str(tmp_path)
            assert (m.deadline, m.trace, m.path, m.closed) == (60.0, 1, modules["tour"], False)
            assert m.scratch().nbytes == 1 << 12
            assert m.scale(1, [1, 2]).values == [1.0, 2.0]


def test_open_shows_its_options():
    """Both to those who ask the function and to type checkers."""
    shown = inspect.signature(kahost.open).parameters
    assert (shown["deadline"].default, shown["stderr"].default, shown["spin"].default) == (30.0, "ring", 50e-6)
    assert inspect.Parameter.VAR_KEYWORD not in {each.kind for each in shown.values()}
    typed = inspect.signature(typing.get_overloads(kahost.open)[1]).parameters
    assert [(each.name, each.kind, each.annotation) for each in typed.values()] == [
        (each.name, each.kind, each.annotation) for each in shown.values() if each.name != "stubs"
    ]


def test_the_environment_of_a_host(modules):
    with kahost.open(modules["tour"], deadline=60, env={"TOUR_TRACE": "1", "ONE": "é"}) as m:
        with open(f"/proc/{m.pid}/environ", "rb") as file:
            assert set(file.read().split(b"\0")) - {b""} >= {b"TOUR_TRACE=1", "ONE=é".encode()}


def test_standard_error(modules, tmp_path):
    with kahost.open(modules["tour"], deadline=60, trace=4) as m:
        m.total([1])
        wait_until(lambda: b"total" in m.stderr(), what="the trace")
    with open(tmp_path / "errors", "wb") as file:
        with kahost.open(modules["tour"], deadline=60, trace=4, stderr=file) as m:
            m.total([1])
            assert m.stderr() == b""
    assert b"total" in (tmp_path / "errors").read_bytes()
    fd = os.open(tmp_path / "more", os.O_CREAT | os.O_WRONLY)
    with kahost.open(modules["tour"], deadline=60, trace=4, stderr=fd) as m:
        m.total([1])
    os.close(fd)
    assert b"total" in (tmp_path / "more").read_bytes()


def test_reading_tables_without_running(modules):
    tables = kahost.read(modules["tour"])
    assert list(tables.functions) == ["total", "scale", "greet", "join", "ask", "crash", "nap"]
    total = tables.functions["total"]
    assert total.prototypes == (("values", "IntArray", 1, None), ("sum", "IntByReference", 0, None))
    assert tables.filled_at_start is False
    assert pickle.loads(pickle.dumps(tables)) == tables
    with pytest.raises(kahost.StartError):
        kahost.read("/etc/passwd")


# ---- Closing ---------------------------------------------------------------------------------------------------------


def test_closing(modules):
    m = kahost.open(modules["tour"], deadline=60)
    pid, function = m.pid, m.total
    assert os.path.exists(f"/proc/{pid}") and repr(m) == f"<module {modules['tour']}, process {pid}>"
    m.close()
    assert m.closed and m.pid is None and not os.path.exists(f"/proc/{pid}") and "closed" in repr(m)
    m.close()
    for use in (lambda: function([1]), m.restart, m.stderr, m.scratch, lambda: setattr(m, "deadline", 1), lambda: setattr(m, "trace", 1)):
        with pytest.raises(kahost.ClosedError) as caught:
            use()
        assert isinstance(caught.value, ValueError) and caught.value.retry == "no"
    assert m.cancel() is False
    assert "total" in dir(m) and m.functions["total"] is function


def test_a_module_that_nobody_has_is_closed(modules):
    m = kahost.open(modules["tour"], deadline=60)
    pid, function = m.pid, m.total
    del m
    assert function([1]).sum == 1  # a function keeps its host
    del function
    assert not os.path.exists(f"/proc/{pid}")


def test_a_module_in_a_cycle_is_collected(modules):
    import gc

    m = kahost.open(modules["tour"], deadline=60)
    pid = m.pid
    m.callback = lambda value, m=m: m.deadline
    m.scratch()[0] = 1
    del m
    gc.collect()
    assert not os.path.exists(f"/proc/{pid}")


def test_restart(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        first = m.pid
        m.scratch()[:4] = b"kept"
        m.restart()
        assert m.pid != first and m.total([1]).sum == 1 and bytes(m.scratch()[:4]) == b"kept"
        os.kill(m.pid, signal.SIGKILL)
        wait_until(lambda: not is_alive(m), what="the end")
        with pytest.raises(kahost.DiedError):
            m.total([1])
        with pytest.raises(kahost.ClosedError):
            m.total([1])
        m.restart()
        assert m.total([2]).sum == 2


def is_alive(m):
    with contextlib.suppress(FileNotFoundError, TypeError):
        return pathlib.Path(f"/proc/{m.pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    return False


@pytest.mark.parametrize("restart", ["next call", "at once"])
def test_restart_after_a_death(modules, restart):
    with kahost.open(modules["tour"], deadline=60, restart=restart, restart_pause=(0, 0)) as m:
        for _ in range(3):
            with pytest.raises(kahost.DiedError) as caught:
                m.crash()
            assert caught.value.retry == "unsure"
            assert m.total([1]).sum == 1


# ---- Attributes ------------------------------------------------------------------------------------------------------


def test_attributes(tour, modules):
    assert tour.path == modules["tour"]
    before = tour.deadline
    tour.deadline = 12.5
    assert tour.deadline == 12.5
    tour.deadline = float("inf")
    assert tour.deadline > 1e6
    tour.deadline = before
    tour.trace = 1
    assert tour.trace == 1
    tour.trace = 0
    for name, value in (("deadline", 0), ("deadline", -1), ("trace", 7)):
        with pytest.raises(kahost.ArgumentError):
            setattr(tour, name, value)
    for name in ("pid", "closed", "path", "functions", "close", "anything", "total"):
        with pytest.raises(AttributeError):
            setattr(tour, name, 1)
    with pytest.raises(TypeError):
        tour.callback = 5


def test_the_scratch_area(modules):
    m = kahost.open(modules["tour"], deadline=60)
    view = m.scratch()
    assert m.scratch() is view and view.nbytes == 1 << 16 and not view.readonly
    m.callback = lambda value: value
    m.ask(5)
    assert int.from_bytes(view[:4], sys.byteorder) == m.ask(7).sum - 7 == 5
    part = view[2:4]
    with pytest.raises(BufferError):
        m.close()
    assert not m.closed and m.total([1]).sum == 1
    part.release()
    other = memoryview(m.scratch())
    with pytest.raises(BufferError):
        m.close()
    other.release()
    last = m.scratch()

    def close(value):
        with pytest.raises(kahost.ArgumentError):
            m.close()
        return last[0]

    m.callback = close
    m.ask(9)
    m.close()
    with pytest.raises(ValueError):
        last[0]
    with kahost.open(modules["tour"], deadline=60, scratch=0) as m:
        assert m.scratch().nbytes == 0


def test_a_view_keeps_the_area(modules):
    m = kahost.open(modules["tour"], deadline=60)
    pid, view = m.pid, m.scratch()[1:3]
    del m
    view[0] = 5
    assert view[0] == 5
    del view
    assert not os.path.exists(f"/proc/{pid}")


# ---- Functions -------------------------------------------------------------------------------------------------------


def test_what_a_function_says_about_itself(tour):
    function = tour.scale
    assert function is tour["scale"] is tour.functions["scale"]
    assert (function.__name__, function.__qualname__) == ("scale", "scale")
    assert str(inspect.signature(function)) == (
        "(factor: 'Decimal | int | float', values: 'Sequence[Decimal | int | float]', largest: 'Decimal | int | float' = Decimal('0'))"
    )
    assert [prototype.name for prototype in function.prototypes] == ["factor", "values", "largest"]
    lines = function.__doc__.splitlines()
    assert lines[0].startswith("scale(factor")
    assert lines[2:] == [
        "factor  RealByValue, takes INTEGER or REAL",
        "values  RealArray, at least 2 elements, takes REAL, comes back",
        "largest  RealByReference, takes REAL, comes back",
    ]
    shown = pydoc.render_doc(function, renderer=pydoc.plaintext)
    assert "RealArray, at least 2 elements" in shown and "scale(" in shown
    assert inspect.getdoc(function) == function.__doc__
    assert callable(function) and repr(function).startswith("<function scale(factor")
    assert str(inspect.signature(tour.join)) == "(words: 'Sequence[str | bytes] | Text', line: 'str | bytes | Text' = '', *more: 'object')"


def test_wraps_and_completion(tour):
    @functools.wraps(tour.total)
    def total(*args):
        return tour.total(*args)

    assert total.__name__ == "total" and total.__doc__ == tour.total.__doc__ and total([1]).sum == 1
    assert inspect.signature(total) == inspect.signature(tour.total)
    import rlcompleter

    completer = rlcompleter.Completer({"m": tour})
    assert any(completer.complete("m.tot", state) in ("m.total(", "m.total") for state in range(2))
    assert set(tour.functions) <= set(dir(tour))
    assert functools.partial(tour.total, [4])().sum == 4


def test_arguments_by_name_and_by_default(tour):
    assert tour.scale(values=[1, 2], factor=2).largest == 4
    assert tour.scale(2, values=[1, 2], largest=5).largest == 4
    assert tour.join(["a"], "", 1).line == "a 2"
    calls = [
        (lambda: tour.total(), "argument 1 (values) is missing"),
        (lambda: tour.scale(values=[1, 2]), "argument 1 (factor) is missing"),
        (lambda: tour.total([1], 0, 0), "at most 2 arguments, got 3"),
        (lambda: tour.total([1], sums=0), "no argument 'sums'"),
        (lambda: tour.total([1], values=[1]), "argument 1 (values) is given twice"),
        (lambda: tour.join(line="a"), "argument 1 (words) is missing"),
        (lambda: tour.join(["a"], "", more=1), "no argument 'more'"),
    ]
    for call, text in calls:
        with pytest.raises(kahost.RefusedError) as caught:
            call()
        assert text in str(caught.value) and caught.value.code == 9 and isinstance(caught.value, TypeError)


def test_results_are_named_tuples_that_travel(tour):
    result = tour.total([1, 2])
    assert result._fields == ("values", "sum") and isinstance(result, tuple)
    assert type(result) is type(tour.total([5]))
    again = pickle.loads(pickle.dumps(result))
    assert again == result and type(again) is type(result) and again.sum == 3
    assert result._replace(sum=4) == ([1, 2], 4) and result._asdict() == {"values": [1, 2], "sum": 3}
    returned = pickle.loads(pickle.dumps(tour.total.raw([1])))
    assert returned.code == 0 and returned.results.sum == 1 and isinstance(returned, kahost.Returned)


def test_options_of_one_function(tour):
    nap = tour.nap.options(deadline=0.05)
    assert nap.__name__ == "nap" and inspect.signature(nap) == inspect.signature(tour.nap)
    wide = tour.greet.options(room=7)
    assert tour.greet("x").greeting == "hello, x"
    with pytest.raises(kahost.ReturnedCode):
        wide("x")
    assert tour.deadline == 60
    with pytest.raises(ValueError):
        tour.nap.options(reals="x")
    with pytest.raises(kahost.ArgumentError):
        tour.nap.options(deadline=-1)
    with pytest.raises(kahost.ArgumentError):
        tour.nap.options(deadline=0)
    with pytest.raises(kahost.ArgumentError):
        tour.greet.options(room=-1)


def test_a_deadline_of_one_call(modules):
    with kahost.open(modules["tour"], deadline=60, restart="next call") as m:
        with pytest.raises(kahost.DeadlineError):
            m.nap.options(deadline=0.05)(3600)
        assert m.deadline == 60 and m.nap.options(deadline=30).raw(0).code == 0


def test_codes_that_may_be_the_hosts(modules):
    with kahost.open(modules["tasks"], deadline=60) as m:
        for code in (1, 2, -1, 18, -(2**31), 2**31 - 1):
            with pytest.raises(kahost.ReturnedCode) as caught:
                m.give_code(code)
            assert caught.value.code == code and caught.value.results == ()
            notes = getattr(caught.value, "__notes__", [])
            assert bool(notes) == (code in (2, -1))
            again = pickle.loads(pickle.dumps(caught.value))
            assert (again.code, again.results, again.function, str(again)) == (code, (), "give_code", str(caught.value))
