# SPDX-License-Identifier: MIT
"""A module's tables: its functions and their prototypes."""

from __future__ import annotations

import os
from collections.abc import Mapping
from types import MappingProxyType
from typing import Any, NamedTuple

from . import _kahost
from ._errors import StartError, errno_of

VARARG, INT_BY_VALUE, INT_BY_REFERENCE, INT_ARRAY, REAL_BY_VALUE = range(5)
REAL_BY_REFERENCE, REAL_ARRAY, ZSTRING, STRING, STRING_ARRAY = range(5, 10)


class Kind(NamedTuple):
    """What libkacall says about a kind."""

    name: str
    takes: str  # the types of values
    gives_back: bool


KINDS = tuple(Kind(*facts) for facts in _kahost.kinds())

RawPrototype = tuple["bytes | None", int, int, "bytes | None"]
RawFunction = tuple["bytes | None", int, tuple[RawPrototype, ...], "bytes | None"]


class Prototype(NamedTuple):
    """What a function takes in one place."""

    name: str | None  # as the module has it
    kind: str  # "IntByValue", ...; of a wrong table its number
    min_elements: int  # of an array
    doc: str | None


class FunctionTable(NamedTuple):
    """A function as the tables have it."""

    name: str
    prototypes: tuple[Prototype, ...]
    doc: str | None


class Tables(NamedTuple):
    """The tables of a module's file. filled_at_start: calls will meet other ones."""

    functions: Mapping[str, FunctionTable]
    filled_at_start: bool

    def __reduce__(self) -> tuple[Any, ...]:
        return _tables, (dict(self.functions), self.filled_at_start)


def _tables(functions: dict[str, FunctionTable], filled_at_start: bool) -> Tables:
    return Tables(MappingProxyType(functions), filled_at_start)


def kind_name(kind: int) -> str:
    """The name of a kind; of a wrong one its number."""
    return KINDS[kind].name if 0 <= kind < len(KINDS) else str(kind)


class Decoder(NamedTuple):
    """How names are read."""

    encoding: str = "utf-8"
    errors: str = "surrogateescape"

    def name(self, name: bytes | None) -> str | None:
        return None if name is None else name.decode(self.encoding, self.errors)

    def prototype(self, raw: RawPrototype) -> Prototype:
        return Prototype(self.name(raw[0]), kind_name(raw[1]), raw[2], self.name(raw[3]))


def read(path: str | os.PathLike[str], *, encoding: str = "utf-8", errors: str = "surrogateescape") -> Tables:
    """The tables of a module's file, which is not run."""
    found = _kahost.read_tables(os.fsencode(path))
    if isinstance(found, str):
        error = StartError(f"{os.fsdecode(path)}: {found}")
        error.errno = errno_of(path, os.R_OK)  # type: ignore[assignment]
        raise error
    decode = Decoder(encoding, errors)
    functions: dict[str, FunctionTable] = {}
    for raw_name, _, prototypes, doc in found[0]:
        name = decode.name(raw_name) or ""
        made = FunctionTable(name, tuple(map(decode.prototype, prototypes)), decode.name(doc))
        functions.setdefault(name, made)
    return _tables(functions, bool(found[1]))
