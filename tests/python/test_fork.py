# SPDX-License-Identifier: MIT
"""Programs that fork, and multiprocessing with each of its ways to start."""

import gc
import multiprocessing
import os
import subprocess
import sys
import threading

import kahost
import pytest
from conftest import FULL, wait_until


@pytest.fixture
def tour(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        yield m


def in_child(work):
    """What work gives in a child: its exit status; 1 after an exception."""
    child = os.fork()
    if child == 0:
        status = 1
        try:
            status = work() or 0
        except BaseException:
            sys.excepthook(*sys.exc_info())
        finally:
            os._exit(status)
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def test_hosts_are_closed_in_the_child(tour):
    assert tour.total([1]).sum == 1

    def child():
        assert tour.closed
        assert tour.pid is None
        with pytest.raises(kahost.ClosedError):
            tour.total([1])
        with pytest.raises(kahost.ClosedError):
            tour.scratch()
        assert tour.cancel() is False
        tour.close()
        return 5

    assert in_child(child) == 5
    assert tour.total([2]).sum == 2


def test_copies_that_are_closed_and_collected_leave_the_parents_alone(modules):
    hosts = [kahost.open(modules["tour"], deadline=60) for _ in range(5)]
    pids = [m.pid for m in hosts]

    def child():
        hosts[0].close()
        hosts[1].__exit__(None, None, None)
        hosts.clear()
        gc.collect()
        return 3

    assert in_child(child) == 3
    assert [m.pid for m in hosts] == pids
    for m in hosts:
        assert m.total([1, 2]).sum == 3
        m.close()


def test_the_child_opens_its_own(tour, modules):
    def child():
        with kahost.open(modules["tour"], deadline=60) as m:
            assert m.total([1, 2]).sum == 3
            assert m.pid != tour.pid

    assert in_child(child) == 0
    assert tour.total([1]).sum == 1


def test_in_a_call_back(modules):
    codes = []

    def answer(value):
        child = os.fork()
        if child == 0:  # goes on in the call, whose host it has not
            return value
        codes.append(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
        return value + 1

    parent = os.getpid()
    with kahost.open(modules["tour"], callback=answer, deadline=60) as m:
        try:
            result = m.ask(7)
        except kahost.ClosedError:
            os._exit(9 if os.getpid() != parent else 1)
        except BaseException:
            os._exit(2)
        if os.getpid() != parent:
            os._exit(3)
        assert codes == [9]
        assert result.answer == 8
        assert m.total([1]).sum == 1


def test_beside_threads_that_build_and_wait(modules):
    """Whatever the other threads are about when the process forks, the child can close, drop and open."""
    stop = threading.Event()
    hosts = [kahost.open(modules["tour"], deadline=60) for _ in range(3)]
    values = list(range(2000))

    def work(m):
        while not stop.is_set():
            assert len(m.total(values).values) == 2000

    threads = [threading.Thread(target=work, args=(m,)) for m in hosts]
    for thread in threads:
        thread.start()

    def child():
        for m in hosts:
            with pytest.raises(kahost.ClosedError):
                m.total([1])
            m.close()
        hosts.clear()
        gc.collect()
        with kahost.open(modules["tour"], deadline=60) as own:
            assert own.total([1, 2]).sum == 3
        return 4

    try:
        for _ in range(100 if FULL else 4):
            assert in_child(child) == 4
    finally:
        stop.set()
        for thread in threads:
            thread.join()
    for m in hosts:
        assert m.total([1]).sum == 1
        m.close()


def test_a_thread_that_waits_for_its_turn(tour):
    """The child's copy is closed although another thread had its turn."""
    asleep = threading.Thread(target=lambda: pytest.raises(kahost.Cancelled, tour.nap, 1000))
    asleep.start()
    wait_until(lambda: open(f"/proc/{tour.pid}/syscall").read().split()[0] in ("35", "230"))

    def child():
        with pytest.raises(kahost.ClosedError):
            tour.total([1])
        return 6

    assert in_child(child) == 6
    assert tour.cancel()
    asleep.join()


def sum_of(function, values):
    return function(values).sum


def module_sum(m, values):
    with m:
        return m.total(values).sum, m.pid


def crash(function):
    function()


@pytest.mark.parametrize("way", ["fork", "spawn", "forkserver"])
def test_multiprocessing(tour, way):
    context = multiprocessing.get_context(way)
    with context.Pool(2) as pool:
        assert pool.starmap(sum_of, [(tour.total, [i, 1]) for i in range(20)]) == [i + 1 for i in range(20)]
        (value, pid), *_ = pool.starmap(module_sum, [(tour, [1, 2])])
        assert value == 3
        assert pid != tour.pid
        with pytest.raises(kahost.DiedError) as died:
            pool.apply(crash, (tour.crash,))
        assert (died.value.signal, died.value.function) == (6, "crash")
        assert "crash" in died.value.report
        pool.close()
        pool.join()
    assert tour.total([1]).sum == 1


def test_a_handle_that_was_used_before_the_fork(tour):
    """The thread's host is the parent's; the child opens another."""
    import pickle

    m = pickle.loads(pickle.dumps(tour))
    assert m.total([1]).sum == 1
    mine = m.pid

    def child():
        assert m.total([2]).sum == 2
        assert m.pid != mine
        m.close()
        return 8

    assert in_child(child) == 8
    assert m.pid == mine
    assert m.total([3]).sum == 3
    m.close()


def test_hosts_of_a_process_end_with_it(modules):
    """Handles in a process that is killed."""
    program = """
import pickle, sys, time, kahost
m = kahost.open(sys.argv[1])
other = pickle.loads(pickle.dumps(m))
other.total([1])
print(m.pid, other.pid, flush=True)
time.sleep(1000)
"""
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(folder for folder in sys.path if folder)}
    with subprocess.Popen(
        [sys.executable, "-c", program, modules["tour"]], stdout=subprocess.PIPE, text=True, env=environment
    ) as process:
        pids = process.stdout.readline().split()
        assert len(pids) == 2
        process.kill()
    wait_until(lambda: not any(is_alive(pid) for pid in pids), what="the end of the hosts")


def is_alive(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="latin-1") as file:
            return file.read().rsplit(")", 1)[1].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False
