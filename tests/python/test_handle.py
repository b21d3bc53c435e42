# SPDX-License-Identifier: MIT
"""Modules and functions that were pickled: handles, which open a host of their own where they are called."""

import asyncio
import concurrent.futures
import gc
import inspect
import os
import pickle
import shutil
import sys
import threading

import kahost
import pytest
from conftest import BUILD, descendants, wait_until


@pytest.fixture
def folder(tmp_path, monkeypatch):
    """For copies of modules, which do not find libkahost.so by themselves."""
    monkeypatch.setenv("LD_LIBRARY_PATH", str(BUILD / "lib64"))
    return tmp_path


@pytest.fixture
def tour(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        yield m


def travelled(thing):
    for protocol in range(2, pickle.HIGHEST_PROTOCOL):
        pickle.loads(pickle.dumps(thing, protocol))
    return pickle.loads(pickle.dumps(thing))


def test_no_process_before_the_first_call(tour):
    before = set(descendants())
    m, total = travelled(tour), travelled(tour.total)
    assert set(descendants()) == before
    assert m.closed and m.pid is None
    assert total([1, 2]).sum == 3
    assert len(set(descendants()) - before) == 1
    assert m.total([3, 4]).sum == 7  # of the same thread and handle: the same host
    assert len(set(descendants()) - before) == 1
    assert m.pid != tour.pid
    m.close()
    assert set(descendants()) == before


def test_looks_like_the_function(tour):
    total = travelled(tour.total)
    assert (total.__name__, total.__doc__, total.prototypes) == (tour.total.__name__, tour.total.__doc__, tour.total.prototypes)
    assert inspect.signature(total) == inspect.signature(tour.total)
    assert total.raw([1, 2]) == tour.total.raw([1, 2])
    m = travelled(tour)
    assert list(m.functions) == list(tour.functions)
    assert m["total"] == m.total == total
    assert len({m["total"], m.total, total}) == 1
    assert m.path == os.path.abspath(tour.path)
    assert {"total", "scale", "close", "path"} <= set(dir(m))
    m.close()


def test_has_the_attributes_of_a_module(modules):
    """A function of such a name is an item."""
    with kahost.open(modules["names"], encoding="latin-1", deadline=60) as module:
        m = travelled(module)
    for name in dir(kahost.Module):
        assert not isinstance(getattr(m, name, None), type(m["close"])), name
    assert m.callback is None
    assert (m["close"]().number, m["callback"]().number, m["a b"]().number, m._x().number, getattr(m, "class")().number) == (0, 8, 2, 4, 1)
    assert set(m.functions) == set(module.functions)
    assert set(dir(m)) >= {name for name in dir(module) if not name.startswith("_")}
    m.close()
    assert m.closed


def test_what_is_no_function_is_no_attribute(tour):
    """Nor is a host opened to find that out."""
    m = travelled(tour)
    for name in ("nowhere", "_repr_html_", "__array__", "_host"):
        assert not hasattr(m, name)
    with pytest.raises(KeyError):
        m["nowhere"]
    for name in ("nowhere", "total", "pid", "close"):
        with pytest.raises(AttributeError):
            setattr(m, name, 1)
    assert m.closed


def test_attributes_are_set_for_calls(modules):
    with kahost.open(modules["tour"], deadline=1000) as tour:
        m = travelled(tour)
    assert (m.deadline, m.trace, m.callback) == (1000.0, 0, None)
    nap, ask = m.nap, m.ask
    m.callback = answer
    assert ask(41).answer == 42
    pid = m.pid
    m.trace = 4
    m.total([1])
    assert (m.pid, m.trace) == (pid, 4)
    wait_until(lambda: b"total" in m.stderr(), what="the trace")
    other = travelled(m)
    assert (other.callback, other.trace, other.deadline) == (answer, 4, 1000.0)
    m.trace, m.deadline = 0, 0.05
    with pytest.raises(kahost.DeadlineError):
        nap(100000)
    for name, value, error in (
        ("deadline", 0, kahost.ArgumentError),
        ("deadline", float("nan"), ValueError),
        ("trace", 7, kahost.ArgumentError),
        ("trace", "x", TypeError),
        ("callback", 5, TypeError),
    ):
        with pytest.raises(error):
            setattr(m, name, value)
    assert (m.deadline, m.trace, m.callback) == (0.05, 0, answer)
    m.close()


def test_a_module_travels_as_it_is_now(tour):
    tour.deadline, tour.trace = 0.05, 1
    m = travelled(tour)
    assert (m.deadline, m.trace) == (0.05, 1)
    with pytest.raises(kahost.DeadlineError):
        m.nap(100000)
    m.close()


def test_what_a_handle_does_with_the_host_of_its_thread(tour):
    m = travelled(tour)
    m.callback = answer
    view = m.scratch()
    pid = m.pid
    m.ask(5)
    assert int.from_bytes(view[:4], sys.byteorder) == answer(5)
    part = view[:2]
    with pytest.raises(BufferError):
        m.close()
    assert m.pid == pid  # it is still there
    part.release()
    m.restart()
    assert m.pid not in (None, pid)
    assert m.stderr() == b""
    assert m.total([1]).sum == 1
    m.close()
    with pytest.raises(ValueError):
        view[0]
    assert m.pid is None
    m.restart()  # or opens one
    assert m.pid is not None
    m.close()


def test_travels_again(tour):
    total = travelled(travelled(tour.total))
    assert total([1]).sum == 1
    assert travelled(travelled(tour)) == travelled(tour)
    travelled(tour).close()


def test_keeps_the_options(modules):
    with kahost.open(modules["tour"], deadline=60, reals="float", room=100, encoding="latin-1") as m:
        other = travelled(m)
        assert other.scale(2, [1, 2]).largest == 4.0
        assert isinstance(other.scale(2, [1, 2]).largest, float)
        assert other.greet("\xe9").greeting == "hello, \xe9"
        other.close()
        short = travelled(m.nap.options(deadline=0.05))
        with pytest.raises(kahost.DeadlineError):
            short(1000)
        other.close()


def answer(value):
    return value + 1


def test_the_call_back_travels(modules):
    with kahost.open(modules["tour"], callback=answer, deadline=60) as m:
        other = travelled(m)
        assert other.ask(41).answer == 42
        other.close()
    with kahost.open(modules["tour"], callback=lambda value: value) as m:
        with pytest.raises((pickle.PicklingError, AttributeError)):
            pickle.dumps(m)


def test_a_file_for_standard_error_does_not_travel(modules, tmp_path):
    with open(tmp_path / "errors", "wb") as file, kahost.open(modules["tour"], stderr=file) as m:
        with pytest.raises(TypeError):
            pickle.dumps(m)


def test_a_closed_module_travels(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        pass
    other = travelled(m)
    assert other.total([1]).sum == 1
    other.close()


def test_a_relative_path_is_made_absolute(modules, monkeypatch, tmp_path):
    monkeypatch.chdir(os.path.dirname(modules["tour"]))
    with kahost.open("./tour", deadline=60) as m:
        monkeypatch.chdir(tmp_path)
        other = travelled(m)
    assert other.total([1]).sum == 1
    other.close()


def test_a_relative_directory_is_made_absolute(modules, monkeypatch, tmp_path):
    (tmp_path / "inner").mkdir()
    monkeypatch.chdir(tmp_path)
    with kahost.open(modules["tour"], deadline=60, cwd="inner") as m:
        monkeypatch.chdir("/")
        other = travelled(m)
    assert other.total([1]).sum == 1
    assert os.readlink(f"/proc/{other.pid}/cwd") == str(tmp_path / "inner")
    other.close()


def test_another_file_is_an_error_and_not_another_result(modules, folder):
    path = folder / "module"
    shutil.copy(modules["tour"], path)
    with kahost.open(path, deadline=60) as m:
        early, late = travelled(m), pickle.dumps(m)
        assert early.total([1]).sum == 1
        shutil.copy(modules["tasks"], folder / "other")
        os.replace(folder / "other", path)
        assert m.total([1]).sum == 1  # its process is that of the first file
        for other in (early, pickle.loads(late), travelled(m)):
            with pytest.raises(kahost.StartError, match="another file"):
                other.total([1])
            other.close()
    os.remove(path)
    with pytest.raises(kahost.StartError):
        pickle.loads(late).total([1])


def test_the_same_module_in_a_new_file_will_do(modules, folder):
    path = folder / "module"
    shutil.copy(modules["tour"], path)
    with kahost.open(path, deadline=60) as m:
        other = travelled(m)
    os.remove(path)
    shutil.copy(modules["tour"], path)
    assert other.total([1]).sum == 1
    other.close()


def strip_build_id(source, target):
    """The same program without its build id, as some linkers make it."""
    import subprocess

    subprocess.run(["objcopy", "--remove-section", ".note.gnu.build-id", source, target], check=True)


def test_without_a_build_id_the_contents_count(modules, folder):
    path = folder / "module"
    strip_build_id(modules["tour"], path)
    with kahost.open(path, deadline=60) as m:
        other = travelled(m)
        assert other.total([1]).sum == 1
        longer = folder / "longer"
        longer.write_bytes(path.read_bytes() + b"\0")
        longer.chmod(0o755)
        os.replace(longer, path)
        with pytest.raises(kahost.StartError, match="sha256"):
            other.total([1])
        other.close()


def test_of_32_bits(modules, bits):
    with kahost.open(modules["tour", bits], deadline=60) as m:
        other = travelled(m)
        assert other.total([1]).sum == 1
        other.close()


def test_a_host_that_died_starts_again(tour):
    m = travelled(tour)
    with pytest.raises(kahost.DiedError):
        m.crash()
    assert m.total([1]).sum == 1
    m.close()


def test_one_host_a_thread_which_ends_with_it(tour):
    m = travelled(tour)
    before = set(descendants())
    pids, meet = [], threading.Barrier(5)

    def work():
        assert m.total([1]).sum == 1
        assert m.total([2]).sum == 2
        pids.append(m.pid)
        meet.wait()
        meet.wait()

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    meet.wait()
    assert len(set(pids)) == 4
    assert set(pids) <= set(descendants()) - before
    meet.wait()
    for thread in threads:
        thread.join()
    wait_until(lambda: not set(pids) & set(descendants()), what="the end of the hosts")


def test_cancel_ends_calls_in_any_thread(tour):
    m = travelled(tour)
    assert m.cancel() is False
    with concurrent.futures.ThreadPoolExecutor(2) as threads:
        futures = [threads.submit(m.nap, 1000) for _ in range(2)]
        wait_until(lambda: [m.cancel(), all(future.done() for future in futures)][1])
        for future in futures:
            assert isinstance(future.exception(), kahost.Cancelled)


def test_cancel_ends_starts_in_any_thread(modules):
    """Of hosts that would never be ready."""
    with kahost.open(modules["tasks"], deadline=1000, grace=0, env={**os.environ, "KA_TEST_SETUP": "naps1"}) as tasks:
        restore, (path, identity, options, names) = tasks.__reduce__()
    options["env"]["KA_TEST_SETUP"] = "naps1000000"
    m = restore(path, identity, options, names)
    with concurrent.futures.ThreadPoolExecutor(1) as threads:
        future = threads.submit(m.add, 1, 2)
        wait_until(lambda: [m.cancel(), future.done()][1])
        assert isinstance(future.exception(), kahost.Cancelled)


def test_handles_with_other_options_are_other_hosts(modules):
    with kahost.open(modules["tour"], deadline=60) as one, kahost.open(modules["tour"], deadline=61) as two:
        a, b = travelled(one), travelled(two)
        assert a != b
        assert (a.total([1]).sum, b.total([1]).sum) == (1, 1)
        assert a.pid != b.pid
        a.close()
        b.close()


def test_awaited(tour):
    total = travelled(tour.total)
    assert asyncio.run(total.aio([1, 2])).sum == 3
    travelled(tour).close()


def test_wrapped_arguments_travel():
    for value in (kahost.Text("x", room=5), kahost.Text([b"y"]), kahost.Ref(7), kahost.InPlace([1])):
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            assert repr(pickle.loads(pickle.dumps(value, protocol))) == repr(value)


def test_results_and_errors_travel(modules):
    with kahost.open(modules["tour"], deadline=60) as m:
        result = m.scale(2.5, [1, 2])
        assert travelled(result) == result
        assert travelled(result).largest == result.largest
        assert type(travelled(result)).__name__ == "scale"
        with pytest.raises(kahost.DiedError) as died:
            m.crash()
        other = travelled(died.value)
        assert (str(other), other.retry, other.signal, other.function) == (str(died.value), "unsure", 6, "crash")
        assert other.report == died.value.report
        gc.collect()
