// SPDX-License-Identifier: MIT
//
// The shared libraries that a program would be given, found as the dynamic linker of its word size finds them,
// without running anything: RPATH, LD_LIBRARY_PATH, RUNPATH, the linker's cache, the system's folders.
#ifndef KA_TOOL_ELF_LIBRARIES_H
#define KA_TOOL_ELF_LIBRARIES_H

#include <string>
#include <vector>

#include "elf_file.h"

struct MissingLibrary {
    std::string library;
    std::string needed_by;
    std::string met;       // a file of that name that is of no use, and why; or empty
    bool is_of_other_size; // that file
};

struct Libraries {
    std::vector<ElfFile> loaded; // in the order of search; the program is not among them
    std::vector<MissingLibrary> missing;
};

Libraries find_libraries(const ElfFile &program);

#endif
