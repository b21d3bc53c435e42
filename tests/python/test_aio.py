# SPDX-License-Identifier: MIT
"""await m.f.aio(...): calls in an event loop."""

import asyncio
import gc
import os
import select
import signal
import threading
import time

import kahost
import pytest
from kahost import _aio
from conftest import wait_until


@pytest.fixture
def tour(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        yield m


@pytest.fixture
def tasks(modules):
    with kahost.open(modules["tasks"], deadline=60) as m:
        yield m


def threads():
    """Of the system, for which a thread that was joined may end a moment later."""
    return len(os.listdir("/proc/self/task"))


def sleeps(m):
    """The module is in nanosleep or the like."""
    try:
        with open(f"/proc/{m.pid}/syscall") as file:
            return file.read().split()[0] in ("35", "230")
    except (OSError, IndexError):
        return False


def waits_for_a_lock(thread):
    with open(f"/proc/self/task/{thread}/syscall") as file:
        return file.read().split()[0] == "202"


async def until(condition):
    end = time.monotonic() + 60
    while not condition():
        assert time.monotonic() < end
        await asyncio.sleep(0.001)


def test_results_and_errors_are_those_of_a_call(tour):
    async def main():
        assert await tour.total.aio([1, 2]) == tour.total([1, 2])
        assert (await tour.total.aio(values=[3])).sum == 3
        with pytest.raises(TypeError):
            await tour.total.aio()
        with pytest.raises(OverflowError):
            await tour.total.aio([2**40])
        with pytest.raises(kahost.ReturnedCode) as returned:
            await tour.greet.aio("x", kahost.Text("", room=3))
        assert returned.value.code == 18
        with pytest.raises(kahost.DiedError) as died:
            await tour.crash.aio()
        assert (died.value.retry, died.value.signal, died.value.function) == ("unsure", 6, "crash")
        with pytest.raises(kahost.ClosedError):
            await tour.total.aio([1])

    asyncio.run(main())


def test_the_loop_goes_on(tasks):
    async def main():
        ticks = 0

        async def tick():
            nonlocal ticks
            while True:
                ticks += 1
                await asyncio.sleep(0)

        ticking = asyncio.create_task(tick())
        await tasks.nap.aio(100)
        ticking.cancel()
        assert ticks > 10

    asyncio.run(main())


def test_quick_calls_leave_time_for_others(tasks):
    async def main():
        others = 0

        async def count():
            nonlocal others
            while True:
                others += 1
                await asyncio.sleep(0)

        counting = asyncio.create_task(count())
        end = time.monotonic() + 0.3
        while time.monotonic() < end:
            await tasks.add.aio(1, 2)
        counting.cancel()
        assert others > 5

    asyncio.run(main())


def test_the_program_closes_all_that_it_does_not_know(modules, monkeypatch):
    """Also the descriptor that the loop waits for."""
    monkeypatch.setattr(_aio, "LOOK_S", 0.1)
    with kahost.open(modules["tasks"], deadline=60, stderr=None) as m:

        async def main():
            assert (await m.add.aio(1, 2)).sum == 3
            await m.nap.aio(5)
            waiting = m.nap._begin(0)
            while not waiting.step():
                pass
            os.close(waiting.fileno())
            assert (await m.add.aio(1, 2)).sum == 3
            await m.nap.aio(20)
            waiting = m.nap._begin(50)
            while not waiting.step():
                os.close(waiting.fileno())
            # And while it waits.
            call = asyncio.create_task(m.nap.aio(50))
            fd = await made_reader(call)
            os.close(fd)
            await call

        asyncio.run(main())


async def made_reader(call):
    """The descriptor for which the loop waits."""
    readers = asyncio.get_running_loop()._selector.get_map()
    before = set(readers)
    await until(lambda: set(readers) - before or call.done())
    (fd,) = set(readers) - before
    return fd


def silent(kind):
    """A descriptor that is not readable, and what makes it so."""
    if kind == "eventfd":
        fd = os.eventfd(0)
        return fd, lambda: os.eventfd_write(fd, 1)
    if kind == "epoll":
        poll, (reading, writing) = select.epoll(), os.pipe()
        poll.register(reading, select.EPOLLIN)
        fd = os.dup(poll.fileno())
        return fd, lambda: (os.write(writing, b"1"), poll, reading)
    reading, writing = os.pipe()
    return reading, lambda: os.write(writing, b"1")


@pytest.mark.parametrize("kind", ["pipe", "eventfd", "epoll"])
def test_what_the_program_opens_under_the_same_number_is_left_alone(modules, monkeypatch, kind):
    """Between two calls, with a reader of the program's own; and in a call."""
    monkeypatch.setattr(_aio, "LOOK_S", 0.1)
    with kahost.open(modules["tasks"], deadline=1000, stderr=None) as m:

        async def main():
            loop, fired = asyncio.get_running_loop(), asyncio.Event()
            fd = await made_reader(call := asyncio.create_task(m.nap.aio(50)))
            await call
            own, make_readable = silent(kind)
            os.dup2(own, fd)
            loop.add_reader(fd, fired.set)
            assert await asyncio.wait_for(m.nap.aio(50), 60) == ()
            assert not fired.is_set()
            make_readable()
            await asyncio.wait_for(fired.wait(), 60)
            loop.remove_reader(fd)
            fd = await made_reader(call := asyncio.create_task(m.nap.aio(50)))
            own, _ = silent(kind)
            os.dup2(own, fd)
            assert await asyncio.wait_for(call, 60) == ()

        asyncio.run(main())


def test_another_host_gets_the_number(modules):
    with kahost.open(modules["tasks"], deadline=1000, stderr=None) as one:

        async def main():
            fd = await made_reader(call := asyncio.create_task(one.nap.aio(50)))
            await call
            os.close(fd)
            with kahost.open(modules["tasks"], deadline=1000, stderr=None) as other:
                calls = [asyncio.create_task(m.nap.aio(50)) for m in (other, one, other, one)]
                done, _ = await asyncio.wait(calls, timeout=60)
                assert len(done) == 4 and all(call.result() == () for call in done)

        asyncio.run(main())


def test_calls_of_one_host_take_turns(tasks):
    async def main():
        results = await asyncio.gather(*(tasks.add.aio(i, 1) for i in range(50)))
        assert [each.sum for each in results] == [i + 1 for i in range(50)]

        async def count():
            with pytest.raises(kahost.ReturnedCode) as returned:
                await tasks.count_call.aio()
            return returned.value.code

        codes = await asyncio.gather(*(count() for _ in range(20)))
        assert codes == list(range(1, 21))  # in the order in which they were begun; their tasks may go on in another one

    asyncio.run(main())


def test_take_turns_with_threads(tasks):
    def work():
        for i in range(200):
            assert tasks.add(i, 1).sum == i + 1

    async def main():
        others = [asyncio.create_task(asyncio.to_thread(work)) for _ in range(3)]
        for i in range(200):
            assert (await tasks.add.aio(i, 2)).sum == i + 2
        await asyncio.gather(*others)

    asyncio.run(main())


def test_two_loops_share_a_host(tasks):
    async def main():
        for i in range(100):
            assert (await tasks.add.aio(i, 2)).sum == i + 2

    loops = [threading.Thread(target=asyncio.run, args=(main(),)) for _ in range(3)]
    for loop in loops:
        loop.start()
    for loop in loops:
        loop.join()
    assert tasks.add(1, 1).sum == 2


def test_a_hundred_hosts_wait_in_one_loop_without_threads(modules):
    hosts = [kahost.open(modules["tasks"], deadline=100, stderr=None) for _ in range(100)]
    try:

        async def main():
            before = threads()
            calls = [asyncio.create_task(m.hang.aio()) for m in hosts]
            await until(lambda: all(m._host.pid for m in hosts) and all(not call.done() for call in calls))
            naps = await asyncio.gather(*(asyncio.sleep(0) for _ in range(10)))
            assert len(naps) == 10
            assert threads() <= before
            for call in calls:
                call.cancel()
            done = await asyncio.gather(*calls, return_exceptions=True)
            assert all(isinstance(each, asyncio.CancelledError) for each in done)
            await until(lambda: threads() <= before)

        asyncio.run(main())
    finally:
        for m in hosts:
            m.close()


def test_cancelling_the_task_ends_the_call(tour):
    async def main():
        before = threads()
        call = asyncio.create_task(tour.nap.aio(1000))
        await until(lambda: sleeps(tour))
        pid = tour.pid
        call.cancel()
        with pytest.raises(asyncio.CancelledError):
            await call
        assert call.cancelled()
        assert not os.path.exists(f"/proc/{pid}")  # its end is known
        assert tour.pid is None
        await until(lambda: threads() <= before)

    asyncio.run(main())


def test_standard_error_is_read_in_a_call(modules):
    with kahost.open(modules["tasks"], deadline=1000, env={**os.environ, "KA_TEST_SETUP": "errs104"}) as m:

        async def main():
            call = asyncio.create_task(m.hang.aio())
            await made_reader(call)
            assert len(m.stderr()) == len(await asyncio.to_thread(m.stderr)) == 104
            call.cancel()
            await asyncio.wait([call])

        asyncio.run(main())


def test_cancelled_often(tour):
    async def main():
        call = asyncio.create_task(tour.nap.aio(1000))
        await until(lambda: sleeps(tour))
        while not call.done():
            call.cancel()
            await asyncio.sleep(0)
        assert call.cancelled()
        assert tour.pid is None

    asyncio.run(main())


def aio_threads():
    return [thread for thread in threading.enumerate() if thread.name == "kahost aio"]


def test_cancelled_in_a_start(modules):
    """It is not waited for, and a later call is not cancelled."""
    with kahost.open(modules["tour"], deadline=1000, restart="next call", restart_pause=(500, 500)) as m:
        with pytest.raises(kahost.DiedError):
            m.crash()

        async def main():
            call = asyncio.create_task(m.total.aio([1]))
            await until(aio_threads)
            call.cancel()
            done, _ = await asyncio.wait([call], timeout=60)
            assert done and call.cancelled()
            assert not aio_threads()

        asyncio.run(main())


def test_a_loop_that_is_closed_in_a_start(modules, monkeypatch):
    printed = []
    monkeypatch.setattr(threading, "excepthook", printed.append)
    with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(1, 1)) as m:
        with pytest.raises(kahost.DiedError):
            m.crash()
        loop = asyncio.new_event_loop()
        call = loop.create_task(m.total.aio([1]))
        loop.run_until_complete(until(aio_threads))
        loop.close()
        with _quiet():
            del call, loop
            wait_until(lambda: not aio_threads())
            gc.collect()
        assert m.total([2]).sum == 2
    assert printed == []


