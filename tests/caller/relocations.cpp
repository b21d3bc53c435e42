// SPDX-License-Identifier: MIT
//
// Pointers that the loader puts into a module's tables: read from its file, whatever the linker has left in their
// places. And records of them that cannot be believed.
#include "caller/hosts.h"

#include <algorithm>
#include <elf.h>
#include <random>

#include "caller/elf_program.h"
#include "ka/dll_module.h"

namespace {

constexpr uint64_t origin = ElfProgram::origin;

// The functions of a file as text, or why there are none.
std::string names_in(const std::string &path)
{
    char why[200] = "";
    ka_tables *tables = ka_read_tables(path.c_str(), why, sizeof why);
    if (tables == nullptr) return why;
    std::string text;
    for (int32_t i = 0; i < tables->function_count; i++) {
        text += std::string(i > 0 ? " " : "") + tables->functions[i].name + "(";
        for (int32_t k = 0; k < tables->functions[i].prototype_count; k++)
            text += tables->functions[i].prototypes[k].name;
        text += ")";
    }
    text += tables->filled_at_start != 0 ? ", filled at start" : "";
    ka_free_tables(tables);
    return text;
}

std::string names_in_file(const std::string &bytes)
{
    return names_in(File(bytes, 0644).path);
}

// Three functions without names, which relocations give them; "mine" and "its" are the texts for it.
struct Program : ElfProgram {
    Program() : ElfProgram(module_bits())
    {
        mine = add_text("mine");
        its = add_text("its");
        prototypes = prototype(0, KA_INT_ARRAY, 4);
        functions = function(0, 0, 1);
        function(0, 0, 0);
        function(0, 0, 0);
        end_of_functions();
    }
    uint64_t place(int position) const { return functions + static_cast<uint64_t>(position) * function_bytes(); }
    std::string names() { return names_in_file(file(functions, prototypes)); }
    uint64_t mine, its, prototypes, functions;
};

} // namespace

TEST(Relocations, by_the_programs_place_and_by_its_own_symbols_are_followed)
{
    Program program;
    const uint32_t number = program.add_symbol(program.its, true);
    program.relocate(program.place(2), Program::OF_SYMBOL, number, 1);
    program.relocate(program.place(0), Program::RELATIVE, 0, program.mine);
    program.relocate(program.place(1), Program::OF_SYMBOL, number, 0);
    program.relocate(program.prototypes, Program::RELATIVE, 0, program.its);
    EXPECT_EQ(program.names(), "mine(its) its() ts()");
}

// What such a pointer will be, the file does not say; the functions after it are there all the same.
TEST(Relocations, by_a_symbol_of_a_library_or_of_another_type_are_filled_at_start)
{
    for (const int type : {+Program::OF_SYMBOL, 77}) {
        Program program;
        program.relocate(program.place(0), Program::RELATIVE, 0, program.mine);
        program.relocate(program.place(1), type, program.add_symbol(0, false), 0);
        program.relocate(program.place(2), Program::RELATIVE, 0, program.its);
        EXPECT_EQ(program.names(), "mine() () its(), filled at start");
    }
    Program program;
    program.relocate(program.place(0), Program::RELATIVE, 0, program.mine);
    program.relocate(program.prototypes, Program::OF_SYMBOL, 0x00ffffff, 0);
    EXPECT_EQ(program.names(), "mine(), filled at start");
}

// The loader goes through them in their order.
TEST(Relocations, of_one_place_the_last_counts)
{
    for (int before = 0; before < 5; before++) {
        Program program;
        const uint32_t number = program.add_symbol(program.its, true);
        const uint32_t library = program.add_symbol(0, false);
        for (int i = 0; i < before; i++)
            program.relocate(program.place(0), Program::OF_SYMBOL, library, 0);
        program.relocate(program.place(0), Program::OF_SYMBOL, number, 0);
        program.relocate(origin, Program::OF_SYMBOL, library, 0);
        EXPECT_EQ(program.names(), "its()");
    }
}

