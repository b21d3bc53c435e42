// SPDX-License-Identifier: MIT
//
// What the dynamic linker would read of an ELF file of either word size, read without running it: by program headers
// alone, so that a file without sections is read too. Nothing in the file is believed: all is tested against its
// size. Only "ka check" reads files so; for all other commands libkacall reads the tables (caller/src/module).
#ifndef KA_TOOL_ELF_ELF_FILE_H
#define KA_TOOL_ELF_ELF_FILE_H

#include <cstdint>
#include <cstring>
#include <elf.h>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "machine.h"

struct ElfSymbol {
    std::string name;
    uint64_t value, size;
    int type; // STT_OBJECT, STT_FUNC ...
    bool is_defined;
    bool is_weak;
};

struct ElfNeed { // a version that another library must have
    std::string library;
    std::string version;
    bool is_weak;
};

struct ElfProgramHeader {
    uint64_t address, file_size, memory_size;
    uint64_t offset;
};

struct ElfFile {
    std::string path;
    std::string bytes;
    const ElfMachine *machine = nullptr;
    bool is_library = false;                       // and no program
    std::vector<ElfProgramHeader> program_headers; // that are loaded
    std::string loader;                            // empty when it asks for none
    std::multimap<int64_t, uint64_t> dynamic;      // the entries of the dynamic section, by tag
    std::string soname, rpath, runpath;
    std::vector<std::string> needed;
    std::vector<ElfNeed> versions_needed;
    std::set<std::string> versions;  // that it has itself
    std::vector<ElfSymbol> exported; // the dynamic symbols, defined or not, from that of index 1 on
    std::vector<ElfSymbol> all;      // of the symbol table that strip removes; may be empty
};

// Null when the file cannot be read as a program or library for this machine; then why says so.
std::optional<ElfFile> read_elf(const std::string &path, std::string &why);

// dynamic.cpp: fills in what the dynamic section leads to.
void read_dynamic_part(ElfFile &file, uint64_t address);

// The value of a tag; 0 when the dynamic section has none.
uint64_t dynamic_value(const ElfFile &file, int64_t tag);

// A symbol that the file defines; exported ones first. Null when there is none.
const ElfSymbol *find_defined(const ElfFile &file, const std::string &name);

// image.cpp: the place in the file of an address of its image; nothing where the file has no bytes for it.
std::optional<uint64_t> offset_of(const ElfFile &file, uint64_t address);

// The word at an address of the file's image; 0 in memory that the file does not fill; nothing outside.
std::optional<uint32_t> word_at(const ElfFile &file, uint64_t address);

// Is it memory that the file does not fill?
bool is_filled_at_start(const ElfFile &file, uint64_t address);

// Zero-terminated text there.
std::string text_at(const ElfFile &file, uint64_t address);

// A record there, all of which must be in the file.
template <typename Record>
std::optional<Record> record_at(const ElfFile &file, uint64_t address)
{
    Record record;
    const auto offset = offset_of(file, address);
    if (!offset || file.bytes.size() - *offset < sizeof record) return std::nullopt;
    std::memcpy(&record, file.bytes.data() + *offset, sizeof record);
    return record;
}

// The records of a word size. Those of versions are the same in both.
struct Elf32 {
    using Dynamic = Elf32_Dyn;
    using Symbol = Elf32_Sym;
    using Relocation = Elf32_Rel;
    using RelocationWithAddend = Elf32_Rela;
    using Word = uint32_t;
    static uint32_t type_of(Elf32_Word info) { return ELF32_R_TYPE(info); }
    static uint32_t symbol_of(Elf32_Word info) { return ELF32_R_SYM(info); }
};

struct Elf64 {
    using Dynamic = Elf64_Dyn;
    using Symbol = Elf64_Sym;
    using Relocation = Elf64_Rel;
    using RelocationWithAddend = Elf64_Rela;
    using Word = uint64_t;
    static uint32_t type_of(Elf64_Xword info) { return static_cast<uint32_t>(ELF64_R_TYPE(info)); }
    static uint32_t symbol_of(Elf64_Xword info) { return static_cast<uint32_t>(ELF64_R_SYM(info)); }
};

#endif
