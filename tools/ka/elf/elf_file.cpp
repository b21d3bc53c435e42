// SPDX-License-Identifier: MIT
//
// See elf_file.h.
#include "elf_file.h"

#include <cerrno>
#include <fstream>
#include <iterator>

#include "base/text.h"
#include "elf_library.h"

namespace {

const ElfLibrary &library()
{
    static const ElfLibrary opened;
    return opened;
}

void read_symbol_table(ElfFile &file, Elf *elf)
{
    for (Elf_Scn *section = library().elf_nextscn(elf, nullptr); section != nullptr;
         section = library().elf_nextscn(elf, section)) {
        GElf_Shdr header;
        if (library().gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_SYMTAB) continue;
        Elf_Data *data = library().elf_getdata(section, nullptr);
        GElf_Sym symbol;
        for (int i = 1; data != nullptr && library().gelf_getsym(data, i, &symbol) != nullptr; i++) {
            const char *name = library().elf_strptr(elf, header.sh_link, symbol.st_name);
            if (name == nullptr || symbol.st_shndx == SHN_UNDEF) continue;
            file.all.push_back({name, symbol.st_value, symbol.st_size, GELF_ST_TYPE(symbol.st_info), true,
                                GELF_ST_BIND(symbol.st_info) == STB_WEAK});
        }
    }
}

void read_program_headers(ElfFile &file, Elf *elf, std::optional<uint64_t> &dynamic)
{
    size_t count = 0;
    GElf_Phdr header;
    library().elf_getphdrnum(elf, &count);
    for (int i = 0; i < static_cast<int>(count) && library().gelf_getphdr(elf, i, &header) != nullptr; i++) {
        if (header.p_type == PT_LOAD)
            file.program_headers.push_back({header.p_vaddr, header.p_filesz, header.p_memsz, header.p_offset});
        if (header.p_type == PT_DYNAMIC) dynamic = header.p_vaddr;
        if (header.p_type == PT_INTERP && header.p_offset < file.bytes.size())
            file.loader = file.bytes.c_str() + header.p_offset;
    }
}

std::string why_not(const ElfFile &file, Elf *elf)
{
    if (!file.bytes.starts_with(ELFMAG)) return "not an ELF file";
    GElf_Ehdr header;
    if (elf == nullptr || library().gelf_getehdr(elf, &header) == nullptr) return "a damaged ELF file";
    if (file.machine == nullptr)
        return "for another processor (ELF machine " + std::to_string(header.e_machine) + ")";
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN) return "an ELF file but not a program";
    return "";
}

void read_parts(ElfFile &file, Elf *elf)
{
    std::optional<uint64_t> dynamic;
    GElf_Ehdr header;
    read_program_headers(file, elf, dynamic);
    read_symbol_table(file, elf);
    if (dynamic) read_dynamic_part(file, *dynamic);
    const bool is_program = file.dynamic.empty() || (dynamic_value(file, DT_FLAGS_1) & DF_1_PIE) != 0;
    file.is_library = library().gelf_getehdr(elf, &header) != nullptr && header.e_type == ET_DYN && !is_program;
}

} // namespace

std::optional<ElfFile> read_elf(const std::string &path, std::string &why)
{
    std::ifstream stream(path, std::ios::binary);
    ElfFile file;
    file.path = path;
    file.bytes.assign(std::istreambuf_iterator<char>(stream), {});
    if (!stream) {
        why = std::strerror(errno);
        return std::nullopt;
    }
    if (!library().is_whole()) {
        why = "cannot be read: " + printable(library().why_not());
        return std::nullopt;
    }
    library().elf_version(EV_CURRENT);
    std::string copy = file.bytes; // libelf may write into what it reads
    Elf *elf = library().elf_memory(copy.data(), copy.size());
    file.machine = machine_of(file.bytes);
    why = why_not(file, elf);
    if (why.empty()) read_parts(file, elf);
    if (why.empty() && file.program_headers.empty()) why = "a damaged ELF file";
    library().elf_end(elf);
    if (!why.empty()) return std::nullopt;
    return file;
}

const ElfSymbol *find_defined(const ElfFile &file, const std::string &name)
{
    for (const auto *symbols : {&file.exported, &file.all})
        for (const ElfSymbol &symbol : *symbols)
            if (symbol.is_defined && symbol.name == name) return &symbol;
    return nullptr;
}
