# SPDX-License-Identifier: MIT
"""What every test of the package has: the modules that it calls, and the certainty that nothing is left after it.

    modules["tour"]             the path of a module of the machine's own word size
    modules["tour", 32]         of 32 bits, where they are built
    modules.bits                the word sizes that are built
    wait_until(condition)       waits for a state, up to a minute

The modules are those of examples/ (tour, adder, tables, ledger), tests/caller/modules/ (tasks: every way to die) and
modules/ here (exact, names, wrong_tables)."""

import ctypes
import gc
import os
import pathlib
import random
import sys
import time

import pytest

# Under the sanitizers: everything is many times slower, and what the tests start is built without them.
CHECKED = "KA_CHECKED" in os.environ
PYTHON = [sys.executable]  # the beginning of a command that runs another interpreter
if preloaded := os.environ.pop("LD_PRELOAD", None):
    PYTHON = ["env", f"LD_PRELOAD={preloaded}", sys.executable]
# The counts of scripts/test-bindings --full, and the seed of random operands.
FULL = "KA_FULL" in os.environ
SEED = int(os.environ.get("KA_SEED") or random.randrange(1 << 30))

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KA_BUILD", ROOT / "build"))
if not any(pathlib.Path(folder, "kahost").is_dir() for folder in sys.path if folder):
    sys.path.insert(0, str(BUILD / "python"))

PR_SET_CHILD_SUBREAPER = 36
CLONE_NEWUSER, CLONE_NEWIPC = 0x10000000, 0x08000000
# Processes of Python's own that stay until the interpreter ends.
STAYS = (b"multiprocessing.resource_tracker", b"multiprocessing.forkserver")


def settle_in():
    """Makes this process the parent of whatever its descendants leave, and gives it segments that no other test sees;
    says whether the system allows that."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")
    user, group = os.getuid(), os.getgid()
    if libc.unshare(CLONE_NEWIPC) == 0:
        return True
    if libc.unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0:
        for name, text in (("setgroups", "deny"), ("uid_map", f"{user} {user} 1"), ("gid_map", f"{group} {group} 1")):
            pathlib.Path(f"/proc/self/{name}").write_text(text)
        return True
    return False


SEES_NO_OTHERS = settle_in()


def wait_until(condition, seconds=60.0, what="the state"):
    """Waits until condition() is true, and returns what it gave; fails after a minute."""
    end = time.monotonic() + seconds
    pause = 0.0005
    while not (value := condition()):
        if time.monotonic() > end:
            pytest.fail(f"{what} did not come in {seconds} seconds")
        time.sleep(pause)
        pause = min(2 * pause, 0.05)
    return value


def pytest_terminal_summary(terminalreporter, exitstatus):
    if exitstatus != 0:
        terminalreporter.write_line(f"KA_SEED={SEED} draws the same random operands")


# ---- Modules ---------------------------------------------------------------------------------------------------------


class Modules:
    own = 8 * ctypes.sizeof(ctypes.c_void_p)

    def __init__(self):
        self.bits = [bits for bits in (self.own, 32) if (BUILD / f"tests/caller_modules/{bits}").is_dir()]
        self.bits = list(dict.fromkeys(self.bits))

    def __getitem__(self, key):
        name, bits = key if isinstance(key, tuple) else (key, self.own)
        folder = f"tests/caller_modules/{bits}"
        examples = BUILD / "examples" / ("" if bits == self.own else str(bits))
        for path in (examples / name, BUILD / folder / f"python_module_{name}", BUILD / folder / f"caller_module_{name}"):
            if path.is_file():
                return str(path)
        raise KeyError(f"no module {name} of {bits} bits is in {BUILD}")


MODULES = Modules()


def pytest_generate_tests(metafunc):
    """A test with the argument bits runs once for each word size of modules."""
    if "bits" in metafunc.fixturenames:
        metafunc.parametrize("bits", MODULES.bits[:1] if CHECKED else MODULES.bits)


@pytest.fixture(scope="session")
def modules():
    return MODULES


# ---- What is left ----------------------------------------------------------------------------------------------------


def children_of(pid):
    try:
        threads = os.listdir(f"/proc/{pid}/task")
        return [int(child) for thread in threads for child in pathlib.Path(f"/proc/{pid}/task/{thread}/children").read_text().split()]
    except (FileNotFoundError, ProcessLookupError):
        return []


def command_of(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/cmdline").read_bytes()
    except (FileNotFoundError, ProcessLookupError):
        return b""


def descendants(pid=None):
    """The ids of all processes under this one, those that stay left out."""
    found = []
    for child in children_of(os.getpid() if pid is None else pid):
        if not any(word in command_of(child) for word in STAYS):
            found.append(child)
        found += descendants(child)
    return found


def segments():
    """The ids of the System V segments of this process and its descendants; of this process alone where those of other
    tests are among them."""
    lines = [line.split() for line in pathlib.Path("/proc/sysvipc/shm").read_text().splitlines()[1:]]
    return [int(line[1]) for line in lines if SEES_NO_OTHERS or int(line[4]) == os.getpid()]


def take_leave_of(known):
    """Reaps the orphans that have come to this process; its own children are its own affair, unless they are the same."""
    for child in set(children_of(os.getpid())) - known:
        try:
            os.waitpid(child, os.WNOHANG)
        except ChildProcessError:
            pass


@pytest.fixture(autouse=True)
def nothing_is_left():
    """After each test no process and no segment is there that was not before it."""
    processes, blocks = set(descendants()), set(segments())
    yield
    gc.collect()

    def clean():
        take_leave_of(processes)
        return set(descendants()) <= processes and set(segments()) <= blocks

    end = time.monotonic() + 60
    while not clean():
        if time.monotonic() > end:
            left = {pid: command_of(pid).replace(b"\0", b" ") for pid in set(descendants()) - processes}
            pytest.fail(f"left after the test: processes {left}, segments {set(segments()) - blocks}")
        time.sleep(0.005)
