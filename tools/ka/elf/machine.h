// SPDX-License-Identifier: MIT
//
// The machines that modules run on, one for each word size: what their dynamic linkers look for, beside how their
// programs are marked.
#ifndef KA_TOOL_ELF_MACHINE_H
#define KA_TOOL_ELF_MACHINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "wire/machine.h"

struct ElfMachine : t_MACHINE {
    int32_t cache_flags; // of its libraries in the dynamic linker's cache
    const char *flag;    // of a compiler that makes its programs
    // What $PLATFORM can be: it depends on the processor, and on the age of the dynamic linker.
    const char *platforms[3];
    const char *packages[4]; // of the C library, of those of the compilers, of the call host
};

// Of an ELF file, by its first bytes. Null when it is none, or of another machine.
const ElfMachine *machine_of(std::string_view header);
std::string header_of(const std::string &path);

// The word size of the program in a file; nothing when there is none that can be a module.
std::optional<int> word_size_of(const std::string &path);

// That of the other word size.
const ElfMachine &other_machine(const ElfMachine &machine);

// "64-bit"
std::string bits_text(const ElfMachine &machine);

// The package of a library that nearly every module needs; empty for all others.
std::string package_of(const std::string &library, const ElfMachine &machine);
std::string c_library_package(const ElfMachine &machine);

#endif
