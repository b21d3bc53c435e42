# SPDX-License-Identifier: MIT
"""The errors of the package. All can be pickled with every field, and hold no host."""

from __future__ import annotations

import errno as numbers
import os
import signal as signals
import stat
from decimal import Decimal
from typing import TYPE_CHECKING, Any, ClassVar, Protocol

if TYPE_CHECKING:
    from ._kahost import Function as NativeFunction

    class Evidence(Protocol):
        def take(self) -> tuple[bytes | None, bytes | None, bytes | None]: ...


Place = tuple[int, str]
_RETRY = ("no", "yes", "unsure")
_ENDS_AGAIN = "no: it would fail again"


class Error(Exception):
    """Base of all errors. retry: may the call be made again? "no", "yes" or "unsure"."""

    name: ClassVar[str] = "error"
    retry: str = "no"
    _evidence: Evidence | None = None
    _reports: tuple[str, dict[str, Any], bytes] | None = None

    def _settle(self) -> tuple[str, dict[str, Any], bytes]:
        """The reports, which libkacall makes when they are asked for first."""
        if self._reports is None:
            import json

            report, details, output = self._evidence.take() if self._evidence is not None else (None, None, None)
            self._evidence = None
            self._reports = (
                report.decode("utf-8", "backslashreplace") if report is not None else str(self),
                json.loads(details.decode("utf-8", "backslashreplace"))
                if details is not None
                else {"error": self.name, "message": str(self), "retry": self.retry},
                output or b"",
            )
        return self._reports

    @property
    def report(self) -> str:
        """Everything that is known about the error, as lines of text."""
        return self._settle()[0]

    @property
    def details(self) -> dict[str, Any]:
        """The same, for programs."""
        return self._settle()[1]

    def __reduce__(self) -> tuple[Any, ...]:
        self._settle()
        fields = {name: value for name, value in self.__dict__.items() if name != "_evidence"}
        return _restore, (type(self), self.args, fields)


def _restore(cls: type[Error], args: tuple[Any, ...], fields: dict[str, Any]) -> Error:
    error = cls(*args)
    for name, value in fields.items():
        setattr(error, name, value)
    return error


class StartError(Error, OSError):
    """The module could not be started, or ended at start."""

    name = "not started"
    exit_status: int | None = None

    def __reduce__(self) -> tuple[Any, ...]:
        cls, args, fields = super().__reduce__()[1]
        return _restore, (cls, args, {**fields, "errno": self.errno})


class RefusedError(Error, TypeError):
    """The call does not suit the module's tables; nothing was sent. code: with which the call host would refuse it."""

    name = "refused"
    argument: Place | None = None
    code: int = 0


class DiedError(Error):
    """The host process ended by itself, or was killed."""

    name = "died"
    signal: signals.Signals | None = None
    exit_status: int | None = None

    @property
    def stderr(self) -> bytes:
        """The end of what the process wrote to standard error, of a host with stderr="ring"."""
        return self._settle()[2]

    @property
    def function(self) -> str | None:
        """The function that ran."""
        found = self.details.get("function")
        return found if isinstance(found, str) else None

    @property
    def arguments(self) -> list[dict[str, Any]]:
        """Its arguments as the segment holds them: name, kind, values and more of each."""
        found = self.details.get("arguments")
        return found if isinstance(found, list) else []


class DeadlineError(Error, TimeoutError):
    """No answer in time; the host process was ended."""

    name = "deadline passed"


class TooBigError(Error, MemoryError):
    """The call does not fit the segment: one of needed bytes would do. Nothing was sent."""

    name = "too big"
    needed: int = 0


class ClosedError(Error, ValueError):
    """The host is closed, has ended earlier, or belongs to the parent process."""

    name = "closed"


class SystemFailure(Error, OSError):
    """The system refused something; errno says why."""

    name = "system error"

    def __reduce__(self) -> tuple[Any, ...]:
        cls, args, fields = super().__reduce__()[1]
        return _restore, (cls, args, {**fields, "errno": self.errno})


class ArgumentError(Error, ValueError):
    """A bad argument, or a use of the host out of turn."""

    name = "argument"
    argument: Place | None = None


class LostDigits(ArgumentError, ArithmeticError):
    """A number that no REAL holds: value would become nearest. kahost.rounded(value) allows it."""

    value: object = None
    nearest: Decimal | None = None