def test_a_timeout_of_asyncio(modules):
    with kahost.open(modules["tour"], restart="next call", deadline=60) as m:

        async def main():
            with pytest.raises(TimeoutError):
                async with asyncio.timeout(0.05):
                    await m.nap.aio(1000)
            assert (await m.total.aio([1])).sum == 1

        asyncio.run(main())


def test_a_queued_call_is_cancelled_before_it_is_sent(tour):
    async def main():
        first = asyncio.create_task(tour.nap.aio(1000))
        await until(lambda: sleeps(tour))
        pid = tour.pid
        queued = [asyncio.create_task(tour.total.aio([i])) for i in range(3)]
        await asyncio.sleep(0)
        queued[1].cancel()
        with pytest.raises(asyncio.CancelledError):
            await queued[1]
        assert tour.pid == pid  # the call under way is not its
        assert not first.done()
        first.cancel()
        done = await asyncio.gather(first, queued[0], queued[2], return_exceptions=True)
        assert isinstance(done[0], asyncio.CancelledError)
        assert all(isinstance(each, kahost.ClosedError) for each in done[1:])

    asyncio.run(main())


def test_a_module_that_ignores_the_end_does_not_stop_the_loop(modules):
    with kahost.open(modules["tasks"], deadline=60, grace=0.5) as m:

        async def main():
            longest, last, ticking = 0, time.monotonic(), True

            async def tick():
                nonlocal longest, last
                while ticking:
                    now = time.monotonic()
                    longest, last = max(longest, now - last), now
                    await asyncio.sleep(0.001)

            before = threads()
            clock = asyncio.create_task(tick())
            call = asyncio.create_task(m.hang_deaf.aio())
            await asyncio.sleep(0.05)
            begun = time.monotonic()
            call.cancel()
            with pytest.raises(asyncio.CancelledError):
                await call
            took = time.monotonic() - begun
            assert m.pid is None
            ticking = False
            await clock
            assert longest < took  # the loop did not wait for it as a whole
            await until(lambda: threads() <= before)

        asyncio.run(main())


