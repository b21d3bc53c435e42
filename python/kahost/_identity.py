# SPDX-License-Identifier: MIT
"""Where a module came from, for handles that travel: its path, what file that was, and how it was opened."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, Any

from ._errors import StartError

if TYPE_CHECKING:
    from ._kahost import Host

_PT_NOTE, _BUILD_ID = 4, 3


def _notes(head: bytes, file: Any) -> Any:
    """The notes of an ELF file of this machine's byte order."""
    wide, word = head[4] == 2, 8 if head[4] == 2 else 4

    def number(data: bytes, at: int, size: int) -> int:
        return int.from_bytes(data[at : at + size], "little")

    at, size, count = number(head, 32 if wide else 28, word), number(head, 54 if wide else 42, 2), number(head, 56 if wide else 44, 2)
    file.seek(at)
    headers = file.read(size * count)
    for i in range(count):
        header = headers[i * size : (i + 1) * size]
        if number(header, 0, 4) != _PT_NOTE:
            continue
        file.seek(number(header, 8 if wide else 4, word))
        notes = file.read(number(header, 32 if wide else 16, word))
        while len(notes) >= 12:
            name, length, kind = number(notes, 0, 4), number(notes, 4, 4), number(notes, 8, 4)
            start = 12 + (name + 3) // 4 * 4
            yield notes[12 : 12 + name], kind, notes[start : start + length]
            notes = notes[start + (length + 3) // 4 * 4 :]


def identify(path: str | bytes) -> str:
    """The build id of a module's file, or else its SHA-256."""
    import hashlib

    with open(path, "rb") as file:
        head = file.read(64)
        if head[:4] == b"\x7fELF" and head[5:6] == b"\1":
            for name, kind, value in _notes(head, file):
                if name == b"GNU\0" and kind == _BUILD_ID and value:
                    return f"build-id:{value.hex()}"
        file.seek(0)
        return f"sha256:{hashlib.file_digest(file, 'sha256').hexdigest()}"


def stamp(path: str | bytes) -> tuple[int, ...] | None:
    """Differs once the file was replaced or changed; None when there is none."""
    try:
        found = os.stat(path)
    except OSError:
        return None
    return found.st_dev, found.st_ino, found.st_size, found.st_mtime_ns


class Origin:
    """The file and the options with which a module was opened."""

    __slots__ = ("path", "options", "_absolute", "_directory", "_stamp", "_identity")

    def __init__(self, path: str, options: dict[str, Any]) -> None:
        self.path = path
        self.options = options
        self._absolute = os.path.abspath(path)
        cwd = options["cwd"]
        self._directory = None if cwd is None else os.path.abspath(os.fsdecode(cwd))
        self._stamp = stamp(path)
        self._identity: str | None = None

    def identity(self, host: Host) -> str:
        """Of the file that was opened, whatever is there now."""
        if self._identity is None:
            if stamp(self._absolute) == self._stamp:
                self._identity = identify(self._absolute)
            elif host.pid is not None:
                self._identity = identify(f"/proc/{host.pid}/exe")
            else:
                raise StartError(f"{self.path}: the file has changed since it was opened: a handle would lead to another module")
        return self._identity

    def for_pickle(self, host: Host) -> tuple[str, str, dict[str, Any]]:
        """What a handle is made from."""
        options = dict(self.options)
        if options["stderr"] not in ("ring", None):
            raise TypeError(f"{self.path}: a module whose standard error goes to a file cannot be pickled: the file cannot")
        if options["env"] is not None:
            options["env"] = dict(options["env"])
        if self._directory is not None:
            options["cwd"] = self._directory
        options["deadline"], options["trace"], options["callback"] = host.deadline_ms / 1000, host.trace, host.callback
        return self._absolute, self.identity(host), options
