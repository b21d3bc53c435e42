# SPDX-License-Identifier: MIT
"""The package, the stubs that it makes and the examples of the guide, as a type checker sees them."""

import re
import subprocess
import sys

import pytest

import kahost
from conftest import BUILD, MODULES, ROOT

STUBBED = ("tour", "names", "exact", "wrong_tables", "adder", "ledger", "tables")

# Each line with what the checker says of it: the type that it reveals, or the kind of its error; nothing for a good one.
USE = '''
import array
from decimal import Decimal
from fractions import Fraction

import kahost
from tour_types import Tour
from names_types import PythonModuleNames

with kahost.open("tour", stubs=Tour, deadline=5) as m:
    reveal_type(m.scale(2.5, [1, Decimal("2.5")]).largest)  # "_decimal.Decimal"
    reveal_type(m.scale(2.5, [1]).values)  # "builtins.list[_decimal.Decimal]"
    reveal_type(m.total([1, 2]).sum)  # "builtins.int"
    reveal_type(m["total"]([1, 2]).sum)  # "builtins.int"
    reveal_type(m.total.options(deadline=0.2)([1]).sum)  # "builtins.int"
    reveal_type(m.greet("x").greeting)  # "builtins.str"
    reveal_type(m.join(["a"], "", 1, b"b").more)  # "builtins.tuple[Any, ...]"
    reveal_type(m.total.raw([1]).code)  # "builtins.int"
    reveal_type(m.pid)  # "Union[builtins.int, None]"
    m.scale(Fraction(1, 2), (1, 2.5), kahost.rounded(Decimal(1)))
    m.total(array.array("i", [1]))
    m.total(kahost.InPlace(array.array("i", [1])))
    m.greet(b"x", kahost.Text("", room=3))
    m.scale("2.5", [1])  # arg-type
    m.total([1.5])  # list-item
    m.total([1], "x")  # arg-type
    m.total()  # call-arg
    m.total(values=[1], summ=1)  # call-arg
    m.total([1]).nothing  # attr-defined
    m.deadline = 3
    m.callback = lambda value: value + 1

async def later(m: Tour) -> int:
    reveal_type(await m.total.aio([1]))  # "Tuple[builtins.list[builtins.int], builtins.int, fallback=tour_types.Tour_total.Results]"
    return (await m.total.aio([1])).sum

with kahost.open("names", stubs=PythonModuleNames) as n:
    reveal_type(n["close"]().number)  # "builtins.int"
    reveal_type(n["a b"]().number)  # "builtins.int"
    reveal_type(n.fields().count)  # "builtins.int"
    n.close()

with kahost.open("plain") as p:
    p.anything(1, two=3)
    p.callback = "no"  # assignment
    kahost.open("plain", deadlin=3)  # call-overload
    reveal_type(p.functions)  # "typing.Mapping[builtins.str, kahost._function.Function]"

try:
    p.anything()
except kahost.DiedError as error:
    reveal_type(error.signal)  # "Union[signal.Signals, None]"
    reveal_type(error.report)  # "builtins.str"
except kahost.StartError as start:
    reveal_type(start.exit_status)  # "Union[builtins.int, None]"
reveal_type(kahost.read("x").functions["f"].prototypes[0].kind)  # "builtins.str"
'''


def stub(name, *options):
    done = subprocess.run([sys.executable, "-m", "kahost", "stub", *options, MODULES[name]], stdout=subprocess.PIPE, check=True, text=True)
    return done.stdout


def checked(folder, *words):
    """What mypy says, line by line, and whether it is content."""
    command = [sys.executable, "-m", "mypy", "--strict", "--no-error-summary", f"--cache-dir={BUILD}/tests/python/mypy", *words]
    environment = {"MYPYPATH": f"{BUILD}/python:{folder}", "PATH": "/usr/bin:/bin"}
    done = subprocess.run(command, cwd=folder, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return done.stdout.splitlines(), done.returncode == 0


def said_of(line, said):
    """The type that is revealed, or the kind of the error."""
    found = [re.search(r'Revealed type is (".*")|error: .*\[([a-z-]+)\]$', each) for each in said if each.startswith(f"use.py:{line}:")]
    return [match[1] or match[2] for match in found if match]


def test_the_package_and_what_is_written_with_it_are_well_typed(tmp_path):
    for name in STUBBED:
        (tmp_path / f"{name}_types.py").write_text(stub(name))
    (tmp_path / "use.py").write_text(USE)
    files = re.findall(r"^`(\w+)\.py`:\n\n```python\n(.*?)^```", (ROOT / "docs/python.md").read_text(), re.M | re.S)
    files = {name: text for name, text in files if "distributed" not in text}  # whose types take half a minute to read
    assert len(files) >= 5
    for name, text in files.items():
        (tmp_path / f"{name}.py").write_text(text)
    (tmp_path / "tour.py").write_text(stub("tour"))
    guide = [sys.executable, ROOT / "tools/lint/document", "session", ROOT / "docs/python.md"]
    (tmp_path / "guide.py").write_text(subprocess.run(guide, stdout=subprocess.PIPE, check=True, text=True).stdout)
    modules = ["use", "guide", *files, *(f"{name}_types" for name in STUBBED)]
    said, _ = checked(tmp_path, "-p", "kahost", *(word for name in modules for word in ("-m", name)))
    assert [line for line in said if not line.startswith("use.py:") and " note: " not in line] == []
    for number, line in enumerate(USE.splitlines(), 1):
        _, _, expected = line.partition("  # ")
        assert said_of(number, said) == ([expected] if expected else []), line


@pytest.mark.parametrize("name", STUBBED)
def test_a_stub_is_python(name):
    space = {"__name__": f"{name}_types"}
    exec(compile(stub(name), name, "exec"), space)
    classes = [value for value in space.values() if isinstance(value, type) and issubclass(value, kahost.Module)]
    assert len(classes) == 1
    with kahost.open(MODULES[name], stubs=classes[0], deadline=60) as m:
        assert set(classes[0].__annotations__) <= set(m.functions)


def test_a_stub_says_floats_where_they_are_asked_for():
    assert "largest: float" in stub("tour", "--float") and "largest: Decimal" in stub("tour")


def test_what_is_no_module_has_no_stub(tmp_path):
    done = subprocess.run([sys.executable, "-m", "kahost", "stub", tmp_path / "none"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert done.returncode == 1 and done.stdout == "" and "none" in done.stderr
