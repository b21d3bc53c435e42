/* SPDX-License-Identifier: MIT
 *
 * The programs that this machine runs, of both word sizes, and the records that they are made of. A record of a
 * 32-bit program is widened as it is read, so that everything else knows one form. */
#ifndef KA_CALLER_MACHINE_H
#define KA_CALLER_MACHINE_H

#include <elf.h>
#include <stddef.h>
#include <stdint.h>

#include "wire/machine.h"

/* Words are as wide as addresses. */
inline size_t word_bytes(const t_MACHINE *machine)
{
    return static_cast<size_t>(machine->bits) / 8;
}
uint64_t word_in(const t_MACHINE *machine, const void *bytes);

/* The beginning of a file, as it was read. */
union t_ELF_HEADER {
    unsigned char ident[EI_NIDENT];
    Elf32_Ehdr narrow;
    Elf64_Ehdr wide;
};
Elf64_Ehdr widened_header(const t_ELF_HEADER *header);

/* By class and machine; null when this machine does not run such programs. */
const t_MACHINE *find_machine(const t_ELF_HEADER *header);

size_t program_header_bytes(const t_MACHINE *machine);
void widen_program_headers(const t_MACHINE *machine, const void *bytes, int32_t count, Elf64_Phdr *headers);

size_t symbol_bytes(const t_MACHINE *machine);
Elf64_Sym widened_symbol(const t_MACHINE *machine, const void *bytes);

#endif
