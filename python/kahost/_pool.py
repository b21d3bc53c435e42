# SPDX-License-Identifier: MIT
"""Pool: an Executor whose threads own a host each."""

from __future__ import annotations

import atexit
import itertools
import os
import queue
import threading
import time
import weakref
from collections.abc import Callable, Iterable, Iterator
from concurrent.futures import Executor, Future
from typing import Any

from ._errors import Cancelled, Error
from ._module import Module, all_options

Work = str | Callable[..., Any]
_pools: weakref.WeakSet[_Shared] = weakref.WeakSet()  # what the pools of this process share with their threads


class _Work:
    """One call, or the calls of a batch, and the future that waits for them."""

    __slots__ = ("future", "function", "args", "kwargs", "rows")

    def __init__(
        self, function: Work, args: tuple[Any, ...], kwargs: dict[str, Any], rows: list[tuple[Any, ...]] | None = None
    ) -> None:
        self.future: Future[Any] = Future()
        self.function, self.args, self.kwargs, self.rows = function, args, kwargs, rows


class _Shared:
    """What the threads of a pool know. They do not know the pool itself, so that it can be collected."""

    def __init__(
        self, path: str | os.PathLike[str], hosts: int, retries: int, recycle: int | None, options: dict[str, Any]
    ) -> None:
        self.path, self.hosts, self.retries, self.recycle, self.options = path, hosts, retries, recycle, options
        self.pid = os.getpid()
        self.queue: queue.SimpleQueue[_Work | None] = queue.SimpleQueue()  # None ends a thread
        self.lock = threading.Lock()  # of unfinished, workers, ended
        self.unfinished = 0
        self.workers: list[_Worker] = []
        self.ended = False  # no more work is taken
        self.cancelled = False  # what runs is being ended

    def give(self, work: _Work) -> Future[Any]:
        with self.lock:
            if self.ended:
                raise RuntimeError("cannot schedule new futures after shutdown")
            if self.pid != os.getpid():
                raise RuntimeError("the pool belongs to the parent process")
            self.queue.put(work)
            self.unfinished += 1
            if self.unfinished > len(self.workers) and len(self.workers) < self.hosts:
                self.workers.append(_Worker(self, len(self.workers)))
        return work.future

    def end(self) -> None:
        """The threads end after the work that waits."""
        with self.lock:
            self.end_collected()

    def end_collected(self) -> None:
        """The same for a pool that nobody has: a collection may run in a thread that holds the lock."""
        if not self.ended:
            self.ended = True
            self.queue.put(None)

    def drop_work(self) -> None:
        """Cancels what waits, and gives the end to those that wait for work."""
        try:
            while True:
                work = self.queue.get_nowait()
                if work is not None and work.future.cancel():
                    work.future.set_running_or_notify_cancel()  # so that who waits for it hears of it
        except queue.Empty:
            self.queue.put(None)

    def end_calls(self) -> None:
        """Until the threads have ended: one may be between two calls, or about to begin one."""
        self.cancelled = True
        for worker in self.workers:
            while worker.thread.is_alive():
                worker.cancel()
                worker.thread.join(0.01)

    def join(self) -> None:
        for worker in self.workers:
            worker.thread.join()


class _Worker:
    """A thread and its host."""

    def __init__(self, shared: _Shared, number: int) -> None:
        self.shared = shared
        self.module: Module | None = None  # opened by the first call
        self.calls = 0
        self.thread = threading.Thread(target=self.serve, name=f"kahost pool {number}", daemon=True)
        self.thread.start()

    def serve(self) -> None:
        shared = self.shared
        while (work := shared.queue.get()) is not None:
            if work.future.set_running_or_notify_cancel():
                try:
                    self.perform(work)
                except BaseException as error:  # of what the future calls when it is done
                    threading.excepthook(threading.ExceptHookArgs((type(error), error, error.__traceback__, self.thread)))
            del work  # with its future, while this thread waits
            with shared.lock:
                shared.unfinished -= 1
        shared.queue.put(None)  # for the next thread
        self.close()

    def perform(self, work: _Work) -> None:
        try:
            if work.rows is None:
                result = self.call(work.function, work.args, work.kwargs)
            else:
                result = [self.call(work.function, row, {}) for row in work.rows]
        except BaseException as error:
            work.future.set_exception(error)
            del work  # which the error's traceback would keep, with the future and so the error
        else:
            work.future.set_result(result)

    def call(self, function: Work, args: tuple[Any, ...], kwargs: dict[str, Any]) -> Any:
        if callable(function):
            return function(self.host(), *args, **kwargs)
        retries = self.shared.retries
        while True:
            try:
                return self.host()[function](*args, **kwargs)
            except Error as error:
                if error.retry != "yes" or retries == 0 or self.shared.cancelled:
                    raise
                retries -= 1

    def host(self) -> Module:
        """The module for the next call."""
        module = self.module
        if module is None or module.closed or self.calls == self.shared.recycle:
            self.close()
            module = self.start()
            self.calls = 0
        if self.shared.cancelled:
            raise Cancelled("the pool was shut down before the call was sent")
        self.calls += 1
        return module

    def start(self) -> Module:
        """A new module, which cancel reaches before it has started."""

        def begun(module: Module) -> None:
            self.module = module

        try:
            return Module(self.shared.path, self.shared.options, begun)
        except BaseException:
            self.module = None
            raise

    def cancel(self) -> None:
        module = self.module
        if module is not None:
            module.cancel()

    def close(self) -> None:
        module, self.module = self.module, None
        if module is not None:
            try:
                module.close()
            except (Error, BufferError):  # somebody keeps a view of the scratch area: it goes when that goes
                pass


