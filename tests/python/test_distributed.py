# SPDX-License-Identifier: MIT
"""Calls on the workers of dask.distributed: a real scheduler and real workers on the loopback interface, which are
killed, as hosts are."""

import contextlib
import os
import pickle
import signal
import subprocess
import sys
import time
from decimal import Decimal

import distributed
import kahost
import kahost.distributed as kd
import pytest
from conftest import wait_until


PATH = os.pathsep.join(folder for folder in sys.path if folder)
SETTINGS = {"PYTHONPATH": PATH, "DASK_DISTRIBUTED__SCHEDULER__ALLOWED_FAILURES": "1", "DASK_DISTRIBUTED__COMM__TIMEOUTS__CONNECT": "60"}


def is_alive(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="latin-1") as file:
            return file.read().rsplit(")", 1)[1].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False


class Cluster:
    """A scheduler, and two workers of two threads each with nannies, which start them again."""

    def __init__(self, folder):
        self.folder, self.processes = folder, []
        self.contact = folder / "scheduler.json"
        self.scheduler = self.start("dask_scheduler", "--port", "0", "--scheduler-file", self.contact, "--no-show")
        wait_until(self.contact.exists, what="the scheduler")
        for _ in range(2):
            self.start(
                "dask_worker", "--scheduler-file", self.contact, "--nthreads", "2", "--no-dashboard",
                "--local-directory", folder, "--nanny", "--death-timeout", "100",
            )  # fmt: skip
        self.client = distributed.Client(scheduler_file=str(self.contact), set_as_default=False, timeout=60)
        self.settle()

    def settle(self, plugin=None):
        """Both workers are there, with that plugin."""
        self.client.wait_for_workers(2, timeout=60)
        self.client.register_worker_plugin(plugin or kd.Hosts(max_hosts=4, idle=60))
        self.worker_pids = self.pids()

    def start(self, program, *options):
        with open(self.folder / f"{program}-{len(self.processes)}.log", "wb") as log:
            process = subprocess.Popen(
                [sys.executable, "-m", f"distributed.cli.{program}", "--host", "127.0.0.1", *map(str, options)],
                env={**os.environ, **SETTINGS},
                stdout=log,
                stderr=log,
                cwd=self.folder,
                start_new_session=True,
            )
        self.processes.append(process)
        return process

    def pids(self):
        """Of the workers."""
        return list(self.client.run(os.getpid).values())

    def close(self):
        hosts = all_hosts(self)
        self.client.close()
        for process in self.processes:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
        wait_until(lambda: not any(map(is_alive, hosts)), what="the end of the hosts")


@pytest.fixture(scope="module")
def whole(tmp_path_factory):
    made = Cluster(tmp_path_factory.mktemp("cluster"))
    yield made
    made.close()


@pytest.fixture
def cluster(whole):
    whole.settle()
    return whole


@pytest.fixture(autouse=True)
def nothing_is_left():
    """In the place of conftest.py's: the cluster, with its hosts, is there for all tests of the file."""
    return


