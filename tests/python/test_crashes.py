# SPDX-License-Identifier: MIT
"""Modules that end, hang or spoil the block: what the exception says, here and in another process."""

import os
import pickle
import signal
import subprocess
from decimal import Decimal

import pytest

import kahost
from conftest import PYTHON, wait_until


@pytest.fixture
def m(modules, bits):
    with kahost.open(modules["tasks", bits], deadline=60, grace=0.2) as module:
        yield module


def died(function, *arguments):
    with pytest.raises(kahost.DiedError) as error:
        function(*arguments)
    assert error.value.retry == "unsure"
    assert error.value.function == function.__name__
    assert function.__name__ in error.value.report
    assert isinstance(error.value.details, dict)
    return error.value


def is_ended(m):
    """After its end: every call is a ClosedError that no one need repeat here."""
    assert m.pid is None
    with pytest.raises(kahost.ClosedError):
        m.add(1, 2)
    return True


def test_abort_and_other_signals(modules, bits):
    for number in (signal.SIGABRT, signal.SIGKILL, signal.SIGSEGV, signal.SIGFPE, signal.SIGBUS):
        with kahost.open(modules["tasks", bits], deadline=60) as m:
            error = died(m.die_by, number)
            assert error.signal is number and isinstance(error.signal, signal.Signals)
            assert error.exit_status is None or error.exit_status == -1
            assert is_ended(m)


def test_a_real_fault(m):
    error = died(m.fault)
    assert error.signal is signal.SIGSEGV and "SIGSEGV" in error.report
    assert is_ended(m)


@pytest.mark.parametrize("status", [0, 1, 77])
def test_exit(m, status):
    error = died(m.leave, status)
    assert error.signal is None and error.exit_status == status
    assert is_ended(m)


def test_an_endless_loop_ends_at_its_deadline(m):
    for function in (m.hang, m.hang_deaf):
        m.restart()
        with pytest.raises(kahost.DeadlineError) as error:
            function.options(deadline=0.1)()
        assert isinstance(error.value, TimeoutError) and error.value.retry == "unsure"
        assert function.__name__ in error.value.report
        assert is_ended(m)


def test_a_spoiled_block_harms_nobody_here(m):
    for function, arguments in ((m.scribble_base, ()), (m.spoil_and_die, (Decimal("1.5"), "text")), (m.lie_about_length, ("abc", 2**31 - 1)),
                                (m.lie_about_length, ("abc", -5)), (m.overwrite_and_die, (0,)), (m.scribble, (48, 32)), (m.scribble, (40, 24))):  # fmt: skip
        m.restart()
        try:
            result = function(*arguments)
            assert function.__name__ != "lie_about_length" or len(result.text) in (0, 256)
        except kahost.DiedError as error:
            assert isinstance(error.report, str) and isinstance(error.arguments, (list, tuple, dict))
    m.restart()
    assert m.add(1, 2).sum == 3


def test_what_the_module_said_last(m):
    error = died(m.cry_and_die, "the last words\n")
    assert isinstance(error.stderr, bytes) and b"the last words" in error.stderr
    assert "the last words" in error.report


def test_a_module_that_ends_at_start(modules, bits):
    for wish, status in (("exit 0", 0), ("exit 5", 5)):
        with pytest.raises(kahost.StartError) as error:
            kahost.open(modules["tasks", bits], env={**os.environ, "KA_TEST_SETUP": wish}, deadline=60)
        assert error.value.exit_status == status and isinstance(error.value, OSError)


def test_a_missing_library_is_seen_where_it_is_opened(modules, bits):
    with pytest.raises(kahost.StartError) as error:
        kahost.open(modules["no_library", bits], deadline=60)
    assert error.value.exit_status == 127 and "libkahost.so.1" in error.value.report


def test_a_missing_loader_names_its_package(modules, bits):
    with pytest.raises(kahost.StartError) as error:
        kahost.open(modules["no_loader", bits], deadline=60)
    assert f"install the {bits}-bit C library (Debian: libc6:" in str(error.value)


def test_a_module_that_is_not_there_or_is_none(modules, tmp_path):
    empty = tmp_path / "empty"
    empty.touch(0o755)
    for path in ("/nowhere/module", tmp_path, empty, modules["tour"] + ".cpp"):
        with pytest.raises(kahost.StartError) as error:
            kahost.open(path)
        assert isinstance(error.value, OSError)
    with pytest.raises(kahost.StartError, match="(?s)search|slash|path"):
        kahost.open("tour")


