// SPDX-License-Identifier: MIT
//
// See pointers.h.
#include "pointers.h"

Pointers::Pointers(const ElfFile &file) : file_(file)
{
    if (file.machine->elf_class == ELFCLASS64)
        read<Elf64>();
    else
        read<Elf32>();
}

template <typename Elf>
void Pointers::read()
{
    read_table<Elf, typename Elf::Relocation>(dynamic_value(file_, DT_REL), dynamic_value(file_, DT_RELSZ));
    read_table<Elf, typename Elf::RelocationWithAddend>(dynamic_value(file_, DT_RELA),
                                                        dynamic_value(file_, DT_RELASZ));
}

// A table is as long as it says, or as the file.
template <typename Elf, typename Relocation>
void Pointers::read_table(uint64_t table, uint64_t size)
{
    for (uint64_t at = 0; at < size && size - at >= sizeof(Relocation); at += sizeof(Relocation)) {
        const auto each = record_at<Relocation>(file_, table + at);
        if (!each) return;
        uint64_t addend = 0;
        if constexpr (requires { each->r_addend; })
            addend = static_cast<typename Elf::Word>(each->r_addend);
        else
            addend = in_place(each->r_offset);
        relocate(each->r_offset, Elf::type_of(each->r_info), Elf::symbol_of(each->r_info), addend);
    }
}

void Pointers::relocate(uint64_t place, uint32_t type, uint32_t symbol, uint64_t addend)
{
    if (type == file_.machine->relative) relocated_[place] = addend;
    if (type != file_.machine->symbolic) return;
    const bool is_own = symbol > 0 && symbol <= file_.exported.size() && file_.exported[symbol - 1].is_defined;
    relocated_[place] = is_own ? std::optional(file_.exported[symbol - 1].value + addend) : std::nullopt;
    if (is_own && file_.machine->bits == 32) *relocated_[place] &= UINT32_MAX; // it wraps
}

uint64_t Pointers::in_place(uint64_t address) const
{
    if (file_.machine->bits == 64) return record_at<uint64_t>(file_, address).value_or(0);
    return record_at<uint32_t>(file_, address).value_or(0);
}

std::optional<uint64_t> Pointers::at(uint64_t address) const
{
    const auto found = relocated_.find(address);
    return found != relocated_.end() ? found->second : in_place(address);
}

std::optional<std::string> Pointers::text_at(uint64_t address) const
{
    const auto pointer = at(address);
    if (!pointer || is_filled_at_start(file_, *pointer)) return std::nullopt;
    return ::text_at(file_, *pointer);
}
