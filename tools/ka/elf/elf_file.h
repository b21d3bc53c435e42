// SPDX-License-Identifier: MIT
//
// What the dynamic linker would read of a 32-bit ELF file, read without running it: by program headers alone, so that
// a file without sections is read too. Nothing in the file is believed: all is tested against its size.
#ifndef KA_TOOL_ELF_ELF_FILE_H
#define KA_TOOL_ELF_ELF_FILE_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct ElfSymbol {
    std::string name;
    uint32_t value, size;
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
    uint32_t address, file_size, memory_size;
    uint64_t offset;
};

struct ElfFile {
    std::string path;
    std::string bytes;
    std::vector<ElfProgramHeader> program_headers; // that are loaded
    std::string loader;                            // empty when it asks for none
    std::string soname, rpath, runpath;
    std::vector<std::string> needed;
    std::vector<ElfNeed> versions_needed;
    std::set<std::string> versions;    // that it has itself
    std::vector<ElfSymbol> exported;   // the dynamic symbols, defined or not
    std::vector<ElfSymbol> all;        // of the symbol table that strip removes; may be empty
    std::set<uint32_t> filled_by_name; // addresses whose word the dynamic linker fills with a symbol
};

// Null when the file cannot be read as a 32-bit x86 program or library; then why says so.
std::optional<ElfFile> read_elf(const std::string &path, std::string &why);

// A symbol that the file defines; exported ones first. Null when there is none.
const ElfSymbol *find_defined(const ElfFile &file, const std::string &name);

// The word at an address of the file's image; 0 in memory that the file does not fill; nothing outside.
std::optional<uint32_t> word_at(const ElfFile &file, uint32_t address);

// Zero-terminated text there.
std::string text_at(const ElfFile &file, uint32_t address);

#endif
