# SPDX-License-Identifier: MIT
"""Every error: its classes, its fields, its reports, and that it can be pickled and read elsewhere."""

import gc
import io
import os
import pathlib
import pickle
import signal
import subprocess
from decimal import Decimal

import pytest

import kahost
from conftest import PYTHON, wait_until

CLASSES = [
    (kahost.StartError, OSError),
    (kahost.RefusedError, TypeError),
    (kahost.DiedError, Exception),
    (kahost.DeadlineError, TimeoutError),
    (kahost.TooBigError, MemoryError),
    (kahost.ClosedError, ValueError),
    (kahost.SystemFailure, OSError),
    (kahost.ArgumentError, ValueError),
    (kahost.LostDigits, kahost.ArgumentError),
    (kahost.LostDigits, ArithmeticError),
    (kahost.Cancelled, Exception),
    (kahost.ReturnedCode, Exception),
]


def test_classes():
    for error, other in CLASSES:
        assert issubclass(error, kahost.Error) and issubclass(error, other)
    assert kahost.Error.__bases__ == (Exception,)


def fields(error):
    """All that an error has for its readers."""
    names = ["retry", "report", "details", "errno", "exit_status", "argument", "code", "signal", "stderr", "function", "arguments"]
    names += ["needed", "value", "nearest", "results"]
    return {name: getattr(error, name) for name in names if hasattr(error, name)} | {"text": str(error), "args": error.args}


def errors(modules):
    """One of each, with what the module does afterwards."""
    tasks = kahost.open(modules["tasks"], deadline=60, grace=0.1, restart="next call", restart_pause=(0, 0), room=1000)

    def closed():
        m = kahost.open(modules["tour"])
        m.close()
        m.total([1])

    yield kahost.StartError, lambda: kahost.open(modules["no_library"])
    yield kahost.StartError, lambda: kahost.open("/no/such/file")
    yield kahost.RefusedError, lambda: tasks.double([])
    yield kahost.RefusedError, lambda: tasks.add("2", 3)
    yield kahost.DiedError, lambda: tasks.die_by(signal.SIGABRT)
    yield kahost.DiedError, lambda: tasks.fault()
    yield kahost.DiedError, lambda: tasks.leave(0)
    yield kahost.DiedError, lambda: tasks.leave(3)
    yield kahost.DiedError, lambda: tasks.cry_and_die("last words")
    yield kahost.DiedError, lambda: tasks.spoil_and_die(1, "x")
    yield kahost.DeadlineError, lambda: tasks.hang.options(deadline=0.05)()
    yield kahost.TooBigError, lambda: tasks.scale([1] * 200000, 1)
    yield kahost.ClosedError, closed
    yield kahost.ArgumentError, lambda: tasks.scale([None], 1)
    yield kahost.LostDigits, lambda: tasks.scale([Decimal("1.2345678901234567")], 1)
    yield kahost.ReturnedCode, lambda: tasks.give_code(5)
    tasks.close()


READER = """
import pickle, sys
for error in pickle.load(sys.stdin.buffer):
    values = {name: getattr(error, name) for name in ("retry", "report", "details")}
    pickle.dump((error, values), sys.stdout.buffer)
"""


def test_every_error_travels_with_every_field(modules):
    caught = []
    for expected, cause in errors(modules):
        with pytest.raises(expected) as info:
            cause()
        error = info.value.with_traceback(None)
        assert type(error) is expected and error.report and error.details and error.retry in ("no", "yes", "unsure")
        assert not any(isinstance(value, kahost.Module) for value in gc.get_referents(error.__dict__))
        again = pickle.loads(pickle.dumps(error))
        assert type(again) is expected and fields(again) == fields(error)
        caught.append(error)
    done = subprocess.run([*PYTHON, "-c", READER], input=pickle.dumps(caught), stdout=subprocess.PIPE, check=True)
    stream = io.BytesIO(done.stdout)
    for error in caught:
        again, values = pickle.load(stream)
        assert fields(again) == fields(error) and values["report"] == error.report


