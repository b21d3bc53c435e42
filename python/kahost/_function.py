# SPDX-License-Identifier: MIT
"""Functions of a module, made from its tables."""

from __future__ import annotations

import keyword
import math
from collections.abc import Mapping, Sequence
from decimal import Decimal
from typing import TYPE_CHECKING, Any, Self

from . import _kahost, _results
from . import _tables as tables
from ._errors import ArgumentError
from ._tables import Decoder, Prototype, RawFunction

if TYPE_CHECKING:
    import inspect
    from collections.abc import Awaitable

    from ._identity import Origin

_ZERO = Decimal(0)
_DEFAULTS: dict[int, object] = {tables.INT_BY_REFERENCE: 0, tables.REAL_BY_REFERENCE: _ZERO, tables.STRING: ""}
_INT, _REAL, _TEXT = "int", "Decimal | int | float", "str | bytes"
_ANNOTATIONS = {
    tables.VARARG: "object",
    tables.INT_BY_VALUE: _INT,
    tables.INT_BY_REFERENCE: _INT,
    tables.INT_ARRAY: f"Sequence[{_INT}]",
    tables.REAL_BY_VALUE: _REAL,
    tables.REAL_BY_REFERENCE: _REAL,
    tables.REAL_ARRAY: f"Sequence[{_REAL}]",
    tables.ZSTRING: _TEXT,
    tables.STRING: f"{_TEXT} | Text",
    tables.STRING_ARRAY: f"Sequence[{_TEXT}] | Text",
}
_ARRAYS = (tables.INT_ARRAY, tables.REAL_ARRAY, tables.STRING_ARRAY)
_EMPTY = NotImplemented  # no default


def _parameter_names(prototypes: Sequence[Prototype]) -> list[str]:
    """Each argument's own name, where Python can use it and no earlier one has it."""
    names: list[str] = []
    for number, prototype in enumerate(prototypes, 1):
        name = prototype.name or ""
        if not name.isidentifier() or keyword.iskeyword(name) or name in names:
            name = f"argument_{number}"
            while name in names:
                name += "_"
        names.append(name)
    return names


class Plan:
    """What all objects of one function share."""

    __slots__ = ("name", "raw_name", "doc", "prototypes", "parameters", "takes_more", "fields")

    def __init__(self, raw: RawFunction, decode: Decoder) -> None:
        self.raw_name = raw[0] or b""
        self.name = decode.name(raw[0]) or ""
        self.doc = decode.name(raw[3])
        self.prototypes = tuple(map(decode.prototype, raw[2]))
        kinds = [prototype[1] for prototype in raw[2]][:50]
        wrong = raw[1] < 0 or any(not 0 <= kind < len(tables.KINDS) for kind in kinds)
        self.takes_more = wrong or tables.VARARG in kinds
        if wrong:
            kinds = [tables.VARARG]
        elif self.takes_more:
            kinds = kinds[: kinds.index(tables.VARARG) + 1]
        names = _parameter_names(self.prototypes) if not wrong else ["arguments"]
        defaults: list[object] = []
        for kind in reversed(kinds):
            may_default = all(default is not _EMPTY for default in defaults)
            defaults.append(_DEFAULTS.get(kind, _EMPTY) if may_default and kind != tables.VARARG else _EMPTY)
            if kind == tables.VARARG:
                defaults.pop()
        defaults.reverse()
        if self.takes_more:
            defaults.append(_EMPTY)
        self.parameters = tuple(zip(names, kinds, defaults))
        self.fields = tuple(name for name, kind, _ in self.parameters if tables.KINDS[kind].gives_back)


