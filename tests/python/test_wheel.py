# SPDX-License-Identifier: MIT
"""The wheel: what is in it, what it needs of a system, and that it works where nothing else of kahost is."""

import glob
import os
import pathlib
import re
import shutil
import subprocess
import sys
import zipfile

import pytest

from conftest import BUILD, MODULES, ROOT

# What manylinux lets a wheel use of the system it is installed in, and the newest versions of it at glibc 2.34; and the
# 32-bit C library, without which no 32-bit module could run.
SYSTEM = {"libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2", "ld-linux.so.2", "libgcc_s.so.1", "libstdc++.so.6"}
NEWEST = {"GLIBC": (2, 34), "GLIBCXX": (3, 4, 29), "CXXABI": (1, 3, 13), "GCC": (12, 0, 0)}


@pytest.fixture(scope="module")
def wheel(tmp_path_factory):
    folder = tmp_path_factory.mktemp("dist")
    subprocess.run([sys.executable, ROOT / "python/make_wheel", BUILD, folder], check=True, stdout=subprocess.PIPE)
    (path,) = folder.iterdir()
    return path


@pytest.fixture(scope="module")
def unpacked(wheel, tmp_path_factory):
    folder = tmp_path_factory.mktemp("unpacked")
    with zipfile.ZipFile(wheel) as archive:
        archive.extractall(folder)
    return folder


def elf_files(folder):
    return [path for path in sorted(folder.rglob("*")) if path.is_file() and path.read_bytes()[:4] == b"\x7fELF"]


def needs(path):
    """The libraries that an ELF file needs, and the versions of symbols in them."""
    shown = subprocess.run(["readelf", "-W", "-d", "-V", path], check=True, stdout=subprocess.PIPE, text=True, env={"LC_ALL": "C"}).stdout
    libraries = set(re.findall(r"\(NEEDED\) +Shared library: \[(.*)\]", shown))
    needed = shown.partition("Version needs section")[2]
    versions = {(name, tuple(map(int, number.split(".")))) for name, number in re.findall(r"Name: ([A-Z]+)_([\d.]+) ", needed)}
    return libraries, versions


def test_its_elf_files_are_those_of_each_word_size(unpacked):
    found = {str(path.relative_to(unpacked / "kahost")): path.read_bytes()[4] for path in elf_files(unpacked)}
    expected = {"_kahost.abi3.so": 2, "bin/ka": 2, "examples/tour": 2, "lib64/libkahost.so.1": 2, "lib/libkahost.so.1": 1}
    assert found == {name: word for name, word in expected.items() if word == 2 or 32 in MODULES.bits}


