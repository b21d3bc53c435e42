# SPDX-License-Identifier: MIT
"""Arguments as the module exact shows them: what the block held, read here from the bytes alone."""

import collections
import decimal
import struct

INTEGER, REAL, STRING = 1, 2, 3
Shown = collections.namedtuple("Shown", "type ref maxlen elsz elcnt elements")


def read(data):
    """The arguments that were shown, each with the bytes of its elements."""
    shown = []
    while data:
        type_, ref, maxlen, elsz, elcnt = struct.unpack_from("<5i", data)
        size = 4 * elsz
        end = 20 + size * elcnt
        if len(data) < end:
            raise ValueError(f"{len(data)} bytes where {end} should be")
        elements = [data[at : at + size] for at in range(20, end, size)]
        shown.append(Shown(type_, ref, maxlen, elsz, elcnt, elements))
        data = data[end:]
    return shown


def integer(record):
    return struct.unpack("<i", record)[0]


def string(record):
    (length,) = struct.unpack_from("<i", record)
    return record[4 : 4 + length]


def real(record):
    """A Decimal of the digits as they are, None for null: 0.d1 d2 ... dn * 100^exponent, each d two decimals."""
    exponent, sign, count = struct.unpack_from("<hBb", record)
    if sign == 255:
        return None
    digits = "".join(f"{digit:02}" for digit in record[4 : 4 + count])
    value = decimal.Decimal(f"0.{digits or '0'}E{2 * exponent}")
    return value if sign == 1 else -value


def record(value):
    """The 12 bytes of a Decimal, in normal form; of None, null."""
    if value is None:
        return struct.pack("<hBb8x", 0, 255, 0)
    sign, digits, exponent = value.as_tuple()
    text = "".join(map(str, digits)).lstrip("0")
    if not text:
        return struct.pack("<hBb8x", 0, 1, 0)
    if exponent % 2:
        text, exponent = text + "0", exponent - 1
    if len(text) % 2:
        text = "0" + text
    pairs = [int(text[i : i + 2]) for i in range(0, len(text), 2)]
    power = exponent // 2 + len(pairs)
    while not pairs[-1]:
        pairs.pop()
    if len(pairs) > 8:
        raise ValueError(f"{value} has more digits than a REAL")
    return struct.pack("<hBb", power, 0 if sign else 1, len(pairs)) + bytes(pairs).ljust(8, b"\0")


def values(shown):
    """What an argument's elements mean."""
    return [{INTEGER: integer, REAL: real, STRING: string}[shown.type](element) for element in shown.elements]
