// SPDX-License-Identifier: MIT
//
// See elf_file.h.
#include "elf_file.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <gelf.h>
#include <iterator>
#include <map>

namespace {

constexpr size_t symbols_max = 1000000; // more is a damaged file

template <typename Record>
std::optional<Record> record_at(const ElfFile &file, uint32_t address)
{
    Record record;
    for (const ElfProgramHeader &header : file.program_headers) {
        if (address < header.address || address - header.address >= header.file_size) continue;
        const uint64_t offset = header.offset + (address - header.address);
        if (offset > file.bytes.size() || file.bytes.size() - offset < sizeof record) return std::nullopt;
        std::memcpy(&record, file.bytes.data() + offset, sizeof record);
        return record;
    }
    return std::nullopt;
}

// ---- The dynamic section ---------------------------------------------------------------------------------------

using Dynamic = std::multimap<int32_t, uint32_t>;

Dynamic read_dynamic(const ElfFile &file, uint32_t address)
{
    Dynamic dynamic;
    for (size_t i = 0; i < symbols_max; i++, address += sizeof(Elf32_Dyn)) {
        const auto entry = record_at<Elf32_Dyn>(file, address);
        if (!entry || entry->d_tag == DT_NULL) break;
        dynamic.emplace(entry->d_tag, entry->d_un.d_val);
    }
    return dynamic;
}

uint32_t value_of(const Dynamic &dynamic, int32_t tag)
{
    const auto found = dynamic.find(tag);
    return found == dynamic.end() ? 0 : found->second;
}

// The old table of hashes has the count; the new one has to be followed to the end of its last chain.
size_t count_by_gnu_hash(const ElfFile &file, uint32_t table)
{
    const uint32_t buckets = word_at(file, table).value_or(0);
    const uint32_t first = word_at(file, table + 4).value_or(0);
    const uint32_t words = word_at(file, table + 8).value_or(0);
    if (buckets > symbols_max || words > symbols_max) return 0;
    const uint32_t bucket = table + 16 + words * 4;
    uint32_t last = 0;
    for (uint32_t i = 0; i < buckets; i++)
        last = std::max(last, word_at(file, bucket + i * 4).value_or(0));
    if (last < first) return first;
    const uint32_t chain = bucket + buckets * 4;
    while (last < symbols_max && (word_at(file, chain + (last - first) * 4).value_or(1) & 1) == 0)
        last++;
    return last + 1;
}

size_t count_symbols(const ElfFile &file, const Dynamic &dynamic)
{
    const uint32_t table = value_of(dynamic, DT_HASH);
    const size_t count =
        table != 0 ? word_at(file, table + 4).value_or(0) : count_by_gnu_hash(file, value_of(dynamic, DT_GNU_HASH));
    return std::min(count, symbols_max);
}

ElfSymbol symbol_of(const Elf32_Sym &symbol, const std::string &name)
{
    return {name,
            symbol.st_value,
            symbol.st_size,
            ELF32_ST_TYPE(symbol.st_info),
            symbol.st_shndx != SHN_UNDEF,
            ELF32_ST_BIND(symbol.st_info) == STB_WEAK};
}

void read_exported(ElfFile &file, const Dynamic &dynamic)
{
    const uint32_t symbols = value_of(dynamic, DT_SYMTAB);
    const uint32_t names = value_of(dynamic, DT_STRTAB);
    const auto count = static_cast<uint32_t>(count_symbols(file, dynamic));
    for (uint32_t i = 1; i < count; i++) {
        const auto symbol = record_at<Elf32_Sym>(file, symbols + i * static_cast<uint32_t>(sizeof(Elf32_Sym)));
        if (!symbol) break;
        file.exported.push_back(symbol_of(*symbol, text_at(file, names + symbol->st_name)));
    }
}

void read_versions_needed(ElfFile &file, const Dynamic &dynamic)
{
    const uint32_t names = value_of(dynamic, DT_STRTAB);
    uint32_t at = value_of(dynamic, DT_VERNEED);
    for (uint32_t n = std::min(value_of(dynamic, DT_VERNEEDNUM), uint32_t{1000}); n > 0; n--) {
        const auto need = record_at<Elf32_Verneed>(file, at);
        if (!need) return;
        uint32_t each = at + need->vn_aux;
        for (int i = 0; i < need->vn_cnt; i++) {
            const auto version = record_at<Elf32_Vernaux>(file, each);
            if (!version) break;
            file.versions_needed.push_back({text_at(file, names + need->vn_file),
                                            text_at(file, names + version->vna_name),
                                            (version->vna_flags & VER_FLG_WEAK) != 0});
            each += version->vna_next;
        }
        at += need->vn_next;
    }
}

void read_versions(ElfFile &file, const Dynamic &dynamic)
{
    const uint32_t names = value_of(dynamic, DT_STRTAB);
    uint32_t at = value_of(dynamic, DT_VERDEF);
    for (uint32_t n = std::min(value_of(dynamic, DT_VERDEFNUM), uint32_t{10000}); n > 0; n--) {
        const auto version = record_at<Elf32_Verdef>(file, at);
        const auto name = version ? record_at<Elf32_Verdaux>(file, at + version->vd_aux) : std::nullopt;
        if (!name) return;
        file.versions.insert(text_at(file, names + name->vda_name));
        at += version->vd_next;
    }
}

// A relocation that only moves an address leaves it readable in the file; one that names a symbol does not.
void read_relocations(ElfFile &file, const Dynamic &dynamic)
{
    const uint32_t table = value_of(dynamic, DT_REL);
    const uint32_t size = value_of(dynamic, DT_RELSZ);
    for (uint32_t at = 0; at + sizeof(Elf32_Rel) <= size; at += sizeof(Elf32_Rel)) {
        const auto relocation = record_at<Elf32_Rel>(file, table + at);
        if (!relocation) return;
        if (ELF32_R_TYPE(relocation->r_info) == R_386_32) file.filled_by_name.insert(relocation->r_offset);
    }
}

void read_dynamic_part(ElfFile &file, uint32_t address)
{
    const Dynamic dynamic = read_dynamic(file, address);
    const uint32_t names = value_of(dynamic, DT_STRTAB);
    const auto text = [&](int32_t tag) {
        return dynamic.contains(tag) ? text_at(file, names + value_of(dynamic, tag)) : std::string();
    };
    const auto [begin, end] = dynamic.equal_range(DT_NEEDED);
    for (auto entry = begin; entry != end; ++entry)
        file.needed.push_back(text_at(file, names + entry->second));
    file.soname = text(DT_SONAME);
    file.rpath = text(DT_RPATH);
    file.runpath = text(DT_RUNPATH);
    read_exported(file, dynamic);
    read_versions_needed(file, dynamic);
    read_versions(file, dynamic);
    read_relocations(file, dynamic);
}

// ---- The file --------------------------------------------------------------------------------------------------

void read_symbol_table(ElfFile &file, Elf *elf)
{
    for (Elf_Scn *section = elf_nextscn(elf, nullptr); section != nullptr; section = elf_nextscn(elf, section)) {
        GElf_Shdr header;
        if (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_SYMTAB) continue;
        Elf_Data *data = elf_getdata(section, nullptr);
        GElf_Sym symbol;
        for (int i = 1; data != nullptr && gelf_getsym(data, i, &symbol) != nullptr; i++) {
            const char *name = elf_strptr(elf, header.sh_link, symbol.st_name);
            if (name == nullptr || symbol.st_shndx == SHN_UNDEF) continue;
            file.all.push_back({name, static_cast<uint32_t>(symbol.st_value), static_cast<uint32_t>(symbol.st_size),
                                GELF_ST_TYPE(symbol.st_info), true, GELF_ST_BIND(symbol.st_info) == STB_WEAK});
        }
    }
}

void read_program_headers(ElfFile &file, Elf *elf, std::optional<uint32_t> &dynamic)
{
    size_t count = 0;
    GElf_Phdr header;
    elf_getphdrnum(elf, &count);
    for (int i = 0; i < static_cast<int>(count) && gelf_getphdr(elf, i, &header) != nullptr; i++) {
        const auto address = static_cast<uint32_t>(header.p_vaddr);
        if (header.p_type == PT_LOAD)
            file.program_headers.push_back({address, static_cast<uint32_t>(header.p_filesz),
                                            static_cast<uint32_t>(header.p_memsz), header.p_offset});
        if (header.p_type == PT_DYNAMIC) dynamic = address;
        if (header.p_type == PT_INTERP && header.p_offset < file.bytes.size())
            file.loader = file.bytes.c_str() + header.p_offset;
    }
}

std::string why_not(const std::string &bytes, Elf *elf)
{
    if (!bytes.starts_with(ELFMAG)) return "not an ELF file";
    if (bytes.size() > EI_CLASS && bytes[EI_CLASS] == ELFCLASS64) return "a 64-bit program";
    GElf_Ehdr header;
    if (elf == nullptr || gelf_getehdr(elf, &header) == nullptr) return "a damaged ELF file";
    if (header.e_machine != EM_386)
        return "for another processor (ELF machine " + std::to_string(header.e_machine) + ")";
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN) return "an ELF file but not a program";
    return "";
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
    elf_version(EV_CURRENT);
    std::string copy = file.bytes; // libelf may write into what it reads
    Elf *elf = elf_memory(copy.data(), copy.size());
    why = why_not(file.bytes, elf);
    std::optional<uint32_t> dynamic;
    if (why.empty()) {
        read_program_headers(file, elf, dynamic);
        read_symbol_table(file, elf);
        if (dynamic) read_dynamic_part(file, *dynamic);
    }
    elf_end(elf);
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

std::optional<uint32_t> word_at(const ElfFile &file, uint32_t address)
{
    if (const auto word = record_at<uint32_t>(file, address)) return word;
    for (const ElfProgramHeader &header : file.program_headers)
        if (address >= header.address + header.file_size && address - header.address < header.memory_size) return 0;
    return std::nullopt;
}

std::string text_at(const ElfFile &file, uint32_t address)
{
    for (const ElfProgramHeader &header : file.program_headers) {
        if (address < header.address || address - header.address >= header.file_size) continue;
        const uint64_t offset = header.offset + (address - header.address);
        return offset < file.bytes.size() ? std::string(file.bytes.c_str() + offset) : "";
    }
    return "";
}