def test_the_platform_in_its_name_follows_from_what_its_elf_files_need(wheel, unpacked):
    newest = {}
    for path in elf_files(unpacked):
        libraries, versions = needs(path)
        own = {"libkahost.so.1"} if path.name == "tour" else set()
        assert libraries <= SYSTEM | own, path
        assert own <= libraries, path
        for name, version in versions:
            newest[name] = max(newest.get(name, ()), version)
    newest.pop("KAHOST", None)
    assert set(newest) <= set(NEWEST)
    for name, version in newest.items():
        assert name == "GLIBC" or version <= NEWEST[name]
    version = re.search(r"^project\(kahost VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]
    glibc = newest["GLIBC"]
    assert wheel.name == f"kahost-{version}-cp311-abi3-manylinux_{glibc[0]}_{glibc[1]}_x86_64.whl"
    if "bookworm" in pathlib.Path("/etc/os-release").read_text():
        assert glibc == NEWEST["GLIBC"]


def test_the_extension_shows_one_symbol(unpacked):
    shown = subprocess.run(["nm", "-D", "--defined-only", unpacked / "kahost/_kahost.abi3.so"], check=True, stdout=subprocess.PIPE, text=True)
    assert [line.split()[2] for line in shown.stdout.splitlines()] == ["PyInit__kahost"]


def test_all_headers_are_in_it(unpacked):
    def headers(folder):
        return {str(path.relative_to(folder)) for path in folder.rglob("*.h*")}

    assert headers(unpacked / "kahost/include") == headers(BUILD / "include")


MODULE = """#include <ka/dll_module.h>
t_DLL_PROTO KaArgList[] = {{"number", KA_INT_BY_VALUE, 0}, {"doubled", KA_INT_BY_REFERENCE, 0}};
t_DLL_FUNC KaFuncList[] = {{"twice", 0, 2, 0}, {0, 0, 0, 0}};
int32_t KaCall(int32_t index, void **argv)
{
    *(int32_t *)argv[1] = 2 * *(int32_t *)argv[0];
    return index;
}
"""

# What a user does in the new environment; prints what is compared, then all files of kahost that took part.
QUICK_START = """
import os, subprocess, sys
from decimal import Decimal
import kahost

files = set()
def look(pid):
    files.update(line.split(maxsplit=5)[5].strip() for line in open(f"/proc/{pid}/maps") if "/" in line)

with kahost.open(os.path.join(kahost.example_dir(), "tour"), deadline=60) as m:
    print(m.scale(2.5, [1, Decimal("2.5")]))
    look(m.pid)
for bits in sys.argv[1:]:
    command = [sys.executable, "-m", "kahost", "build", "mymodule.c", "-o", f"mymodule{bits}", *(["-m32"] if bits == "32" else [])]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    with kahost.open(f"./mymodule{bits}", deadline=60) as m:
        print(bits, m.twice(21))
        look(m.pid)
look("self")
ka = os.path.join(os.path.dirname(sys.executable), "ka")
print(subprocess.run([ka, "call", f"./mymodule{sys.argv[1]}", "twice", "4", "0"], check=True, stdout=subprocess.PIPE, text=True).stdout, end="")
print(subprocess.run([ka, "--prefix"], check=True, stdout=subprocess.PIPE, text=True).stdout, end="")
print("\\n".join(sorted(path for path in files if "kahost" in path)))
"""


def out_of_sight():
    """The beginning of a command without a network, for which the source tree is empty; nothing where the system forbids it."""
    rights = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    hide = ["unshare", *rights, "--mount", "--net", "sh", "-c", 'mount -t tmpfs none "$0" && exec "$@"', str(ROOT)]
    return hide if subprocess.run([*hide, "true"], stderr=subprocess.DEVNULL).returncode == 0 else []


def test_it_works_in_an_empty_environment_without_the_source_tree(wheel, tmp_path):
    hide = out_of_sight()
    venv = tmp_path / "venv"
    pip = glob.glob("/usr/share/python-wheels/pip-*.whl")
    assert pip, "python3-pip-whl is not installed"
    shutil.copy(wheel, tmp_path)
    (tmp_path / "mymodule.c").write_text(MODULE)
    (tmp_path / "quick_start.py").write_text(QUICK_START)
    environment = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path), "LC_ALL": "C.UTF-8"}

    def run(*command):
        done = subprocess.run([*hide, *command], cwd=tmp_path, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        assert done.returncode == 0, done.stdout
        return done.stdout.splitlines()

    run(sys.executable, "-m", "venv", "--without-pip", venv)
    python = venv / "bin/python"
    run(python, f"{pip[0]}/pip", "install", "--quiet", "--no-index", "--disable-pip-version-check", wheel.name)
    if hide:
        assert run("ls", ROOT) == []
    bits = [str(bits) for bits in MODULES.bits]
    lines = run(python, "quick_start.py", *bits)
    package = next(venv.glob("lib/python3*/site-packages/kahost"))
    assert lines[0] == "scale(values=[Decimal('2.5'), Decimal('6.25')], largest=Decimal('6.25'))"
    assert lines[1 : 1 + len(bits)] == [f"{word} twice(doubled=42)" for word in bits]
    rest = lines[1 + len(bits) :]
    assert rest[0].split() == ["doubled", "=", "8"], rest
    assert rest[rest.index(str(package)) + 1 :] == sorted(
        [f"{package}/_kahost.abi3.so", f"{package}/examples/tour"] + [f"{package}/lib{'64' if word == '64' else ''}/libkahost.so.1" for word in bits]
    )
