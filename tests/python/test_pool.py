# SPDX-License-Identifier: MIT
"""kahost.Pool: an Executor, deaths, retries, recycling, and its end."""

import concurrent.futures
import gc
import os
import threading
import weakref

import kahost
import pytest
from conftest import descendants, wait_until


@pytest.fixture
def tour(modules):
    with kahost.Pool(modules["tour"], hosts=4, deadline=60) as pool:
        yield pool


@pytest.fixture
def tasks(modules):
    with kahost.Pool(modules["tasks"], hosts=2, deadline=60) as pool:
        yield pool


def test_is_an_executor(tour):
    assert isinstance(tour, concurrent.futures.Executor)
    future = tour.submit("total", [1, 2])
    assert isinstance(future, concurrent.futures.Future)
    assert future.result() == ([1, 2], 3)
    assert future.result().sum == 3


def test_takes_a_callable_that_gets_the_module(tour):
    def several(m, factor, *, offset):
        return m.scale(factor, [1, 2]).largest + m.total([offset]).sum

    assert tour.submit(several, 2, offset=5).result() == 9


def test_one_host_makes_all_calls_of_a_callable(tour):
    assert tour.submit(lambda m: m.pid == m.pid and m.total([1]).sum).result() == 1


def test_keyword_arguments_go_to_the_function(tour):
    assert tour.submit("total", values=[4, 5]).result().sum == 9


def test_map_keeps_the_order(tour):
    rows = [[i, i + 1] for i in range(300)]
    for batch in (None, 1, 7, 1000):
        assert [each.sum for each in tour.map("total", rows, batch=batch)] == [2 * i + 1 for i in range(300)]
    assert [each.sum for each in tour.map("total", rows, chunksize=16)] == [2 * i + 1 for i in range(300)]


def test_map_takes_an_iterable_for_each_argument(tasks):
    assert [each.sum for each in tasks.map("add", range(10), range(10, 20), batch=3)] == [10 + 2 * i for i in range(10)]
    assert list(tasks.map(lambda m, a: m.add(a, 1).sum, range(5))) == [1, 2, 3, 4, 5]
    assert list(tasks.map("add", [], [])) == []


def test_map_raises_where_the_error_was(tour):
    results = tour.map("total", [[1], ["x"], [3]], batch=2)
    with pytest.raises(TypeError):
        list(results)


def test_map_gives_up_at_its_timeout(tasks):
    results = tasks.map("nap", [100000], timeout=0.01)
    with pytest.raises(concurrent.futures.TimeoutError):
        list(results)
    tasks.shutdown(cancel_futures=True)


def test_map_drops_the_work_that_came_too_late(modules):
    with kahost.Pool(modules["tour"], hosts=1, deadline=60) as pool:
        go, ran = threading.Event(), []
        pool.submit(lambda m: go.wait())
        with pytest.raises(concurrent.futures.TimeoutError):
            list(pool.map(lambda m, row: ran.append(row), [1, 2, 3], timeout=0.01))
        go.set()
    assert ran == []


def test_no_more_hosts_than_asked_for(modules):
    with kahost.Pool(modules["tour"], hosts=3, deadline=60) as pool:
        meet = threading.Barrier(3)
        together = [pool.submit(lambda m: meet.wait() is not None and m.pid) for _ in range(3)]
        pids = {future.result() for future in together}
        assert len(pids) == 3
        assert {future.result() for future in [pool.submit(lambda m: m.pid) for _ in range(100)]} <= pids


def test_hosts_start_when_there_is_work(modules):
    with kahost.Pool(modules["tour"], hosts=3, deadline=60) as pool:
        one = {pool.submit(lambda m: m.pid).result() for _ in range(20)}
    assert len(one) <= 3
    with kahost.Pool("/no/such/module", hosts=3) as pool:
        assert isinstance(pool.submit("total", [1]).exception(), kahost.StartError)
        assert isinstance(pool.submit("total", [1]).exception(), kahost.StartError)  # and again


def test_a_death_costs_its_own_future_alone(tour):
    futures = [tour.submit("crash") if i % 10 == 0 else tour.submit("total", [i]) for i in range(100)]
    for i, future in enumerate(futures):
        if i % 10 == 0:
            error = future.exception()
            assert isinstance(error, kahost.DiedError)
            assert (error.retry, error.function, error.signal) == ("unsure", "crash", 6)
        else:
            assert future.result().sum == i


