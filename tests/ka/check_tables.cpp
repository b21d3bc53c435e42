// SPDX-License-Identifier: MIT
//
// ka check of tables that are wrong, each in one way.
#include "ka/built_module.h"
#include "ka/command.h"

#include <tuple>

namespace {

constexpr const char *end = ", {0, 0, 0, 0}};";

std::string prototypes(int count, const std::string &kind, const std::string &last = "")
{
    std::string text = "t_DLL_PROTO KaArgList[] = {";
    for (int i = 0; i < count; i++)
        text += "{\"a" + std::to_string(i) + "\", " + kind + ", 0},";
    return text + last + "};";
}

Outcome check(const BuiltModule &module)
{
    return ka({"check", "--no-start", module.path()});
}

} // namespace

TEST(KaCheckTables, names_each_fault)
{
    const std::string one = "t_DLL_PROTO KaArgList[] = {{\"a\", 1, 0}, {\"b\", 1, 0}};";
    const std::string list = "t_DLL_FUNC KaFuncList[] = {";
    const std::string first = list + "{\"f\", 0, 1, 0}";
    const std::tuple<std::string, const char *, int> cases[] = {
        {one + list + "{0, 0, 0, 0}};", "warning: %: it has no functions: every call is answered with 7\n", 1},
        {one + list + "{\"f\", 0, 2, 0}, {\"f\", 0, 1, 0}" + end,
         "warning: %: two functions are named f: only the first can be called\n", 1},
        {one + list + "{\"f\", 0, 2, 0}};", "error: %: KaFuncList does not end", 1},
        {one + list + "{\"f\", 1, 2, 0}" + end,
         "error: %: f: its prototypes 1 to 2 are outside KaArgList, which has 2\n", 1},
        {one + list + "{\"f\", -1, 2, 0}" + end, "error: %: f: its prototypes -1 to 0 are outside KaArgList", 1},
        {one + list + "{\"f\", 2147483647, 2147483647, 0}" + end, "error: %: f: its prototypes 2147483647 to", 1},
        {one + list + "{\"f\", 0, -1, 0}" + end, "error: %: f: counts -1 prototypes: it cannot be called\n", 1},
        {one + list + "{\"\", 0, 2, 0}" + end, "warning: %: a function has the empty name\n", 1},
        {one + first + end, "note: %: 1 of 2 records of KaArgList belong to no function\n", 0},
        {"t_DLL_PROTO KaArgList[] = {{\"a\", 10, 0}};" + first + end,
         "error: %: f: argument 1 (a) is of kind 10: calls are answered with -1\n", 1},
        {"t_DLL_PROTO KaArgList[] = {{\"a\", -1, 0}};" + first + end, "error: %: f: argument 1 (a) is of kind -1", 1},
        {"t_DLL_PROTO KaArgList[] = {{0, 1, 0}};" + first + end, "warning: %: f: argument 1 has no name\n", 1},
        {"t_DLL_PROTO KaArgList[] = {{\"a\", 3, -2}};" + first + end,
         "warning: %: f: argument 1 (a) asks for at least -2 elements\n", 1},
        {"t_DLL_PROTO KaArgList[] = {{\"a\", 8, 5}};" + first + end,
         "note: %: f: argument 1 (a) has a minimum of 5 elements, which its kind ignores\n", 0},
        {"t_DLL_PROTO KaArgList[] = {{\"v\", 0, 0}, {\"b\", 1, 0}};" + list + "{\"f\", 0, 2, 0}" + end,
         "warning: %: f: the prototypes after v (VarArg) are never used", 1},
        {"t_DLL_PROTO KaArgList[] = {{\"a\", 1, 0}, {\"a\", 1, 0}};" + list + "{\"f\", 0, 2, 0}" + end,
         "note: %: f: two arguments are named a\n", 0},
        {prototypes(51, "1") + list + "{\"f\", 0, 51, 0}" + end,
         "error: %: f: has 51 prototypes, and no call has more than 50 arguments: it cannot be called\n", 1},
        {"t_DLL_PROTO KaArgList[1]; t_DLL_FUNC KaFuncList[3]; __attribute__((constructor)) static void fill(void)"
         "{ KaFuncList[0].name = \"f\"; }",
         "note: %: its tables are filled as it starts, and were not looked at\n", 0},
    };
    for (const auto &[tables, finding, status] : cases) {
        const BuiltModule module(tables);
        std::string text = finding;
        text.replace(text.find('%'), 1, module.path());
        const Outcome outcome = check(module);
        EXPECT_EQ(outcome.status, status) << tables << "\n" << outcome.out;
        EXPECT_NE(outcome.out.find(text), std::string::npos) << text << " not in\n" << outcome.out;
    }
}

