// SPDX-License-Identifier: MIT
//
// ka list and ka check read files that are damaged: in the headers, in what the dynamic linker reads, in the tables.
// Whatever is there, they end with a status of the table and say what is wrong, in words that a terminal only shows.
// KA_SEED repeats a run.
#include <cctype>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <unistd.h>

#include "ka/built_module.h"
#include "ka/caller.h"
#include "ka/command.h"
#include "ka/terminal_text.h"

namespace {

struct Part {
    size_t offset, size;
};

template <typename Record>
Record record_at(const std::string &bytes, size_t offset)
{
    Record record;
    std::memcpy(&record, bytes.data() + offset, sizeof record);
    return record;
}

// The ELF, program and section headers, and each section without code that has bytes in the file.
template <typename Header, typename ProgramHeader, typename Section>
std::vector<Part> parts_of(const std::string &module)
{
    const auto header = record_at<Header>(module, 0);
    std::vector<Part> parts = {{0, sizeof header},
                               {header.e_phoff, header.e_phnum * sizeof(ProgramHeader)},
                               {header.e_shoff, header.e_shnum * sizeof(Section)}};
    for (size_t i = 0; i < header.e_shnum; i++) {
        const auto section = record_at<Section>(module, header.e_shoff + i * sizeof(Section));
        const bool is_code = (section.sh_flags & SHF_EXECINSTR) != 0;
        const bool is_mapped = (section.sh_flags & SHF_ALLOC) != 0;
        if (section.sh_type != SHT_NOBITS && is_mapped && !is_code)
            parts.push_back({section.sh_offset, section.sh_size});
    }
    return parts;
}

// What a terminal would obey, in the middle of a text.
void damage_text(std::string &module, const Part &part, std::mt19937 &random)
{
    static const std::string pieces[] = {"\x1b[31m", "\x1b]0;x\a", "\x9b", "\xc2\x9b", "\x7f", "\r", "\xe2\x80\xae"};
    const std::string &piece = pieces[random() % std::size(pieces)];
    const auto is_text = [&](size_t at) { return std::isgraph(static_cast<unsigned char>(module[at])) != 0; };
    const size_t begin = part.offset + random() % (part.size + 1);
    for (size_t at = begin; at + piece.size() < std::min(part.offset + part.size, module.size()); at++) {
        if (at < 2 || !is_text(at - 2) || !is_text(at - 1) || !is_text(at)) continue;
        module.replace(at, piece.size(), piece);
        return;
    }
}

// A byte with another bit, a word that does harm where it is trusted, or a text that does harm where it is shown.
void damage(std::string &module, const std::vector<Part> &parts, std::mt19937 &random)
{
    static constexpr uint32_t words[] = {0, 1, 2, 0xffff, 0x1000, 0x7fffffff, 0x80000000, 0xfffffff0, 0xffffffff};
    const Part &part = parts[random() % parts.size()];
    const size_t at = std::min(part.offset + random() % (part.size + 1), module.size() - sizeof(uint32_t));
    const auto any = static_cast<uint32_t>(random());
    switch (random() % 5) {
    case 0:
        module[at] = static_cast<char>(module[at] ^ (1 << random() % 8));
        break;
    case 1:
        std::memcpy(&module[at / 4 * 4], &words[random() % std::size(words)], sizeof(uint32_t));
        break;
    case 2:
        std::memcpy(&module[at / 4 * 4], &any, sizeof any);
        break;
    default:
        damage_text(module, part, random);
    }
}

unsigned seed_of_run()
{
    const char *given = std::getenv("KA_SEED");
    return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
}

void expect_harmless(const Outcome &outcome)
{
    EXPECT_EQ(fault_on_terminal(outcome.out), "") << outcome.out;
    EXPECT_EQ(fault_on_terminal(outcome.err), "") << outcome.err;
}

void expect_listed_or_refused(const std::string &path)
{
    const Outcome list = ka({"list", "--json", path});
    EXPECT_TRUE(list.status == 0 || list.status == 4) << list.status << list.err;
    EXPECT_TRUE(nlohmann::json::accept(list.out)) << list.out;
    EXPECT_EQ(list.err.empty(), list.status == 0) << list.err;
    expect_harmless(list);
    expect_harmless(ka({"list", path}));
}

void expect_checked(const std::string &path)
{
    const Outcome check = ka({"check", "--no-start", "--json", path});
    EXPECT_TRUE(check.status == 0 || check.status == 1 || check.status == 4) << check.status << check.err;
    ASSERT_TRUE(nlohmann::json::accept(check.out)) << check.out;
    const auto findings = nlohmann::json::parse(check.out)["findings"];
    EXPECT_TRUE(check.status == 0 || !findings.empty()) << check.out;
    EXPECT_EQ(check.err, "");
    expect_harmless(check);
    expect_harmless(ka({"check", "--no-start", path}));
}

void expect_read_or_refused(const std::string &path)
{
    char why[200] = "";
    ka_tables *tables = ka_read_tables(path.c_str(), why, sizeof why);
    EXPECT_EQ(tables == nullptr, why[0] != '\0') << why;
    EXPECT_EQ(fault_on_terminal(why), "") << why;
    ka_free_tables(tables);
}

} // namespace

TEST(KaModuleHostile, damaged_modules_are_read_to_an_end)
{
    const unsigned seed = seed_of_run();
    std::mt19937 random(seed);
    const std::string sound = read_file(tasks_module);
    const std::vector<Part> parts = module_bits() == 64 ? parts_of<Elf64_Ehdr, Elf64_Phdr, Elf64_Shdr>(sound)
                                                        : parts_of<Elf32_Ehdr, Elf32_Phdr, Elf32_Shdr>(sound);
    const std::string path = module_folder(CALLER_MODULES) + "/damaged." + std::to_string(getpid());
    for (int round = 0; round < 200 && !HasFailure(); round++) {
        std::string module = sound;
        for (unsigned n = 1u << random() % 5; n > 0; n--)
            damage(module, parts, random);
        if (random() % 12 == 0) module.resize(random() % module.size());
        std::ofstream(path, std::ios::binary) << module;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        expect_listed_or_refused(path);
        expect_read_or_refused(path);
        if (round % 4 == 0) expect_checked(path); // which reads all libraries too
        EXPECT_FALSE(HasFailure()) << "KA_SEED=" << seed << ", round " << round << "; the module is left: " << path;
    }
    if (!HasFailure()) std::filesystem::remove(path);
}

TEST(KaModuleHostile, prototype_outside_the_module_is_listed_as_that)
{
    const BuiltModule module("t_DLL_PROTO KaArgList[] = {{\"v\", 1, 0}};"
                             "t_DLL_FUNC KaFuncList[] = {{\"f\", 90000000, 1}, {0}};");
    const Outcome outcome = ka({"list", module.path()});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("outside the module"), std::string::npos) << outcome.out;
    const auto json = nlohmann::json::parse(ka({"list", "--json", module.path()}).out);
    EXPECT_EQ(json["functions"][0]["arguments"][0]["kind"], "outside the module");
}