def test_a_death(modules):
    with kahost.open(modules["tasks"], deadline=60, restart="next call", restart_pause=(0, 0), room=100) as m:
        pid = m.pid
        with pytest.raises(kahost.DiedError) as caught:
            m.die_with(7, "text", kahost.Ref(Decimal("2.5")), [1, 2])
        error = caught.value
        assert error.function == "die_with" and error.retry == "unsure"
        assert error.signal is None or isinstance(error.signal, signal.Signals)
        assert [argument["values"] for argument in error.arguments] == [[7], ["text"], ["2.5"], [1, 2]]
        assert error.details["process"]["pid"] == pid and str(pid) in error.report and "die_with" in error.report
        for number in (signal.SIGABRT, signal.SIGSEGV, signal.SIGKILL):
            with pytest.raises(kahost.DiedError) as caught:
                m.die_by(number)
            assert caught.value.signal is number and caught.value.exit_status is None
        with pytest.raises(kahost.DiedError) as caught:
            m.leave(3)
        assert caught.value.signal is None and caught.value.exit_status == 3
        with pytest.raises(kahost.DiedError) as caught:
            m.cry_and_die("last words")
        assert b"last words" in caught.value.stderr
        assert m.add(1, 2).sum == 3


def test_a_death_between_calls(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        os.kill(m.pid, signal.SIGKILL)
        wait_until(lambda: pathlib.Path(f"/proc/{m.pid}/stat").read_text().rpartition(")")[2].split()[0] in "ZX", what="the end")
        with pytest.raises(kahost.DiedError) as caught:
            m.total([1])
        assert caught.value.signal is signal.SIGKILL and caught.value.retry == "yes"


def test_fields_of_refusals(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        with pytest.raises(kahost.RefusedError) as caught:
            m.scale(1, [1])
        assert caught.value.argument == (2, "values") and caught.value.code == 17 and caught.value.retry == "no"
        with pytest.raises(kahost.TooBigError) as too_big:
            m.total([0] * 1000000)
        assert too_big.value.needed > 4000000 and too_big.value.retry == "no"
    with kahost.open(modules["tour"], deadline=60, segment=too_big.value.needed) as m:
        assert m.total([1] * 1000000).sum == 1000000


def test_the_report_stays_that_of_its_error(modules):
    with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0)) as m:
        with pytest.raises(kahost.RefusedError) as first:
            m.scale(1, [1])
        with pytest.raises(kahost.DiedError) as second:
            m.crash()
        assert m.total([1]).sum == 1
        m.restart()
        with pytest.raises(kahost.RefusedError) as third:
            m.total([])
    assert "scale" in first.value.report and first.value.details["function"] == "scale"
    assert second.value.details["function"] == "crash" and "SIGABRT" in second.value.report
    assert "total" in third.value.report and third.value.details["error"] == "refused"


def test_an_error_holds_no_host(modules):
    m = kahost.open(modules["tour"], deadline=60)
    pid = m.pid
    with pytest.raises(kahost.RefusedError) as caught:
        m.scale(1, [1])
    error = caught.value.with_traceback(None)
    del caught, m
    assert not os.path.exists(f"/proc/{pid}")
    assert "RealArray" in error.report


def test_a_report_is_asked_for_in_another_thread(modules):
    import threading

    with kahost.open(modules["tour"], deadline=60) as m:
        for _ in range(20):
            with pytest.raises(kahost.RefusedError) as caught:
                m.scale(1, [1])
            got = []
            thread = threading.Thread(target=lambda: got.append(caught.value.report))
            thread.start()
            m.total([1])
            thread.join()
            assert "scale" in got[0] and "total" not in got[0]


def test_errors_of_the_system():
    error = kahost.SystemFailure("it refused")
    error.errno = 5
    again = pickle.loads(pickle.dumps(error))
    assert again.errno == 5 and str(again) == "it refused"
