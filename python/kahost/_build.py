# SPDX-License-Identifier: MIT
"""python -m kahost build: compiles a module against the headers and the library that come with the package."""

from __future__ import annotations

import os
import shlex
import subprocess
import sys

from . import _paths

USAGE = """usage: python -m kahost build SOURCE... [-m32] [-o MODULE] [COMPILER-OPTION...]

Compiles a function module; without -o it is named after its first source. The compiler is CC (cc), for C++ CXX (c++)."""
_CPP = (".cpp", ".cc", ".cxx")
_FLAGS_32 = ["-msse2", "-mfpmath=sse"]  # doubles are computed as in 64-bit programs


def compiler_command(arguments: list[str]) -> list[str]:
    """The command that builds a module of these words of the command line."""
    sources = [word for word in arguments if word.endswith((".c", *_CPP)) and not word.startswith("-")]
    if not sources:
        raise ValueError("no source: a file that ends in .c, .cpp, .cc or .cxx")
    is_cpp = any(source.endswith(_CPP) for source in sources)
    compiler = shlex.split(os.environ.get("CXX", "c++") if is_cpp else os.environ.get("CC", "cc"))
    narrow = "-m32" in arguments
    libraries = _paths.library_dir(32 if narrow else 64)
    output = [] if "-o" in arguments else ["-o", os.path.splitext(os.path.basename(sources[0]))[0]]
    flags = _FLAGS_32 if narrow else []
    return [*compiler, *flags, f"-I{_paths.include_dir()}", *arguments, *output, f"-L{libraries}", "-lkahost"]


def main(arguments: list[str]) -> int:
    """Runs the compiler, whose exit status is returned; shows what it runs."""
    if not arguments or "--help" in arguments:
        print(USAGE)
        return 0 if arguments else 2
    try:
        command = compiler_command(arguments)
        print(shlex.join(command), flush=True)
        return subprocess.run(command).returncode
    except (OSError, ValueError) as error:
        print(f"python -m kahost build: {error}", file=sys.stderr)
        return 2
