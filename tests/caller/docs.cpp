// SPDX-License-Identifier: MIT
//
// Documentation in modules: found in files and in running hosts, however the module was linked, and only where a
// sound record of it lies in the module's file.
#include "caller/hosts.h"

#include <map>

#include "caller/elf_program.h"
#include "ka/caller.hpp"
#include "ka/dll_doc.h"
#include "ka/dll_module.h"

namespace {

// A long text of one character is "N x".
std::string brief(const char *doc)
{
    const std::string text = doc != nullptr ? doc : "-";
    if (text.size() < 100 || text.find_first_not_of(text[0]) != std::string::npos) return text;
    return std::to_string(text.size()) + " " + text[0];
}

// "function|argument|argument", for each function that has documentation.
std::map<std::string, std::string> docs_of(const ka_tables *tables)
{
    std::map<std::string, std::string> docs;
    for (int32_t i = 0; tables != nullptr && i < tables->function_count; i++) {
        const ka_function &function = tables->functions[i];
        std::string text;
        bool has_any = false;
        for (int32_t k = 0; k <= std::max(function.prototype_count, 0); k++) {
            const char *const doc = ka_doc(tables, &function, k);
            has_any |= doc != nullptr;
            text += (k > 0 ? "|" : "") + brief(doc);
        }
        if (has_any) docs[function.name] = text;
        EXPECT_EQ(ka_doc(tables, &function, -1), nullptr);
        EXPECT_EQ(ka_doc(tables, &function, INT32_MIN), nullptr);
        EXPECT_EQ(ka_doc(tables, &function, std::max(function.prototype_count, 0) + 1), nullptr);
        EXPECT_EQ(ka_doc(tables, &function, INT32_MAX), nullptr);
    }
    return docs;
}

std::map<std::string, std::string> docs_in(const std::string &path)
{
    char why[200] = "";
    ka_tables *const tables = ka_read_tables(path.c_str(), why, sizeof why);
    EXPECT_STREQ(why, "");
    const std::map<std::string, std::string> docs = docs_of(tables);
    ka_free_tables(tables);
    return docs;
}

const std::map<std::string, std::string> expected = {
    {"good", "adds, \xc3\xa4hnlich|the first|-|the \x1b[31mthird\nof four\n|-"},
    {"good_alone", "alone|-|-|-|-"},
    {"good_arguments", "-|the first|-|the \x1b[31mthird\nof four\n"},
    {"good_later", "a later version\nof two lines"},
    {"good_longest", "4095 x"},
};

// A program with one function of one argument, whose own word leads to a record, both to be relocated or not.
struct Documented : ElfProgram {
    Documented() : ElfProgram(module_bits()) {}

    uint64_t record(int32_t length, uint64_t text, uint64_t arguments)
    {
        const uint32_t numbers[] = {DLL_DOC_VERSION, static_cast<uint32_t>(length)};
        std::string bytes(DLL_DOC_MAGIC, sizeof t_DLL_DOC::magic);
        bytes.append(reinterpret_cast<const char *>(numbers), sizeof numbers);
        for (const uint64_t word : {text, arguments})
            bytes.append(reinterpret_cast<const char *>(&word), this->word());
        return add(bytes);
    }
    int32_t size() const { return static_cast<int32_t>(16 + 2 * word()); }

    std::map<std::string, std::string> docs(uint64_t record)
    {
        const uint64_t prototypes = prototype(add_text("x"), KA_INT_BY_VALUE, 0);
        const uint64_t functions = function(add_text("f"), 0, 1);
        end_of_functions();
        relocate(functions + word() + 8, RELATIVE, 0, record);
        return docs_in(File(file(functions, prototypes), 0644).path);
    }
};

using Docs = std::map<std::string, std::string>;

} // namespace

TEST(Documentation, is_found_in_files_however_the_module_was_linked)
{
    for (const char *name : {"documented", "documented_stripped", "documented_fixed", "documented_packed"})
        EXPECT_EQ(docs_in(module_path(name)), expected) << name;
}

