// SPDX-License-Identifier: MIT
//
// The library that reads ELF files of either word size: opened by ka check.
#ifndef KA_TOOL_ELF_ELF_LIBRARY_H
#define KA_TOOL_ELF_ELF_LIBRARY_H

#include <gelf.h>

#include "base/library.h"

struct ElfLibrary : Library {
    ElfLibrary() : Library(KA_LIBELF) {}

#define KA_FUNCTION(name) decltype(&::name) name = find(#name)
    KA_FUNCTION(elf_end);
    KA_FUNCTION(elf_getdata);
    KA_FUNCTION(elf_getphdrnum);
    KA_FUNCTION(elf_memory);
    KA_FUNCTION(elf_nextscn);
    KA_FUNCTION(elf_strptr);
    KA_FUNCTION(elf_version);
    KA_FUNCTION(gelf_getehdr);
    KA_FUNCTION(gelf_getphdr);
    KA_FUNCTION(gelf_getshdr);
    KA_FUNCTION(gelf_getsym);
#undef KA_FUNCTION
};

#endif
