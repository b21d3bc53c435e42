# SPDX-License-Identifier: MIT
"""Handles: what a module and a function are when they have been pickled. A handle is a path, what the file at that path
must be, and options; never a process. It opens its host where it is first called: one for each thread and process,
which is kept, and closed when the thread or the process ends."""

from __future__ import annotations

import operator
import os
import threading
import weakref
from collections.abc import Callable, Mapping
from types import MappingProxyType, TracebackType
from typing import TYPE_CHECKING, Any

from ._errors import ArgumentError, Error, StartError, errno_of
from ._function import changes_of, deadline_in_ms, milliseconds
from ._identity import identify, stamp
from ._module import Callback, Module

if TYPE_CHECKING:
    import inspect
    from contextlib import AbstractContextManager

    from ._function import Function
    from ._tables import Prototype

_known: dict[str, tuple[tuple[int, ...] | None, str]] = {}  # by path: when it was looked at, and what it was


def _identity_of(path: str) -> str:
    """What the file is; read again only if it has changed."""
    now = stamp(path)
    known = _known.get(path)
    if known is None or known[0] != now:
        known = _known[path] = now, identify(path)
    return known[1]


# ---- Handles ---------------------------------------------------------------------------------------------------------


class Host:
    """A host of a handle, with the functions that were asked for."""

    __slots__ = ("module", "functions", "__weakref__")

    def __init__(self, module: Module) -> None:
        self.module = module
        self.functions: dict[Any, Function] = {}

    def function(self, name: str, changes: Mapping[str, Any]) -> Function:
        """The function, with options of its own."""
        key = (name, _frozen(changes)) if changes else name
        found = self.functions.get(key)
        if found is None:
            found = self.module[name]
            if changes:
                found = found._changed(changes)
            self.functions[key] = found
        return found


class _Kept(threading.local):
    """The hosts of a thread, by the key of their handle."""

    def __init__(self) -> None:
        self.hosts: dict[Any, Host] = {}
        self.end = _CloseAll(self.hosts)


class _CloseAll:
    """Closes the hosts of a thread when the thread ends."""

    def __init__(self, hosts: dict[Any, Host]) -> None:
        self.hosts = hosts

    def __del__(self) -> None:
        for host in list(self.hosts.values()):
            try:
                host.module.close()
            except (Error, BufferError):  # nobody could hear it; the end of the process ends what is left
                pass


_kept = _Kept()
_opened: weakref.WeakKeyDictionary[Host, Any] = weakref.WeakKeyDictionary()  # the key of its handle
_guard = threading.Lock()


def _after_fork() -> None:
    global _guard
    _guard = threading.Lock()


os.register_at_fork(after_in_child=_after_fork)


def _frozen(value: Any) -> Any:
    """The same as a key of a dictionary."""
    if isinstance(value, Mapping):
        return tuple(sorted((key, _frozen(each)) for key, each in value.items()))
    if isinstance(value, (list, tuple)):
        return tuple(map(_frozen, value))
    return value


class Handle:
    """What travels. options: those of kahost.open; deadline_ms, trace and callback can be changed."""

    def __init__(self, path: str, identity: str, options: dict[str, Any]) -> None:
        self.path, self.identity, self.options = path, identity, options
        self.deadline_ms: int = milliseconds(options["deadline"])
        self.trace: int = options["trace"]
        self.callback: Callback | None = options["callback"]
        # Hosts that differ in their call-back alone, or in what was changed later, are the same host.
        self.key = path, identity, _frozen({**options, "deadline": self.deadline_ms, "callback": None})

    @property
    def parts(self) -> tuple[str, str, dict[str, Any]]:
        """What it is made of where it arrives."""
        changed = {"deadline": self.deadline_ms / 1000, "trace": self.trace, "callback": self.callback}
        return self.path, self.identity, {**self.options, **changed}

    def check(self) -> None:
        """StartError if another file is under that path than when the handle was made."""
        try:
            identity = _identity_of(self.path)
        except OSError as failure:
            error = StartError(f"{self.path}: {failure.strerror}")
            error.errno = errno_of(self.path, os.R_OK) or failure.errno
            raise error from None
        if identity != self.identity:
            raise StartError(f"{self.path} is another file than when it was pickled: {identity}, not {self.identity}")

    def open(self, begun: Callable[[Host], None] | None = None) -> Host:
        """A new host. begun gets it before it starts."""
        self.check()
        hosts = []

        def begin(module: Module) -> None:
            host = Host(module)
            hosts.append(host)
            with _guard:
                _opened[host] = self.key
            if begun is not None:
                begun(host)

        Module(self.path, {**self.options, "restart": "next call"}, begin)
        return hosts[0]

    def prepare(self, host: Host) -> Host:
        """host may be called for this handle now."""
        self.check()  # a host that has ended would be started again
        module = host.module
        if module.callback is not self.callback:
            module.callback = self.callback
        if module._host.deadline_ms != self.deadline_ms:
            module._host.deadline_ms = self.deadline_ms
        if module.trace != self.trace:
            module.trace = self.trace
        return host

    def kept(self) -> Host | None:
        """The host that this thread has open."""
        host = _kept.hosts.get(self.key)
        return None if host is None or host.module.closed else host

    def local(self) -> Host:
        """The host of this thread."""
        host = self.kept()
        if host is None:
            host = _kept.hosts[self.key] = self.open()
        return self.prepare(host)

    def opened(self) -> list[Host]:
        """All hosts of this handle in this process that are open or start."""
        with _guard:
            return [host for host, key in _opened.items() if key == self.key]


