# SPDX-License-Identifier: MIT
"""Modules: a host process with the functions that its tables have."""

from __future__ import annotations

import codecs
import os
from collections.abc import Callable, Mapping
from types import MappingProxyType, TracebackType
from typing import IO, Any, Self, TypeVar, overload

from . import _kahost, _paths
from ._errors import DiedError, StartError, errno_of, start_error
from ._function import Function, Plan, milliseconds, reals_are_floats, room_in_bytes
from ._identity import Origin
from ._tables import Decoder

Callback = Callable[[int], int]
Stderr = str | int | IO[Any] | None
T = TypeVar("T")

_RESTART = {"never": 0, "next call": 1, "at once": 2}
_TRANSPORT = {"signals": 0, "fast": 1, "plain": 2}
_INHERIT, _FILE, _RING = range(3)


def _choice(name: str, value: str, values: Mapping[str, int]) -> int:
    try:
        return values[value]
    except (KeyError, TypeError):
        allowed = ", ".join(f'"{each}"' for each in values)
        raise ValueError(f"{name} is {value!r}; it must be one of {allowed}") from None


def _output(stderr: Stderr) -> tuple[int, int]:
    if stderr is None:
        return _INHERIT, -1
    if stderr == "ring":
        return _RING, -1
    if isinstance(stderr, str):
        raise ValueError(f'stderr is {stderr!r}; it must be "ring", None, a file or a descriptor')
    return _FILE, stderr if isinstance(stderr, int) else stderr.fileno()


def _environment(env: Mapping[str, str] | None) -> list[bytes] | None:
    values = _paths.host_environment(env)
    if values is None:
        return None
    pairs = [(os.fsencode(name), os.fsencode(value)) for name, value in values.items()]
    for name, _ in pairs:
        if not name or b"=" in name:
            raise ValueError(f"env: {os.fsdecode(name)!r} is no name of a variable")
    return [b"=".join(pair) for pair in pairs]


def _host(path: str | os.PathLike[str], options: Mapping[str, Any]) -> _kahost.Host:
    """Not started."""
    output, output_fd = _output(options["stderr"])
    pause, pause_max = options["restart_pause"]
    encoding, errors, cwd = options["encoding"], options["errors"], options["cwd"]
    "".encode(encoding)
    codecs.lookup_error(errors)
    host = _kahost.Host(
        os.fsencode(path),
        deadline_ms=milliseconds(options["deadline"]),
        grace_ms=milliseconds(options["grace"]),
        restart=_choice("restart", options["restart"], _RESTART),
        segment=options["segment"],
        scratch=options["scratch"],
        pause_ms=milliseconds(pause),
        pause_max_ms=milliseconds(pause_max),
        output=output,
        output_fd=output_fd,
        ring=options["ring"],
        trace=options["trace"],
        transport=_choice("transport", options["transport"], _TRANSPORT),
        spin_us=round(options["spin"] * 1e6),
        room=room_in_bytes(options["room"]),
        floats=reals_are_floats(options["reals"]),
        encoding="utf-8".encode() if encoding.lower() in ("utf-8", "utf8") else encoding.encode(),
        errors=errors.encode(),
        callback=options["callback"],
        environment=_environment(options["env"]),
        directory=None if cwd is None else os.fsencode(cwd),
    )
    host.callback = options["callback"]
    return host


