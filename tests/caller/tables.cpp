// SPDX-License-Identifier: MIT
//
// The tables of modules, read from their files: however they were linked, and what is said where there are none.
#include "caller/hosts.h"

#include <cstring>
#include <elf.h>

#include "caller/waiting.h"
#include "ka/dll_module.h"

// "add(a:1 b:1 sum:2)", a minimum after the kind if there is one.
static std::string text_of(const ka_function &function)
{
    std::string text;
    for (int32_t i = 0; i < function.prototype_count; i++) {
        const ka_prototype &prototype = function.prototypes[i];
        text += (i > 0 ? " " : "") + std::string(prototype.name) + ":" + std::to_string(prototype.kind);
        if (prototype.min_elements != 0) text += ":" + std::to_string(prototype.min_elements);
    }
    return function.name + ("(" + text + ")");
}

static std::vector<std::string> texts_of(const ka_tables *tables)
{
    std::vector<std::string> texts;
    for (int32_t i = 0; tables != nullptr && i < tables->function_count; i++)
        texts.push_back(text_of(tables->functions[i]));
    return texts;
}

struct TablesOfFile {
    explicit TablesOfFile(const std::string &path) : tables(ka_read_tables(path.c_str(), why, sizeof why)) {}
    ~TablesOfFile() { ka_free_tables(tables); }
    TablesOfFile(const TablesOfFile &) = delete;
    TablesOfFile &operator=(const TablesOfFile &) = delete;
    char why[200] = "";
    ka_tables *tables;
};

static void expect_tasks(const ka_tables *tables)
{
    const std::vector<std::string> texts = texts_of(tables);
    ASSERT_GT(texts.size(), 20u);
    EXPECT_EQ(texts[0], "add(a:1 b:1 sum:2)");
    EXPECT_EQ(texts[2], "scale(values:6:1 factor:4)");
    EXPECT_EQ(texts[5], "shout(texts:9:2)");
    EXPECT_EQ(texts[9], "count_call()");
    EXPECT_NE(ka_find_function(tables, "scribble_base"), nullptr);
}

TEST(TablesOfFiles, are_found_however_the_module_was_linked)
{
    for (const char *name : {"tasks", "fixed", "stripped", "fixed_stripped", "sysv", "fixed_sysv", "packed"}) {
        SCOPED_TRACE(name);
        const TablesOfFile file(module_path(name));
        EXPECT_STREQ(file.why, "");
        expect_tasks(file.tables);
    }
}

template <typename Header>
static void remove_section_headers(std::string &bytes)
{
    Header header;
    std::memcpy(&header, bytes.data(), sizeof header);
    bytes.resize(static_cast<size_t>(header.e_shoff));
    header.e_shoff = header.e_shnum = header.e_shstrndx = 0;
    std::memcpy(bytes.data(), &header, sizeof header);
}

TEST(TablesOfFiles, are_found_without_section_headers)
{
    for (const char *name : {"stripped", "fixed_stripped"}) {
        std::string bytes = read_file(module_path(name));
        if (module_bits() == 64)
            remove_section_headers<Elf64_Ehdr>(bytes);
        else
            remove_section_headers<Elf32_Ehdr>(bytes);
        const File file(bytes, 0644);
        expect_tasks(TablesOfFile(file.path).tables);
    }
}

TEST(TablesOfFiles, that_are_filled_at_start_are_empty_and_marked)
{
    const TablesOfFile file(module_path("built"));
    ASSERT_NE(file.tables, nullptr) << file.why;
    EXPECT_EQ(file.tables->function_count, 0);
    EXPECT_EQ(ka_find_function(file.tables, ""), nullptr);
    EXPECT_NE(file.tables->filled_at_start, 0);
}

TEST(TablesOfFiles, whose_prototypes_are_filled_at_start_are_marked)
{
    const TablesOfFile file(module_path("late"));
    ASSERT_NE(file.tables, nullptr) << file.why;
    EXPECT_EQ(file.tables->function_count, 2);
    EXPECT_NE(file.tables->filled_at_start, 0);
}

// The host's are those that it has started with, whoever filled them.
TEST(TablesOfFiles, that_are_whole_are_not_marked_nor_are_those_of_a_host)
{
    for (const char *name : {"tasks", "fixed", "stripped"}) {
        const TablesOfFile file(module_path(name));
        ASSERT_NE(file.tables, nullptr) << file.why;
        EXPECT_EQ(file.tables->filled_at_start, 0) << name;
    }
    const Host host({}, module_path("late"));
    const ka_tables *tables = ka_host_tables(host);
    ASSERT_NE(tables, nullptr) << error_text(host);
    EXPECT_EQ(text_of(tables->functions[1]), "add(a:1 sum:2)");
    EXPECT_EQ(tables->filled_at_start, 0);
}

TEST(TablesOfFiles, function_is_found_by_its_exact_name)
{
    const TablesOfFile file(tasks_module);
    ASSERT_NE(file.tables, nullptr);
    for (int32_t i = 0; i < file.tables->function_count; i++)
        EXPECT_EQ(ka_find_function(file.tables, file.tables->functions[i].name), &file.tables->functions[i]);
    for (const char *name : {"", "ad", "Add", "add ", "sum"})
        EXPECT_EQ(ka_find_function(file.tables, name), nullptr) << name;
    EXPECT_EQ(ka_find_function(file.tables, std::string(5000, 'a').c_str()), nullptr);
}

static std::string why_no_tables(const std::string &path)
{
    const TablesOfFile file(path);
    EXPECT_EQ(file.tables, nullptr);
    return file.why;
}

TEST(TablesOfFiles, that_are_none_are_explained)
{
    const File text("no program", 0644);
    const File cut(read_file(tasks_module).substr(0, 60), 0644);
    EXPECT_EQ(why_no_tables("/no/such/module"), "no such file");
    EXPECT_EQ(why_no_tables("/tmp"), "a directory");
    EXPECT_EQ(why_no_tables("/dev/zero"), "not a regular file");
    EXPECT_EQ(why_no_tables(text.path), "not an ELF file");
    EXPECT_EQ(why_no_tables(cut.path), "a cut off ELF file");
    EXPECT_EQ(why_no_tables(library_folder(CALLER_BUILD) + "/libkahost.so"), "not a module: KaFuncList is missing");
    EXPECT_EQ(why_no_tables(module_path("apart")), "not a module: KaFuncList is missing");
}

TEST(TablesOfFiles, reason_is_cut_to_its_room)
{
    char why[8] = "";
    EXPECT_EQ(ka_read_tables("/no/such/module", why, sizeof why), nullptr);
    EXPECT_STREQ(why, "no such");
}
