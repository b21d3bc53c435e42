# SPDX-License-Identifier: MIT
"""Calls on the workers of dask.distributed.

    client.register_worker_plugin(kd.Hosts(max_hosts=4, idle=60))
    futures = kd.map(client, m.total, rows, batch=256)
    once = kd.submit(client, m.book, order, effects=True)

Functions travel as handles (kahost/_handle.py): hosts are opened where tasks run, never in the scheduler, which does not
import kahost. Without the plugin each thread of a worker keeps a host for each handle."""

import collections
import functools
import os
import threading
import time
import uuid

import distributed
from distributed import Queue, Reschedule, WorkerPlugin, get_client, get_worker
from distributed.worker import thread_state

from . import _handle
from ._errors import DiedError, Error

TASK_SECONDS = 0.05  # what a task of kd.map is to take at least
PROBE_ROWS = 1000  # the most that are called to find out how many are a task
NAME = "kahost"

# ---- On the worker: hosts --------------------------------------------------------------------------------------------


def _task():
    """(worker, key) of the task that this thread runs, or (None, None)."""
    state = getattr(thread_state, "execution_state", None)
    if state is None:
        return None, None
    return state["worker"], thread_state.key


def _lend(handle):
    worker, key = _task()
    plugin = worker.plugins.get(NAME) if worker is not None else None
    return _handle.Local(handle) if plugin is None else _Lent(plugin, handle, key)


_handle.lend = _lend


class _Lent:
    """A host for one call of a task."""

    def __init__(self, plugin, handle, key):
        self.plugin, self.handle, self.key = plugin, handle, key
        self.host = None
        self.cancelled = False
        self.since = None

    def __enter__(self):
        self.host = self.plugin.take(self.handle)
        try:
            self.plugin.begin(self)
            return self.handle.prepare(self.host)
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        self.plugin.done(self)
        if self.cancelled:
            # Nobody waits for the task, unless it was asked for again in the meantime: then it runs again.
            raise Reschedule from None


class Hosts(WorkerPlugin):
    """Keeps the hosts of a worker, and ends the call of a task that is cancelled.

    max_hosts: so many at most; a call waits for one. None: one for each call under way.
    idle: a host that was not called for so many seconds is closed; None: never."""

    name = NAME

    def __init__(self, max_hosts=None, idle=None):
        if max_hosts is not None and max_hosts < 1:
            raise ValueError(f"max_hosts is {max_hosts}; it must be at least 1")
        self.max_hosts, self.idle = max_hosts, idle

    # All of these run in the worker's event loop.

    def setup(self, worker):
        self.loop = worker.loop
        self.changed = threading.Condition()  # guards what follows
        self.free = collections.OrderedDict()  # _handle.Host: (key of its handle, when it was last used), the oldest first
        self.count = 0  # of all hosts
        self.running = set()  # of _Lent
        self.ended = False
        if self.idle is not None:
            threading.Thread(target=self.close_idle, name="kahost idle hosts", daemon=True).start()

    def teardown(self, worker):
        with self.changed:
            self.ended = True
            hosts = list(self.free)
            self.free.clear()
            self.count -= len(hosts)
            for lent in self.running:
                lent.host.module.cancel()
            self.changed.notify_all()
        for host in hosts:
            host.module.close()

    def transition(self, key, start, finish, **_):
        if start in ("executing", "long-running") and finish in ("cancelled", "released", "forgotten"):
            with self.changed:
                for lent in self.running:
                    if lent.key == key:
                        lent.cancelled = True
                        self.end_call(lent)

    def end_call(self, lent):
        """Again until it has ended: the call may be about to begin."""
        if lent in self.running:
            lent.host.module.cancel()
            self.loop.call_later(0.05, self.end_call, lent)

    # These run in the threads of tasks.

    def take(self, handle):
        """A host of the handle that nobody uses, or a new one."""
        too_many = None
        with self.changed:
            while True:
                host = next((host for host, (key, _) in reversed(self.free.items()) if key == handle.key), None)
                if host is not None:
                    del self.free[host]
                    return host
                if self.max_hosts is None or self.count < self.max_hosts:
                    self.count += 1
                    break
                if self.free:  # of other handles
                    too_many, _ = self.free.popitem(last=False)
                    break
                self.changed.wait()
        try:
            if too_many is not None:
                too_many.module.close()
            return handle.open()
        except BaseException:
            self.forget_one()
            raise

    def forget_one(self):
        with self.changed:
            self.count -= 1
            self.changed.notify_all()

    def begin(self, lent):
        with self.changed:
            self.running.add(lent)

    def done(self, lent):
        with self.changed:
            self.running.discard(lent)
            keep = not self.ended and not lent.host.module.closed
            if keep:
                self.free[lent.host] = lent.handle.key, time.monotonic()
                self.changed.notify_all()
        if not keep:
            lent.host.module.close()
            self.forget_one()

    def close_idle(self):
        """A thread of its own: closing waits for the process."""
        with self.changed:
            while not self.ended:
                now = time.monotonic()
                old = [host for host, (_, last) in self.free.items() if now - last >= self.idle]
                for host in old:
                    del self.free[host]
                if old:
                    self.changed.release()
                    try:
                        for host in old:
                            host.module.close()
                    finally:
                        self.changed.acquire()
                    self.count -= len(old)
                    self.changed.notify_all()
                    continue
                oldest = min((last for _, last in self.free.values()), default=now)
                self.changed.wait(max(0.01, oldest + self.idle - now))