class Module:
    """A module and the process that it runs in. Its functions are attributes and items."""

    __slots__ = ("__dict__", "__weakref__", "_host", "_origin", "_functions", "_view")
    _host: _kahost.Host
    _origin: Origin
    _functions: dict[str, Function]
    _view: memoryview | None

    def __init__(
        self, path: str | os.PathLike[str], options: dict[str, Any], begun: Callable[[Module], None] | None = None
    ) -> None:
        """Made by open. options: all of them. begun gets the module before it starts: cancel ends the start, too."""
        set_field = object.__setattr__
        name = os.fsdecode(path)
        host = _host(path, options)
        set_field(self, "_host", host)
        set_field(self, "_origin", Origin(name, options))
        set_field(self, "_view", None)
        if begun is not None:
            begun(self)
        try:
            found = host.open()
        except StartError as error:
            raise _with_advice(error, name)
        except DiedError as error:
            raise start_error(error) from None
        functions: dict[str, Function] = {}
        decode = Decoder(options["encoding"], options["errors"])
        for raw in found:
            plan = Plan(raw, decode)
            if plan.name not in functions:
                functions[plan.name] = Function(host, plan, self._origin)
        set_field(self, "_functions", functions)
        own = self.__dict__
        for each, function in functions.items():
            if not hasattr(Module, each):
                own[each] = function

    # ---- Functions

    def __getitem__(self, name: str) -> Function:
        return self._functions[name]

    def __getattr__(self, name: str) -> Function:
        """Functions are attributes, but for those whose name a Module has itself."""
        origin: Origin = object.__getattribute__(self, "_origin")
        raise AttributeError(f"{origin.path} has no function {name!r}", name=name, obj=self)

    def __setattr__(self, name: str, value: object) -> None:
        if not isinstance(getattr(Module, name, None), property):
            raise AttributeError(f"a Module has no attribute {name!r} to set", name=name, obj=self)
        object.__setattr__(self, name, value)

    @property
    def functions(self) -> Mapping[str, Function]:
        """All functions by name."""
        return MappingProxyType(self._functions)

    def __dir__(self) -> list[str]:
        return sorted({*dir(type(self)), *(name for name in self._functions if name.isidentifier())})

    # ---- Life

    def close(self) -> None:
        """Ends the process. Waits for a call of another thread; a second time nothing happens."""
        self._host.close(self._let_go)

    def _let_go(self) -> None:
        """Of the scratch area."""
        if self._view is not None:
            self._view.release()
            object.__setattr__(self, "_view", None)

    def __enter__(self) -> Self:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None) -> None:
        self.close()

    def cancel(self) -> bool:
        """Ends the call under way, from any thread or signal handler. Whether there was one."""
        return self._host.cancel()

    def restart(self) -> None:
        """Ends the process, if it lives, and starts another."""
        try:
            self._host.restart()
        except DiedError as error:
            raise start_error(error) from None

    # ---- Attributes

    @property
    def callback(self) -> Callback | None:
        """Answers the call-backs of the module."""
        return self._host.callback

    @callback.setter
    def callback(self, callback: Callback | None) -> None:
        self._host.callback = callback

    @property
    def deadline(self) -> float:
        """Seconds for each call with its call-backs."""
        return self._host.deadline_ms / 1000

    @deadline.setter
    def deadline(self, seconds: float) -> None:
        self._host.deadline_ms = milliseconds(seconds)

    @property
    def trace(self) -> int:
        """The trace level of the module, 0 to 4."""
        return self._host.trace

    @trace.setter
    def trace(self, level: int) -> None:
        self._host.trace = level

    @property
    def path(self) -> str:
        """As it was opened."""
        return self._origin.path

    @property
    def pid(self) -> int | None:
        """The number of its process; None when it has ended."""
        return self._host.pid

    @property
    def closed(self) -> bool:
        """Whether it was closed here, or belongs to the parent process."""
        return self._host.closed

    def scratch(self) -> memoryview:
        """The scratch area, which both sides see. Closing the module releases it."""
        view = self._view
        try:
            if view is not None and view.nbytes >= 0:
                return view
        except ValueError:  # it was released
            pass
        view = memoryview(self._host.scratch())
        object.__setattr__(self, "_view", view)
        return view

    def stderr(self) -> bytes:
        """The end of what the module wrote to standard error, with stderr="ring"."""
        return self._host.stderr()

    def __repr__(self) -> str:
        state = "closed" if self.closed else "ended" if self.pid is None else f"process {self.pid}"
        return f"<module {self._origin.path}, {state}>"

    def __reduce__(self) -> tuple[Any, ...]:
        from . import _handle

        return _handle.restore_module, (*self._origin.for_pickle(self._host), tuple(self._functions))


def _with_advice(error: StartError, path: str) -> StartError:
    """With the errno of a missing file, and with what to do about it."""
    advice = []
    if error.errno is None and error.exit_status is None:
        error.errno = errno_of(path, os.X_OK)
    if "/" not in path and not os.path.exists(path):
        advice.append("a path without a slash is not searched for in PATH: it is a file in the working directory")
    need = _paths.start_advice(path)
    if need:
        advice.append(need)
    if advice:
        error.args = ("; ".join([str(error), *advice]),)
    return error


@overload
def open(path: str | os.PathLike[str], *, stubs: type[T], **options: Any) -> T: ...
@overload
def open(
    path: str | os.PathLike[str],
    *,
    deadline: float = ...,
    grace: float = ...,
    callback: Callback | None = ...,
    restart: str = ...,
    segment: int = ...,
    scratch: int = ...,
    restart_pause: tuple[float, float] = ...,
    stderr: Stderr = ...,
    ring: int = ...,
    trace: int = ...,
    env: Mapping[str, str] | None = ...,
    cwd: str | os.PathLike[str] | None = ...,
    encoding: str = ...,
    errors: str = ...,
    room: int = ...,
    reals: str = ...,
    transport: str = ...,
    spin: float = ...,
) -> Module: ...
def open(  # type: ignore[misc]  # the first overload does not name the options
    path: str | os.PathLike[str],
    *,
    stubs: Any = None,
    deadline: float = 30.0,
    grace: float = 2.0,
    callback: Callback | None = None,
    restart: str = "never",
    segment: int = 1 << 20,
    scratch: int = 1 << 16,
    restart_pause: tuple[float, float] = (0.1, 10.0),
    stderr: Stderr = "ring",
    ring: int = 1 << 16,
    trace: int = 0,
    env: Mapping[str, str] | None = None,
    cwd: str | os.PathLike[str] | None = None,
    encoding: str = "utf-8",
    errors: str = "surrogateescape",
    room: int = 256,
    reals: str = "decimal",
    transport: str = "signals",
    spin: float = 50e-6,
) -> Any:
    """Starts the module at a path, and reads its tables. Times are in seconds.

    restart: "never", "next call", "at once". stderr: "ring", None for this process's own, a file or a descriptor.
    reals: "decimal" or "float". transport: "signals", "plain", "fast". stubs: a class that says its type."""
    options = {**locals()}
    del options["path"], options["stubs"]
    return Module(path, options)


def all_options(given: Mapping[str, Any]) -> dict[str, Any]:
    """Those of open: as given, else its defaults."""
    defaults: dict[str, Any] = open.__kwdefaults__
    for name in given:
        if name not in defaults:
            raise TypeError(f"open() got an unexpected keyword argument {name!r}")
    options = {**defaults, **given}
    del options["stubs"]
    return options
