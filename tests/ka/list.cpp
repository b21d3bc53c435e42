// SPDX-License-Identifier: MIT
//
// What ka list reads out of a module's file.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <unistd.h>

#include "ka/command.h"
#include "ka/elf_fields.h"
#include "module/signatures.h"

namespace {

const std::string modules = module_folder(CALLER_MODULES) + "/";
const std::string documented_module = modules + "caller_module_documented_stripped";

// A file made of a module's for one test.
class Altered {
public:
    Altered(const std::string &module, const std::string &change) : path(module + "." + std::to_string(getpid()))
    {
        std::filesystem::copy_file(module, path, std::filesystem::copy_options::overwrite_existing);
        const std::string command = change.empty() ? "true" : change + " " + path;
        EXPECT_EQ(std::system(command.c_str()), 0);
    }
    ~Altered() { std::filesystem::remove(path); }
    Altered(const Altered &) = delete;
    Altered &operator=(const Altered &) = delete;

    void write(std::streamoff offset, const std::string &bytes) const
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(offset);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    std::string path;
};

std::string list_of(const std::string &module)
{
    const Outcome outcome = ka({"list", module});
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
    return outcome.out;
}

void expect_none(const std::string &module, const std::string &why)
{
    const Outcome outcome = ka({"list", module});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "ka: " + module + ": " + why + "\n");
}

} // namespace

TEST(KaList, shows_names_kinds_and_least_numbers)
{
    EXPECT_EQ(ka({"list", examples_folder(KA_EXAMPLES) + "/adder"}).out,
              "FUNCTION  ARGUMENT  KIND            TAKES                                MIN ELEMENTS\n"
              "add       a         IntByValue      INTEGER or REAL; never comes back\n"
              "          b         IntByValue      INTEGER or REAL; never comes back\n"
              "          sum       IntByReference  INTEGER; comes back if by reference\n");
    const std::string out = list_of(tasks_module);
    for (const char *line :
         {"\\nshout +texts +StringArray +STRING; comes back if by reference +2\\n", "\\ncount_call +-\\n",
          "\\ndescribe +any +VarArg +anything; comes back if by reference\\n"})
        EXPECT_TRUE(std::regex_search(out, std::regex(line))) << line << out;
}

TEST(KaList, shows_one_function)
{
    const Outcome outcome = ka({"list", tasks_module, "measure"});
    EXPECT_EQ(outcome.out, "FUNCTION  ARGUMENT  KIND     TAKES                     MIN ELEMENTS\n"
                           "measure   text      zString  STRING; never comes back\n");
    const Outcome misspelt = ka({"list", tasks_module, "Mesure"});
    EXPECT_EQ(misspelt.status, 3);
    EXPECT_EQ(misspelt.err, "ka: the module has no function \"Mesure\"; did you mean \"measure\"?\n");
}

TEST(KaList, json_has_every_function_in_the_order_of_the_table)
{
    const auto json = nlohmann::json::parse(ka({"list", "--json", tasks_module}).out);
    EXPECT_EQ(json["module"], tasks_module);
    EXPECT_EQ(json["bits"], module_bits());
    const nlohmann::json none = nlohmann::json::parse(R"({"name":"scribble_base","arguments":[]})");
    EXPECT_EQ(std::count(json["functions"].begin(), json["functions"].end(), none), 1);
    EXPECT_EQ(json["functions"][0]["name"], "add");
    EXPECT_EQ(json["functions"][0]["arguments"][2]["name"], "sum");
    EXPECT_EQ(json["functions"][0]["arguments"][2]["kind"], "IntByReference");
    EXPECT_FALSE(json["functions"][0]["arguments"][2].contains("min_elements"));
    EXPECT_EQ(json["functions"][5]["arguments"][0]["min_elements"], 2);
}

// ---- With what the authors have written --------------------------------------------------------------------------

