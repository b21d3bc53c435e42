// SPDX-License-Identifier: MIT
//
// See elf_file.h: what a file has at an address of its image.
#include "elf_file.h"

#include <algorithm>

std::optional<uint64_t> offset_of(const ElfFile &file, uint64_t address)
{
    for (const ElfProgramHeader &header : file.program_headers) {
        if (address < header.address || address - header.address >= header.file_size) continue;
        const uint64_t offset = header.offset + (address - header.address);
        return offset < file.bytes.size() ? std::optional(offset) : std::nullopt;
    }
    return std::nullopt;
}

bool is_filled_at_start(const ElfFile &file, uint64_t address)
{
    const auto fills = [address](const ElfProgramHeader &header) {
        const uint64_t distance = address - header.address;
        return address >= header.address && distance >= header.file_size && distance < header.memory_size;
    };
    return std::any_of(file.program_headers.begin(), file.program_headers.end(), fills);
}

std::optional<uint32_t> word_at(const ElfFile &file, uint64_t address)
{
    if (const auto word = record_at<uint32_t>(file, address)) return word;
    return is_filled_at_start(file, address) ? std::optional<uint32_t>(0) : std::nullopt;
}

std::string text_at(const ElfFile &file, uint64_t address)
{
    const auto offset = offset_of(file, address);
    return offset ? std::string(file.bytes.c_str() + *offset) : "";
}
