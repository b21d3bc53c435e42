# SPDX-License-Identifier: MIT
"""Calls on the workers of dask.distributed.

    client.register_worker_plugin(kd.Hosts(max_hosts=4, idle=60))
    futures = kd.map(client, m.total, rows, batch=256)
    once = kd.submit(client, m.book, order, effects=True)

Functions travel as handles (kahost/_handle.py): hosts are opened where tasks run, never in the scheduler, which does not
import kahost. Without the plugin each thread of a worker keeps a host for each handle."""

from __future__ import annotations

import collections
import functools
import importlib
import os
import threading
import time
import uuid
from collections.abc import Iterable, Mapping
from types import TracebackType
from typing import Any, TypeAlias

from . import _handle
from ._errors import DiedError, Error
from ._function import Function
from ._handle import FunctionHandle, Handle, Host

_engine: Any = importlib.import_module("distributed")  # without types, here as with it
_thread_state: Any = importlib.import_module("distributed.worker").thread_state
Client: TypeAlias = Any
Future: TypeAlias = Any
Worker: TypeAlias = Any

TASK_SECONDS = 0.05  # what a task of kd.map is to take at least
PROBE_ROWS = 1000  # the most that are called to find out how many are a task
NAME = "kahost"

# ---- On the worker: hosts --------------------------------------------------------------------------------------------


def _task() -> tuple[Worker, str]:
    """The worker and the key of the task that this thread runs; None when it runs none."""
    state = getattr(_thread_state, "execution_state", None)
    if state is None:
        return None, ""
    return state["worker"], _thread_state.key


def _lend(handle: Handle) -> _handle.Local | _Lent:
    worker, key = _task()
    plugin = worker.plugins.get(NAME) if worker is not None else None
    return _handle.Local(handle) if plugin is None else _Lent(plugin, handle, key)


_handle.lend = _lend


class _Lent:
    """A host for one call of a task."""

    host: Host | None = None  # none yet: it waits for one
    starting: Host | None = None

    def __init__(self, plugin: Hosts, handle: Handle, key: str) -> None:
        self.plugin, self.handle, self.key = plugin, handle, key
        self.cancelled = False

    def __enter__(self) -> Host:
        self.plugin.begin(self)
        try:
            self.host = host = self.plugin.take(self)
            self.check()
            return self.handle.prepare(host)
        except BaseException:
            self.plugin.done(self)
            self.check()
            raise

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None) -> None:
        self.plugin.done(self)
        self.check()

    def check(self) -> None:
        if self.cancelled:
            # Nobody waits for the task, unless it was asked for again in the meantime: then it runs again.
            raise _engine.Reschedule from None

    def starts(self, host: Host) -> None:
        self.starting = host

    def cancel(self) -> None:
        host = self.host or self.starting
        if host is not None:
            host.module.cancel()


def _check_least(**numbers: tuple[float | None, int]) -> None:
    for name, (number, least) in numbers.items():
        if number is not None and number < least:
            raise ValueError(f"{name} is {number}; it must be at least {least}")


