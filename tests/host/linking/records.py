# SPDX-License-Identifier: MIT
#
# For gdb: lists the records of the public headers that an object file knows, with the place and width of each field in bytes.
# usage: gdb -nx -batch -x records.py OBJECT
import re

import gdb


def fields_of(record, before, place):
    for field in record.fields():
        at = place + field.bitpos // 8
        print(f"    {before}{field.name} {at} {field.type.sizeof}")
        inner = field.type.strip_typedefs()
        if inner.code in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION) and inner.tag is None:
            fields_of(inner, before + field.name + ".", at)


for line in gdb.execute("info types .", to_string=True).splitlines():
    found = re.match(r"\d+: +struct ((t_|ka_|Ka)\w+);", line.expandtabs())
    if found:
        record = gdb.lookup_type("struct " + found[1])
        print(found[1], record.sizeof)
        fields_of(record, "", 0)
