/* SPDX-License-Identifier: MIT
 *
 * The processors that modules run on, one for each word size, as their programs are marked: the caller's library and
 * the tools read it here. */
#ifndef KA_WIRE_MACHINE_H
#define KA_WIRE_MACHINE_H

#include <elf.h>
#include <stdint.h>

struct t_MACHINE {
    int32_t bits;
    uint8_t elf_class;
    uint16_t number;  /* e_machine */
    bool has_addends; /* relocations are Elf64_Rela; else Elf32_Rel, and what is to be added is at the place itself */
    uint32_t relative; /* relocation: where the program lies is added */
    uint32_t symbolic; /* relocation: the address of a symbol is added */
};

namespace wire {
/* clang-format off */
inline constexpr t_MACHINE machines[] = {
    {32, ELFCLASS32, EM_386,    false, R_386_RELATIVE,    R_386_32},
    {64, ELFCLASS64, EM_X86_64, true,  R_X86_64_RELATIVE, R_X86_64_64},
};
/* clang-format on */
} // namespace wire

#endif