def test_a_host_that_restarts_works_again(modules):
    for restart in ("next call", "at once"):
        with kahost.open(modules["tasks"], restart=restart, restart_pause=(0.01, 0.01), deadline=60) as m:
            assert m.add(1, 2).sum == 3
            old = m.pid
            died(m.die_by, signal.SIGKILL)
            assert m.add(3, 4).sum == 7
            assert m.pid not in (None, old)


def test_a_host_that_is_killed_from_outside(m):
    os.kill(m.pid, signal.SIGKILL)
    with pytest.raises((kahost.DiedError, kahost.ClosedError)):
        wait_until(lambda: m.add(1, 2) and False)


# ---- Errors that travel ----------------------------------------------------------------------------------------------

READER = """
import pickle, sys
error = pickle.load(sys.stdin.buffer)
import kahost
print(type(error).__name__, error.retry, error.function, error.signal, error.arguments)
print(error.report == error.details["text"] if "text" in error.details else len(error.report) > 0, isinstance(error.stderr, bytes))
print(str(error))
print(error.report, end="")
"""


def test_an_error_is_read_in_another_process(m):
    error = died(m.die_with, 1, "two", kahost.Ref(Decimal("3.5")))
    again = pickle.loads(pickle.dumps(error))
    fields = ("retry", "report", "details", "signal", "exit_status", "stderr", "function", "arguments")
    assert type(again) is type(error) and str(again) == str(error)
    assert all(getattr(again, field) == getattr(error, field) for field in fields)
    make, parts = error.__reduce__()
    assert make(*parts).__traceback__ is None  # a library that dask loads adds it to what is pickled
    done = subprocess.run([*PYTHON, "-c", READER], input=pickle.dumps(error), stdout=subprocess.PIPE, check=True)
    lines = done.stdout.decode().splitlines()
    assert lines[0] == f"DiedError unsure die_with {error.signal} {error.arguments}"
    assert lines[1].endswith("True")
    assert lines[2] == str(error)
    assert "\n".join(lines[3:]) == error.report.rstrip("\n")


def test_the_report_is_there_after_the_host_is_gone(m):
    error = died(m.die_by, signal.SIGKILL)
    m.restart()
    assert m.add(1, 2).sum == 3
    m.close()
    assert "die_by" in error.report and error.details["function"] == "die_by"


def test_every_class_is_picklable_with_every_field(modules):
    errors = []

    def catch(function, *arguments):
        with pytest.raises(kahost.Error) as caught:
            function(*arguments)
        errors.append(caught.value)

    catch(kahost.open, "/nowhere/module")
    with kahost.open(modules["tasks"], segment=1 << 14, scratch=0, grace=0.2, deadline=60) as m:
        catch(m.double, [])
        catch(m.double, "no")
        catch(m.scale, [1] * 10000, 2)
        catch(m.scale, [Decimal("NaN")], 2)
        catch(m.scale, [Decimal("1.12345678901234567")], 2)
        catch(m.give_code, 5)
        catch(m.hang.options(deadline=0.05))
        m.restart()
        catch(m.die_by, 9)
        catch(m.add, 1, 2)
    catch(m.add, 1, 2)
    classes = {kahost.StartError, kahost.RefusedError, kahost.TooBigError, kahost.ArgumentError, kahost.LostDigits, kahost.ReturnedCode,
               kahost.DeadlineError, kahost.DiedError, kahost.ClosedError}  # fmt: skip
    assert {type(error) for error in errors} == classes
    for error in errors:
        for protocol in range(2, pickle.HIGHEST_PROTOCOL + 1):
            again = pickle.loads(pickle.dumps(error, protocol))
            assert type(again) is type(error) and str(again) == str(error) and again.args == error.args
            assert again.retry == error.retry and again.report == error.report and again.details == error.details
            for name in ("errno", "exit_status", "argument", "code", "signal", "stderr", "function", "arguments", "needed", "value", "nearest", "results"):
                assert getattr(again, name, None) == getattr(error, name, None), name
    returned = next(error for error in errors if type(error) is kahost.ReturnedCode)
    assert (returned.code, returned.function) == (5, "give_code")
    too_big = next(error for error in errors if type(error) is kahost.TooBigError)
    assert isinstance(too_big, MemoryError) and too_big.needed > 1 << 14