def test_death_with_restart_never(modules):
    with kahost.Pool(modules["tour"], hosts=1, restart="never", deadline=60) as pool:
        assert isinstance(pool.submit("crash").exception(), kahost.DiedError)
        assert pool.submit("total", [1]).result().sum == 1


def test_an_error_in_a_callable_is_the_futures(tour):
    assert isinstance(tour.submit(lambda m: 1 / 0).exception(), ZeroDivisionError)
    assert isinstance(tour.submit(lambda m: m.crash()).exception(), kahost.DiedError)
    assert isinstance(tour.submit("no such function").exception(), (AttributeError, KeyError))
    assert tour.submit("total", [1]).result().sum == 1


def kill(pid):
    os.kill(pid, 9)
    wait_until(lambda: not os.path.exists(f"/proc/{pid}") or open(f"/proc/{pid}/stat").read().rsplit(")")[1].split()[0] in "ZX")


def test_retries_what_was_not_called(modules):
    """A host that died between calls: nothing was called."""
    for retries in (0, 1):
        with kahost.Pool(modules["tour"], hosts=1, retries=retries, restart_pause=(0, 0), deadline=60) as pool:
            kill(pool.submit(lambda m: m.pid).result())
            error = pool.submit("total", [1]).exception()
            if error is not None:
                assert retries == 0
                assert error.retry == "yes"
            assert pool.submit("total", [2]).result().sum == 2


def test_never_retries_what_may_have_been_called(modules, tmp_path):
    with kahost.Pool(modules["tasks"], hosts=1, retries=5, deadline=60) as pool:
        before = pool.submit(lambda m: m.pid).result()
        error = pool.submit("die_by", 9).exception()
        assert isinstance(error, kahost.DiedError)
        assert error.retry == "unsure"
        assert pool.submit("count_call") is not None
        assert pool.submit(lambda m: m.pid).result() != before


def test_recycles_hosts(modules):
    with kahost.Pool(modules["tour"], hosts=1, recycle=3, deadline=60) as pool:
        pids = [pool.submit(lambda m: m.pid).result() for _ in range(9)]
        assert [len(set(pids[i : i + 3])) for i in (0, 3, 6)] == [1, 1, 1]
        assert len(set(pids)) == 3
    with kahost.Pool(modules["tasks"], hosts=1, recycle=4, deadline=60) as pool:  # within a batch, too
        codes = [error.code for error in map(lambda f: f.exception(), [pool.submit("count_call") for _ in range(8)])]
        assert codes == [1, 2, 3, 4, 1, 2, 3, 4]


def test_options_are_those_of_open(modules):
    answers = []
    with kahost.Pool(modules["tour"], hosts=1, callback=lambda value: answers.append(value) or 5, reals="float") as pool:
        assert pool.submit("ask", 3).result().answer == 5
        assert isinstance(pool.submit("scale", 2, [1, 2]).result().largest, float)
    assert answers == [3]
    with pytest.raises(ValueError):
        kahost.Pool(modules["tour"], hosts=0)
    with pytest.raises(ValueError):
        kahost.Pool(modules["tour"], retries=-1)
    with pytest.raises(ValueError):
        kahost.Pool(modules["tour"], recycle=0)
    with pytest.raises(TypeError, match="deadlin"):
        kahost.Pool(modules["tour"], deadlin=3)


def test_shutdown_does_what_waits(modules):
    pool = kahost.Pool(modules["tour"], hosts=2, deadline=60)
    futures = [pool.submit("total", [i]) for i in range(200)]
    pool.shutdown()
    assert [future.result().sum for future in futures] == list(range(200))
    with pytest.raises(RuntimeError):
        pool.submit("total", [1])
    pool.shutdown()  # again


