// SPDX-License-Identifier: MIT
//
// Files whose tables cannot be believed: built byte by byte, or a module that was damaged. Reading them comes to an
// end, and says what is wrong.
#include "caller/hosts.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <random>

#include "caller/waiting.h"
#include "ka/dll_module.h"

namespace {

constexpr uint32_t origin = 0x10000; // address of the file's first byte
constexpr uint32_t nowhere = 0xdead0000;

// A 32-bit program of one segment that holds the whole file: headers, symbols, and what a test adds.
class Program {
public:
    Program()
    {
        add_bytes(sizeof(Elf32_Ehdr) + 2 * sizeof(Elf32_Phdr));
        strings_ = add(std::string("\0KaFuncList\0KaArgList\0", 22));
    }
    uint32_t add(const std::string &bytes)
    {
        while (bytes_.size() % 4 != 0)
            bytes_ += '\0';
        bytes_ += bytes;
        return origin + static_cast<uint32_t>(bytes_.size() - bytes.size());
    }
    uint32_t add_bytes(size_t count) { return add(std::string(count, '\0')); }
    uint32_t add_words(const std::vector<uint32_t> &words)
    {
        return add({reinterpret_cast<const char *>(words.data()), words.size() * 4});
    }
    uint32_t add_text(const std::string &text) { return add(text + '\0'); }
    uint32_t function(uint32_t name, int32_t arg_idx, int32_t arg_cnt)
    {
        return add_words({name, static_cast<uint32_t>(arg_idx), static_cast<uint32_t>(arg_cnt), 0});
    }
    uint32_t end_of_functions() { return function(0, 0, 0); }

    // The file, with the tables at these addresses, and the hash table of the test's making or a sound one.
    std::string file(uint32_t functions, uint32_t prototypes, std::vector<uint32_t> hash = {1, 3, 1, 0, 2, 0})
    {
        const uint32_t symbols = add_words({0, 0, 0, 0});
        add_words({1, functions, 16, STT_OBJECT | STB_GLOBAL << 4 | 1 << 16});
        add_words({12, prototypes, 12, STT_OBJECT | STB_GLOBAL << 4 | 1 << 16});
        const uint32_t table = add_words(hash);
        const uint32_t dynamic =
            add_words({DT_HASH, table, DT_SYMTAB, symbols, DT_STRTAB, strings_, DT_NULL, 0, DT_NULL, 0});
        write_headers(dynamic);
        return bytes_;
    }

private:
    void write_headers(uint32_t dynamic)
    {
        Elf32_Ehdr header = {};
        std::memcpy(header.e_ident, ELFMAG, SELFMAG);
        header.e_ident[EI_CLASS] = ELFCLASS32;
        header.e_ident[EI_DATA] = ELFDATA2LSB;
        header.e_type = ET_EXEC;
        header.e_machine = EM_386;
        header.e_phoff = sizeof header;
        header.e_phentsize = sizeof(Elf32_Phdr);
        header.e_phnum = 2;
        const auto size = static_cast<Elf32_Word>(bytes_.size());
        const Elf32_Phdr segments[] = {{PT_LOAD, 0, origin, origin, size, size, PF_R | PF_W, 0x1000},
                                       {PT_DYNAMIC, dynamic - origin, dynamic, dynamic, 80, 80, PF_R, 4}};
        std::memcpy(bytes_.data(), &header, sizeof header);
        std::memcpy(bytes_.data() + sizeof header, segments, sizeof segments);
    }
    std::string bytes_;
    uint32_t strings_;
};

struct Reading {
    explicit Reading(const std::string &bytes) : file(bytes, 0644)
    {
        tables = ka_read_tables(file.path.c_str(), why, sizeof why);
        EXPECT_EQ(tables == nullptr, why[0] != '\0') << why;
    }
    ~Reading() { ka_free_tables(tables); }
    File file;
    char why[200] = "";
    ka_tables *tables;
};

} // namespace