TEST(KaCheckTables, that_are_filled_at_start_are_those_of_the_host)
{
    const BuiltModule module(
        "t_DLL_PROTO KaArgList[2]; t_DLL_FUNC KaFuncList[4]; void dll_setup(void) {"
        "KaArgList[0].name = \"v\"; KaArgList[1].name = \"b\"; KaArgList[1].type = 12;"
        "KaFuncList[0].name = KaFuncList[1].name = \"f\"; KaFuncList[0].arg_cnt = 2; KaFuncList[2].name = \"g\";"
        "KaFuncList[2].arg_cnt = -1; KaFuncList[1].arg_idx = 90000000; KaFuncList[1].arg_cnt = 1; }");
    const Outcome outcome = ka({"check", module.path()});
    EXPECT_EQ(outcome.status, 1);
    for (const char *finding :
         {"two functions are named f: only", "f: argument 2 (b) is of kind 12: calls", "prototypes after v (VarArg)",
          "g: counts -1 prototypes", "f: argument 1 lies outside the module"})
        EXPECT_NE(outcome.out.find(finding), std::string::npos) << finding << " not in\n" << outcome.out;
    EXPECT_EQ(outcome.out.find("were not looked at"), std::string::npos) << outcome.out;
}

TEST(KaCheckTables, finds_nothing_where_nothing_is_wrong)
{
    const std::string list = "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, ";
    for (const std::string &tables :
         {sound_tables, prototypes(50, "1") + list + "50, 0}" + end,
          prototypes(50, "1", "{\"v\", 0, 0}") + list + "51, 0}" + end,
          std::string("t_DLL_PROTO KaArgList[] = {{\"a\", 3, 5}, {\"v\", 0, 0}};") + list + "2, 0}" + end,
          std::string("char name[] = \"f\"; t_DLL_PROTO KaArgList[] = {{name, 1, 0}};"
                      "t_DLL_FUNC KaFuncList[] = {{name, 0, 1, 0}, {0, 0, 0, 0}};")}) {
        for (const char *flags :
             {"", "-no-pie -fno-pie", "-s", "-Wl,-z,now", "-Wl,--hash-style=sysv", "-Wl,--hash-style=gnu"}) {
            const BuiltModule module(tables, flags);
            const Outcome outcome = check(module);
            EXPECT_EQ(outcome.status, 0) << flags << "\n" << outcome.out;
            EXPECT_EQ(outcome.out, module.path() + ": good\n") << flags;
        }
    }
}

// Without sections there are still the program headers.
TEST(KaCheckTables, are_read_from_a_file_without_sections)
{
    const BuiltModule module("t_DLL_PROTO KaArgList[] = {{\"a\", 10, 0}};"
                             "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, 1, 0}, {0, 0, 0, 0}};");
    module.put(0x20, std::string(4, '\0')); // e_shoff
    module.put(0x30, std::string(4, '\0')); // e_shnum, e_shstrndx
    const Outcome outcome = check(module);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("argument 1 (a) is of kind 10"), std::string::npos) << outcome.out;
}
