# SPDX-License-Identifier: MIT
"""The end of a program that uses the package: in whatever state it ends, it ends as a program without the package does,
says nothing, and leaves no host."""

import os
import signal
import subprocess
import sys

import pytest
from conftest import FULL, wait_until

ROUNDS = 50 if FULL else 2
TOGETHER = 5

BEGIN = """
import atexit, builtins, os, signal, sys, threading, time
import kahost
TOUR = sys.argv[1]
def tell(*modules):
    print(*(m.pid for m in modules), flush=True)
"""

# name: (what the program does, how it ends)
PROGRAMS = {
    "open host": ("m = kahost.open(TOUR); m.total([1, 2]); tell(m)", 0),
    "host that was never called": ("m = kahost.open(TOUR); tell(m)", 0),
    "closed host": ("m = kahost.open(TOUR); tell(m); m.close()", 0),
    "waiting call": (
        """
m = kahost.open(TOUR)
pid = m.pid
threading.Thread(target=m.nap, args=(1000,), daemon=True).start()
while open(f"/proc/{pid}/syscall").read().split()[0] not in ("35", "230"): time.sleep(0.001)  # it sleeps
print(pid, flush=True)
""",
        0,
    ),
    "call-back running": (
        """
inside = threading.Event()
def answer(value):
    inside.set()
    while True: time.sleep(0.001)
m = kahost.open(TOUR, callback=answer)
threading.Thread(target=m.ask, args=(7,), daemon=True).start()
inside.wait()
tell(m)
""",
        0,
    ),
    "call-back that computes": (
        """
inside = threading.Event()
def answer(value):
    inside.set()
    while True: value = (value * 7 + 1) % 1000
m = kahost.open(TOUR, callback=answer)
threading.Thread(target=m.ask, args=(7,), daemon=True).start()
inside.wait()
tell(m)
""",
        0,
    ),
    "busy daemon threads": (
        """
def work(m, begun):
    while True:
        m.scale(2.5, [1, 2, 3])
        begun.set()
modules = [kahost.open(TOUR) for _ in range(3)]
tell(*modules)
for m in modules:
    begun = threading.Event()
    threading.Thread(target=work, args=(m, begun), daemon=True).start()
    begun.wait()
""",
        0,
    ),
    "busy daemon threads on one host": (
        """
def work(m, begun):
    while True:
        m.scale(2.5, [1, 2, 3])
        begun.set()
m = kahost.open(TOUR)
tell(m)
for _ in range(3):
    begun = threading.Event()
    threading.Thread(target=work, args=(m, begun), daemon=True).start()
    begun.wait()
""",
        0,
    ),
    "pool with work": (
        """
pool = kahost.Pool(TOUR, hosts=2)
pool.submit(tell).result()
futures = [pool.submit("total", list(range(100))) for _ in range(200)]
""",
        0,
    ),
    "handles in threads": (
        """
import pickle
m = pickle.loads(pickle.dumps(kahost.open(TOUR)))
m.total([1])
def work(done):
    m.total([1])
    print(m.pid, flush=True)
    done.set()
    time.sleep(1000)
for _ in range(2):
    done = threading.Event()
    threading.Thread(target=work, args=(done,), daemon=True).start()
    done.wait()
tell(m)
""",
        0,
    ),
    "awaited call": (
        """
import asyncio
m = kahost.open(TOUR)
pid = m.pid
loop = asyncio.new_event_loop()
task = loop.create_task(m.nap.aio(1000))
async def sleeps():
    while open(f"/proc/{pid}/syscall").read().split()[0] not in ("35", "230"): await asyncio.sleep(0.001)
loop.run_until_complete(sleeps())
print(pid, flush=True)
task._log_destroy_pending = False
""",
        0,
    ),
    "loop in a daemon thread": (
        """
import asyncio
m = kahost.open(TOUR)
begun = threading.Event()
async def main():
    while True:
        await m.total.aio([1, 2])
        begun.set()
threading.Thread(target=asyncio.run, args=(main(),), daemon=True).start()
begun.wait()
tell(m)
""",
        0,
    ),
    "module in a cycle": ("m = kahost.open(TOUR); tell(m); cycle = [m]; cycle.append(cycle); del m, cycle", 0),
    "module in a cycle with its call-back": (
        "m = kahost.open(TOUR); tell(m); m.callback = lambda value, m=m: 1; m.ask(7)",
        0,
    ),
    "module in builtins": ("builtins.m = kahost.open(TOUR); m.total([1]); tell(m)", 0),
    "function in builtins": ("m = kahost.open(TOUR); builtins.f = m.total; f([1]); tell(m); del m", 0),
    "sys.exit": ("m = kahost.open(TOUR); tell(m); sys.exit(3)", 3),
    "sys.exit in a call-back": (
        "m = kahost.open(TOUR, callback=lambda value: sys.exit(5)); tell(m); m.ask(7)",
        5,
    ),
    "os._exit": ("m = kahost.open(TOUR); tell(m); os._exit(4)", 4),
    "SIGKILL": ("m = kahost.open(TOUR); tell(m); os.kill(os.getpid(), signal.SIGKILL)", -signal.SIGKILL),
    "SIGTERM": ("m = kahost.open(TOUR); tell(m); os.kill(os.getpid(), signal.SIGTERM); time.sleep(100)", -signal.SIGTERM),
    "atexit that calls": (
        """
m = kahost.open(TOUR)
tell(m)
def at_the_end():
    assert m.total([1, 2]).sum == 3
atexit.register(at_the_end)
""",
        0,
    ),
    "atexit from before the package": ("", 0),  # see below
    "atexit that opens": (
        """
def at_the_end():
    with kahost.open(TOUR) as m:
        assert m.total([1, 2]).sum == 3
atexit.register(at_the_end)
""",
        0,
    ),
    "atexit beside a waiting call": (
        """
m, other = kahost.open(TOUR), kahost.open(TOUR)
tell(m, other)
threading.Thread(target=other.nap, args=(1000,), daemon=True).start()
atexit.register(lambda: m.total([1, 2]))
""",
        0,
    ),
    "thread that is no daemon": (
        """
m = kahost.open(TOUR)
tell(m)
def late():
    while threading.main_thread().is_alive(): time.sleep(0.001)
    assert m.total([1, 2]).sum == 3
threading.Thread(target=late).start()
""",
        0,
    ),
    "views of the scratch area": ("m = kahost.open(TOUR); tell(m); view = m.scratch(); part = view[1:]", 0),
}
FIRST = """
import atexit
held = []
def at_the_end():
    assert held[0].total([1, 2]).sum == 3
atexit.register(at_the_end)
"""


def lives(pid):
    """Whether the process is there, and not only waited for."""
    try:
        with open(f"/proc/{pid}/stat", encoding="latin-1") as file:
            return file.read().rsplit(")", 1)[1].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False


def program(name):
    if name == "atexit from before the package":
        return FIRST + BEGIN + "held.append(kahost.open(TOUR)); tell(held[0])"
    return BEGIN + PROGRAMS[name][0]


@pytest.mark.parametrize("name", PROGRAMS)
def test_ends_quietly_and_leaves_no_host(modules, name):
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(folder for folder in sys.path if folder)}
    for begun in range(0, ROUNDS, TOGETHER):
        running = [start(program(name), modules["tour"], environment) for _ in range(min(TOGETHER, ROUNDS - begun))]
        for process in running:
            told, said = process.communicate(timeout=120)
            assert (process.returncode, said) == (PROGRAMS[name][1], "")
            wait_until(lambda: not any(lives(pid) for pid in told.split()), what=f"the end of the hosts {told}")  # noqa: B023


def start(text, module, environment):
    return subprocess.Popen(
        [sys.executable, "-X", "faulthandler", "-c", text, module],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        env=environment,
    )
