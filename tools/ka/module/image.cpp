// SPDX-License-Identifier: MIT
//
// See image.h. Pointers in the file are addresses of its own image: on 32-bit x86 a relocation that only moves an
// address keeps that address in place.
#include "image.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gelf.h>
#include <sys/stat.h>
#include <unistd.h>

Image::Image(const std::string &path)
{
    elf_version(EV_CURRENT);
    fault_ = open_file(path);
    if (fault_.empty()) fault_ = read_dynamic();
}

Image::~Image()
{
    elf_end(elf_);
    if (fd_ >= 0) close(fd_);
}

std::string Image::open_file(const std::string &path)
{
    // Neither a pipe nor a device makes this wait.
    fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd_ < 0) return errno == ENOENT ? "no such file" : std::strerror(errno);
    struct stat status {};
    fstat(fd_, &status);
    if (!S_ISREG(status.st_mode)) return S_ISDIR(status.st_mode) ? "a directory" : "not a regular file";
    elf_ = elf_begin(fd_, ELF_C_READ, nullptr);
    if (elf_ == nullptr || elf_kind(elf_) != ELF_K_ELF) return "not an ELF file";
    GElf_Ehdr header;
    if (gelf_getehdr(elf_, &header) == nullptr) return "a cut off ELF file";
    if (gelf_getclass(elf_) == ELFCLASS64) return "a 64-bit program, and modules are 32-bit programs";
    if (header.e_machine != EM_386)
        return "a program for another processor (ELF machine " + std::to_string(header.e_machine) + ")";
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN) return "an ELF file but not a program";
    size_t size = 0;
    const char *bytes = elf_rawfile(elf_, &size);
    if (bytes == nullptr || elf_getphdrnum(elf_, &segments_) != 0) return "a cut off ELF file";
    bytes_ = {bytes, size};
    return "";
}

std::string Image::read_dynamic()
{
    GElf_Phdr segment;
    for (int i = 0; i < static_cast<int>(segments_) && gelf_getphdr(elf_, i, &segment) != nullptr; i++) {
        if (segment.p_type != PT_DYNAMIC) continue;
        Elf_Data *data =
            elf_getdata_rawchunk(elf_, static_cast<int64_t>(segment.p_offset), segment.p_filesz, ELF_T_DYN);
        GElf_Dyn entry;
        for (int k = 0; data != nullptr && gelf_getdyn(data, k, &entry) != nullptr && entry.d_tag != DT_NULL; k++) {
            const auto address = static_cast<uint32_t>(entry.d_un.d_ptr);
            if (entry.d_tag == DT_SYMTAB) symbols_ = address;
            if (entry.d_tag == DT_STRTAB) names_ = address;
            if (entry.d_tag == DT_HASH) hash_ = address;
            if (entry.d_tag == DT_GNU_HASH) gnu_hash_ = address;
        }
    }
    return symbols_ != 0 && names_ != 0 ? "" : "not linked with shared libraries, so not with libkahost either";
}

// ---- Symbols ---------------------------------------------------------------------------------------------------

std::vector<uint32_t> Image::words_at(uint32_t address, size_t count) const
{
    const std::string_view bytes = at(address);
    std::vector<uint32_t> words(std::min(count, bytes.size() / sizeof(uint32_t)));
    if (!words.empty()) std::memcpy(words.data(), bytes.data(), words.size() * sizeof(uint32_t));
    return words;
}

// Only the hash tables know. A GNU one: the last chain ends at the last symbol, with a word whose lowest bit is set.
size_t Image::symbol_count() const
{
    const std::vector<uint32_t> head = words_at(hash_, 2);
    if (hash_ != 0 && head.size() == 2) return head[1];
    const std::vector<uint32_t> gnu = words_at(gnu_hash_, 4);
    if (gnu_hash_ == 0 || gnu.size() < 4) return 0;
    const uint32_t buckets_at = gnu_hash_ + 16 + gnu[2] * 4;
    const std::vector<uint32_t> buckets = words_at(buckets_at, gnu[0]);
    const uint32_t last = buckets.empty() ? 0 : *std::max_element(buckets.begin(), buckets.end());
    if (last < gnu[1]) return gnu[1];
    const uint32_t chains_at = buckets_at + gnu[0] * 4;
    uint32_t symbol = last;
    for (uint32_t word : words_at(chains_at + (last - gnu[1]) * 4, bytes_.size())) {
        symbol++;
        if ((word & 1) != 0) break;
    }
    return symbol;
}

Image::Symbol Image::symbol(const char *name) const
{
    const std::string_view table = at(symbols_);
    const size_t count = std::min(symbol_count(), table.size() / sizeof(Elf32_Sym));
    if (count == 0) return {0, 0};
    Elf_Data *data = elf_getdata_rawchunk(elf_, table.data() - bytes_.data(), count * sizeof(Elf32_Sym), ELF_T_SYM);
    GElf_Sym symbol;
    for (int i = 0; data != nullptr && gelf_getsym(data, i, &symbol) != nullptr; i++) {
        if (symbol.st_shndx == SHN_UNDEF || text_at(names_ + symbol.st_name) != name) continue;
        return {static_cast<uint32_t>(symbol.st_value), static_cast<uint32_t>(symbol.st_size)};
    }
    return {0, 0};
}

// ---- Memory ----------------------------------------------------------------------------------------------------

bool Image::is_mapped(uint32_t address) const
{
    GElf_Phdr segment;
    for (int i = 0; i < static_cast<int>(segments_) && gelf_getphdr(elf_, i, &segment) != nullptr; i++) {
        if (segment.p_type == PT_LOAD && address >= segment.p_vaddr && address - segment.p_vaddr < segment.p_memsz)
            return true;
    }
    return false;
}

std::string_view Image::at(uint32_t address) const
{
    GElf_Phdr segment;
    for (int i = 0; i < static_cast<int>(segments_) && gelf_getphdr(elf_, i, &segment) != nullptr; i++) {
        if (segment.p_type != PT_LOAD || address < segment.p_vaddr || address - segment.p_vaddr >= segment.p_filesz)
            continue;
        const uint64_t inside = address - segment.p_vaddr;
        if (segment.p_offset + inside >= bytes_.size()) return {};
        return bytes_.substr(segment.p_offset + inside, segment.p_filesz - inside);
    }
    return {};
}

std::optional<uint32_t> Image::word_at(uint32_t address) const
{
    const std::vector<uint32_t> words = words_at(address, 1);
    return words.empty() ? std::nullopt : std::optional(words[0]);
}

std::string Image::text_at(uint32_t address) const
{
    const std::string_view bytes = at(address);
    return std::string(bytes.substr(0, bytes.find('\0')));
}