class Local:
    """Lends the host of this thread."""

    __slots__ = ("handle",)

    def __init__(self, handle: Handle) -> None:
        self.handle = handle

    def __enter__(self) -> Host:
        return self.handle.local()

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None) -> None:
        pass


# Gives a host for one call. kahost.distributed puts its own here.
lend: Callable[[Handle], AbstractContextManager[Host]] = Local


# ---- What a module and a function become -----------------------------------------------------------------------------


class ModuleHandle:
    """A module that was pickled: as a Module, with a host of its own in each thread. What needs a host opens it."""

    __slots__ = ("_handle", "_names", "__weakref__")
    _handle: Handle
    _names: tuple[str, ...]  # of its functions

    def __init__(self, handle: Handle, names: tuple[str, ...]) -> None:
        object.__setattr__(self, "_handle", handle)
        object.__setattr__(self, "_names", names)

    def __reduce__(self) -> tuple[Any, ...]:
        return restore_module, (*self._handle.parts, self._names)

    def __getitem__(self, name: str) -> FunctionHandle:
        if name not in self._names:
            raise KeyError(name)
        return FunctionHandle(self._handle, name)

    def __getattr__(self, name: str) -> FunctionHandle:
        """Functions are attributes, but for those whose name a Module has itself."""
        if name in self._names and not hasattr(Module, name):
            return self[name]
        raise AttributeError(f"{self.path} has no function {name!r}", name=name, obj=self)

    def __setattr__(self, name: str, value: object) -> None:
        if not isinstance(getattr(ModuleHandle, name, None), property):
            raise AttributeError(f"a Module has no attribute {name!r} to set", name=name, obj=self)
        object.__setattr__(self, name, value)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, ModuleHandle) and self._handle.key == other._handle.key

    def __hash__(self) -> int:
        return hash(self._handle.key)

    def __dir__(self) -> list[str]:
        return sorted({*super().__dir__(), *(name for name in self._names if name.isidentifier())})

    def __repr__(self) -> str:
        return f"<handle of the module {self.path}>"

    def __enter__(self) -> ModuleHandle:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None) -> None:
        self.close()

    @property
    def path(self) -> str:
        """Where it opens the module."""
        return self._handle.path

    @property
    def functions(self) -> Mapping[str, FunctionHandle]:
        """All functions by name."""
        return MappingProxyType({name: self[name] for name in self._names})

    @property
    def callback(self) -> Callback | None:
        """Answers the call-backs of the module, from the next call on. It travels, as deadline and trace do."""
        return self._handle.callback

    @callback.setter
    def callback(self, callback: Callback | None) -> None:
        if callback is not None and not callable(callback):
            raise TypeError("callback must be callable or None")
        self._handle.callback = callback

    @property
    def deadline(self) -> float:
        """Seconds for each call with its call-backs."""
        return self._handle.deadline_ms / 1000

    @deadline.setter
    def deadline(self, seconds: float) -> None:
        self._handle.deadline_ms = deadline_in_ms(seconds)

    @property
    def trace(self) -> int:
        """The trace level of the module, 0 to 4, from the next call on."""
        return self._handle.trace

    @trace.setter
    def trace(self, level: int) -> None:
        if operator.index(level) not in range(5):
            raise ArgumentError(f"trace is {level}; it must be 0 to 4")
        self._handle.trace = level

    @property
    def pid(self) -> int | None:
        """The process of this thread's host, or None."""
        host = self._handle.kept()
        return None if host is None else host.module.pid

    @property
    def closed(self) -> bool:
        """Whether this thread has no host of it. A call opens one."""
        return self._handle.kept() is None

    def cancel(self) -> bool:
        """Ends all calls and starts of the handle in this process that are under way. Whether there was one."""
        return any([host.module.cancel() for host in self._handle.opened()])

    def _check_own(self) -> None:
        """That calls of this thread are made on its own host."""
        if not isinstance(lend(self._handle), Local):
            raise ArgumentError(f"{self.path}: each call of a task is made on a host that is free, not on one of its own")

    def restart(self) -> None:
        """Ends the process of this thread's host, and starts another."""
        self._check_own()
        host = self._handle.kept()
        if host is None:
            self._handle.local()
        else:
            self._handle.prepare(host).module.restart()

    def scratch(self) -> memoryview:
        """The scratch area of this thread's host, which both sides see."""
        self._check_own()
        return self._handle.local().module.scratch()

    def stderr(self) -> bytes:
        """The end of what this thread's host wrote to standard error, with stderr="ring"."""
        self._check_own()
        return self._handle.local().module.stderr()

    def close(self) -> None:
        """Closes the host of this thread."""
        host = self._handle.kept()
        if host is not None:
            host.module.close()
            _kept.hosts.pop(self._handle.key, None)