TEST(BrokenFiles, builder_of_these_tests_makes_sound_ones)
{
    Program program;
    const uint32_t name = program.add_text("f");
    const uint32_t prototypes = program.add_words({program.add_text("x"), KA_INT_ARRAY, 4});
    const uint32_t functions = program.function(name, 0, 1);
    program.end_of_functions();
    const Reading reading(program.file(functions, prototypes));
    ASSERT_NE(reading.tables, nullptr) << reading.why;
    ASSERT_EQ(reading.tables->function_count, 1);
    EXPECT_STREQ(reading.tables->functions[0].prototypes[0].name, "x");
    EXPECT_EQ(reading.tables->functions[0].prototypes[0].min_elements, 4);
}

TEST(BrokenFiles, table_that_lies_nowhere_or_never_ends_is_told)
{
    {
        Program program;
        EXPECT_STREQ(Reading(program.file(nowhere, origin)).why, "KaFuncList runs out of the module");
    }
    {
        Program program; // the last function is the last of the file, which fills its last page
        const uint32_t name = program.add_text("f");
        std::string file = program.file(0, 0);
        const uint32_t functions = origin + 4096 - 64;
        file = program.file(functions, origin);
        file.resize(4096 - 64, '\0');
        for (int i = 0; i < 4; i++)
            file.append(reinterpret_cast<const char *>(&name), 4).append(12, '\0');
        std::memcpy(file.data() + sizeof(Elf32_Ehdr) + offsetof(Elf32_Phdr, p_filesz), "\0\x10\0\0\0\x10\0\0", 8);
        EXPECT_STREQ(Reading(file).why, "KaFuncList runs out of the module");
    }
    {
        Program program;
        const uint32_t name = program.add_text("f");
        std::vector<uint32_t> words;
        for (int i = 0; i < 100001; i++)
            words.insert(words.end(), {name, 0, 0, 0});
        const uint32_t functions = program.add_words(words);
        EXPECT_STREQ(Reading(program.file(functions, origin)).why, "KaFuncList has no end within 100000 functions");
    }
}

// A table that is cut off is not one that the module fills as it starts: no memory is added after the file's bytes.
TEST(BrokenFiles, table_across_the_end_of_the_file_is_not_filled_at_start)
{
    Program program;
    const uint32_t name = program.add_text("f");
    constexpr uint32_t size = 4000; // the rest of the page reads as zeros
    std::string file = program.file(origin + size - 20, origin);
    file.resize(size - 20, '\0');
    file.append(reinterpret_cast<const char *>(&name), 4).append(16, '\0');
    for (const size_t field : {offsetof(Elf32_Phdr, p_filesz), offsetof(Elf32_Phdr, p_memsz)})
        std::memcpy(file.data() + sizeof(Elf32_Ehdr) + field, &size, sizeof size);
    const Reading reading(file);
    ASSERT_NE(reading.tables, nullptr) << reading.why;
    EXPECT_EQ(reading.tables->function_count, 1);
    EXPECT_EQ(reading.tables->filled_at_start, 0);
}

TEST(BrokenFiles, names_that_are_none_are_told)
{
    {
        Program program;
        const uint32_t functions = program.function(program.add_text("f"), 0, 0);
        program.function(nowhere, 0, 0);
        EXPECT_STREQ(Reading(program.file(functions, origin)).why, "function 1 has a name outside the module");
    }
    {
        Program program;
        const uint32_t functions = program.function(program.add_text(std::string(1024, 'n')), 0, 0);
        program.end_of_functions();
        EXPECT_STREQ(Reading(program.file(functions, origin)).why, "function 0 has a name of more than 1023 bytes");
    }
}

TEST(BrokenFiles, name_of_greatest_length_is_kept)
{
    Program program;
    const std::string longest(1023, 'n');
    const uint32_t functions = program.function(program.add_text(longest), 0, 0);
    program.end_of_functions();
    const Reading reading(program.file(functions, origin));
    ASSERT_NE(reading.tables, nullptr) << reading.why;
    EXPECT_NE(ka_find_function(reading.tables, longest.c_str()), nullptr);
    EXPECT_EQ(ka_find_function(reading.tables, longest.substr(1).c_str()), nullptr);
}

