// SPDX-License-Identifier: MIT
//
// See tables.h. A module exports its two tables to the host, so they are in the dynamic symbol table, which stays in
// a stripped file too. Pointers in them are addresses of the file's own image: on 32-bit x86 a relocation that only
// moves an address keeps that address in place.
#include "tables.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <gelf.h>
#include <optional>
#include <string_view>
#include <unistd.h>

#include "ka/dll_block.h"
#include "ka/dll_module.h"

namespace {

constexpr size_t word = 4; // of a module, whatever this program's is
constexpr size_t function_record = 4 * word;
constexpr size_t prototype_record = 3 * word;
constexpr size_t functions_max = 100000; // a table without an end is no table

class Image {
public:
    explicit Image(const std::string &path)
    {
        elf_version(EV_CURRENT);
        fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ >= 0) elf_ = elf_begin(fd_, ELF_C_READ, nullptr);
        if (elf_ == nullptr || gelf_getclass(elf_) != ELFCLASS32) return;
        bytes_ = elf_rawfile(elf_, &size_);
        elf_getphdrnum(elf_, &segments_);
    }
    ~Image()
    {
        elf_end(elf_);
        if (fd_ >= 0) close(fd_);
    }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    // The address of a dynamic symbol; 0 when the file does not define it.
    uint32_t symbol(const char *name) const
    {
        for (Elf_Scn *section = next(nullptr); section != nullptr; section = next(section)) {
            GElf_Shdr header;
            if (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_DYNSYM) continue;
            Elf_Data *data = elf_getdata(section, nullptr);
            GElf_Sym symbol;
            for (int i = 0; data != nullptr && gelf_getsym(data, i, &symbol) != nullptr; i++) {
                const char *own = elf_strptr(elf_, header.sh_link, symbol.st_name);
                if (own != nullptr && symbol.st_shndx != SHN_UNDEF && std::strcmp(own, name) == 0)
                    return static_cast<uint32_t>(symbol.st_value);
            }
        }
        return 0;
    }

    // The file's bytes from an address to the end of its segment.
    std::string_view at(uint32_t address) const
    {
        GElf_Phdr header;
        for (int i = 0; i < static_cast<int>(segments_) && gelf_getphdr(elf_, i, &header) != nullptr; i++) {
            if (header.p_type != PT_LOAD || address < header.p_vaddr || address - header.p_vaddr >= header.p_filesz)
                continue;
            const uint64_t inside = address - header.p_vaddr;
            const uint64_t offset = header.p_offset + inside;
            if (offset >= size_) return {};
            return {bytes_ + offset, std::min<uint64_t>(header.p_filesz - inside, size_ - offset)};
        }
        return {};
    }

    std::optional<uint32_t> word_at(uint32_t address) const
    {
        const std::string_view bytes = at(address);
        uint32_t value;
        if (bytes.size() < sizeof value) return std::nullopt;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }

    std::string text_at(uint32_t address) const
    {
        const std::string_view bytes = at(address);
        return std::string(bytes.substr(0, bytes.find('\0')));
    }

private:
    Elf_Scn *next(Elf_Scn *section) const { return elf_ != nullptr ? elf_nextscn(elf_, section) : nullptr; }

    int fd_ = -1;
    Elf *elf_ = nullptr;
    const char *bytes_ = nullptr;
    size_t size_ = 0;
    size_t segments_ = 0;
};

std::vector<Prototype> read_prototypes(const Image &image, uint32_t list, uint32_t first, uint32_t count)
{
    std::vector<Prototype> prototypes;
    for (uint32_t i = 0; i < count && i < DLL_MAX_ARGS; i++) {
        const auto record = static_cast<uint32_t>(list + (first + i) * prototype_record);
        const auto name = image.word_at(record);
        const auto type = image.word_at(record + word);
        const auto min_elcnt = image.word_at(record + 2 * word);
        if (!name || !type || !min_elcnt) break;
        prototypes.push_back({image.text_at(*name), static_cast<int32_t>(*type), static_cast<int32_t>(*min_elcnt)});
    }
    return prototypes;
}

} // namespace

std::vector<Function> read_tables(const std::string &module)
{
    const Image image(module);
    const uint32_t functions = image.symbol("KaFuncList");
    const uint32_t prototypes = image.symbol("KaArgList");
    std::vector<Function> tables;
    for (uint32_t record = functions; functions != 0 && tables.size() < functions_max; record += function_record) {
        const auto name = image.word_at(record);
        const auto first = image.word_at(record + word);
        const auto count = image.word_at(record + 2 * word);
        if (!name || *name == 0 || !first || !count) break;
        tables.push_back({image.text_at(*name), read_prototypes(image, prototypes, *first, *count)});
    }
    return tables;
}

std::vector<std::string> argument_names(const std::vector<Function> &tables, const std::string &function,
                                        size_t count)
{
    const auto is_it = [&](const Function &own) { return own.name == function; };
    const auto found = std::find_if(tables.begin(), tables.end(), is_it);
    const std::vector<Prototype> prototypes = found == tables.end() ? std::vector<Prototype>{} : found->prototypes;
    std::vector<std::string> names;
    size_t argi = 0; // a VarArg also matches all that follow it
    for (size_t i = 0; i < count; i++) {
        const std::string position = "argument " + std::to_string(i + 1);
        const bool known = argi < prototypes.size();
        const bool repeats = known && prototypes[argi].type == KA_VARARG;
        const bool shares = repeats && count > argi + 1;
        names.push_back(!known ? position : prototypes[argi].name + (shares ? " (" + position + ")" : ""));
        if (!repeats) argi++;
    }
    return names;
}
