// SPDX-License-Identifier: MIT
//
// See machine.h.
#include "machine.h"

#include <cstddef>
#include <cstring>
#include <elf.h>
#include <fstream>

namespace {

// The packages are Debian's: of the architecture, or
// for use beside the other word size.
constexpr ElfMachine machines[] = {
    {wire::machines[0],
     0x0003,
     "-m32",
     {"i686", "i586", "i386"},
     {"libc6:i386 or libc6-i386", "libgcc-s1:i386 or lib32gcc-s1", "libstdc++6:i386 or lib32stdc++6",
      "lib32kahost1"}},
    {wire::machines[1],
     0x0303,
     "-m64",
     {"haswell", "xeon_phi", "x86_64"},
     {"libc6:amd64 or libc6-amd64", "libgcc-s1:amd64 or lib64gcc-s1", "libstdc++6:amd64 or lib64stdc++6",
      "libkahost1"}},
};

// Which of the packages a library is in.
constexpr struct {
    const char *library;
    int package;
} system_packages[] = {
    {"libc.so.6", 0},    {"libm.so.6", 0},     {"libdl.so.2", 0},     {"librt.so.1", 0},     {"libpthread.so.0", 0},
    {"libutil.so.1", 0}, {"libgcc_s.so.1", 1}, {"libstdc++.so.6", 2}, {"libkahost.so.1", 3},
};

} // namespace

const ElfMachine *machine_of(std::string_view header)
{
    constexpr size_t at = offsetof(Elf64_Ehdr, e_machine); // it is there for both word sizes
    uint16_t number = 0;
    if (!header.starts_with(ELFMAG) || header.size() < at + sizeof number) return nullptr;
    std::memcpy(&number, header.data() + at, sizeof number);
    for (const ElfMachine &machine : machines)
        if (header[EI_CLASS] == machine.elf_class && number == machine.number) return &machine;
    return nullptr;
}

std::string header_of(const std::string &path)
{
    std::string header(sizeof(Elf64_Ehdr), '\0');
    std::ifstream stream(path, std::ios::binary);
    stream.read(header.data(), static_cast<std::streamsize>(header.size()));
    header.resize(static_cast<size_t>(stream.gcount()));
    return header;
}

std::optional<int> word_size_of(const std::string &path)
{
    const ElfMachine *machine = machine_of(header_of(path));
    return machine != nullptr ? std::optional(machine->bits) : std::nullopt;
}

const ElfMachine &other_machine(const ElfMachine &machine)
{
    return machines[&machine == &machines[0] ? 1 : 0];
}

std::string bits_text(const ElfMachine &machine)
{
    return std::to_string(machine.bits) + "-bit";
}

std::string package_of(const std::string &library, const ElfMachine &machine)
{
    for (const auto &row : system_packages)
        if (library == row.library) return machine.packages[row.package];
    return "";
}

std::string c_library_package(const ElfMachine &machine)
{
    return machine.packages[0];
}
