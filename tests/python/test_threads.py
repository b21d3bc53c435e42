# SPDX-License-Identifier: MIT
"""Threads: one host for many, many hosts, what is done to a host while another thread uses it, and forks."""

import contextlib
import os
import queue
import threading
import time

import pytest

import kahost
from conftest import FULL, wait_until

CALLS = int(os.environ.get("KA_CALLS", "10000" if FULL else "500"))


def in_threads(count, work):
    """Runs work(i) in count threads; what one raises, the test raises."""
    failed = queue.Queue()

    def run(i):
        try:
            work(i)
        except BaseException as error:
            failed.put(error)

    threads = [threading.Thread(target=run, args=(i,)) for i in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if not failed.empty():
        raise failed.get()


def in_thread(work):
    """A thread that is at work; result() waits for it."""
    results = queue.Queue()

    def run():
        try:
            results.put((work(), None))
        except BaseException as error:
            results.put((None, error))

    thread = threading.Thread(target=run)
    thread.start()

    class Started:
        is_alive = staticmethod(thread.is_alive)

        @staticmethod
        def result():
            value, error = results.get(timeout=60)
            thread.join()
            if error is not None:
                raise error
            return value

    return Started


def is_in_nap(m):
    """The host sleeps, in the function: it waits for no signal."""
    with open(f"/proc/{m.pid}/wchan") as file:
        return "nanosleep" in file.read()


def wait_for_nap(m):
    wait_until(lambda: is_in_nap(m), what="the nap")


def test_eight_threads_and_one_host(modules):
    with kahost.open(modules["tour"], deadline=60) as m:

        def work(i):
            for k in range(CALLS):
                assert m.total([i, k]) == ([i, k], i + k)
                if k % 50 == 0:
                    with pytest.raises(kahost.RefusedError):
                        m.scale(1, [i])

        in_threads(8, work)


def test_eight_threads_with_a_host_each(modules):
    def work(i):
        with kahost.open(modules["tour"], deadline=60) as m:
            for k in range(CALLS // 2):
                assert m.total([i, k]).sum == i + k

    in_threads(8, work)


@pytest.mark.parametrize("transport", ["plain", "fast"])
def test_threads_with_other_transports(modules, transport):
    with kahost.open(modules["tour"], deadline=60, transport=transport) as m:
        in_threads(4, lambda i: [m.total([i, k]) for k in range(CALLS // 4)])


def test_another_thread_goes_on_during_a_call(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        napping = in_thread(lambda: m.nap(1))
        wait_for_nap(m)
        count = 0
        while is_in_nap(m):
            count += 1
        napping.result()
        assert count > 1000


def test_cancelling(modules):
    with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0)) as m:
        assert m.cancel() is False
        for _ in range(5):
            napping = in_thread(lambda: m.nap(3600))
            wait_for_nap(m)
            assert m.cancel() is True
            with pytest.raises(kahost.Cancelled) as caught:
                napping.result()
            assert caught.value.retry == "unsure" and isinstance(caught.value, kahost.Error)
            assert m.cancel() is False
            assert m.total([1]).sum == 1


def test_cancelling_ends_one_call_alone(modules):
    """Those that queue are made."""
    with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0)) as m:
        napping = in_thread(lambda: m.nap(3600))
        wait_for_nap(m)
        queued = [in_thread(lambda i=i: m.total([i]).sum) for i in range(4)]
        m.cancel()
        with pytest.raises(kahost.Cancelled):
            napping.result()
        assert sorted(each.result() for each in queued) == [0, 1, 2, 3]


def test_cancelling_at_random(modules):
    """Never a call that came after it, nor a wrong result."""
    with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0)) as m:
        stop, cancelled = threading.Event(), []

        def cancel():
            while not stop.is_set():
                if m.cancel():
                    cancelled.append(1)
                time.sleep(0.002)

        canceller = threading.Thread(target=cancel)
        canceller.start()
        seen = 0
        for i in range(CALLS):
            try:
                assert m.total([i]).sum == i
            except kahost.Cancelled:
                seen += 1
        stop.set()
        canceller.join()
        assert seen == len(cancelled)


def test_closing_waits_for_a_call(modules):
    m = kahost.open(modules["tour"], deadline=60)
    napping = in_thread(lambda: m.nap.raw(1).code)
    wait_for_nap(m)
    m.close()
    assert napping.result() == 0 and m.closed


def test_who_queued_behind_a_close_finds_it_closed(modules):
    m = kahost.open(modules["tour"], deadline=60)
    napping = in_thread(lambda: m.nap(1))
    wait_for_nap(m)
    closing = in_thread(m.close)
    others = [in_thread(lambda: m.total([1])) for _ in range(3)] + [in_thread(m.close) for _ in range(2)]
    napping.result()
    closing.result()
    for other in others[:3]:
        try:
            assert other.result().sum == 1  # it came before
        except kahost.ClosedError:
            pass
    for other in others[3:]:
        other.result()
    with pytest.raises(kahost.ClosedError):
        m.total([1])


def test_restarting_beside_calls(modules):
    with kahost.open(modules["tour"], deadline=60) as m:

        def work(i):
            for k in range(20):
                if i == 0:
                    m.restart()
                else:
                    assert m.total([i, k]).sum == i + k

        in_threads(4, work)


