/* SPDX-License-Identifier: MIT
 *
 * What gdb loads with a module into which the call host is linked: the script itself, as gdb looks for it in a
 * program. */
__asm__(".pushsection .debug_gdb_scripts, \"MS\", %progbits, 1\n"
        ".byte 4\n" /* text in Python, after its name */
        ".ascii \"libkahost-gdb.py\\n\"\n"
        ".incbin \"" KA_GDB_SCRIPT "\"\n"
        ".byte 0\n"
        ".popsection");