# ---- On the worker: calls --------------------------------------------------------------------------------------------


def _call(function, args, kwargs, retries):
    while True:
        try:
            return function(*args, **kwargs)
        except Error as error:
            if error.retry != "yes" or retries == 0:
                raise
            retries -= 1


def _arguments(row):
    return row if isinstance(row, tuple) else (row,)


def _perform(function, rows, retries):
    """The task of a batch."""
    results = []
    for number, row in enumerate(rows):
        try:
            results.append(_call(function, _arguments(row), {}, retries))
        except Exception as error:
            _note(error, function, f"row {number} of a batch of {len(rows)}")
            raise
    return results


def _note(error, function, where):
    error.add_note(f"{function.__name__} of {function._handle.path}, {where}")


class _Probe:
    """What the first task of a map has found out: results, the error that ended it, and how many rows that were."""

    def __init__(self, results, error, rows, seconds):
        self.results, self.error, self.rows, self.seconds = results, error, rows, seconds


def _probe(function, rows, retries):
    """Calls until it has taken as long as a task is to take."""
    results, error = [], None
    with _lend(function._handle):  # opening it does not count
        pass
    start = time.monotonic()
    for row in rows:
        try:
            results.append(_call(function, _arguments(row), {}, retries))
        except Exception as raised:
            _note(raised, function, f"row {len(results)}")
            error = raised
        if error is not None or time.monotonic() - start >= TASK_SECONDS:
            break
    return _Probe(results, error, len(results) + (error is not None), time.monotonic() - start)


def _size_of(probe):
    """(rows done, rows a task)."""
    return probe.rows, max(1, round(probe.rows * TASK_SECONDS / max(probe.seconds, 1e-9)))


def _results_of(probe):
    if probe.error is not None:
        raise probe.error
    return probe.results


def _claim(name):
    """Takes the one token of a call with effects; a call that was lost with its worker has taken it."""
    tokens = Queue(name, client=get_client())
    try:
        return bool(tokens.get(batch=True))
    finally:
        tokens.close()


def _perform_once(claim, function, args, kwargs, retries):
    if not _claim(claim):
        error = DiedError(f"{function._handle.path}: a call of {function.__name__} was begun before, on a worker that is gone")
        error.retry = "unsure"
        raise error
    return _call(function, args, kwargs, retries)


# ---- On the client ---------------------------------------------------------------------------------------------------


def _travelling(function):
    """The function as the handle that it becomes on its way."""
    if isinstance(function, _handle.FunctionHandle):
        return function
    rebuild, arguments = function.__reduce__()[:2]
    return rebuild(*arguments)


def _key(function):
    """Unique, and says which function of which module ran, where only the key is reported."""
    module = os.path.basename(function._handle.path).replace("-", "_")
    return f"{module}.{function.__name__.replace('-', '_')}-{uuid.uuid4().hex}"


def _send(client, function, task, *args, key=None, **engine):
    # pure: the key is its own. retries: the engine does not know which error allows another call.
    return client.submit(task, *args, key=key or _key(function), pure=False, retries=0, **engine)


def map(client, function, rows, *, batch=None, retries=1, **engine):
    """Calls function for each row, a tuple of its arguments or its single argument. One future for each batch, whose
    result is a list; an error in a call ends its batch.

    batch: calls in a task; as many as take 50 ms unless given, which the first task finds out.
    retries: how many times a call is made again that failed with retry == "yes".
    engine: workers, priority and what else client.submit takes."""
    function = _travelling(function)
    rows = list(rows)
    futures = []
    done = 0
    size = batch
    while size is None and done < len(rows):
        probe = _send(client, function, functools.partial(_probe, function, rows[done : done + PROBE_ROWS], retries), **engine)
        futures.append(_send(client, function, _results_of, probe, **engine))
        try:
            count, size = client.submit(_size_of, probe, pure=False).result()
        except Exception:  # the probe was lost, as its future says
            count, size = min(PROBE_ROWS, len(rows) - done), 1
        done += count
    for start in range(done, len(rows), size or 1):
        some = rows[start : start + size]
        futures.append(_send(client, function, functools.partial(_perform, function, some, retries), **engine))
    return futures


def submit(client, function, *args, effects=False, retries=1, workers=None, priority=0, key=None, **kwargs):
    """Calls function once; a future.

    effects: the call is never made twice. When its worker is lost, the future is a DiedError whose retry is "unsure".
    Without it the engine calls again what was lost with a worker.
    retries: how many times a call is made again, on its worker, that failed with retry == "yes". Other errors are final."""
    function = _travelling(function)
    engine = {"key": key, "workers": workers, "priority": priority}
    if not effects:
        return _send(client, function, _call, function, args, kwargs, retries, **engine)
    tokens = Queue(f"kahost-{uuid.uuid4().hex}", client=client)
    tokens.put(1)
    future = _send(client, function, _perform_once, tokens.name, function, args, kwargs, retries, **engine)
    future.add_done_callback(lambda _: tokens.close())
    return future