def test_everything_beside_everything(modules):
    """Whatever comes out, nothing else than these errors does, and nothing is left."""
    for _ in range(5):
        m = kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0))

        def work(i):
            uses = [lambda: m.total([1]), m.cancel, m.stderr, lambda: m.pid, lambda: m.scale(1, [1]), m.restart, lambda: setattr(m, "trace", 0), lambda: bytes(m.scratch()[:4])]
            for k in range(40):
                try:
                    uses[(i + k) % len(uses)]()
                except (kahost.Cancelled, kahost.RefusedError, kahost.ClosedError, kahost.DiedError):
                    pass
                except ValueError:  # a view that was released
                    pass
                if i == 7 and k == 30:
                    try:
                        m.close()
                    except BufferError:
                        pass

        in_threads(8, work)
        m.close()


def test_the_main_thread_is_interrupted_in_the_queue(modules):
    import signal

    class Interrupted(Exception):
        pass

    def handler(number, frame):
        raise Interrupted

    before = signal.signal(signal.SIGALRM, handler)
    try:
        with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0)) as m:
            napping = in_thread(lambda: m.nap(3600))
            wait_for_nap(m)
            signal.setitimer(signal.ITIMER_REAL, 0.05)
            with pytest.raises(Interrupted):
                m.total([1])
            assert napping.is_alive() and m.cancel()
            with pytest.raises(kahost.Cancelled):
                napping.result()
            assert m.total([1]).sum == 1
    finally:
        signal.signal(signal.SIGALRM, before)


def test_a_death_while_another_thread_reaps_every_child(modules):
    """It is seen; its cause may be missing."""
    stop = threading.Event()

    def reap():
        while not stop.is_set():
            try:
                os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                pass
            time.sleep(0.0005)

    reaper = threading.Thread(target=reap)
    reaper.start()
    try:
        with kahost.open(modules["tour"], deadline=60, restart="next call", restart_pause=(0, 0)) as m:
            for _ in range(20):
                with pytest.raises(kahost.DiedError) as caught:
                    m.crash()
                assert caught.value.signal in (None, 6)
                assert m.total([1]).sum == 1
    finally:
        stop.set()
        reaper.join()


# ---- Forks -----------------------------------------------------------------------------------------------------------


def in_child(work):
    """Forks; the child says with its exit status whether work() went well."""
    pid = os.fork()
    if pid == 0:
        status = 1
        try:
            work()
            status = 0
        except BaseException:
            import traceback

            traceback.print_exc()
        finally:
            os._exit(status)
    return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])


def find_it_closed(m, path):
    assert m.closed and m.pid is None and "closed" in repr(m)
    for use in (lambda: m.total([1]), m.restart, m.stderr):
        try:
            use()
        except kahost.ClosedError as error:
            assert "parent" in str(error)
        else:
            raise AssertionError("it is not closed")
    assert m.cancel() is False
    with contextlib.suppress(BufferError):
        m.close()
    with kahost.open(path, deadline=60) as own:
        assert own.total([2, 3]).sum == 5


def test_a_child_finds_its_parents_hosts_closed(modules):
    path = modules["tour"]
    with kahost.open(path, deadline=60) as m:
        m.scratch()[:3] = b"abc"
        assert in_child(lambda: find_it_closed(m, path)) == 0
        assert m.total([1]).sum == 1 and bytes(m.scratch()[:3]) == b"abc"


def test_a_childs_view_of_a_scratch_area_is_its_own(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        view = m.scratch()
        part = view[1:]
        view[:3] = b"abc"

        def work():
            assert bytes(part[:2]) == b"\0\0"
            part[:2] = b"xy"
            assert bytes(view[:3]) == b"\0xy"
            find_it_closed(m, modules["tour"])

        assert in_child(work) == 0
        assert bytes(part[:2]) == b"bc" and m.total([1]).sum == 1
        part.release()


def test_a_child_that_drops_its_parents_hosts(modules):
    import gc

    hosts = [kahost.open(modules["tour"], deadline=60) for _ in range(3)]

    def work():
        hosts.clear()
        gc.collect()

    assert in_child(work) == 0
    for m in hosts:
        assert m.total([1]).sum == 1
        m.close()


def test_a_fork_in_a_callback(modules):
    path = modules["tour"]
    with kahost.open(path, deadline=60) as m:
        status = []

        def callback(value):
            status.append(in_child(lambda: find_it_closed(m, path)))
            return 5

        m.callback = callback
        assert m.ask(1).answer == 5 and status == [0]


def test_a_child_that_returns_from_the_callback_in_which_it_was_made(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        parent = os.getpid()
        status = []

        def callback(value):
            pid = os.fork()
            if pid == 0:
                return 6
            status.append(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))
            return 5

        m.callback = callback
        try:
            answer = m.ask(1).answer
        except kahost.ClosedError:
            if os.getpid() != parent:
                os._exit(7)
            raise
        finally:
            if os.getpid() != parent:
                os._exit(1)
        assert answer == 5 and status == [7]


def test_a_fork_beside_threads_that_call(modules):
    path = modules["tour"]
    with kahost.open(path, deadline=60) as m:
        stop = threading.Event()

        def call():
            while not stop.is_set():
                assert m.total([1]).sum == 1

        threads = [threading.Thread(target=call) for _ in range(3)]
        for thread in threads:
            thread.start()
        try:
            for _ in range(10):
                assert in_child(lambda: find_it_closed(m, path)) == 0
        finally:
            stop.set()
            for thread in threads:
                thread.join()
