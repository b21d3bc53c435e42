# SPDX-License-Identifier: MIT
"""The extension. What is here is for the package alone."""

from collections.abc import Callable
from decimal import Decimal
from typing import Any, Self

from ._tables import RawFunction

class Evidence:
    def take(self) -> tuple[bytes | None, bytes | None, bytes | None]: ...

class Host:
    callback: Callable[[int], int] | None
    deadline_ms: int
    trace: int
    @property
    def pid(self) -> int | None: ...
    @property
    def closed(self) -> bool: ...
    def __new__(
        cls,
        path: bytes,
        *,
        deadline_ms: int,
        grace_ms: int,
        restart: int,
        segment: int,
        scratch: int,
        pause_ms: int,
        pause_max_ms: int,
        output: int,
        output_fd: int,
        ring: int,
        trace: int,
        transport: int,
        spin_us: int,
        room: int,
        floats: bool,
        encoding: bytes,
        errors: bytes,
        callback: Callable[[int], int] | None,
        environment: list[bytes] | None,
        directory: bytes | None,
    ) -> Self: ...
    def open(self) -> tuple[RawFunction, ...]: ...
    def restart(self) -> None: ...
    def close(self, let_go: Callable[[], object]) -> None: ...
    def cancel(self) -> bool: ...
    def stderr(self) -> bytes: ...
    def scratch(self) -> Any: ...  # with the buffer protocol

class Steps:
    def fileno(self) -> int: ...
    def step(self) -> bool | None: ...
    def long_step(self) -> bool: ...
    def result(self) -> Any: ...
    def cancel(self) -> bool: ...

class Function:
    __name__: str
    __qualname__: str
    def __new__(
        cls,
        host: Host,
        name: bytes,
        parameters: tuple[tuple[str, int, object], ...],
        takes_more: bool,
        deadline_ms: int = 0,
        room: int = -1,
        floats: int = -1,
    ) -> Self: ...
    def __call__(self, *args: Any, **kwargs: Any) -> Any: ...
    def raw(self, *args: Any, **kwargs: Any) -> Any: ...
    def _begin(self, *args: Any, **kwargs: Any) -> Steps: ...
    @property
    def _host(self) -> Host: ...

def version() -> str: ...
def kinds() -> list[tuple[str, str, bool]]: ...
def setup(**handed_over: Any) -> None: ...
def read_tables(path: bytes) -> tuple[tuple[RawFunction, ...], int] | str: ...
def round_to_real(text: str) -> Decimal | None: ...
