/* SPDX-License-Identifier: MIT
 *
 * See machine.h. */
#include "machine.h"

#include <string.h>

uint64_t word_in(const t_MACHINE *machine, const void *bytes)
{
    uint32_t narrow;
    uint64_t wide;
    if (machine->bits == 64) {
        memcpy(&wide, bytes, sizeof wide);
        return wide;
    }
    memcpy(&narrow, bytes, sizeof narrow);
    return narrow;
}

Elf64_Ehdr widened_header(const t_ELF_HEADER *header)
{
    if (header->ident[EI_CLASS] == ELFCLASS64) return header->wide;
    const Elf32_Ehdr *narrow = &header->narrow;
    Elf64_Ehdr wide = {};
    memcpy(wide.e_ident, narrow->e_ident, EI_NIDENT);
    wide.e_type = narrow->e_type;
    wide.e_machine = narrow->e_machine;
    wide.e_phoff = narrow->e_phoff;
    wide.e_phentsize = narrow->e_phentsize;
    wide.e_phnum = narrow->e_phnum;
    return wide;
}

const t_MACHINE *find_machine(const t_ELF_HEADER *header)
{
    const unsigned char elf_class = header->ident[EI_CLASS];
    const uint16_t number = widened_header(header).e_machine;
    for (const t_MACHINE &machine : wire::machines)
        if (elf_class == machine.elf_class && number == machine.number) return &machine;
    return nullptr;
}

size_t program_header_bytes(const t_MACHINE *machine)
{
    return machine->bits == 64 ? sizeof(Elf64_Phdr) : sizeof(Elf32_Phdr);
}

void widen_program_headers(const t_MACHINE *machine, const void *bytes, int32_t count, Elf64_Phdr *headers)
{
    const char *at = static_cast<const char *>(bytes);
    for (int32_t i = 0; i < count; i++, at += program_header_bytes(machine)) {
        Elf32_Phdr narrow;
        if (machine->bits == 64) {
            memcpy(&headers[i], at, sizeof headers[i]);
            continue;
        }
        memcpy(&narrow, at, sizeof narrow);
        headers[i] = {narrow.p_type,  narrow.p_flags,  narrow.p_offset, narrow.p_vaddr,
                      narrow.p_paddr, narrow.p_filesz, narrow.p_memsz,  narrow.p_align};
    }
}

size_t symbol_bytes(const t_MACHINE *machine)
{
    return machine->bits == 64 ? sizeof(Elf64_Sym) : sizeof(Elf32_Sym);
}

Elf64_Sym widened_symbol(const t_MACHINE *machine, const void *bytes)
{
    Elf32_Sym narrow;
    Elf64_Sym wide;
    if (machine->bits == 64) {
        memcpy(&wide, bytes, sizeof wide);
        return wide;
    }
    memcpy(&narrow, bytes, sizeof narrow);
    return {narrow.st_name, narrow.st_info, narrow.st_other, narrow.st_shndx, narrow.st_value, narrow.st_size};
}
