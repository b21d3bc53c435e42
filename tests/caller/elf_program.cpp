// SPDX-License-Identifier: MIT
//
// See elf_program.h.
#include "caller/elf_program.h"

#include <cstring>
#include <elf.h>

ElfProgram::ElfProgram(int bits) : bits_(bits)
{
    bytes_.resize(bits == 64 ? sizeof(Elf64_Ehdr) + 2 * sizeof(Elf64_Phdr)
                             : sizeof(Elf32_Ehdr) + 2 * sizeof(Elf32_Phdr));
    strings_ = add(std::string("\0KaFuncList\0KaArgList\0", 22));
    symbols_ = {{0, 0, false}, {1, 0, true}, {12, 0, true}};
}

uint64_t ElfProgram::add(const std::string &bytes)
{
    while (bytes_.size() % word() != 0)
        bytes_ += '\0';
    bytes_ += bytes;
    return origin + bytes_.size() - bytes.size();
}

std::string ElfProgram::words(const std::vector<uint64_t> &values) const
{
    std::string bytes;
    for (const uint64_t value : values)
        bytes.append(reinterpret_cast<const char *>(&value), word()); // the lower bytes come first
    return bytes;
}

uint64_t ElfProgram::add_words(const std::vector<uint64_t> &values)
{
    return add(words(values));
}

uint64_t ElfProgram::add_numbers(const std::vector<uint32_t> &numbers)
{
    return add({reinterpret_cast<const char *>(numbers.data()), numbers.size() * sizeof numbers[0]});
}

uint64_t ElfProgram::add_text(const std::string &text)
{
    return add(text + '\0');
}

static std::string numbers(int32_t first, int32_t second)
{
    const int32_t both[] = {first, second};
    return {reinterpret_cast<const char *>(both), sizeof both};
}

uint64_t ElfProgram::function(uint64_t name, int32_t arg_idx, int32_t arg_cnt)
{
    return add(words({name}) + numbers(arg_idx, arg_cnt) + words({0}));
}

uint64_t ElfProgram::prototype(uint64_t name, int32_t kind, int32_t min_elements)
{
    return add(words({name}) + numbers(kind, min_elements));
}

void ElfProgram::relocate(uint64_t place, int type, uint32_t symbol, uint64_t addend)
{
    relocations_.push_back({place, type, symbol, addend});
}

uint32_t ElfProgram::add_symbol(uint64_t value, bool is_defined)
{
    symbols_.push_back({0, value, is_defined});
    return static_cast<uint32_t>(symbols_.size() - 1);
}

void ElfProgram::load(uint64_t file_bytes, uint64_t memory_bytes)
{
    is_loaded_in_part_ = true;
    file_bytes_ = file_bytes;
    memory_bytes_ = memory_bytes;
}

// ---- The file --------------------------------------------------------------------------------------------------

uint64_t ElfProgram::add_symbols()
{
    constexpr unsigned char info = STT_OBJECT | STB_GLOBAL << 4;
    std::string table;
    for (const auto &[name, value, is_defined] : symbols_) {
        const uint16_t section = is_defined ? 1 : SHN_UNDEF;
        const Elf32_Sym narrow = {name, static_cast<uint32_t>(value), 16, info, 0, section};
        const Elf64_Sym wide = {name, info, 0, section, value, 16};
        if (bits_ == 64)
            table.append(reinterpret_cast<const char *>(&wide), sizeof wide);
        else
            table.append(reinterpret_cast<const char *>(&narrow), sizeof narrow);
    }
    return add(table);
}

// A 64-bit program has the addends in the table, a 32-bit one in place.
void ElfProgram::add_relocations()
{
    std::string table;
    for (const auto &[place, type, symbol, addend] : relocations_) {
        const auto narrow_type = static_cast<uint32_t>(type == RELATIVE    ? R_386_RELATIVE
                                                       : type == OF_SYMBOL ? R_386_32
                                                                           : type);
        const auto wide_type = static_cast<uint32_t>(type == RELATIVE    ? R_X86_64_RELATIVE
                                                     : type == OF_SYMBOL ? R_X86_64_64
                                                                         : type);
        if (bits_ == 64) {
            table += words({place, ELF64_R_INFO(uint64_t{symbol}, wide_type), addend});
            continue;
        }
        table += words({place, ELF32_R_INFO(symbol, narrow_type)});
        const auto at = static_cast<size_t>(place - origin);
        if (place - origin <= bytes_.size() - word()) bytes_.replace(at, word(), words({addend}));
    }
    if (table.empty()) return;
    add_dynamic(bits_ == 64 ? DT_RELA : DT_REL, add(table));
    add_dynamic(bits_ == 64 ? DT_RELASZ : DT_RELSZ, table.size());
}

template <typename Header, typename ProgramHeader>
void ElfProgram::write_headers(unsigned char elf_class, uint16_t machine, uint64_t dynamic, uint64_t dynamic_bytes)
{
    Header header = {};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = elf_class;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_type = ET_EXEC;
    header.e_machine = machine;
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(ProgramHeader);
    header.e_phnum = 2;
    ProgramHeader headers[2] = {};
    const auto set = [](ProgramHeader &one, uint32_t type, uint64_t address, uint64_t file_bytes,
                        uint64_t memory_bytes) {
        one.p_type = type;
        one.p_offset = static_cast<decltype(one.p_offset)>(address - origin);
        one.p_vaddr = static_cast<decltype(one.p_vaddr)>(address);
        one.p_filesz = static_cast<decltype(one.p_filesz)>(file_bytes);
        one.p_memsz = static_cast<decltype(one.p_memsz)>(memory_bytes);
    };
    const uint64_t whole = bytes_.size();
    set(headers[0], PT_LOAD, origin, is_loaded_in_part_ ? file_bytes_ : whole,
        is_loaded_in_part_ ? memory_bytes_ : whole + added_memory_);
    set(headers[1], PT_DYNAMIC, dynamic, dynamic_bytes, dynamic_bytes);
    std::memcpy(bytes_.data(), &header, sizeof header);
    std::memcpy(bytes_.data() + sizeof header, headers, sizeof headers);
}

std::string ElfProgram::file(uint64_t functions, uint64_t prototypes, const std::vector<uint32_t> &hash)
{
    symbols_[1].value = functions;
    symbols_[2].value = prototypes;
    add_relocations();
    const uint64_t symbols = add_symbols();
    const uint64_t table = add_numbers(hash);
    for (const uint64_t value :
         {uint64_t{DT_HASH}, table, uint64_t{DT_SYMTAB}, symbols, uint64_t{DT_STRTAB}, strings_})
        dynamic_.push_back(value);
    const uint64_t dynamic = add_words(dynamic_);
    add_words({DT_NULL, 0, DT_NULL, 0});
    const uint64_t dynamic_bytes = (dynamic_.size() + 4) * word();
    if (bits_ == 64)
        write_headers<Elf64_Ehdr, Elf64_Phdr>(ELFCLASS64, EM_X86_64, dynamic, dynamic_bytes);
    else
        write_headers<Elf32_Ehdr, Elf32_Phdr>(ELFCLASS32, EM_386, dynamic, dynamic_bytes);
    return bytes_;
}