TEST(BrokenFiles, absurd_prototypes_cost_nothing_but_themselves)
{
    Program program;
    const uint32_t name = program.add_text("f");
    const uint32_t prototypes = program.add_words({nowhere, 77, 0});
    const uint32_t functions = program.function(name, 0, 1);
    program.function(name, 0, INT32_MAX);
    program.function(name, 0, INT32_MIN);
    program.function(name, 0x08000000, 1);
    program.end_of_functions();
    const Reading reading(program.file(functions, prototypes));
    ASSERT_NE(reading.tables, nullptr) << reading.why;
    const ka_function *list = reading.tables->functions;
    EXPECT_STREQ(list[0].prototypes[0].name, "");
    EXPECT_EQ(list[0].prototypes[0].kind, 77);
    EXPECT_EQ(list[1].prototype_count, 51);
    EXPECT_EQ(list[2].prototype_count, INT32_MIN);
    EXPECT_EQ(list[3].prototype_count, 1);
    EXPECT_LT(list[3].prototypes[0].kind, 0);
    EXPECT_EQ(ka_find_function(reading.tables, "f"), &list[0]);
}

TEST(BrokenFiles, tables_larger_than_any_module_has_are_refused)
{
    Program program;
    const uint32_t name = program.add_text("f");
    const uint32_t long_name = program.add_text(std::string(1000, 'x'));
    std::vector<uint32_t> prototypes;
    for (int i = 0; i < 51; i++)
        prototypes.insert(prototypes.end(), {long_name, 0, 0});
    std::vector<uint32_t> functions;
    for (int i = 0; i < 5000; i++)
        functions.insert(functions.end(), {name, 0, 51, 0});
    functions.insert(functions.end(), {0, 0, 0, 0});
    const uint32_t list = program.add_words(functions);
    EXPECT_STREQ(Reading(program.file(list, program.add_words(prototypes))).why, "the tables take more than 64 MiB");
}

TEST(BrokenFiles, hash_tables_that_go_in_circles_or_astray_come_to_an_end)
{
    const std::vector<std::vector<uint32_t>> tables = {
        {1, 3, 0, 0, 0, 0},          {1, 3, 1, 0, 1, 0}, {0, 0, 0, 0, 0, 0}, {1, 3, 0x7fffffff, 0, 0, 0},
        {0xffffffff, 3, 1, 0, 0, 0}, {1, 3, 2, 0, 0, 2}, {1, 3, 2, 0, 0, 0}, {1, 3, 1, 0, 0xfffffff0, 0},
    };
    for (const std::vector<uint32_t> &table : tables) {
        Program program;
        const uint32_t functions = program.end_of_functions();
        const Reading reading(program.file(functions, functions, table));
        EXPECT_EQ(std::string(reading.why).substr(0, 14), "not a module: ");
    }
}

// ---- Damaged modules -------------------------------------------------------------------------------------------

// Wherever the file is cut off.
TEST(BrokenFiles, cut_off_modules_are_read_to_an_end)
{
    const std::string whole = read_file(module_folder(CALLER_MODULES) + "/caller_module_stripped");
    for (size_t length = 0; length < whole.size(); length += 97)
        Reading(whole.substr(0, length));
}

// Headers, symbols and tables are what is hit: bytes that are not 0.
TEST(BrokenFiles, damaged_modules_are_read_to_an_end)
{
    const std::string whole = read_file(module_folder(CALLER_MODULES) + "/caller_module_fixed_stripped");
    std::mt19937 random(20260);
    int sound = 0;
    for (int round = 0; round < 1500; round++) {
        std::string damaged = whole;
        for (auto hits = random() % 20 + 1; hits > 0; hits--) {
            const bool in_headers = random() % 3 == 0;
            const size_t at = random() % (in_headers ? 0x600 : damaged.size());
            if (damaged[at] != '\0') damaged[at] = static_cast<char>(random());
        }
        if (Reading(damaged).tables) sound++;
    }
    EXPECT_GT(sound, 0);
    EXPECT_LT(sound, 1500);
}
