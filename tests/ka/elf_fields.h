// SPDX-License-Identifier: MIT
//
// Places in the files of modules of the word size that the tests are run for.
#ifndef TESTS_KA_ELF_FIELDS_H
#define TESTS_KA_ELF_FIELDS_H

#include <cstddef>
#include <elf.h>
#include <string>
#include <utility>
#include <vector>

#include "module_bits.h"

// What is to be written where, so that a file has no sections.
template <typename Header>
std::vector<std::pair<size_t, std::string>> no_sections_in()
{
    const size_t offset = sizeof Header::e_shoff;
    const size_t counts = sizeof Header::e_shnum + sizeof Header::e_shstrndx;
    return {{offsetof(Header, e_shoff), std::string(offset, '\0')},
            {offsetof(Header, e_shnum), std::string(counts, '\0')}};
}

inline std::vector<std::pair<size_t, std::string>> no_sections()
{
    return module_bits() == 64 ? no_sections_in<Elf64_Ehdr>() : no_sections_in<Elf32_Ehdr>();
}

#endif
