// SPDX-License-Identifier: MIT
//
// Files whose tables cannot be believed: built byte by byte, or a module that was damaged. Reading them comes to an
// end, and says what is wrong.
#include "caller/hosts.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <random>

#include "caller/elf_program.h"
#include "caller/waiting.h"
#include "ka/dll_module.h"

namespace {

constexpr uint64_t origin = ElfProgram::origin;
constexpr uint64_t nowhere = ElfProgram::nowhere;

struct Program : ElfProgram {
    Program() : ElfProgram(module_bits()) {}
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
    const uint64_t name = program.add_text("f");
    const uint64_t prototypes = program.prototype(program.add_text("x"), KA_INT_ARRAY, 4);
    const uint64_t functions = program.function(name, 0, 1);
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
        const uint64_t name = program.add_text("f");
        program.load(4096, 4096);
        const uint64_t functions = origin + 4096 - 4 * program.function_bytes();
        std::string file = program.file(functions, origin);
        file.resize(4096, '\0');
        for (uint64_t at = functions; at < origin + 4096; at += program.function_bytes())
            std::memcpy(file.data() + (at - origin), &name, program.word());
        EXPECT_STREQ(Reading(file).why, "KaFuncList runs out of the module");
    }
    {
        Program program;
        const uint64_t name = program.add_text("f");
        const uint64_t functions = program.function(name, 0, 0);
        for (int i = 0; i < 100000; i++)
            program.function(name, 0, 0);
        EXPECT_STREQ(Reading(program.file(functions, origin)).why, "KaFuncList has no end within 100000 functions");
    }
}

// A table that is cut off is not one that the module fills as it starts: no memory is added after the file's bytes.
TEST(BrokenFiles, table_across_the_end_of_the_file_is_not_filled_at_start)
{
    Program program;
    const uint64_t name = program.add_text("f");
    const size_t size = 4096 - 2 * program.function_bytes() + program.word(); // the rest of the page reads as zeros
    const uint64_t functions = origin + size - program.word() - program.function_bytes();
    program.load(size, size);
    std::string file = program.file(functions, origin);
    file.resize(size, '\0');
    std::memcpy(file.data() + (functions - origin), &name, program.word());
    const Reading reading(file);
    ASSERT_NE(reading.tables, nullptr) << reading.why;
    EXPECT_EQ(reading.tables->function_count, 1);
    EXPECT_EQ(reading.tables->filled_at_start, 0);
}

TEST(BrokenFiles, names_that_are_none_are_told)
{
    {
        Program program;
        const uint64_t functions = program.function(program.add_text("f"), 0, 0);
        program.function(nowhere, 0, 0);
        EXPECT_STREQ(Reading(program.file(functions, origin)).why, "function 1 has a name outside the module");
    }
    {
        Program program;
        const uint64_t functions = program.function(program.add_text(std::string(1024, 'n')), 0, 0);
        program.end_of_functions();
        EXPECT_STREQ(Reading(program.file(functions, origin)).why, "function 0 has a name of more than 1023 bytes");
    }
}

TEST(BrokenFiles, name_of_greatest_length_is_kept)
{
    Program program;
    const std::string longest(1023, 'n');
    const uint64_t functions = program.function(program.add_text(longest), 0, 0);
    program.end_of_functions();
    const Reading reading(program.file(functions, origin));
    ASSERT_NE(reading.tables, nullptr) << reading.why;
    EXPECT_NE(ka_find_function(reading.tables, longest.c_str()), nullptr);
    EXPECT_EQ(ka_find_function(reading.tables, longest.substr(1).c_str()), nullptr);
}

TEST(BrokenFiles, absurd_prototypes_cost_nothing_but_themselves)
{
    Program program;
    const uint64_t name = program.add_text("f");
    const uint64_t prototypes = program.prototype(nowhere, 77, 0);
    const uint64_t functions = program.function(name, 0, 1);
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
    const uint64_t name = program.add_text("f");
    const uint64_t long_name = program.add_text(std::string(1000, 'x'));
    const uint64_t prototypes = program.prototype(long_name, 0, 0);
    for (int i = 1; i < 51; i++)
        program.prototype(long_name, 0, 0);
    const uint64_t functions = program.function(name, 0, 51);
    for (int i = 1; i < 5000; i++)
        program.function(name, 0, 51);
    program.end_of_functions();
    EXPECT_STREQ(Reading(program.file(functions, prototypes)).why, "the tables take more than 64 MiB");
}

TEST(BrokenFiles, hash_tables_that_go_in_circles_or_astray_come_to_an_end)
{
    const std::vector<std::vector<uint32_t>> tables = {
        {1, 3, 0, 0, 0, 0},          {1, 3, 1, 0, 1, 0}, {0, 0, 0, 0, 0, 0}, {1, 3, 0x7fffffff, 0, 0, 0},
        {0xffffffff, 3, 1, 0, 0, 0}, {1, 3, 2, 0, 0, 2}, {1, 3, 2, 0, 0, 0}, {1, 3, 1, 0, 0xfffffff0, 0},
    };
    for (const std::vector<uint32_t> &table : tables) {
        Program program;
        const uint64_t functions = program.end_of_functions();
        const Reading reading(program.file(functions, functions, table));
        EXPECT_EQ(std::string(reading.why).substr(0, 14), "not a module: ");
    }
}

// ---- Damaged modules -------------------------------------------------------------------------------------------

// Wherever the file is cut off.
TEST(BrokenFiles, cut_off_modules_are_read_to_an_end)
{
    const std::string whole = read_file(module_path("stripped"));
    for (size_t length = 0; length < whole.size(); length += 97)
        Reading(whole.substr(0, length));
}

// Headers, symbols and tables are what is hit: bytes that are not 0.
TEST(BrokenFiles, damaged_modules_are_read_to_an_end)
{
    const std::string whole = read_file(module_path("fixed_stripped"));
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