TEST(KaList, long_one_shows_documentation_and_what_passing_by_value_does)
{
    const Outcome outcome = ka({"list", "--long", documented_module, "good"});
    const std::string takes = "IntByValue  INTEGER or REAL; never comes back                ";
    EXPECT_EQ(outcome.out,
              "FUNCTION  ARGUMENT  KIND        TAKES                              MIN ELEMENTS  BY VALUE" +
                  std::string(22, ' ') + "ABOUT\ngood      adds, \xc3\xa4hnlich\n          a         " + takes +
                  "accepted; there is no result  the first\n          b         " + takes +
                  "accepted; there is no result\n          c         " + takes +
                  "accepted; there is no result  the \\x1b[31mthird\n" + std::string(111, ' ') +
                  "of four\n          d         " + takes + "accepted; there is no result\n");
    EXPECT_EQ(ka({"list", "--long", documented_module, "good_later"}).out,
              "FUNCTION    ARGUMENT  KIND  TAKES  MIN ELEMENTS  BY VALUE  ABOUT\n"
              "good_later  a later version\n            of two lines\n            -\n");
    const std::string usual = list_of(documented_module);
    EXPECT_EQ(usual.find("first"), std::string::npos) << usual;
    const std::string odd = ka({"list", "--long", modules + "ka_module_odd"}).out;
    for (const char *line : {"\nno_kind +first +kind 12 +nothing: there is no such kind\n",
                             "\n +behind +IntByValue +nothing: it follows a VarArg\n",
                             "\nvararg +any +VarArg .*reference +accepted; the result is lost\n", "\ntwice +-\n"})
        EXPECT_TRUE(std::regex_search(odd, std::regex(line))) << line << odd;
}

TEST(KaList, json_has_documentation_and_what_passing_by_value_does)
{
    const auto list = nlohmann::json::parse(ka({"list", "--json", documented_module}).out)["functions"];
    EXPECT_EQ(list[0]["about"], "adds, \xc3\xa4hnlich");
    EXPECT_EQ(list[0]["arguments"][0]["about"], "the first");
    EXPECT_EQ(list[0]["arguments"][2]["about"], "the \x1b[31mthird\nof four\n");
    EXPECT_FALSE(list[0]["arguments"][1].contains("about"));
    EXPECT_EQ(list[0]["arguments"][1]["by_value"], "accepted; there is no result");
    EXPECT_EQ(std::count_if(list.begin(), list.end(), [](const auto &each) { return each.contains("about"); }), 4);
}

TEST(KaList, says_of_each_kind_what_the_table_of_the_guide_says)
{
    const std::string guide = read_file(KA_SOURCES "/docs/module-guide.md");
    const std::map<std::string, std::string> names = {{"KA_INT_BY_VALUE", "IntByValue"},
                                                      {"KA_INT_BY_REFERENCE", "IntByReference"},
                                                      {"KA_INT_ARRAY", "IntArray"},
                                                      {"KA_REAL_BY_VALUE", "RealByValue"},
                                                      {"KA_REAL_BY_REFERENCE", "RealByReference"},
                                                      {"KA_REAL_ARRAY", "RealArray"},
                                                      {"KA_ZSTRING", "zString"},
                                                      {"KA_STRING", "String"},
                                                      {"KA_STRING_ARRAY", "StringArray"},
                                                      {"KA_VARARG", "VarArg"}};
    for (const auto &[constant, name] : names) {
        std::smatch row;
        const std::regex pattern("\n\\|[^|]*`" + constant + "`[^|]*\\|[^|]*\\|[^|]*\\|[^|]*\\| ([^|]*) \\|");
        ASSERT_TRUE(std::regex_search(guide, row, pattern)) << constant;
        int32_t kind = 0;
        while (kind_name(kind) != name)
            ASSERT_LT(++kind, 20) << name;
        EXPECT_EQ(row[1], by_value_text(kind)) << name;
    }
}

TEST(KaList, does_not_run_the_module)
{
    EXPECT_EQ(list_of(modules + "caller_module_no_loader"), list_of(tasks_module));
    setenv("KA_TEST_SETUP", "exit3", 1);
    EXPECT_NE(list_of(tasks_module), "");
    unsetenv("KA_TEST_SETUP");
}

// Modules in C++ are read likewise: the tables are data.
TEST(KaList, reads_modules_however_they_are_linked)
{
    const std::string expected = list_of(tasks_module);
    EXPECT_EQ(list_of(modules + "caller_module_fixed"), expected);
    EXPECT_EQ(list_of(modules + "ka_module_old_hash"), expected);
    EXPECT_EQ(list_of(Altered(tasks_module, "strip").path), expected);
    EXPECT_NE(list_of(examples_folder(KA_EXAMPLES) + "/ledger")
                  .find("\nsum_texts   amounts   StringArray      STRING; comes back if by reference  1\n"),
              std::string::npos);
}