class Pool(Executor):
    """Calls of one module on several hosts, each with a thread of its own.

    pool.submit("total", [1, 2]) calls a function by its name; pool.submit(callable, ...) calls callable(module, ...) with
    one host for all that it does. A host that dies costs the future whose call it was a DiedError, and nothing else.

    hosts: how many at most, as many as processors unless given; they start when there is work for them.
    retries: how many times a call by name is made again that failed with retry == "yes".
    recycle: a host is replaced after so many calls, a callable counting as one; None: never.
    options: those of kahost.open."""

    def __init__(
        self,
        path: str | os.PathLike[str],
        *,
        hosts: int | None = None,
        retries: int = 1,
        recycle: int | None = None,
        **options: Any,
    ) -> None:
        hosts = len(os.sched_getaffinity(0)) if hosts is None else hosts
        for name, value, least in (("hosts", hosts, 1), ("retries", retries, 0), ("recycle", recycle, 1)):
            if value is not None and value < least:
                raise ValueError(f"{name} is {value}; it must be at least {least}")
        options = all_options(options)
        if options["restart"] == "never":
            options["restart"] = "next call"
        self._shared = _Shared(path, hosts, retries, recycle, options)
        _pools.add(self._shared)
        weakref.finalize(self, _Shared.end_collected, self._shared).atexit = False

    def submit(self, function: Work, /, *args: Any, **kwargs: Any) -> Future[Any]:
        """Calls function, a name or a callable that takes the module first. A future."""
        return self._shared.give(_Work(function, args, kwargs))

    def map(
        self,
        function: Work,
        *iterables: Iterable[Any],
        timeout: float | None = None,
        chunksize: int = 1,
        batch: int | None = None,
    ) -> Iterator[Any]:
        """The results of function for the arguments that the iterables give, in order. batch, or chunksize: how many
        calls are made one after the other on one host."""
        size = chunksize if batch is None else batch
        if size < 1:
            raise ValueError(f"batch is {size}; it must be at least 1")
        end = None if timeout is None else time.monotonic() + timeout
        rows = zip(*iterables)
        futures = []
        while some := list(itertools.islice(rows, size)):
            futures.append(self._shared.give(_Work(function, (), {}, some)))
        return _results(futures[::-1], end)

    def shutdown(self, wait: bool = True, *, cancel_futures: bool = False) -> None:
        """Ends the pool after the work that it has. cancel_futures: cancels what waits, and ends the calls under way."""
        shared = self._shared
        shared.end()
        if shared.pid != os.getpid():
            return
        if cancel_futures:
            shared.cancelled = True
            shared.drop_work()
            if not wait:
                threading.Thread(target=shared.end_calls, name="kahost pool end", daemon=True).start()
                return
            shared.end_calls()
        if wait:
            shared.join()

    def __repr__(self) -> str:
        return f"<kahost pool of {os.fsdecode(self._shared.path)}, {self._shared.hosts} hosts>"


def _results(futures: list[Future[Any]], end: float | None) -> Iterator[Any]:
    """futures: the last first."""
    try:
        while futures:
            results = futures[-1].result(None if end is None else end - time.monotonic())
            del futures[-1]
            yield from results
    finally:
        for future in futures:
            future.cancel()


def _end_all() -> None:
    """At exit: work that was given is done, as with the executors of concurrent.futures."""
    for shared in list(_pools):
        shared.end()
    for shared in list(_pools):
        if shared.pid == os.getpid():
            shared.join()


def _after_fork() -> None:
    """The threads are the parent's, and one of them may have held the lock."""
    for shared in list(_pools):
        shared.lock = threading.Lock()
        shared.workers = []


atexit.register(_end_all)
os.register_at_fork(after_in_child=_after_fork)
