# SPDX-License-Identifier: MIT
"""python -m kahost: modules that it builds, and what it says."""

import os
import subprocess
import sys
from decimal import Decimal

import pytest

import kahost
from conftest import BUILD, MODULES

IN_C = """#include <ka/module.h>
static int32_t twice(int32_t number, int32_t *result) { *result = 2 * number; return 0; }
#define FUNCTIONS(F) F(twice, (int32, number), (int32_ref, result))
KA_MODULE(FUNCTIONS)
"""
IN_CPP = """#include <ka/module.hpp>
static double half(double number) { return number / 2; }
KA_MODULE(KA_FN(half, "number", ka::result("result")))
"""


def run(folder, *words, **environment):
    command = [sys.executable, "-m", "kahost", *map(str, words)]
    return subprocess.run(command, cwd=folder, env={**os.environ, **environment}, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def rpath(bits):
    """Outside a wheel a module must know where its library is."""
    return f"-Wl,-rpath,{kahost.library_dir(bits)}"


def test_modules_in_c_and_cpp_for_each_word_size(tmp_path, bits):
    narrow = ["-m32"] if bits != MODULES.own else []
    (tmp_path / "one.c").write_text(IN_C)
    (tmp_path / "two.cpp").write_text(IN_CPP)
    assert run(tmp_path, "build", "one.c", *narrow, rpath(bits)).returncode == 0
    assert run(tmp_path, "build", "two.cpp", "-std=c++17", *narrow, rpath(bits), "-o", "other").returncode == 0
    for name in ("one", "other"):
        assert (tmp_path / name).read_bytes()[4] == {32: 1, 64: 2}[bits]
    with kahost.open(tmp_path / "one", deadline=60) as one, kahost.open(tmp_path / "other", deadline=60) as other:
        assert one.twice(21).result == 42
        assert other.half(0.5).result == Decimal("0.25")


def test_the_compiler_is_the_one_that_the_environment_names(tmp_path):
    (tmp_path / "one.c").write_text(IN_C)
    done = run(tmp_path, "build", "one.c", CC="gcc -Wall")
    assert done.returncode == 0 and done.stdout.startswith("gcc -Wall ")
    done = run(tmp_path, "build", "one.c", CC="/nowhere/cc")
    assert done.returncode == 2 and "/nowhere/cc" in done.stderr


def test_what_cannot_be_built(tmp_path):
    (tmp_path / "wrong.c").write_text("this is no C\n")
    assert run(tmp_path, "build", "wrong.c").returncode == 1
    done = run(tmp_path, "build", "notes.txt")
    assert done.returncode == 2 and "no source" in done.stderr
    assert run(tmp_path, "build").returncode == 2


def test_the_folders_are_where_it_says(tmp_path):
    lines = dict(line.split(maxsplit=1) for line in run(tmp_path, "paths").stdout.splitlines() if not line.startswith("library"))
    assert os.path.exists(f"{lines['include']}/ka/module.h") and os.path.exists(f"{lines['examples']}/tour")
    assert (lines["include"], lines["examples"]) == (kahost.include_dir(), kahost.example_dir())
    for bits in MODULES.bits:
        assert os.path.exists(f"{kahost.library_dir(bits)}/libkahost.so")
    with pytest.raises(ValueError):
        kahost.library_dir(16)


def test_the_command_ka_gets_its_arguments_and_gives_its_status(tmp_path):
    done = run(tmp_path, "ka", "call", MODULES["adder"], "add", "2", "40", "0")
    assert done.returncode == 0 and done.stdout.splitlines()[0] == "sum = 42"
    same = subprocess.run([BUILD / "bin/ka", "call", MODULES["adder"], "nowhere"], stderr=subprocess.PIPE, text=True)
    done = run(tmp_path, "ka", "call", MODULES["adder"], "nowhere")
    assert (done.returncode, done.stderr) == (same.returncode, same.stderr) and done.returncode != 0


def test_usage(tmp_path):
    done = run(tmp_path, "--help")
    assert done.returncode == 0 and done.stdout.startswith("usage: python -m kahost")
    for words in ((), ("nothing",)):
        done = run(tmp_path, *words)
        assert done.returncode == 2 and done.stderr.startswith("usage: python -m kahost")
    for name in ("stub", "build"):
        assert run(tmp_path, name, "--help").stdout.startswith(f"usage: python -m kahost {name}")
