# SPDX-License-Identifier: MIT
"""Nothing grows: descriptors, memory, segments, processes."""

import gc
import os
import pathlib
from decimal import Decimal

import pytest

import kahost
from conftest import FULL, descendants, segments

MEBIBYTE = 1 << 20


def resident():
    """Bytes of memory that are no file's. (What a dying child still shares is not its private memory.)"""
    text = pathlib.Path("/proc/self/smaps_rollup").read_text()
    return 1024 * next(int(line.split()[1]) for line in text.splitlines() if line.startswith("Anonymous:"))


def descriptors():
    return sorted(os.listdir("/proc/self/fd"))


def nothing_grows(work, count):
    """After a tenth of them as a beginning, in which all that is kept for later comes into being."""
    for _ in range(max(30, count // 10)):
        work()
    gc.collect()
    before = descriptors(), segments(), descendants()
    memory = resident()
    for _ in range(count):
        work()
    gc.collect()
    assert (descriptors(), segments(), descendants()) == before
    assert resident() - memory < MEBIBYTE


@pytest.fixture
def m(modules):
    with kahost.open(modules["tour"], deadline=60) as module:
        yield module


def test_calls(m):
    values = [1, Decimal("2.5"), 0.5]
    nothing_grows(lambda: m.scale(2.5, values), 100_000 if FULL else 10_000)


def test_calls_of_every_kind(m):
    def work():
        m.total([1, 2, 3])
        m.greet("x" * 100)
        m.join(["a", b"b" * 50], "", 1, kahost.Ref(Decimal("0.5")), ["c"])

    nothing_grows(work, 30_000 if FULL else 2000)


def test_hosts(modules):
    def work():
        with kahost.open(modules["adder"], deadline=60) as m:
            assert m.add(2, 40).sum == 42

    nothing_grows(work, 1000 if FULL else 100)


def test_hosts_that_nobody_closes(modules):
    def work():
        assert kahost.open(modules["adder"], deadline=60).add(2, 40).sum == 42
        gc.collect()

    nothing_grows(work, 200 if FULL else 20)


def test_errors(m):
    def work():
        with pytest.raises(kahost.ReturnedCode):
            m.greet("x", kahost.Text("", room=3))
        with pytest.raises(kahost.RefusedError) as error:
            m.scale(1, [1])
        assert error.value.report
        with pytest.raises(kahost.LostDigits):
            m.scale(1, [Decimal("1.12345678901234567"), 2])

    nothing_grows(work, 10_000 // 3 if FULL else 700)


def test_deaths(modules):
    def work():
        with kahost.open(modules["tasks"], deadline=60) as m, pytest.raises(kahost.DiedError) as error:
            m.die_by(9)
        assert error.value.report

    nothing_grows(work, 300 if FULL else 30)


def test_exceptions_in_call_backs(m):
    def fail(value):
        raise ArithmeticError(value)

    m.callback = fail

    def work():
        with pytest.raises(ArithmeticError):
            m.ask(3)

    nothing_grows(work, 10_000 if FULL else 1000)