class FunctionHandle:
    """A function that was pickled."""

    def __init__(self, handle: Handle, name: str, changes: Mapping[str, Any] | None = None) -> None:
        self._handle, self._changes = handle, changes or {}
        self.__name__ = self.__qualname__ = name

    def __reduce__(self) -> tuple[Any, ...]:
        return restore_function, (*self._handle.parts, self.__name__, self._changes)

    def __call__(self, *args: Any, **kwargs: Any) -> Any:
        with lend(self._handle) as host:
            return host.function(self.__name__, self._changes)(*args, **kwargs)

    def raw(self, *args: Any, **kwargs: Any) -> Any:
        """The call's return code and results: no exception for a code that is not 0."""
        with lend(self._handle) as host:
            return host.function(self.__name__, self._changes).raw(*args, **kwargs)

    async def aio(self, *args: Any, **kwargs: Any) -> Any:
        """The call for await, on the host of this thread."""
        return await self._local().aio(*args, **kwargs)

    def options(self, *, deadline: float | None = None, room: int | None = None, reals: str | None = None) -> FunctionHandle:
        """The same function, whose calls have options of their own."""
        changes = changes_of(deadline=deadline, room=room, reals=reals)
        return FunctionHandle(self._handle, self.__name__, {**self._changes, **changes})

    def _local(self) -> Function:
        return self._handle.local().function(self.__name__, self._changes)

    @property
    def __doc__(self) -> str:  # type: ignore[override]
        return self._local().__doc__

    @property
    def __signature__(self) -> inspect.Signature:
        return self._local().__signature__

    @property
    def prototypes(self) -> tuple[Prototype, ...]:
        """What the module's tables say about its arguments."""
        return self._local().prototypes

    def _key(self) -> Any:
        return self._handle.key, self.__name__, _frozen(self._changes)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, FunctionHandle) and self._key() == other._key()

    def __hash__(self) -> int:
        return hash(self._key())

    def __repr__(self) -> str:
        return f"<handle of the function {self.__name__} of {self._handle.path}>"


def restore_module(path: str, identity: str, options: dict[str, Any], names: tuple[str, ...]) -> ModuleHandle:
    """What pickle makes of a module with functions of those names."""
    return ModuleHandle(Handle(path, identity, options), names)


def restore_function(
    path: str, identity: str, options: dict[str, Any], name: str, changes: Mapping[str, Any]
) -> FunctionHandle:
    """What pickle makes of a function."""
    return FunctionHandle(Handle(path, identity, options), name, changes)