def test_cancel_of_the_module(tour):
    async def main():
        call = asyncio.create_task(tour.nap.aio(1000))
        await until(lambda: sleeps(tour))
        assert tour.cancel() is True
        with pytest.raises(asyncio.CancelledError) as cancelled:
            await call
        assert isinstance(cancelled.value, kahost.Cancelled)
        assert "cancelled" in cancelled.value.report
        assert tour.cancel() is False

    asyncio.run(main())


def test_cancel_from_another_thread(tour):
    async def main():
        call = asyncio.create_task(tour.nap.aio(1000))
        await until(lambda: sleeps(tour))
        assert await asyncio.to_thread(tour.cancel)
        with pytest.raises(kahost.Cancelled):
            await call

    asyncio.run(main())


def test_deadline(modules):
    with kahost.open(modules["tour"], deadline=60, restart="next call") as m:

        async def main():
            with pytest.raises(kahost.DeadlineError):
                await m.nap.options(deadline=0.05).aio(1000)
            assert (await m.total.aio([1])).sum == 1

        asyncio.run(main())


def test_call_backs_run_in_the_thread_of_the_loop(modules):
    asked = []

    def answer(value):
        asked.append((value, threading.get_ident()))
        assert asyncio.get_running_loop()
        return value + 1

    with kahost.open(modules["tour"], callback=answer, deadline=60) as m:

        async def main():
            assert (await m.ask.aio(7)).answer == 8
            assert asked == [(7, threading.get_ident())]

        asyncio.run(main())


