# SPDX-License-Identifier: MIT
"""The tests' own reader of records, against known bytes; and their look at what is left."""

import ctypes
import os
import subprocess
import sys
from decimal import Decimal

import pytest

import block
import conftest

RECORDS = [
    ("0", "0000 01 00"),
    ("1", "0100 01 01 01"),
    ("-1", "0100 00 01 01"),
    ("12.5", "0100 01 02 0c 32"),
    ("0.1", "0000 01 01 0a"),
    ("0.01", "0000 01 01 01"),
    ("100", "0200 01 01 01"),
    ("1234567890123456", "0800 01 08 0c 22 38 4e 5a 0c 22 38"),
    ("1E-130", "c0ff 01 01 01"),
]


@pytest.mark.parametrize("text, record", RECORDS)
def test_a_record_is_read_and_written(text, record):
    expected = bytes.fromhex(record).ljust(12, b"\0")
    assert block.record(Decimal(text)) == expected
    assert block.real(expected) == Decimal(text)


def test_a_null_record_is_none():
    assert block.real(block.record(None)) is None


def test_what_is_left_is_seen():
    """A process whose parent is gone, and a segment."""
    before = set(conftest.descendants()), set(conftest.segments())
    orphan = int(subprocess.check_output([sys.executable, "-c", "import subprocess as s; print(s.Popen(['sleep', '60'], stdout=2).pid)"]))
    libc = ctypes.CDLL(None)
    segment = libc.shmget(0, 4096, 0o600)
    assert set(conftest.descendants()) - before[0] == {orphan}
    assert set(conftest.segments()) - before[1] == {segment}
    os.kill(orphan, 9)
    libc.shmctl(segment, 0, None)
