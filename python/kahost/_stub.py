# SPDX-License-Identifier: MIT
"""python -m kahost stub: the types of a module's functions, as Python source, made from its tables."""

from __future__ import annotations

import keyword
import os
import re
import sys

from . import _kahost
from . import _tables as tables
from ._errors import Error
from ._function import Plan
from ._module import Module, open
from ._tables import Decoder

USAGE = """usage: python -m kahost stub [--float] MODULE

Prints a class with the types of the module's functions, for kahost.open(path, stubs=...). It is the same as a .pyi file and
as a .py file. --float: for modules that are opened with reals="float"."""

_HEAD = '''# mypy: disable-error-code="empty-body"
"""The functions of {path}, made by python -m kahost stub.

A result is None where the module withdraws it, and a REAL where it is null; of a buffer it is an object of its type."""

from __future__ import annotations

import builtins
from collections.abc import Awaitable, Sequence
from decimal import Decimal
from fractions import Fraction
from typing import Any, Literal, NamedTuple, Protocol, Self, SupportsIndex, Union, overload

import kahost

class _Array(Protocol):
    def __array__(self) -> Any: ...

Real = Union[Decimal, int, float, Fraction]
Characters = Union[str, bytes]
Integers = Union[Sequence[SupportsIndex], memoryview, "kahost.InPlace[Any]", _Array]
Reals = Union[Sequence[Real], memoryview, "kahost.InPlace[Any]", _Array]
'''

_TAKES = {
    tables.VARARG: "Any",
    tables.INT_BY_VALUE: "SupportsIndex",
    tables.INT_BY_REFERENCE: "SupportsIndex",
    tables.INT_ARRAY: "Integers",
    tables.REAL_BY_VALUE: "Real",
    tables.REAL_BY_REFERENCE: "Real",
    tables.REAL_ARRAY: "Reals",
    tables.ZSTRING: "Characters",
    tables.STRING: "Characters | kahost.Text",
    tables.STRING_ARRAY: "Sequence[Characters] | kahost.Text",
}
_GIVES = {
    tables.VARARG: "tuple[Any, ...]",
    tables.INT_BY_REFERENCE: "int",
    tables.INT_ARRAY: "list[int]",
    tables.REAL_BY_REFERENCE: "{real}",
    tables.REAL_ARRAY: "list[{real}]",
    tables.STRING: "str",
    tables.STRING_ARRAY: "list[str]",
}
_BUILTINS = {"int", "str", "list", "tuple", "float", "property"}


def _is_name(name: str) -> bool:
    return name.isidentifier() and not keyword.iskeyword(name)


def _literal(text: str) -> str:
    return '"' + "".join(f"\\{each}" if each in '"\\' else each if each.isprintable() else ascii(each)[1:-1] for each in text) + '"'


def _class_name(name: str) -> str:
    """total_sum: TotalSum; what no class can be called is left out."""
    words = "".join(each if each.isalnum() and each.isascii() else " " for each in name).split()
    made = "".join(word[0].upper() + word[1:] for word in words)
    return made if made.isidentifier() and not keyword.iskeyword(made) else f"Module{made}"


def _parameters(plan: Plan) -> str:
    names = {name for name, _, _ in plan.parameters}
    words = [next(name for name in ("self", "self_", "self__") if name not in names)]
    for name, kind, default in plan.parameters:
        takes = _TAKES[kind]
        if kind == tables.VARARG:
            words.append(f"*{name}: {takes}")
        else:
            words.append(f"{name}: {takes}" + (" = ..." if default is not NotImplemented else ""))
    return ", ".join(words)


def _results(plan: Plan, real: str) -> list[str]:
    """A named tuple; where a field has a name that one cannot have, a tuple with properties."""
    given = [(name, _GIVES[kind].format(real=real)) for name, kind, _ in plan.parameters if kind in _GIVES]
    if _BUILTINS & {name for name, _ in given}:
        given = [(name, re.sub(r"\b(int|str|list|tuple|float)\b", r"builtins.\1", type_)) for name, type_ in given]
    fields = [(name if _is_name(name) and not name.startswith("_") else f"_{i}", type_) for i, (name, type_) in enumerate(given)]
    if not fields:
        return ["    class Results(NamedTuple):", "        pass"]
    if all(not name.startswith("_") and name not in ("count", "index") for name, _ in fields):
        return ["    class Results(NamedTuple):", *(f"        {name}: {type_}" for name, type_ in fields)]
    lines = [f"    class Results(tuple[{', '.join(type_ for _, type_ in fields)}]):"]
    for name, type_ in fields:
        note = "  # type: ignore[override]" if name in ("count", "index") else ""
        lines += ["        @builtins.property", f"        def {name}(self) -> {type_}: ...{note}"]
    return lines


def _function_class(name: str, plan: Plan, real: str) -> list[str]:
    parameters = _parameters(plan)
    doc = " ".join((plan.doc or plan.name).split()).encode("utf-8", "backslashreplace").decode()
    return [
        f"class {name}(kahost.Function):",
        f"    {_literal(doc)}",
        "",
        *_results(plan, real),
        "",
        f"    def __call__({parameters}) -> Results: ...",
        f"    def raw({parameters}) -> kahost.Returned: ...",
        f"    def aio({parameters}) -> Awaitable[Results]: ...",
        "    def options(self, *, deadline: float | None = None, room: int | None = None, reals: str | None = None) -> Self: ...",
    ]


def _module_class(name: str, functions: list[tuple[str, Plan]]) -> list[str]:
    lines = [f"class {name}(kahost.Module):"]
    for class_, plan in functions:
        if _is_name(plan.name) and not hasattr(Module, plan.name):
            lines.append(f"    {plan.name}: {class_}")
    for class_, plan in functions:
        lines += ["    @overload", f"    def __getitem__(self, name: Literal[{_literal(plan.name)}]) -> {class_}: ..."]
    last = "    def __getitem__(self, name: builtins.str) -> Any: ..."
    return [*lines, "    @overload", last, last] if functions else [*lines, last]


def stub_of(path: str, plans: list[Plan], real: str = "Decimal") -> str:
    """The source."""
    name = _class_name(os.path.basename(path))
    functions = [(f"{name}Function{i}" if not _is_name(plan.name) else f"{name}_{plan.name}", plan) for i, plan in enumerate(plans, 1)]
    blocks = [_HEAD.format(path=os.path.basename(path))]
    blocks += ["\n".join(_function_class(class_, plan, real)) for class_, plan in functions]
    blocks.append("\n".join(_module_class(name, functions)))
    return "\n\n".join(blocks) + "\n"


def plans_of(path: str) -> list[Plan]:
    """Those of a module's file, which is run only where it fills its tables as it starts; of equal names the first."""
    found = _kahost.read_tables(os.fsencode(path))
    if isinstance(found, str) or found[1]:
        with open(path) as module:
            plans = [function._plan for function in module.functions.values()]
    else:
        plans = [Plan(raw, Decoder()) for raw in found[0]]
    return list({plan.name: plan for plan in reversed(plans)}.values())[::-1]


def main(arguments: list[str]) -> int:
    real = "float" if "--float" in arguments else "Decimal"
    paths = [word for word in arguments if not word.startswith("-")]
    if len(paths) != 1 or set(arguments) - {"--float", *paths}:
        is_asked = arguments in (["--help"], ["-h"])
        print(USAGE, file=sys.stdout if is_asked else sys.stderr)
        return 0 if is_asked else 2
    try:
        print(stub_of(paths[0], plans_of(paths[0]), real), end="")
    except Error as error:
        print(f"python -m kahost stub: {error}", file=sys.stderr)
        return 1
    return 0
