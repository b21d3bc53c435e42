# SPDX-License-Identifier: MIT
"""Handles: what a module and a function are when they have been pickled. A handle is a path, what the file at that path
must be, and options; never a process. It opens its host where it is first called: one for each thread and process,
which is kept, and closed when the thread or the process ends."""

from __future__ import annotations

import os
import threading
import weakref
from collections.abc import Callable, Mapping
from types import TracebackType
from typing import TYPE_CHECKING, Any

from ._errors import Error, StartError
from ._identity import identify, stamp
from ._module import Module

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
    """What travels. options: those of kahost.open."""

    def __init__(self, path: str, identity: str, options: dict[str, Any]) -> None:
        self.path, self.identity, self.options = path, identity, options
        self.parts = path, identity, options
        self.callback = options["callback"]
        # Hosts that differ in their call-back alone are the same host.
        self.key = path, identity, _frozen({name: value for name, value in options.items() if name != "callback"})

    def check(self) -> None:
        """StartError if another file is under that path than when the handle was made."""
        try:
            identity = _identity_of(self.path)
        except OSError as failure:
            error = StartError(f"{self.path}: {failure.strerror}")
            error.errno = failure.errno
            raise error from None
        if identity != self.identity:
            raise StartError(f"{self.path} is another file than when it was pickled: {identity}, not {self.identity}")

    def open(self) -> Host:
        """A new host."""
        self.check()
        host = Host(Module(self.path, {**self.options, "restart": "next call"}))
        with _guard:
            _opened[host] = self.key
        return host

    def prepare(self, host: Host) -> Host:
        """host may be called for this handle now."""
        self.check()  # a host that has ended would be started again
        if host.module.callback is not self.callback:
            host.module.callback = self.callback
        return host

    def local(self) -> Host:
        """The host of this thread."""
        hosts = _kept.hosts
        host = hosts.get(self.key)
        if host is None or host.module.closed:
            host = hosts[self.key] = self.open()
        return self.prepare(host)

    def opened(self) -> list[Host]:
        """All open hosts of this handle in this process."""
        with _guard:
            hosts = [host for host, key in _opened.items() if key == self.key]
        return [host for host in hosts if not host.module.closed]


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
    """A module that was pickled: as a Module, with a host of its own in each thread."""

    def __init__(self, handle: Handle) -> None:
        self._handle = handle

    def __reduce__(self) -> tuple[Any, ...]:
        return restore, self._handle.parts

    def __getitem__(self, name: str) -> FunctionHandle:
        return FunctionHandle(self._handle, name)

    def __getattr__(self, name: str) -> FunctionHandle:
        if name.startswith("__"):
            raise AttributeError(name)
        return FunctionHandle(self._handle, name)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, ModuleHandle) and self._handle.key == other._handle.key

    def __hash__(self) -> int:
        return hash(self._handle.key)

    def __dir__(self) -> list[str]:
        return sorted({*super().__dir__(), *(name for name in self.functions if name.isidentifier())})

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
    def functions(self) -> dict[str, FunctionHandle]:
        """Those of the module, which is opened for it."""
        return {name: self[name] for name in self._handle.local().module.functions}

    @property
    def pid(self) -> int | None:
        """The process of this thread's host, or None."""
        host = _kept.hosts.get(self._handle.key)
        return None if host is None else host.module.pid

    @property
    def closed(self) -> bool:
        """Whether this thread has no host of it. A call opens one."""
        host = _kept.hosts.get(self._handle.key)
        return host is None or host.module.closed

    def cancel(self) -> bool:
        """Ends all calls of the handle in this process that are under way. Whether there was one."""
        return any([host.module.cancel() for host in self._handle.opened()])

    def close(self) -> None:
        """Closes the host of this thread."""
        host = _kept.hosts.pop(self._handle.key, None)
        if host is not None:
            host.module.close()


class FunctionHandle:
    """A function that was pickled."""

    def __init__(self, handle: Handle, name: str, changes: Mapping[str, Any] | None = None) -> None:
        self._handle, self._changes = handle, changes or {}
        self.__name__ = self.__qualname__ = name

    def __reduce__(self) -> tuple[Any, ...]:
        return restore, (*self._handle.parts, self.__name__, self._changes)

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

    def options(self, **given: Any) -> FunctionHandle:
        """The same function, whose calls have options of their own."""
        from ._function import changes_of

        return FunctionHandle(self._handle, self.__name__, {**self._changes, **changes_of(**given)})

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


def restore(
    path: str, identity: str, options: dict[str, Any], name: str | None = None, changes: Mapping[str, Any] | None = None
) -> ModuleHandle | FunctionHandle:
    """What pickle makes of a module, and of a function of that name."""
    handle = Handle(path, identity, options)
    return ModuleHandle(handle) if name is None else FunctionHandle(handle, name, changes)
