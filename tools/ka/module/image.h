// SPDX-License-Identifier: MIT
//
// The file of a module, read with libelf in the way in which the loader reads it: by program headers alone, so that
// section headers may be stripped. Nothing in it is trusted.
#ifndef KA_TOOL_MODULE_IMAGE_H
#define KA_TOOL_MODULE_IMAGE_H

#include <cstdint>
#include <libelf.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class Image {
public:
    struct Symbol {
        uint32_t address; // 0: not defined here
        uint32_t size;
    };

    explicit Image(const std::string &path);
    ~Image();
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    // Why this is no 32-bit program for the dynamic loader; empty when it is one.
    const std::string &fault() const { return fault_; }

    Symbol symbol(const char *name) const;

    // Is the address in the memory of the program, in the file or not?
    bool is_mapped(uint32_t address) const;

    // The file's bytes from an address to the end of its segment; none for what only memory has.
    std::string_view at(uint32_t address) const;
    std::optional<uint32_t> word_at(uint32_t address) const;
    std::string text_at(uint32_t address) const;

private:
    std::string open_file(const std::string &path);
    std::string read_dynamic();
    std::vector<uint32_t> words_at(uint32_t address, size_t count) const;
    size_t symbol_count() const;

    int fd_ = -1;
    Elf *elf_ = nullptr;
    std::string_view bytes_;
    size_t segments_ = 0;
    std::string fault_;
    // Addresses that the dynamic segment gives; 0 for none.
    uint32_t symbols_ = 0;
    uint32_t names_ = 0;
    uint32_t hash_ = 0;
    uint32_t gnu_hash_ = 0;
};

#endif