class Cancelled(Error):
    """The call was cancelled; the host process was ended."""

    name = "cancelled"


class ReturnedCode(Error):
    """The function returned a code other than 0; results has what it gave back."""

    name = "returned"
    code: int = 0
    results: Any = None
    function: str = ""


_CLASSES: dict[int, type[Error]] = {
    1: StartError,
    2: RefusedError,
    3: DiedError,
    4: DeadlineError,
    5: TooBigError,
    6: ClosedError,
    7: SystemFailure,
    8: ArgumentError,
    9: Cancelled,
}

_WRONG_TYPE, _WRONG_COUNT = 8, 9  # the call host's codes


def start_error(error: DiedError) -> StartError:
    """Of a module that has ended before it was opened: it would end again."""
    made = StartError(str(error))
    made.exit_status = error.exit_status
    report, details, output = error._settle()
    lines = [f"  try again  {_ENDS_AGAIN}" if line.startswith("  try again  ") else line for line in report.split("\n")]
    details = {**details, "error": made.name, "error_class": 1, "retry": made.retry}
    made._reports = ("\n".join(lines), details, output)
    return made


def errno_of(path: str | bytes | os.PathLike[str], access: int) -> int | None:
    """Why the system does not give a module that access, os.X_OK to start it; None when it does."""
    try:
        mode = os.stat(path).st_mode
    except OSError as failure:
        return failure.errno
    return None if stat.S_ISREG(mode) and os.access(path, access) else numbers.EACCES


def _signal(number: int) -> signals.Signals | None:
    try:
        return signals.Signals(number) if number else None
    except ValueError:
        return None


def library_error(
    error_class: int,
    message: str,
    numbers: tuple[int, int, int, int, int, int],
    function: NativeFunction | None,
    place: Place | None,
    evidence: Evidence,
) -> Error:
    """An error of libkacall. numbers: of ka_error, as the extension puts them."""
    retry, errno, exit_status, signal, code, needed = numbers
    error = _CLASSES.get(error_class, Error)(message)
    error.retry = _RETRY[retry]
    error._evidence = evidence
    if isinstance(error, (StartError, SystemFailure)):
        error.errno = errno or None  # type: ignore[assignment]
    if isinstance(error, (StartError, DiedError)):
        error.exit_status = None if exit_status == -1 else exit_status
    if isinstance(error, DiedError):
        error.signal = _signal(signal)
    elif isinstance(error, TooBigError):
        error.needed = needed
    elif isinstance(error, RefusedError):
        error.argument, error.code = place, code
    elif isinstance(error, ArgumentError):
        error.argument = place
    return error


def _where(function: NativeFunction | None, place: Place | None) -> str:
    name = function.__name__ if function is not None else ""
    if place is None:
        return f"{name} " if name else ""
    return f"{name}: argument {place[0]} ({place[1]}) "


def argument_error(error_class: int, text: str, function: NativeFunction | None, place: Place | None) -> Error:
    """An error that the extension has found itself."""
    error = _CLASSES[error_class](_where(function, place) + text)
    if isinstance(error, RefusedError):
        error.argument, error.code = place, _WRONG_TYPE if place is not None and text.startswith("takes") else _WRONG_COUNT
    elif isinstance(error, ArgumentError):
        error.argument = place
    return error


def shown(value: object) -> str:
    """A number's text; Python refuses to write thousands of digits of an int."""
    try:
        return str(value)
    except ValueError:
        return "a number of thousands of digits"


def lost_digits(value: object, nearest: Decimal, function: NativeFunction | None, place: Place | None) -> LostDigits:
    """A number with more digits than a REAL holds."""
    error = LostDigits(f"{_where(function, place)}would lose digits: {shown(value)} would become {nearest}")
    error.argument, error.value, error.nearest = place, value, nearest
    return error


def returned_code(function: NativeFunction, code: int, results: object) -> ReturnedCode:
    """A return code other than 0."""
    error = ReturnedCode(f"{function.__name__} returned {code}")
    error.code, error.results, error.function = code, results, function.__name__
    if code in (2, -1):
        why = "it has no memory for the arguments" if code == 2 else "the function changed its prototypes while it ran"
        error.add_note(f"{code} can also be the call host's: {why}")
    return error
