# SPDX-License-Identifier: MIT
"""Call-backs: what they answer, what they raise, and what they may use."""

import os
import sys
import threading
import traceback

import pytest

import kahost


@pytest.fixture
def tasks(modules):
    with kahost.open(modules["tasks"], deadline=60) as m:
        yield m


def test_answers(tasks):
    assert tasks.ask.raw(7).code == 0  # nobody answers: 0
    for answer in (5, -(2**31), 2**31 - 1, True):
        tasks.callback = lambda value, answer=answer: answer
        assert tasks.ask.raw(7).code == answer
    got = []
    tasks.callback = lambda value: got.append(value) or value * 2
    assert tasks.ask_many(100).sum == sum(range(100)) * 2 and got == list(range(100))
    assert tasks.callback(4) == 8
    tasks.callback = None
    assert tasks.ask_many(5).sum == 0


class Mine(Exception):
    pass


@pytest.mark.parametrize("error", [Mine, KeyboardInterrupt, SystemExit, GeneratorExit, MemoryError])
def test_what_it_raises_comes_out(tasks, error):
    asked = []

    def callback(value):
        asked.append(value)
        if value == 2:
            raise error("from the call-back")
        return 10

    tasks.callback = callback
    with pytest.raises(error) as caught:
        tasks.ask_many(10)
    assert asked == [0, 1, 2]  # not asked again
    assert "raise error" in "".join(traceback.format_tb(caught.tb))
    assert tasks.add(1, 2).sum == 3
    with pytest.raises(error):
        tasks.ask_many(10)


def test_what_the_module_hears(modules, monkeypatch):
    """The tour adds each answer to the first word of the scratch area."""
    with kahost.open(modules["tour"], deadline=60) as m:

        def callback(value):
            raise Mine

        m.callback = callback
        for answer, heard in ((0, 0), (-7, -7), (5, 5), (2**31, 0), ("x", 0), (None, 0)):
            m.scratch()[:4] = bytes(4)
            monkeypatch.setattr(kahost, "answer_on_error", answer)
            with pytest.raises(Mine):
                m.ask(1)
            assert int.from_bytes(m.scratch()[:4], sys.byteorder, signed=True) == heard


@pytest.mark.parametrize("answer, error", [(2**31, OverflowError), (-(2**31) - 1, OverflowError), (None, TypeError), (1.0, TypeError), ("1", TypeError)])
def test_results_that_are_no_answers(tasks, answer, error):
    tasks.callback = lambda value: answer
    with pytest.raises(error):
        tasks.ask(1)
    assert tasks.add(1, 2).sum == 3


def test_a_callback_that_is_refused_as_it_is_called(tasks):
    tasks.callback = lambda: 1
    with pytest.raises(TypeError):
        tasks.ask(1)


def test_its_own_host_is_refused(tasks):
    seen = []

    def callback(value):
        for use in (lambda: tasks.add(1, 2), tasks.close, tasks.restart, tasks.stderr, lambda: setattr(tasks, "deadline", 5)):
            with pytest.raises(kahost.ArgumentError) as caught:
                use()
            seen.append(str(caught.value))
        tasks.scratch()[0] = 9
        tasks.trace = 0
        assert tasks.pid and not tasks.closed
        return 5

    tasks.callback = callback
    assert tasks.ask.raw(1).code == 5
    assert len(seen) == 5 and all("call-back" in text for text in seen)


def test_standard_error_is_read_while_it_runs(modules):
    """By another thread."""
    got = []
    with kahost.open(modules["tasks"], deadline=60, env={**os.environ, "KA_TEST_SETUP": "errs104"}) as m:

        def callback(value):
            thread = threading.Thread(target=lambda: got.append(m.stderr()))
            thread.start()
            thread.join()
            return value

        m.callback = callback
        assert m.ask.raw(3).code == 3
    assert [len(each) for each in got] == [104]


def test_another_host_is_used_inside(modules, tasks):
    with kahost.open(modules["tour"], deadline=60) as other:
        depth = []

        def answer(value):
            depth.append(value)
            return other.total([value, 1]).sum if value < 3 else 0

        tasks.callback = answer
        assert tasks.ask_many(4).sum == 1 + 2 + 3
        other.callback = lambda value: tasks.add(value, 1).sum
        tasks.callback = lambda value: other.ask(value).answer
        with pytest.raises(kahost.ArgumentError):
            tasks.ask(1)
        assert tasks.add(1, 2).sum == 3 and other.total([1]).sum == 1


def test_another_thread_is_refused_while_it_runs(tasks):
    """Never a deadlock: who waits for that thread inside the call-back."""
    got = []

    def callback(value):
        def use():
            try:
                tasks.add(1, 2)
            except BaseException as error:
                got.append(error)

        thread = threading.Thread(target=use)
        thread.start()
        thread.join()
        return 5

    tasks.callback = callback
    assert tasks.ask.raw(1).code == 5
    assert isinstance(got[0], kahost.ArgumentError) and "another thread" in str(got[0])


def test_who_queued_before_goes_on_waiting(modules, tasks):
    inside, done = threading.Event(), []

    def use():
        inside.wait()
        done.append(tasks.add(20, 22).sum)

    def callback(value):
        if value == 0:
            return 0
        assert done == []
        return 1

    tasks.callback = callback
    threads = [threading.Thread(target=use) for _ in range(3)]
    for thread in threads:
        thread.start()
    inside.set()
    for _ in range(50):
        try:
            tasks.nap(0)
            tasks.add(1, 1)
        except kahost.ArgumentError:
            pytest.fail("nobody was in a call-back")
    for thread in threads:
        thread.join()
    assert done == [42] * 3


def test_a_callback_may_be_replaced_inside(tasks):
    def second(value):
        return 2

    def first(value):
        tasks.callback = second
        return 1

    tasks.callback = first
    assert tasks.ask_many(3).sum == 1 + 2 + 2


def test_a_death_after_an_exception(modules):
    """The exception of the call-back is seen, and the host has ended."""
    with kahost.open(modules["tasks"], deadline=0.3, grace=0.1, restart="next call") as m:
        m.callback = lambda value: 1 / 0
        with pytest.raises(ZeroDivisionError):
            m.ask_many.options(deadline=30)(5)
        assert m.add(1, 2).sum == 3


def test_exceptions_leave_nothing_behind(tasks):
    def callback(value):
        raise Mine

    tasks.callback = callback
    for _ in range(100):
        with pytest.raises(Mine):
            tasks.ask(1)
    before = sys.getrefcount(Mine), sys.getrefcount(callback)
    for _ in range(1000):
        try:
            tasks.ask(1)
        except Mine:
            pass
    assert (sys.getrefcount(Mine), sys.getrefcount(callback)) == before
