# SPDX-License-Identifier: MIT
"""Calls functions of native modules, each in a process of its own.

with kahost.open("build/examples/tour", deadline=5) as m:
    m.scale(2.5, [1, Decimal("2.5")])"""

from __future__ import annotations

import warnings as _warnings
from typing import TYPE_CHECKING, Any

from . import _kahost
from ._errors import (
    ArgumentError,
    Cancelled,
    ClosedError,
    DeadlineError,
    DiedError,
    Error,
    LostDigits,
    RefusedError,
    ReturnedCode,
    StartError,
    SystemFailure,
    TooBigError,
)
from ._errors import argument_error as _argument_error
from ._errors import library_error as _library_error
from ._errors import lost_digits as _lost_digits
from ._errors import returned_code as _returned_code
from ._function import Function
from ._function import result_type as _result_type
from ._module import Module, open
from ._paths import example_dir, include_dir, library_dir
from ._results import Returned
from ._tables import FunctionTable, Prototype, Tables, read
from ._values import InPlace, LossyKind, Ref, Text, rounded
from ._values import copy_buffer as _copy_buffer
from ._values import exact_text as _exact_text

if TYPE_CHECKING:
    from ._pool import Pool

__all__ = [
    "ArgumentError",
    "Cancelled",
    "ClosedError",
    "DeadlineError",
    "DiedError",
    "Error",
    "Function",
    "FunctionTable",
    "InPlace",
    "LossyKind",
    "LostDigits",
    "Module",
    "Pool",
    "Prototype",
    "Ref",
    "RefusedError",
    "Returned",
    "ReturnedCode",
    "StartError",
    "SystemFailure",
    "Tables",
    "Text",
    "TooBigError",
    "answer_on_error",
    "example_dir",
    "include_dir",
    "library_dir",
    "open",
    "read",
    "rounded",
]

for _name in __all__:  # whatever file they are in: tracebacks and pickles name the package
    _class = globals().get(_name)
    if isinstance(_class, type):
        _class.__module__ = __name__

__version__ = _kahost.version()
answer_on_error: int = 0  # what a module hears from a call-back that has raised

_warnings.filterwarnings("ignore", category=LossyKind, append=True)
_kahost.setup(
    library_error=_library_error,
    argument_error=_argument_error,
    lost_digits=_lost_digits,
    returned_code=_returned_code,
    answer_on_error=lambda: answer_on_error,
    result_type=_result_type,
    Returned=Returned,
    Text=Text,
    Ref=Ref,
    InPlace=InPlace,
    exact_text=_exact_text,
    copy_buffer=_copy_buffer,
    LossyKind=LossyKind,
)


def __dir__() -> list[str]:
    return sorted({*__all__, *(name for name in globals() if name.startswith("__"))})


def __getattr__(name: str) -> Any:
    """Pool, with what it imports, when it is asked for first."""
    if name == "Pool":
        from ._pool import Pool

        return Pool
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