class Function(_kahost.Function):
    """A function of a module: call it, or await its aio."""

    __slots__ = ("__dict__", "__weakref__", "__name__", "__qualname__", "_plan", "_origin", "_changes")
    _plan: Plan
    _origin: Origin
    _changes: dict[str, int]

    def __new__(cls, host: _kahost.Host, plan: Plan, origin: Origin, **changes: int) -> Self:
        """Made by the module."""
        self = super().__new__(cls, host, plan.raw_name, plan.parameters, plan.takes_more, **changes)
        self._plan = plan
        self._origin = origin
        self._changes = changes
        self.__name__ = self.__qualname__ = plan.name
        return self

    @property
    def prototypes(self) -> tuple[Prototype, ...]:
        """What the module's tables say about its arguments."""
        return self._plan.prototypes

    @property
    def __signature__(self) -> inspect.Signature:
        import inspect

        parameters = []
        for name, kind, default in self._plan.parameters:
            form = inspect.Parameter.VAR_POSITIONAL if kind == tables.VARARG else inspect.Parameter.POSITIONAL_OR_KEYWORD
            value = inspect.Parameter.empty if default is _EMPTY else default
            parameters.append(inspect.Parameter(name, form, default=value, annotation=_ANNOTATIONS[kind]))
        return inspect.Signature(parameters)

    @property
    def __doc__(self) -> str:  # type: ignore[override]
        """One line for each argument."""
        plan = self._plan
        lines = [f"{plan.name}{self.__signature__}", ""]
        if plan.doc:
            lines += [plan.doc, ""]
        for (name, kind, _), prototype in zip(plan.parameters, plan.prototypes):
            least = f", at least {prototype.min_elements} elements" if kind in _ARRAYS and prototype.min_elements > 0 else ""
            doc = f": {prototype.doc}" if prototype.doc else ""
            facts = tables.KINDS[kind]
            lines.append(f"{name}  {prototype.kind}{least}, takes {facts.takes}{', comes back' if facts.gives_back else ''}{doc}")
        return "\n".join(lines)

    def options(self, *, deadline: float | None = None, room: int | None = None, reals: str | None = None) -> Function:
        """The same function, whose calls have options of their own."""
        return self._changed(changes_of(deadline=deadline, room=room, reals=reals))

    def _changed(self, changes: Mapping[str, Any]) -> Function:
        """With further changes, as changes_of gives them."""
        return type(self)(self._host, self._plan, self._origin, **{**self._changes, **changes})

    def aio(self, *args: Any, **kwargs: Any) -> Awaitable[Any]:
        """The call for await: the event loop goes on."""
        from . import _aio

        return _aio.call(self, args, kwargs)

    def __repr__(self) -> str:
        return f"<function {self.__name__}{self.__signature__} of {self._origin.path}>"

    def __reduce__(self) -> tuple[Any, ...]:
        from . import _handle

        return _handle.restore_function, (*self._origin.for_pickle(self._host), self.__name__, self._changes)


def changes_of(*, deadline: float | None = None, room: int | None = None, reals: str | None = None) -> dict[str, Any]:
    """What distinguishes a function whose calls have these options."""
    changes: dict[str, Any] = {}
    if deadline is not None:
        changes["deadline_ms"] = deadline_in_ms(deadline)
    if room is not None:
        changes["room"] = room_in_bytes(room)
    if reals is not None:
        changes["floats"] = int(reals_are_floats(reals))
    return changes


def result_type(function: Function) -> type[tuple[Any, ...]]:
    """The class of a function's results."""
    return _results.result_class(function._plan.name, function._plan.fields)


def milliseconds(seconds: float) -> int:
    """As libkacall takes times; what is longer than it can count is the longest."""
    if math.isnan(seconds):
        raise ValueError("a time is not a number")
    return int(min(max(math.ceil(seconds * 1000) if math.isfinite(seconds) else math.copysign(2**31, seconds), -(2**31)), 2**31 - 1))


def deadline_in_ms(seconds: float) -> int:
    """Of a call."""
    deadline_ms = milliseconds(seconds)
    if deadline_ms <= 0:
        raise ArgumentError(f"deadline is {seconds}; it must be above 0")
    return deadline_ms


def room_in_bytes(room: int) -> int:
    """Of strings by reference."""
    if room < 0:
        raise ArgumentError(f"room is {room}; it must not be below 0")
    return room


def reals_are_floats(reals: str) -> bool:
    """What reals="decimal" or "float" means."""
    if reals not in ("decimal", "float"):
        raise ValueError(f'reals is {reals!r}; it must be "decimal" or "float"')
    return reals == "float"
