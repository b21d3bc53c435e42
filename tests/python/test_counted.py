# SPDX-License-Identifier: MIT
"""The Python that counts references: what has been called a hundred times leaves no more of them than once."""

import array
import gc
import pickle
import sys
from decimal import Decimal

import pytest

import kahost

pytestmark = pytest.mark.skipif(not hasattr(sys, "gettotalrefcount"), reason="this Python does not count references")


def grows_by(work, rounds):
    """References that remain after each round, when everything that is kept for later is there."""
    for _ in range(rounds // 2):
        work()
    gc.collect()
    before = sys.gettotalrefcount()
    for _ in range(rounds):
        work()
    gc.collect()
    return (sys.gettotalrefcount() - before) / rounds


def is_flat(work, rounds=100):
    """A round that keeps one reference more shows as 1; what else of the interpreter grows is less."""
    growth = 1.0
    for _ in range(3):
        growth = min(growth, grows_by(work, rounds)) if growth >= 0.5 else growth
    assert growth < 0.5, f"{growth} references a round"


@pytest.fixture
def m(modules):
    with kahost.open(modules["tour"], deadline=60) as module:
        yield module


def raises(class_, function, *arguments):
    try:
        function(*arguments)
    except class_:
        return
    pytest.fail(f"no {class_}")


def test_calls(m, modules):
    with kahost.open(modules["exact"], deadline=60) as exact:
        ints, doubles = array.array("i", [1, 2]), array.array("d", [1.5, 2.5])

        def work():
            m.scale(2.5, [1, Decimal("2.5"), 0.5])
            m.greet("x", kahost.Text("", room=99)).greeting
            m.join(["a", b"b"], "", 1, Decimal("0.5"), "c", [1, 2], kahost.Ref(["a"]), kahost.Ref(3))
            m.total.raw([1, 2, 3])
            m.total.options(deadline=30)([1])
            m["total"](values=(1, 2))
            exact.int_array(ints, "")
            exact.real_array(doubles, "")
            exact.real_array(kahost.InPlace(doubles), "")
            exact.withdraw(30, 1, 2, "a", kahost.Ref(4))

        is_flat(work)


def test_errors(m):
    def work():
        raises(kahost.ReturnedCode, m.greet, "x", kahost.Text("", room=3))
        raises(TypeError, m.greet)
        raises(TypeError, m.greet, 5)
        raises(kahost.RefusedError, m.scale, 1, [1])
        raises(kahost.ArgumentError, m.scale, 1, [Decimal("NaN"), 1])
        raises(kahost.LostDigits, m.scale, 1, [Decimal("1.12345678901234567"), 1])
        raises(OverflowError, m.total, [2**31])
        raises(KeyError, m.__getitem__, "nowhere")
        raises(AttributeError, getattr, m, "nowhere")
        try:
            m.scale(1, [1])
        except kahost.Error as error:
            pickle.loads(pickle.dumps(error)).report

    is_flat(work)


def test_call_backs(m):
    def fail(value):
        raise ArithmeticError(value)

    def work():
        m.callback = lambda value: value + 1
        m.ask(3)
        for wrong in (fail, lambda value: "x", lambda value: 2**31, lambda value: m.total([1])):
            m.callback = wrong
            raises(Exception, m.ask, 3)
        m.callback = None

    is_flat(work)


def test_hosts(modules):
    def work():
        with kahost.open(modules["adder"], deadline=60, env={"A": "b"}, cwd="/") as m:
            m.add(1, 2)
            scratch = m.scratch()
            scratch[0] = 1
            m.restart()
            m.add(1, 2)
            dir(m), repr(m), m.functions
        raises(kahost.ClosedError, m.add, 1, 2)
        raises(kahost.StartError, kahost.open, "/nowhere/module")
        kahost.read(modules["adder"])

    is_flat(work, 10)  # to start a process takes long with the sanitizers


def test_a_death(modules):
    def work():
        with kahost.open(modules["tasks"], deadline=60) as m:
            raises(kahost.DiedError, m.die_by, 9)

    is_flat(work, 10)
