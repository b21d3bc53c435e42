# SPDX-License-Identifier: MIT
"""Where the files that come with the package are: headers and libraries of the call host, the command ka, examples.

A wheel has them inside the package, a build folder beside it; the folders have the same names in both."""

from __future__ import annotations

import os
from collections.abc import Mapping

_PACKAGE = os.path.dirname(os.path.abspath(__file__))
_IN_WHEEL = os.path.isdir(os.path.join(_PACKAGE, "include"))
_HOME = _PACKAGE if _IN_WHEEL else os.path.dirname(os.path.dirname(_PACKAGE))
_LIBRARIES = {64: "lib64", 32: "lib"}

# Of the machines whose modules the caller can start, as in a file's first bytes: word size and e_machine.
_C_LIBRARIES = {
    (1, 3): ("32-bit", "libc6:i386 or libc6-i386"),
    (2, 62): ("64-bit", "libc6:amd64 or libc6-amd64"),
}
_PT_INTERP = 3


def include_dir() -> str:
    """The folder of the headers, for the compiler's -I."""
    return os.path.join(_HOME, "include")


def library_dir(bits: int = 64) -> str:
    """The folder of libkahost.so for modules of 64 or 32 bits, for the compiler's -L."""
    folder = os.path.join(_HOME, _LIBRARIES[bits]) if bits in _LIBRARIES else ""
    if not os.path.exists(os.path.join(folder, "libkahost.so")):
        raise ValueError(f"there is no call host for modules of {bits} bits")
    return folder


def example_dir() -> str:
    """The folder of the example modules."""
    return os.path.join(_HOME, "examples")


def command() -> str:
    """The command ka."""
    return os.path.join(_HOME, "bin", "ka")


def host_environment(env: Mapping[str, str] | None = None) -> Mapping[str, str] | None:
    """The environment of a host process: env, or this process's own, with the libraries of a wheel behind the folders in
    which the loader already looks; None: inherited as it is. Modules of a build folder find their library there."""
    if not _IN_WHEEL:
        return env
    values = dict(os.environ if env is None else env)
    folders = [os.path.join(_HOME, folder) for folder in _LIBRARIES.values()]
    before = values.get("LD_LIBRARY_PATH")
    values["LD_LIBRARY_PATH"] = ":".join(([before] if before else []) + folders)
    return values


def start_advice(path: str | bytes | os.PathLike[str]) -> str:
    """What to install so that the module can start, as `ka check` says it; empty when its loader is there."""
    try:
        with open(path, "rb") as file:
            machine, loader = _loader_of(file.read(4096))
    except (OSError, ValueError):
        return ""
    if machine not in _C_LIBRARIES or os.path.exists(loader):
        return ""
    word, packages = _C_LIBRARIES[machine]
    return f"install the {word} C library (Debian: {packages})"


def _loader_of(head: bytes) -> tuple[tuple[int, int], str]:
    """The machine that a program is for, and the loader that it asks for; ValueError when the first bytes do not say."""
    if head[:4] != b"\x7fELF" or head[5:6] != b"\1":
        raise ValueError("no program")
    wide = head[4] == 2

    def number(at: int, size: int) -> int:
        return int.from_bytes(head[at : at + size], "little")

    word = 8 if wide else 4
    headers = number(32 if wide else 28, word)
    size, count = number(54 if wide else 42, 2), number(56 if wide else 44, 2)
    for i in range(count):
        header = headers + i * size
        if number(header, 4) == _PT_INTERP:
            at = number(header + (8 if wide else 4), word)
            return (head[4], number(18, 2)), os.fsdecode(head[at : head.index(b"\0", at)])
    raise ValueError("it asks for no loader")