def test_an_exception_comes_out_of_a_call_back(modules):
    def answer(value):
        raise LookupError(value)

    with kahost.open(modules["tour"], callback=answer, deadline=60) as m:

        async def main():
            with pytest.raises(LookupError, match="7"):
                await m.ask.aio(7)
            assert (await m.total.aio([1])).sum == 1

        asyncio.run(main())


def test_the_host_in_its_own_call_back(modules):
    seen = []

    def answer(value):
        try:
            m.total([1])
        except kahost.ArgumentError as error:
            seen.append(str(error))
        return 0

    with kahost.open(modules["tour"], callback=answer, deadline=60) as m:
        asyncio.run(m_ask(m))
        assert len(seen) == 1
        assert "call-back" in seen[0]


async def m_ask(m):
    await m.ask.aio(7)


def test_a_plain_call_beside_an_awaited_one(tour):
    """Of the same host in the same thread: it could never be its turn."""

    async def main():
        call = asyncio.create_task(tour.nap.aio(1000))
        await until(lambda: sleeps(tour))
        with pytest.raises(kahost.ArgumentError):
            tour.total([1])
        with pytest.raises(kahost.ArgumentError):
            tour.close()
        call.cancel()
        await asyncio.gather(call, return_exceptions=True)

    asyncio.run(main())