class Hosts(_engine.WorkerPlugin):  # type: ignore[misc]
    """Keeps the hosts of a worker, and ends the call of a task that is cancelled.

    max_hosts: so many at most; a call waits for one. None: one for each call under way.
    idle: a host that was not called for so many seconds is closed; None: never."""

    name = NAME

    def __init__(self, max_hosts: int | None = None, idle: float | None = None) -> None:
        _check_least(max_hosts=(max_hosts, 1), idle=(idle, 0))
        self.max_hosts, self.idle = max_hosts, idle

    # All of these run in the worker's event loop.

    def setup(self, worker: Worker) -> None:
        self.loop = worker.loop
        self.changed = threading.Condition()  # guards what follows
        # The key of its handle, and when it was last used; the oldest first.
        self.free: collections.OrderedDict[Host, tuple[Any, float]] = collections.OrderedDict()
        self.count = 0  # of all hosts
        self.running: set[_Lent] = set()
        self.ended = False
        if self.idle is not None:
            threading.Thread(target=self.close_idle, args=(self.idle,), name="kahost idle hosts", daemon=True).start()

    def teardown(self, worker: Worker) -> None:
        with self.changed:
            self.ended = True
            hosts = list(self.free)
            self.free.clear()
            self.count -= len(hosts)
            for lent in self.running:
                lent.cancel()
            self.changed.notify_all()
        for host in hosts:
            host.module.close()

    def transition(self, key: str, start: str, finish: str, **_: Any) -> None:
        if start in ("executing", "long-running") and finish in ("cancelled", "released", "forgotten"):
            with self.changed:
                for lent in self.running:
                    if lent.key == key:
                        lent.cancelled = True
                        self.end_call(lent)
                self.changed.notify_all()

    def end_call(self, lent: _Lent) -> None:
        """Again until it has ended: the call may be about to begin."""
        if lent in self.running:
            lent.cancel()
            self.loop.call_later(0.05, self.end_call, lent)

    # These run in the threads of tasks.

    def take(self, lent: _Lent) -> Host:
        """A host of its handle that nobody uses, or a new one."""
        handle, too_many = lent.handle, None
        with self.changed:
            while True:
                lent.check()
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
            return handle.open(lent.starts)
        except BaseException:
            self.forget_one()
            raise

    def forget_one(self) -> None:
        with self.changed:
            self.count -= 1
            self.changed.notify_all()

    def begin(self, lent: _Lent) -> None:
        with self.changed:
            self.running.add(lent)

    def done(self, lent: _Lent) -> None:
        with self.changed:
            self.running.discard(lent)
            host = lent.host
            if host is None:
                return
            keep = not self.ended and not host.module.closed
            if keep:
                self.free[host] = lent.handle.key, time.monotonic()
                self.changed.notify_all()
        if not keep:
            host.module.close()
            self.forget_one()

    def close_idle(self, idle: float) -> None:
        """A thread of its own: closing waits for the process."""
        with self.changed:
            while not self.ended:
                now = time.monotonic()
                old = [host for host, (_, last) in self.free.items() if now - last >= idle]
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
                self.changed.wait(max(0.01, oldest + idle - now))


# ---- On the worker: calls --------------------------------------------------------------------------------------------


def _call(function: FunctionHandle, args: Iterable[Any], kwargs: Mapping[str, Any], retries: int) -> Any:
    while True:
        try:
            return function(*args, **kwargs)
        except Error as error:
            if error.retry != "yes" or retries == 0:
                raise
            retries -= 1


def _arguments(row: Any) -> tuple[Any, ...]:
    return row if isinstance(row, tuple) else (row,)


def _perform(function: FunctionHandle, rows: list[Any], retries: int) -> list[Any]:
    """The task of a batch."""
    results = []
    for number, row in enumerate(rows):
        try:
            results.append(_call(function, _arguments(row), {}, retries))
        except Exception as error:
            _note(error, function, f"row {number} of a batch of {len(rows)}")
            raise
    return results


def _note(error: Exception, function: FunctionHandle, where: str) -> None:
    error.add_note(f"{function.__name__} of {function._handle.path}, {where}")


class _Probe:
    """What the first task of a map has found out: results, the error that ended it, and how many rows that were."""

    def __init__(self, results: list[Any], error: Exception | None, rows: int, seconds: float) -> None:
        self.results, self.error, self.rows, self.seconds = results, error, rows, seconds


def _probe(function: FunctionHandle, rows: list[Any], retries: int) -> _Probe:
    """Calls until it has taken as long as a task is to take."""
    results: list[Any] = []
    error: Exception | None = None
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


def _size_of(probe: _Probe) -> tuple[int, int]:
    """(rows done, rows a task)."""
    return probe.rows, max(1, round(probe.rows * TASK_SECONDS / max(probe.seconds, 1e-9)))