TEST(Relocations, in_any_order_are_found)
{
    std::mt19937 random(20261);
    for (uint64_t count = 1; count <= 300; count += 13) {
        Program program;
        std::string expected;
        const uint64_t list = program.function(0, 0, 0);
        for (uint64_t i = 1; i <= count; i++)
            program.function(0, 0, 0);
        std::vector<std::pair<uint64_t, uint64_t>> names; // place and text
        for (uint64_t i = 0; i < count; i++) {
            const std::string name = "n" + std::to_string(i);
            names.emplace_back(list + i * program.function_bytes(), program.add_text(name));
            expected += (i > 0 ? " " : "") + name + "()";
        }
        std::shuffle(names.begin(), names.end(), random);
        for (const auto &[place, text] : names)
            program.relocate(place, Program::OF_SYMBOL, program.add_symbol(text, true), 0);
        EXPECT_EQ(names_in_file(program.file(list, origin)), expected);
    }
}

// ---- Tables that cannot be believed ----------------------------------------------------------------------------

static void set_table(Program &program, uint64_t address, uint64_t bytes)
{
    program.add_dynamic(module_bits() == 64 ? DT_RELA : DT_REL, address);
    program.add_dynamic(module_bits() == 64 ? DT_RELASZ : DT_RELSZ, bytes);
}

TEST(Relocations, that_lie_nowhere_or_are_too_many_are_told)
{
    const uint64_t record =
        (module_bits() == 64 ? 3 : 2) * sizeof(uint32_t) * static_cast<unsigned>(module_bits()) / 32;
    const std::string outside = "its relocations lie outside the file";
    const std::string too_many = "a program with more than 4194304 relocations";
    const std::tuple<uint64_t, uint64_t, std::string> cases[] = {
        {Program::nowhere, record, outside},
        {0, record, outside},
        {origin, uint64_t{4194304} * record, outside},
        {origin, uint64_t{4194305} * record, too_many},
        {UINT64_MAX, UINT64_MAX, too_many},
        {origin, record - 1, ""},
        {Program::nowhere, 0, ""},
    };
    for (const auto &[address, bytes, expected] : cases) {
        Program program;
        set_table(program, address, bytes);
        EXPECT_EQ(program.names(), expected);
    }
}

// Half a million of one place, of places in falling order, and of places that overlap: what takes time for each pair
// of them does not come to an end.
TEST(Relocations, by_the_hundred_thousand_are_read_to_an_end)
{
    for (const int step : {0, -8, 1}) {
        Program program;
        const uint32_t number = program.add_symbol(program.mine, true);
        for (int i = 0; i < 500000; i++)
            program.relocate(0x40000000 + static_cast<uint64_t>(static_cast<int64_t>(i) * step), Program::OF_SYMBOL,
                             number, 0);
        program.relocate(program.place(0), Program::OF_SYMBOL, number, 0);
        EXPECT_EQ(program.names(), "mine()");
    }
}

// Memory costs a file nothing, but to read it would cost as much as to read a large one.
TEST(Relocations, in_memory_that_the_file_does_not_fill_are_told)
{
    Program program;
    program.add_memory(uint64_t{1} << 30);
    set_table(program, 0x01000000, 30 << 20);
    EXPECT_EQ(program.names(), "its relocations lie outside the file");
}

// Each asks for another page of symbols; so many pages are read, and no more.
TEST(Relocations, by_symbols_anywhere_are_read_to_an_end)
{
    std::mt19937 random(20262);
    Program program;
    program.add_memory(uint64_t{1} << 30);
    const uint64_t list = program.function(0, 0, 0);
    for (int i = 1; i < 100000; i++)
        program.function(0, 0, 0);
    for (uint64_t i = 0; i < 100000; i++) {
        const auto number = static_cast<uint32_t>(random() & 0xffffff);
        program.relocate(list + i * program.function_bytes(), Program::OF_SYMBOL, number, 0);
    }
    EXPECT_EQ(names_in_file(program.file(list, origin)), "KaFuncList runs out of the module");
}

// ---- Modules ---------------------------------------------------------------------------------------------------

TEST(Relocations, of_modules_that_are_linked_in_other_ways_are_followed)
{
    EXPECT_EQ(names_in(module_path("named")), "same(number) twice(number)");
    EXPECT_EQ(names_in(module_path("borrowed")), "same() () last(), filled at start");
    Host host({}, module_path("borrowed"));
    EXPECT_EQ(call_with(host, "borrowed", 7), 7);
    EXPECT_STREQ(ka_host_tables(host)->functions[0].prototypes[0].name, "borrowed");
    Host named({}, module_path("named"));
    EXPECT_EQ(call_with(named, "twice", 7), 14);
}
