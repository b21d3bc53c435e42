// SPDX-License-Identifier: MIT
//
// The pointers in a program's data, as its dynamic linker leaves them. Where a program can lie anywhere they stand in
// its relocations: beside the place, or in the place itself. One that names a symbol of another file is known only
// when the program runs.
#ifndef KA_TOOL_ELF_POINTERS_H
#define KA_TOOL_ELF_POINTERS_H

#include <map>
#include <optional>

#include "elf_file.h"

class Pointers {
public:
    explicit Pointers(const ElfFile &file);

    // That at an address of the file's image. Null: it is there, but not known.
    std::optional<uint64_t> at(uint64_t address) const;

    // Zero-terminated text that it points to; nothing where that is not in the file.
    std::optional<std::string> text_at(uint64_t address) const;

private:
    template <typename Elf>
    void read();
    template <typename Elf, typename Relocation>
    void read_table(uint64_t table, uint64_t size);
    void relocate(uint64_t place, uint32_t type, uint32_t symbol, uint64_t addend);
    uint64_t in_place(uint64_t address) const;

    const ElfFile &file_;
    std::map<uint64_t, std::optional<uint64_t>> relocated_;
};

#endif
