// SPDX-License-Identifier: MIT
//
// See elf_file.h: the dynamic section, and what it leads to.
#include "elf_file.h"

#include <algorithm>

namespace {

constexpr size_t entries_max = 1000000; // more is a damaged file

// ---- Symbols ---------------------------------------------------------------------------------------------------

// The old table of hashes has the count; the new one has to be followed to the end of its last chain.
uint64_t count_by_gnu_hash(const ElfFile &file, uint64_t table)
{
    const uint32_t buckets = word_at(file, table).value_or(0);
    const uint32_t first = word_at(file, table + 4).value_or(0);
    const uint32_t filter_words = word_at(file, table + 8).value_or(0);
    if (buckets > entries_max || filter_words > entries_max) return 0;
    const uint64_t bucket = table + 16 + filter_words * (static_cast<uint64_t>(file.machine->bits) / 8);
    uint32_t last = 0;
    for (uint32_t i = 0; i < buckets; i++)
        last = std::max(last, word_at(file, bucket + i * 4).value_or(0));
    if (last < first) return first;
    const uint64_t chain = bucket + buckets * 4;
    while (last < entries_max && (word_at(file, chain + (last - first) * 4).value_or(1) & 1) == 0)
        last++;
    return uint64_t{last} + 1;
}

uint64_t count_symbols(const ElfFile &file)
{
    const uint64_t table = dynamic_value(file, DT_HASH);
    const uint64_t count =
        table != 0 ? word_at(file, table + 4).value_or(0) : count_by_gnu_hash(file, dynamic_value(file, DT_GNU_HASH));
    return std::min<uint64_t>(count, entries_max);
}

template <typename Elf>
void read_exported(ElfFile &file)
{
    const uint64_t symbols = dynamic_value(file, DT_SYMTAB);
    const uint64_t names = dynamic_value(file, DT_STRTAB);
    const uint64_t count = count_symbols(file);
    for (uint64_t i = 1; i < count; i++) {
        const auto symbol = record_at<typename Elf::Symbol>(file, symbols + i * sizeof(typename Elf::Symbol));
        if (!symbol) break;
        file.exported.push_back({text_at(file, names + symbol->st_name), symbol->st_value, symbol->st_size,
                                 ELF32_ST_TYPE(symbol->st_info), symbol->st_shndx != SHN_UNDEF,
                                 ELF32_ST_BIND(symbol->st_info) == STB_WEAK});
    }
}

// ---- Versions --------------------------------------------------------------------------------------------------

void read_versions_needed(ElfFile &file)
{
    const uint64_t names = dynamic_value(file, DT_STRTAB);
    uint64_t at = dynamic_value(file, DT_VERNEED);
    for (uint64_t n = std::min(dynamic_value(file, DT_VERNEEDNUM), uint64_t{1000}); n > 0; n--) {
        const auto need = record_at<Elf32_Verneed>(file, at);
        if (!need) return;
        uint64_t each = at + need->vn_aux;
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

void read_versions(ElfFile &file)
{
    const uint64_t names = dynamic_value(file, DT_STRTAB);
    uint64_t at = dynamic_value(file, DT_VERDEF);
    for (uint64_t n = std::min(dynamic_value(file, DT_VERDEFNUM), uint64_t{10000}); n > 0; n--) {
        const auto version = record_at<Elf32_Verdef>(file, at);
        const auto name = version ? record_at<Elf32_Verdaux>(file, at + version->vd_aux) : std::nullopt;
        if (!name) return;
        file.versions.insert(text_at(file, names + name->vda_name));
        at += version->vd_next;
    }
}

// ---- All -------------------------------------------------------------------------------------------------------

template <typename Elf>
void read_entries(ElfFile &file, uint64_t address)
{
    for (size_t i = 0; i < entries_max; i++, address += sizeof(typename Elf::Dynamic)) {
        const auto entry = record_at<typename Elf::Dynamic>(file, address);
        if (!entry || entry->d_tag == DT_NULL) break;
        file.dynamic.emplace(entry->d_tag, entry->d_un.d_val);
    }
}

void read_texts(ElfFile &file)
{
    const uint64_t names = dynamic_value(file, DT_STRTAB);
    const auto text = [&](int64_t tag) {
        return file.dynamic.contains(tag) ? text_at(file, names + dynamic_value(file, tag)) : std::string();
    };
    const auto [begin, end] = file.dynamic.equal_range(DT_NEEDED);
    for (auto entry = begin; entry != end; ++entry)
        file.needed.push_back(text_at(file, names + entry->second));
    file.soname = text(DT_SONAME);
    file.rpath = text(DT_RPATH);
    file.runpath = text(DT_RUNPATH);
}

template <typename Elf>
void read_all(ElfFile &file, uint64_t address)
{
    read_entries<Elf>(file, address);
    read_texts(file);
    read_exported<Elf>(file);
    read_versions_needed(file);
    read_versions(file);
}

} // namespace

void read_dynamic_part(ElfFile &file, uint64_t address)
{
    if (file.machine->elf_class == ELFCLASS64)
        read_all<Elf64>(file, address);
    else
        read_all<Elf32>(file, address);
}

uint64_t dynamic_value(const ElfFile &file, int64_t tag)
{
    const auto found = file.dynamic.find(tag);
    return found == file.dynamic.end() ? 0 : found->second;
}