TEST(Documentation, is_found_in_a_running_host)
{
    for (const char *name : {"documented_stripped", "documented_fixed"}) {
        const Host host({}, module_path(name));
        const ka_tables *const tables = ka_host_tables(host);
        ASSERT_NE(tables, nullptr) << error_text(host);
        EXPECT_EQ(docs_of(tables), expected) << name;
    }
}

TEST(Documentation, other_words_of_the_module_do_not_touch_its_calls)
{
    ka::Host host(module_path("documented"));
    EXPECT_EQ(host.call("good", 1, 2, 3, 4), 0);
    EXPECT_EQ(host.call("one", 1), 6);
    EXPECT_EQ(host.call("minus_one", 1), 7);
    EXPECT_EQ(host.call("endless", 1), 14);
}

TEST(Documentation, is_there_in_cpp)
{
    const ka::Tables tables = ka::read_tables(module_path("documented"));
    EXPECT_EQ(tables.doc(*tables.find("good_alone")), "alone");
    EXPECT_EQ(tables.doc(*tables.find("good"), 1), "the first");
    EXPECT_EQ(tables.doc(*tables.find("good"), 2), "");
    EXPECT_EQ(tables.doc(*tables.find("none")), "");
}

TEST(Documentation, builder_of_these_tests_makes_sound_ones)
{
    Documented program;
    const uint64_t arguments = program.add_words({0});
    program.relocate(arguments, ElfProgram::RELATIVE, 0, program.add_text("argument"));
    const uint64_t record = program.record(program.size(), 0, 0);
    program.relocate(record + 16, ElfProgram::RELATIVE, 0, program.add_text("function"));
    program.relocate(record + 16 + program.word(), ElfProgram::RELATIVE, 0, arguments);
    EXPECT_EQ(program.docs(record), Docs({{"f", "function|argument"}}));
}

TEST(Documentation, is_left_out_where_it_leaves_the_file)
{
    {
        Documented program; // the record
        EXPECT_EQ(program.docs(ElfProgram::nowhere), Docs());
    }
    {
        Documented program; // its length
        const uint64_t text = program.add_text("function");
        EXPECT_EQ(program.docs(program.record(1 << 20, text, 0)), Docs());
    }
    {
        Documented program; // its texts
        const uint64_t arguments = program.add_words({ElfProgram::nowhere});
        EXPECT_EQ(program.docs(program.record(program.size(), ElfProgram::nowhere, arguments)), Docs());
    }
    {
        Documented program; // its list of arguments
        const uint64_t text = program.add_text("function");
        EXPECT_EQ(program.docs(program.record(program.size(), text, ElfProgram::nowhere)),
                  Docs({{"f", "function|-"}}));
    }
    {
        Documented program; // all of it, but the first words
        const uint64_t text = program.add_text("function");
        const uint64_t record = program.record(program.size(), text, 0);
        program.relocate(record + 16, ElfProgram::OF_SYMBOL, program.add_symbol(0, false), 0); // of a library
        EXPECT_EQ(program.docs(record), Docs());
    }
}

// The file ends with the text, in a page whose rest reads as zeros: with the terminator and without it.
TEST(Documentation, text_without_an_end_is_left_out)
{
    for (const bool has_end : {true, false}) {
        Documented program;
        const uint64_t prototypes = program.prototype(program.add_text("x"), KA_INT_BY_VALUE, 0);
        const uint64_t functions = program.function(program.add_text("f"), 0, 1);
        program.end_of_functions();
        const uint64_t size = 4096;
        const std::string text = "the end";
        const uint64_t at = ElfProgram::origin + size - text.size();
        const uint64_t record = program.record(program.size(), at, 0);
        program.relocate(functions + program.word() + 8, ElfProgram::RELATIVE, 0, record);
        program.load(size + (has_end ? 1 : 0), size + 100);
        std::string file = program.file(functions, prototypes);
        ASSERT_LT(file.size(), size - text.size());
        file.resize(size + 1, '\0');
        file.replace(size - text.size(), text.size(), text);
        EXPECT_EQ(docs_in(File(file, 0644).path), has_end ? Docs({{"f", "the end|-"}}) : Docs());
    }
}
