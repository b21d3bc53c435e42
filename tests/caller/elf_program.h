// SPDX-License-Identifier: MIT
//
// A program of either word size, built byte by byte: one program header loads the whole file, with headers, symbols,
// and what a test adds. It is never run, only read.
#ifndef TESTS_CALLER_ELF_PROGRAM_H
#define TESTS_CALLER_ELF_PROGRAM_H

#include <cstdint>
#include <string>
#include <vector>

class ElfProgram {
public:
    static constexpr uint64_t origin = 0x10000; // address of the file's first byte
    static constexpr uint64_t nowhere = 0xdead0000;

    explicit ElfProgram(int bits);

    // Each adds something at the file's end, and gives its address.
    uint64_t add(const std::string &bytes);
    uint64_t add_words(const std::vector<uint64_t> &words); // as wide as addresses
    uint64_t add_numbers(const std::vector<uint32_t> &numbers);
    uint64_t add_text(const std::string &text);
    uint64_t function(uint64_t name, int32_t arg_idx, int32_t arg_cnt);
    uint64_t prototype(uint64_t name, int32_t kind, int32_t min_elements);
    uint64_t end_of_functions() { return function(0, 0, 0); }

    // Records of the loader's, in this order: at that place is the addend and where the program lies, or the addend
    // and the address of a symbol, whose number add_symbol gives. Another type is as the machine numbers it.
    enum { RELATIVE = -1, OF_SYMBOL = -2 };
    void relocate(uint64_t place, int type, uint32_t symbol, uint64_t addend);
    uint32_t add_symbol(uint64_t value, bool is_defined);

    // Further entries of the dynamic segment; they count before those that the program has by itself.
    void add_dynamic(uint64_t tag, uint64_t value) { dynamic_.insert(dynamic_.end(), {tag, value}); }

    // How much of the file is loaded; all of it unless this says something else.
    void load(uint64_t file_bytes, uint64_t memory_bytes);

    // So much memory follows the file's bytes.
    void add_memory(uint64_t bytes) { added_memory_ = bytes; }

    // The file, with the tables at these addresses, and the hash table of the test's making or a sound one.
    std::string file(uint64_t functions, uint64_t prototypes, const std::vector<uint32_t> &hash = {1, 3, 1, 0, 2, 0});

    size_t word() const { return static_cast<size_t>(bits_) / 8; }
    size_t function_bytes() const { return 2 * word() + 8; }

private:
    struct Symbol {
        uint32_t name;
        uint64_t value;
        bool is_defined;
    };
    struct Relocation {
        uint64_t place;
        int type;
        uint32_t symbol;
        uint64_t addend;
    };
    std::string words(const std::vector<uint64_t> &values) const;
    uint64_t add_symbols();
    void add_relocations();
    template <typename Header, typename ProgramHeader>
    void write_headers(unsigned char elf_class, uint16_t machine, uint64_t dynamic, uint64_t dynamic_bytes);

    int bits_;
    std::string bytes_;
    std::vector<Symbol> symbols_;
    std::vector<Relocation> relocations_;
    std::vector<uint64_t> dynamic_;
    uint64_t strings_;
    bool is_loaded_in_part_ = false;
    uint64_t file_bytes_ = 0;
    uint64_t memory_bytes_ = 0;
    uint64_t added_memory_ = 0;
};

#endif