def _results_of(probe: _Probe) -> list[Any]:
    if probe.error is not None:
        raise probe.error
    return probe.results


class _Tokens(_engine.Queue):  # type: ignore[misc]
    """A queue that the client has made. The scheduler does not count who uses it: a worker that is killed would count for
    ever."""

    async def _start(self) -> _Tokens:
        return self


def _claim(name: str) -> bool:
    """Takes the one token of a call with effects; a call that was lost with its worker has taken it."""
    try:
        return bool(_Tokens(name, client=_engine.get_client()).get(batch=True))
    except KeyError:  # the future is done, and the client has removed them
        return False


def _perform_once(
    claim: str, function: FunctionHandle, args: Iterable[Any], kwargs: Mapping[str, Any], retries: int
) -> Any:
    if not _claim(claim):
        error = DiedError(f"{function._handle.path}: a call of {function.__name__} was begun before, on a worker that is gone")
        error.retry = "unsure"
        raise error
    return _call(function, args, kwargs, retries)


# ---- On the client ---------------------------------------------------------------------------------------------------


def _travelling(function: Function | FunctionHandle) -> FunctionHandle:
    """The function as the handle that it becomes on its way."""
    if isinstance(function, FunctionHandle):
        return function
    if not isinstance(function, Function):
        raise TypeError(f"{function!r} is not a function of a module")
    rebuild, parts = function.__reduce__()
    made = rebuild(*parts)
    assert isinstance(made, FunctionHandle)
    return made


def _key(function: FunctionHandle) -> str:
    """Unique, and says which function of which module ran, where only the key is reported."""
    module = os.path.basename(function._handle.path).replace("-", "_")
    return f"{module}.{function.__name__.replace('-', '_')}-{uuid.uuid4().hex}"


def _send(client: Client, function: FunctionHandle, task: Any, *args: Any, key: str | None = None, **engine: Any) -> Future:
    # pure: the key is its own. retries: the engine does not know which error allows another call.
    return client.submit(task, *args, key=key or _key(function), pure=False, retries=0, **engine)


def map(
    client: Client,
    function: Function | FunctionHandle,
    rows: Iterable[Any],
    *,
    batch: int | None = None,
    retries: int = 1,
    **engine: Any,
) -> list[Future]:
    """Calls function for each row, a tuple of its arguments or its single argument. One future for each batch, whose
    result is a list; an error in a call ends its batch.

    batch: calls in a task; as many as take 50 ms unless given, which the first task finds out.
    retries: how many times a call is made again that failed with retry == "yes".
    engine: workers, priority and what else client.submit takes."""
    _check_least(batch=(batch, 1), retries=(retries, 0))
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
    size = size or 1
    for start in range(done, len(rows), size):
        some = rows[start : start + size]
        futures.append(_send(client, function, functools.partial(_perform, function, some, retries), **engine))
    return futures


def submit(
    client: Client,
    function: Function | FunctionHandle,
    *args: Any,
    effects: bool = False,
    retries: int = 1,
    workers: Any = None,
    priority: int = 0,
    key: str | None = None,
    **kwargs: Any,
) -> Future:
    """Calls function once; a future.

    effects: the call is never made twice. When its worker is lost, the future is a DiedError whose retry is "unsure".
    Without it the engine calls again what was lost with a worker.
    retries: how many times a call is made again, on its worker, that failed with retry == "yes". Other errors are final."""
    _check_least(retries=(retries, 0))
    function = _travelling(function)
    engine = {"key": key, "workers": workers, "priority": priority}
    if not effects:
        return _send(client, function, _call, function, args, kwargs, retries, **engine)
    tokens = _engine.Queue(f"kahost-{uuid.uuid4().hex}", client=client)
    tokens.put(1)
    future = _send(client, function, _perform_once, tokens.name, function, args, kwargs, retries, **engine)
    future.add_done_callback(lambda _: tokens.close())
    return future
