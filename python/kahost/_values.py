# SPDX-License-Identifier: MIT
"""Values around arguments, and numbers of seldom types."""

from __future__ import annotations

import operator
import sys
from collections.abc import Sequence
from decimal import MAX_EMAX, MIN_EMIN, ROUND_05UP, Context, Decimal
from typing import Any, Generic, TypeVar, overload

from . import _kahost
from ._errors import ArgumentError, LostDigits, shown

T = TypeVar("T")


class LossyKind(UserWarning):
    """A Decimal of more than 14 decimals goes to a function that computes with doubles. Off by default."""


class _Wrapped(Generic[T]):
    __slots__ = ("value",)

    def __init__(self, value: T) -> None:
        self.value = value

    def __repr__(self) -> str:
        return f"{type(self).__name__}({self.value!r})"

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.value,)


class Ref(_Wrapped[T]):
    """An argument of a VarArg that is passed by reference: its result is in more."""

    __slots__ = ()


class InPlace(_Wrapped[T]):
    """A buffer into which the results are written: no new object is made."""

    __slots__ = ()


class Text:
    """A string, or a list of strings, with room for room bytes each."""

    __slots__ = ("value", "room")

    def __init__(self, value: str | bytes | Sequence[str | bytes] = "", room: int = -1) -> None:
        self.value = value
        self.room = room

    def __repr__(self) -> str:
        return f"Text({self.value!r}, room={self.room})"

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.value, self.room)


# Of its own in every part, whatever the program's contexts are. A quotient that does not end is cut behind a digit that
# is not 0, so that neither reading nor rounding it takes it for a shorter one.
_QUOTIENTS = Context(prec=200, rounding=ROUND_05UP, Emin=MIN_EMIN, Emax=MAX_EMAX, clamp=0, flags=[], traps=[])


def _decimal_text(number: Decimal) -> str | None:
    """Of a Decimal whose own text no REAL is made of: zeros of any exponent, and digits beyond its ends."""
    if not number.is_finite():
        return None
    if not number:
        return "0"
    sign, digits, _ = number.as_tuple()
    text = "".join(map(str, digits)).rstrip("0")
    exponent = number.adjusted() - len(text) + 1
    return f"{'-' if sign else ''}{text}E{exponent}" if abs(exponent) < 1000 else None


def _fraction_text(number: Any) -> str | None:
    """Of a Fraction: all its decimals where they end, else more than a REAL holds."""
    return _decimal_text(_QUOTIENTS.divide(Decimal(number.numerator), Decimal(number.denominator)))


def _is_fraction(number: object) -> bool:
    fractions = sys.modules.get("fractions")
    return fractions is not None and isinstance(number, fractions.Fraction)


def exact_text(number: object) -> Any:
    """Decimal text of a number of a seldom type; None where it is beyond a REAL's range; NotImplemented where it is none."""
    if isinstance(number, Decimal):
        return _decimal_text(number)
    if _is_fraction(number):
        return _fraction_text(number)
    return NotImplemented


@overload
def rounded(number: Decimal | int | float) -> Decimal: ...
@overload
def rounded(number: Sequence[Decimal | int | float]) -> list[Decimal]: ...
def rounded(number: Any) -> Any:
    """The Decimal nearest to a number, or to each of a sequence, that a REAL holds."""
    text: Any
    if isinstance(number, float):
        text = float.__repr__(number)
    elif isinstance(number, (Decimal, int)):
        text = str(Decimal(number))
    elif _is_fraction(number):
        text = _fraction_text(number)
    elif isinstance(number, (str, bytes)) or not (isinstance(number, Sequence) or hasattr(type(number), "__index__")):
        raise TypeError(f"rounded() takes int, Decimal, float or Fraction, or a sequence of these, not {type(number).__name__}")
    elif isinstance(number, Sequence):
        return [rounded(each) for each in number]
    else:
        text = str(Decimal(operator.index(number)))
    result = _kahost.round_to_real(text) if text is not None else None
    if result is None and isinstance(number, Decimal):
        text = _decimal_text(number)
        result = _kahost.round_to_real(text) if text is not None else None
    if result is None:
        raise ArgumentError(f"{shown(number)} is not within the range of a REAL")
    return result


def copy_buffer(buffer: Any) -> Any:
    """A new object of the type of a buffer, of the same shape; its elements may be anything."""
    if isinstance(buffer, memoryview):
        flat = memoryview(bytearray(buffer.nbytes))
        return flat.cast(buffer.format[-1:], buffer.shape or ()) if buffer.nbytes else buffer[:0]
    copy = getattr(buffer, "__copy__", None)
    if copy is not None:
        return copy()
    import copy as copies

    return copies.copy(buffer)