@pytest.fixture
def tour(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        yield m


@pytest.fixture
def tasks(modules):
    with kahost.open(modules["tasks"], deadline=60) as m:
        yield m


def hosts_of(pid):
    with contextlib.suppress(FileNotFoundError):
        children = set()
        for thread in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{thread}/children") as file:
                children |= set(map(int, file.read().split()))
        return [child for child in children if b"caller_module" in command(child) or b"/tour" in command(child)]
    return []


def command(pid):
    try:
        with open(f"/proc/{pid}/cmdline", "rb") as file:
            return file.read()
    except (FileNotFoundError, ProcessLookupError):
        return b""


# ---- Calls -----------------------------------------------------------------------------------------------------------


def test_200_calls(cluster, tour):
    futures = cluster.client.map(tour.total, [[i, 1] for i in range(200)])
    assert [each.sum for each in cluster.client.gather(futures)] == [i + 1 for i in range(200)]
    assert all(1 <= len(hosts_of(pid)) <= 2 for pid in cluster.pids())  # one for each thread
    assert hosts_of(cluster.scheduler.pid) == []


def test_without_the_plugin(cluster, tour):
    cluster.client.unregister_worker_plugin(kd.NAME)
    wait_until(lambda: not all_hosts(cluster), what="the end of the plugin's hosts")
    futures = cluster.client.map(tour.total, [[i, 2] for i in range(200)])
    assert [each.sum for each in cluster.client.gather(futures)] == [i + 2 for i in range(200)]
    assert all(1 <= len(hosts_of(pid)) <= 2 for pid in cluster.worker_pids)
    assert [each.sum for each in kd.map(cluster.client, tour.total, [[1]], batch=1)[0].result()] == [1]
    hosts = all_hosts(cluster)
    cluster.client.restart()  # its threads' hosts end with a process
    wait_until(lambda: not any(map(is_alive, hosts)), what="the end of the hosts")


def test_the_scheduler_never_imports_kahost(cluster, tour):
    assert kd.submit(cluster.client, tour.total, [1, 2]).result().sum == 3
    assert kd.submit(cluster.client, tour.total, [1, 2], effects=True).result().sum == 3
    assert isinstance(kd.submit(cluster.client, tour.crash).exception(), kahost.DiedError)
    found = cluster.client.run_on_scheduler(lambda: [name for name in __import__("sys").modules if name.startswith("kahost")])
    assert found == []


def test_map_in_batches(cluster, tasks):
    rows = [(i, 2) for i in range(100)]
    futures = kd.map(cluster.client, tasks.add, rows, batch=30)
    assert [len(each) for each in cluster.client.gather(futures)] == [30, 30, 30, 10]
    assert [call.sum for batch in cluster.client.gather(futures) for call in batch] == [i + 2 for i in range(100)]


def test_a_row_that_is_no_tuple_is_the_argument(cluster, tour):
    (future,) = kd.map(cluster.client, tour.total, [[1, 2], [3]], batch=5)
    assert [each.sum for each in future.result()] == [3, 3]


def test_map_chooses_batches_by_time(cluster, tasks):
    quick = kd.map(cluster.client, tasks.add, [(i, 2) for i in range(5000)])
    assert [call.sum for batch in cluster.client.gather(quick) for call in batch] == [i + 2 for i in range(5000)]
    assert len(quick) < 500
    slow = kd.map(cluster.client, tasks.nap, [60] * 6)
    assert [len(each) for each in cluster.client.gather(slow)] == [1] * 6
    assert kd.map(cluster.client, tasks.nap, []) == []


def test_what_is_refused(cluster, tour):
    for wrong in ({"batch": 0}, {"batch": -1}, {"retries": -1}):
        with pytest.raises(ValueError):
            kd.map(cluster.client, tour.total, [[1]], **wrong)
    with pytest.raises(ValueError):
        kd.submit(cluster.client, tour.total, [1], retries=-1)
    with pytest.raises(TypeError, match="not a function of a module"):
        kd.submit(cluster.client, len, [1])
    for wrong in ({"max_hosts": 0}, {"idle": -1}):
        with pytest.raises(ValueError):
            kd.Hosts(**wrong)


def test_an_error_in_a_batch_is_its_futures(cluster, tasks):
    futures = kd.map(cluster.client, tasks.give_code, [0, 0, 7, 0, 0, 0], batch=2)
    assert [len(futures[i].result()) for i in (0, 2)] == [2, 2]
    error = futures[1].exception()
    assert isinstance(error, kahost.ReturnedCode)
    assert error.code == 7
    chosen = kd.map(cluster.client, tasks.give_code, [0, 0, 7, 0])  # the first task finds out, and finds this
    outcomes = [future.exception() for future in chosen]
    assert sum(error is not None for error in outcomes) == 1


def test_options_of_the_engine(cluster, tour):
    (address, *_) = cluster.client.scheduler_info()["workers"]
    future = kd.submit(cluster.client, tour.total, [1], workers=[address], priority=5, key="my-own-key")
    assert future.key == "my-own-key"
    assert future.result().sum == 1
    assert cluster.client.who_has([future])["my-own-key"] == (address,)
    assert kd.submit(cluster.client, tour.total, values=[2]).result().sum == 2


def test_futures_are_arguments(cluster, tour):
    values = cluster.client.submit(lambda: [1, 2, 3], pure=False)
    assert kd.submit(cluster.client, tour.total, values).result().sum == 6


# ---- What arrives ----------------------------------------------------------------------------------------------------


def test_results_and_errors_arrive(cluster, modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        scaled = kd.submit(cluster.client, m.scale, Decimal("2.5"), [1, Decimal("2.5")]).result()
        assert scaled == ([Decimal("2.5"), Decimal("6.25")], Decimal("6.25"))
        assert (type(scaled).__name__, scaled.largest) == ("scale", Decimal("6.25"))
        died = kd.submit(cluster.client, m.crash).exception()
        assert (died.retry, died.signal, died.function) == ("unsure", signal.SIGABRT, "crash")
        assert "crash" in died.report
        assert died.details["function"] == "crash"
        code = kd.submit(cluster.client, m.greet, "x", kahost.Text("", room=3)).exception()
        assert (type(code), code.code, code.results.greeting) == (kahost.ReturnedCode, 18, "")
        late = kd.submit(cluster.client, m.nap.options(deadline=0.05), 1000).exception()
        assert isinstance(late, kahost.DeadlineError)
        assert isinstance(kd.submit(cluster.client, m.total, [2**40]).exception(), OverflowError)
        lost = kd.submit(cluster.client, m.scale, 1, [Decimal("1.234567890123456789"), 2]).exception()
        assert isinstance(lost, kahost.LostDigits)
        assert lost.value == Decimal("1.234567890123456789")
        assert isinstance(kd.submit(cluster.client, m.total).exception(), TypeError)


CLIENT = """
import sys, pickle, distributed, kahost, kahost.distributed as kd
client = distributed.Client(scheduler_file=sys.argv[1], timeout=60)
m = pickle.load(open(sys.argv[2], "rb"))
assert kd.submit(client, m.total, [1, 2]).result().sum == 3
died = kd.submit(client, m.crash).exception()
assert isinstance(died, kahost.DiedError) and "crash" in died.report, died
print([each.sum for future in kd.map(client, m.total, [[i] for i in range(5)]) for each in future.result()])
client.close()
"""


def test_a_client_without_the_modules_file(cluster, modules, tmp_path):
    """In a namespace of its own, where an empty folder hides the file."""
    namespace = ["unshare", "--mount", *([] if os.geteuid() == 0 else ["--map-root-user", "--user"])]
    if subprocess.run([*namespace, "true"], stderr=subprocess.DEVNULL).returncode != 0:
        pytest.skip("the system gives no mounts of one's own")
    path = modules["tour"]
    with kahost.open(path, deadline=60) as m:
        (tmp_path / "handle").write_bytes(pickle.dumps(m))
    (tmp_path / "client.py").write_text(CLIENT)
    (tmp_path / "empty").mkdir()
    words = [sys.executable, tmp_path / "client.py", cluster.contact, tmp_path / "handle"]
    hidden = f'mount --bind "$0" "{os.path.dirname(path)}" && ! [ -e "{path}" ] && exec "$@"'
    done = subprocess.run(
        [*namespace, "sh", "-c", hidden, tmp_path / "empty", *words],
        env={**os.environ, **SETTINGS},
        capture_output=True,
        text=True,
    )
    assert (done.returncode, done.stdout) == (0, "[0, 1, 2, 3, 4]\n"), done.stderr


# ---- Deaths ----------------------------------------------------------------------------------------------------------


def test_a_host_is_killed(cluster, tasks):
    """Its future fails; the next call on the worker works."""
    (address, *_) = cluster.client.scheduler_info()["workers"]
    pid = cluster.client.run(os.getpid, workers=[address])[address]
    future = kd.submit(cluster.client, tasks.hang, workers=[address])
    busy = wait_until(lambda: [host for host in hosts_of(pid) if is_in_pause(host)], what="the call")
    os.kill(busy[0], signal.SIGKILL)
    error = future.exception()
    assert isinstance(error, kahost.DiedError)
    assert (error.retry, error.signal, error.function) == ("unsure", signal.SIGKILL, "hang")
    assert kd.submit(cluster.client, tasks.add, 1, 2, workers=[address]).result().sum == 3


def is_in_pause(pid):
    try:
        with open(f"/proc/{pid}/syscall") as file:
            return file.read().split()[0] == "34"
    except (OSError, IndexError):
        return False


def test_what_was_not_called_is_called_again_on_the_worker(cluster, tasks):
    """The hosts died between calls."""
    (address, *_) = cluster.client.scheduler_info()["workers"]
    pid = cluster.client.run(os.getpid, workers=[address])[address]
    for _ in range(3):
        for effects in (False, True):
            assert kd.submit(cluster.client, tasks.add, 1, 2, workers=[address], effects=effects).result().sum == 3
            for host in hosts_of(pid):
                os.kill(host, signal.SIGKILL)


class KillHosts:
    """A call-back that leaves a mark, and kills the hosts of its process."""

    def __init__(self, path):
        self.path = str(path)

    def __call__(self, value):
        with open(self.path, "a") as file:
            file.write("1")
        for host in hosts_of(os.getpid()):
            os.kill(host, signal.SIGKILL)
        return 0


def test_the_engine_repeats_nothing_that_is_unsure(cluster, modules, tmp_path):
    """The engine's own retries know no difference; those of kd.submit do."""
    marks = tmp_path / "marks"
    with kahost.open(modules["tour"], callback=KillHosts(marks), deadline=60) as m:
        error = kd.submit(cluster.client, m.ask, 7, retries=5).exception()
    assert isinstance(error, kahost.DiedError)
    assert error.retry == "unsure"
    assert marks.read_text() == "1"


def test_a_worker_is_killed_during_a_map(cluster, tasks, tmp_path):
    """And while it asks whether a call with effects was made: that is made elsewhere, and the scheduler keeps nothing."""
    mark = tmp_path / "mark"
    mark.mkdir()
    cluster.client.run(hang_once_in_get, str(mark))
    once = kd.submit(cluster.client, tasks.add, 1, 2, effects=True)
    victim = int(wait_until(lambda: os.listdir(mark), what="the question")[0])
    futures = kd.map(cluster.client, tasks.nap, [300] * 8, batch=1)
    hosts = wait_until(lambda: hosts_of(victim), what="a call")
    os.kill(victim, signal.SIGKILL)
    wait_until(lambda: not any(map(is_alive, hosts)), what="the end of the hosts")
    assert len(cluster.client.gather(futures)) == 8
    assert once.result(timeout=60).sum == 3
    wait_until(lambda: cluster.client.run_on_scheduler(claims) == [], what="the end of the claim")


def hang_once_in_get(mark):
    get = distributed.Queue.get

    def hang_once(*args, **kwargs):
        if not os.listdir(mark):
            os.mkdir(os.path.join(mark, str(os.getpid())))
            time.sleep(1000)
        return get(*args, **kwargs)

    distributed.Queue.get = hang_once


def claims(dask_scheduler):
    return [name for name in dask_scheduler.extensions["queues"].queues if name.startswith("kahost")]


def test_with_effects_at_most_once(cluster, modules, tmp_path):
    """The worker dies in the call; the engine runs the task again, which is refused."""
    calls = tmp_path / "calls"
    with kahost.open(modules["tasks"], callback=Append(calls), deadline=60) as m:
        error = kd.submit(cluster.client, m.ask, 0, effects=True).exception(timeout=120)
        assert isinstance(error, kahost.DiedError)
        assert error.retry == "unsure"
        assert "before" in str(error)
        assert calls.read_text() == "1"
        assert kd.submit(cluster.client, m.add, 1, 2, effects=True).result().sum == 3
    assert cluster.client.submit(kd._claim, "kahost-none", pure=False).result() is False  # of a future that is done


class Append:
    """A call-back that leaves a mark, and kills its worker."""

    def __init__(self, path):
        self.path = str(path)

    def __call__(self, value):
        with open(self.path, "a") as file:
            file.write("1")
        os.kill(os.getpid(), signal.SIGKILL)


class Kill:
    def __call__(self, value):
        os.kill(os.getpid(), signal.SIGKILL)


def test_a_task_that_kills_its_worker(cluster, modules):
    with kahost.open(modules["tour"], callback=Kill(), deadline=60) as m:
        error = kd.submit(cluster.client, m.ask, 7).exception(timeout=120)
        assert isinstance(error, distributed.KilledWorker)
        assert "tour.ask" in str(error)
        assert kd.submit(cluster.client, m.total, [1, 2]).result(timeout=60).sum == 3


# ---- Cancelling ------------------------------------------------------------------------------------------------------


def test_a_future_is_cancelled_while_its_call_runs(cluster, tasks):
    """The thread is free for other calls soon."""
    for send in (
        lambda: kd.submit(cluster.client, tasks.hang),
        lambda: cluster.client.submit(tasks.hang, pure=False),
        lambda: kd.map(cluster.client, tasks.nap, [100000] * 3, batch=3)[0],
    ):
        futures = [send() for _ in range(4)]  # all threads
        wait_until(lambda: sum(map(is_waiting, all_hosts(cluster))) == 4, what="four calls")
        begun = time.monotonic()
        cluster.client.cancel(futures)
        assert all(each.sum == 3 for each in cluster.client.gather([kd.submit(cluster.client, tasks.add, 1, 2) for _ in range(4)]))
        wait_until(lambda: not any(map(is_waiting, all_hosts(cluster))), what="the end of the calls")
        print("free after", time.monotonic() - begun)


def test_a_future_is_cancelled_while_its_call_waits_for_a_host(cluster, modules):
    """It is never made."""
    cluster.settle(kd.Hosts(max_hosts=1))
    with kahost.open(modules["tasks"], deadline=1000) as m:
        futures = [kd.submit(cluster.client, m.hang) for _ in range(4)]  # all threads
        wait_until(lambda: list(cluster.client.run(executing).values()) == [2, 2], what="four tasks")
        wait_until(lambda: sum(map(is_waiting, all_hosts(cluster))) == 2, what="two calls")
        cluster.client.cancel(futures)
        after = [kd.submit(cluster.client, m.add, 1, 2) for _ in range(4)]
        assert all(each.result(timeout=60).sum == 3 for each in after)
        wait_until(lambda: not any(map(is_waiting, all_hosts(cluster))), what="the end of the calls")


def test_a_future_is_cancelled_while_its_host_starts(cluster, modules):
    with kahost.open(modules["tasks"], deadline=1000, grace=0, env={**os.environ, "KA_TEST_SETUP": "naps1"}) as tasks:
        restore, (*parts, options, names) = tasks.__reduce__()
    m = restore(*parts, {**options, "env": {**options["env"], "KA_TEST_SETUP": "naps1000000"}}, names)
    futures = [kd.submit(cluster.client, m.add, 1, 2) for _ in range(4)]  # all threads
    wait_until(lambda: sum(map(is_waiting, all_hosts(cluster))) == 4, what="four starts")
    cluster.client.cancel(futures)
    wait_until(lambda: not any(map(is_waiting, all_hosts(cluster))), what="the end of the starts")


def executing(dask_worker):
    return dask_worker.state.executing_count


def all_hosts(cluster):
    return [host for pid in cluster.worker_pids for host in hosts_of(pid)]


def is_waiting(pid):
    """In pause or in nanosleep."""
    try:
        with open(f"/proc/{pid}/syscall") as file:
            return file.read().split()[0] in ("34", "35", "230")
    except (OSError, IndexError):
        return False


def test_idle_hosts_are_closed(cluster, tour):
    cluster.settle(kd.Hosts(max_hosts=1, idle=0.2))
    futures = [kd.submit(cluster.client, tour.total, [i]) for i in range(10)]
    assert [each.sum for each in cluster.client.gather(futures)] == list(range(10))
    assert all(len(hosts_of(pid)) <= 1 for pid in cluster.worker_pids)
    wait_until(lambda: not all_hosts(cluster), what="the end of the idle hosts")
    assert kd.submit(cluster.client, tour.total, [1]).result().sum == 1


def test_more_modules_than_hosts(cluster, modules):
    opened = [kahost.open(modules["tour"], deadline=60 + i) for i in range(6)]
    try:
        for _ in range(2):
            futures = [kd.submit(cluster.client, m.total, [i]) for i, m in enumerate(opened)]
            assert [each.sum for each in cluster.client.gather(futures)] == list(range(6))
        assert all(len(hosts_of(pid)) <= 4 for pid in cluster.worker_pids)
    finally:
        for m in opened:
            m.close()
