# SPDX-License-Identifier: MIT
"""Named tuples of what calls gave back. They travel by name and fields: the class is made where they arrive."""

from __future__ import annotations

import collections
import keyword
from functools import lru_cache
from typing import Any, NamedTuple


class Returned(NamedTuple):
    """A return code, and what the function gave back."""

    code: int
    results: Any


@lru_cache(maxsize=None)
def result_class(name: str, fields: tuple[str, ...]) -> type[tuple[Any, ...]]:
    """The class of the results of a function: one for each name and fields."""
    usable = name if name.isidentifier() and not keyword.iskeyword(name) else "results"
    base: Any = collections.namedtuple(usable, fields, rename=True)  # type: ignore[misc]

    def __reduce__(self: tuple[Any, ...]) -> tuple[Any, ...]:
        return make_result, (name, fields, tuple(self))

    space = {"__slots__": (), "__reduce__": __reduce__, "__doc__": f"What {ascii(name)[1:-1]} gave back.", "__module__": __name__}
    made: type[tuple[Any, ...]] = type(usable, (base,), space)
    return made


def make_result(name: str, fields: tuple[str, ...], values: tuple[Any, ...]) -> tuple[Any, ...]:
    """Results that have travelled."""
    return result_class(name, fields)(*values)
