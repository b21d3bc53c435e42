# SPDX-License-Identifier: MIT
"""python -m kahost: what goes with the package on a command line."""

from __future__ import annotations

import os
import sys

from . import _paths

USAGE = """usage: python -m kahost COMMAND [ARGUMENT...]

  stub MODULE       prints type stubs, made from the module's tables
  build SOURCE...   compiles a module against the headers and the library of this package
  ka ...            runs the command ka of this package
  paths             prints where headers, libraries and examples are

python -m kahost COMMAND --help says more of each."""


def run_ka(arguments: list[str] | None = None) -> int:
    """Becomes the command ka; modules that it starts find the library of this package."""
    command = _paths.command()
    words = sys.argv[1:] if arguments is None else arguments
    try:
        os.execve(command, ["ka", *words], dict(_paths.host_environment() or os.environ))
    except OSError as error:
        print(f"{command}: {error.strerror}", file=sys.stderr)
        return 127


def _paths_command(arguments: list[str]) -> int:
    print(f"include   {_paths.include_dir()}")
    for bits in (64, 32):
        try:
            print(f"library   {_paths.library_dir(bits)}")
        except ValueError:
            pass
    print(f"examples  {_paths.example_dir()}")
    return 0


def main(arguments: list[str]) -> int:
    name, rest = (arguments[0], arguments[1:]) if arguments else ("", [])
    if name == "stub":
        from . import _stub

        return _stub.main(rest)
    if name == "build":
        from . import _build

        return _build.main(rest)
    if name == "ka":
        return run_ka(rest)
    if name == "paths":
        return _paths_command(rest)
    print(USAGE, file=sys.stdout if name in ("--help", "-h") else sys.stderr)
    return 0 if name in ("--help", "-h") else 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