def test_a_plain_call_of_another_thread_waits(tasks):
    async def main():
        call = asyncio.create_task(tasks.nap.aio(50))
        await until(lambda: sleeps(tasks))
        assert (await asyncio.to_thread(tasks.add, 1, 2)).sum == 3
        await call

    asyncio.run(main())


def test_closed_while_calls_queue(modules):
    tasks = kahost.open(modules["tasks"], deadline=60, restart="next call")

    async def main():
        call = asyncio.create_task(tasks.nap.aio(100000))
        await until(lambda: sleeps(tasks))
        closer = []

        def close():
            closer.append(threading.get_native_id())
            tasks.close()

        closing = asyncio.create_task(asyncio.to_thread(close))
        await until(lambda: closer and waits_for_a_lock(closer[0]))
        late = asyncio.create_task(tasks.add.aio(1, 2))
        await asyncio.sleep(0)
        tasks.cancel()
        with pytest.raises(kahost.Cancelled):
            await call
        await closing
        with pytest.raises(kahost.ClosedError):
            await late

    asyncio.run(main())


def test_a_loop_that_is_closed_in_a_call(modules):
    with kahost.open(modules["tour"], deadline=60, restart="next call") as m:
        loop = asyncio.new_event_loop()
        call = loop.create_task(m.nap.aio(1000))
        loop.run_until_complete(until(lambda: sleeps(m)))
        loop.close()
        with _quiet():
            del call, loop
            gc.collect()
        assert m.total([1]).sum == 1


class _quiet:
    def __enter__(self):
        import logging

        logging.getLogger("asyncio").setLevel(logging.CRITICAL)

    def __exit__(self, *_):
        pass


def test_ctrl_c_ends_the_call(modules):
    """Runner cancels the main task."""
    with kahost.open(modules["tour"], deadline=60) as m:

        async def main():
            asyncio.get_running_loop().call_later(0.05, os.kill, os.getpid(), signal.SIGINT)
            await m.nap.aio(1000)

        with pytest.raises(KeyboardInterrupt):
            asyncio.run(main())
        assert m.pid is None


def test_a_host_that_died_starts_again(modules):
    with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0)) as m:

        async def main():
            for _ in range(3):
                with pytest.raises(kahost.DiedError):
                    await m.crash.aio()
                assert (await m.total.aio([1])).sum == 1
            os.kill(m.pid, 9)
            pid = m.pid
            await until(lambda: open(f"/proc/{pid}/stat").read().rsplit(")")[1].split()[0] == "Z")
            assert (await m.total.aio([1])).sum == 1

        asyncio.run(main())


def test_with_the_fast_transport(modules):
    with kahost.open(modules["tasks"], deadline=60, transport="fast") as m:

        async def main():
            for i in range(200):
                assert (await m.add.aio(i, 2)).sum == i + 2
                assert m.add(i, 3).sum == i + 3

        asyncio.run(main())


def test_descriptors_stay_as_many(tasks):
    async def main():
        await tasks.add.aio(1, 2)
        before = len(os.listdir("/proc/self/fd"))
        for _ in range(5):
            await asyncio.gather(*(tasks.add.aio(i, 1) for i in range(20)))
        assert len(os.listdir("/proc/self/fd")) == before

    asyncio.run(main())


def test_in_a_child(tasks):
    """The host is the parent's, also where a call waits or queues."""

    async def main():
        call = asyncio.create_task(tasks.nap.aio(50))
        await until(lambda: sleeps(tasks))
        queued = asyncio.create_task(tasks.add.aio(1, 2))
        await asyncio.sleep(0)
        child = os.fork()
        if child == 0:
            os._exit(5 if tasks.closed else 1)
        assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 5
        await call
        assert (await queued).sum == 3

    asyncio.run(main())


def test_waits_for_many_states(tasks):
    wait_until(lambda: not sleeps(tasks))

    async def main():
        for ms in (0, 1, 5, 20):
            await tasks.nap.aio(ms)

    asyncio.run(main())