TEST(KaList, reads_a_module_without_section_headers)
{
    const std::string expected = list_of(tasks_module);
    const Altered module(tasks_module, "strip");
    for (const auto &[offset, zeros] : no_sections())
        module.write(static_cast<std::streamoff>(offset), zeros);
    EXPECT_EQ(list_of(module.path), expected);
}

TEST(KaList, odd_tables_are_shown_as_they_are)
{
    EXPECT_EQ(list_of(modules + "ka_module_odd"),
              "FUNCTION     ARGUMENT     KIND            TAKES                                 MIN ELEMENTS\n"
              "no_kind      first        kind 12         nothing: there is no such kind\n"
              "no_name      (unnamed)    IntByValue      INTEGER or REAL; never comes back\n"
              "vararg       any          VarArg          anything; comes back if by reference\n"
              "             behind       IntByValue      nothing: it follows a VarArg\n"
              "red\\x1b[31m  red\\x1b[31m  zString         STRING; never comes back\n"
              "twice        same         IntArray        INTEGER; comes back if by reference   3\n"
              "             same         IntByReference  INTEGER; comes back if by reference\n"
              "twice        -\n"
              "             (never called: another function of that name comes before it)\n"
              "negative     -\n"
              "bytes        \\xffname     IntByReference  INTEGER; comes back if by reference\n");
    EXPECT_EQ(nlohmann::json::parse(ka({"list", "--json", modules + "ka_module_odd"}).out)["functions"].size(), 8u);
}

TEST(KaList, module_that_is_none_is_told_what_is_missing)
{
    expect_none("/no/such/module", "no such file");
    expect_none("/tmp", "a directory");
    expect_none("/etc/passwd", "not an ELF file");
    expect_none("/dev/null", "not a regular file");
    expect_none(KA_COMMAND, "not a module: KaFuncList is missing");
    const std::string library = library_folder(KA_BUILD) + "/libkahost.so.1";
    expect_none(library, "not a module: KaFuncList is missing");
    const Altered module(tasks_module, "");
    module.write(18, "\x28"); // e_machine
    expect_none(module.path, "a program for another processor (ELF machine 40)");
    module.write(18, read_file(tasks_module).substr(18, 2));
    module.write(16, "\x01"); // e_type
    expect_none(module.path, "an ELF file but not a program");
    std::filesystem::resize_file(module.path, 40);
    expect_none(module.path, "a cut off ELF file");
}

TEST(KaList, tables_that_are_filled_at_start_are_reported)
{
    for (const char *name : {"ka_module_late", "caller_module_late"})
        expect_none(modules + name, "the module fills its tables as it starts; --start reads them then");
}

TEST(KaList, tables_that_are_filled_at_start_are_read_from_a_host)
{
    const Outcome outcome = ka({"list", "--start", modules + "ka_module_late"});
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, list_of(modules + "ka_module_odd"));
    const Outcome failed = ka({"list", "--start", modules + "caller_module_no_loader"});
    EXPECT_EQ(failed.status, 4);
    EXPECT_EQ(failed.err.find("ka: cannot start "), 0u) << failed.err;
}

// Every byte of the dynamic segment, and of what it leads to, may be anything.
TEST(KaList, spoilt_file_is_no_harm)
{
    const Altered module(tasks_module, "strip");
    std::ifstream file(module.path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    unsigned state = 12345;
    for (int round = 0; round < 300; round++) {
        std::string spoilt = bytes;
        for (int i = 0; i < 40; i++) {
            state = state * 1664525 + 1013904223;
            const size_t head = round % 2 == 0 ? 1200 : spoilt.size();
            spoilt[52 + (state >> 8) % (head - 52)] = static_cast<char>(state >> 3);
        }
        module.write(0, spoilt);
        const Outcome outcome = ka({"list", module.path});
        EXPECT_TRUE(outcome.status == 0 || outcome.status == 4) << "round " << round << " " << outcome.status;
    }
}

TEST(KaList, cannot_be_written)
{
    const std::string command = KA_COMMAND " list " + tasks_module + " >/dev/full 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 2);
}