@pytest.mark.parametrize("wait", [True, False])
def test_shutdown_with_cancel_futures_ends_calls(modules, wait):
    pool = kahost.Pool(modules["tour"], hosts=2, deadline=1000)
    begun = threading.Barrier(3)

    def nap(m):
        begun.wait()
        m.nap(1000)

    running = [pool.submit(nap) for _ in range(2)]
    waiting = [pool.submit("nap", 1000) for _ in range(10)]
    begun.wait()
    pool.shutdown(wait, cancel_futures=True)
    assert all(isinstance(future.exception(60), kahost.Cancelled) for future in running)
    assert all(future.cancelled() for future in waiting)
    pool.shutdown()


@pytest.mark.parametrize("wait", [True, False])
def test_shutdown_with_cancel_futures_ends_starts(modules, wait):
    """Long before the hosts are ready."""
    before = set(descendants())
    pool = kahost.Pool(modules["tasks"], hosts=2, deadline=1000, grace=0, env={**os.environ, "KA_TEST_SETUP": "naps1000000"})
    futures = [pool.submit("add", 1, 2) for _ in range(3)]
    wait_until(lambda: len(set(descendants()) - before) == 2, what="two starts")
    pool.shutdown(wait, cancel_futures=True)
    assert all(isinstance(future.exception(60), kahost.Cancelled) for future in futures[:2])
    assert futures[2].cancelled()
    pool.shutdown()


def test_who_waits_for_futures_hears_of_their_cancelling(modules):
    pool = kahost.Pool(modules["tour"], hosts=1, deadline=1000)
    futures = [pool.submit("nap", 1000) for _ in range(3)]
    done = []
    waiting = threading.Thread(target=lambda: done.append(concurrent.futures.wait(futures).done), daemon=True)
    waiting.start()
    wait_until(lambda: all(future._waiters for future in futures), what="who waits")
    pool.shutdown(cancel_futures=True)
    waiting.join(60)
    assert done == [set(futures)]


@pytest.mark.filterwarnings("ignore::pytest.PytestUnhandledThreadExceptionWarning")
@pytest.mark.parametrize("raised", [ValueError, KeyboardInterrupt, SystemExit])
def test_what_a_done_callback_raises_ends_no_thread(modules, raised):
    def done(future):
        raise raised

    with kahost.Pool(modules["tour"], hosts=1, deadline=60) as pool:
        go = threading.Event()
        future = pool.submit(lambda m: go.wait())
        future.add_done_callback(done)
        go.set()
        assert pool.submit("total", [1]).result(60).sum == 1


def test_shutdown_with_cancel_futures_ends_a_batch(modules):
    pool = kahost.Pool(modules["tour"], hosts=1, deadline=1000)
    pid = pool.submit(lambda m: m.pid).result()
    results = pool.map("nap", [1000] * 5, batch=5)
    wait_until(lambda: pool._shared.unfinished == 1 and open(f"/proc/{pid}/syscall").read().split()[0] in ("35", "230"))
    pool.shutdown(cancel_futures=True)
    with pytest.raises(kahost.Cancelled):
        list(results)


def test_a_pool_that_is_dropped_ends(modules):
    pool = kahost.Pool(modules["tour"], hosts=2, deadline=60)
    future = pool.submit("total", [1])
    gone = weakref.ref(pool)
    threads = [worker.thread for worker in pool._shared.workers]
    del pool
    gc.collect()
    assert gone() is None
    assert future.result().sum == 1
    for thread in threads:
        thread.join(60)
        assert not thread.is_alive()


def test_pending_futures_can_be_cancelled(modules):
    with kahost.Pool(modules["tour"], hosts=1, deadline=60) as pool:
        go = threading.Event()
        pool.submit(lambda m: go.wait())
        waiting = pool.submit("total", [1])
        assert waiting.cancel()
        go.set()
        assert pool.submit("total", [2]).result().sum == 2


def test_with_asyncio(tour):
    import asyncio

    async def main():
        loop = asyncio.get_running_loop()
        return await asyncio.gather(*(loop.run_in_executor(tour, lambda m, row: m.total(row), [i]) for i in range(20)))

    assert [each.sum for each in asyncio.run(main())] == list(range(20))


def test_in_a_fork_it_is_the_parents(tour):
    tour.submit("total", [1]).result()
    child = os.fork()
    if child == 0:
        try:
            tour.submit("total", [1])
        except RuntimeError:
            os._exit(7)
        os._exit(1)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
    assert tour.submit("total", [2]).result().sum == 2
