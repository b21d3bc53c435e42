// SPDX-License-Identifier: MIT
//
// ka check of tables that are wrong, each in one way.
#include "elf/elf_file.h"
#include "ka/built_module.h"
#include "ka/command.h"
#include "ka/elf_fields.h"

#include <algorithm>
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

// Of a module, changes the relocation of the first function's name: it names a symbol then.
template <typename Elf, typename Relocation>
void name_by_symbol(const BuiltModule &module, int64_t table_tag, int64_t size_tag, const std::string &symbol)
{
    std::string why;
    const ElfFile file = read_elf(module.path(), why).value();
    const uint64_t place = find_defined(file, "KaFuncList")->value;
    const auto is_it = [&](const ElfSymbol &each) { return each.name == symbol; };
    const auto found = std::find_if(file.exported.begin(), file.exported.end(), is_it);
    ASSERT_NE(found, file.exported.end());
    const auto number = static_cast<typename Elf::Word>(found - file.exported.begin() + 1);
    const uint64_t table = dynamic_value(file, table_tag);
    for (uint64_t at = table; at < table + dynamic_value(file, size_tag); at += sizeof(Relocation)) {
        Relocation relocation = record_at<Relocation>(file, at).value();
        if (relocation.r_offset != place) continue;
        relocation.r_info = number << (sizeof number == 8 ? 32 : 8) | file.machine->symbolic;
        if constexpr (requires { relocation.r_addend; }) relocation.r_addend = 0;
        const auto *bytes = reinterpret_cast<const char *>(&relocation);
        module.put(offset_of(file, at).value(), {bytes, sizeof relocation});
        module.put(offset_of(file, place).value(), std::string(sizeof number, '\0'));
        return;
    }
    ADD_FAILURE() << "no such relocation";
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

// A look at each record that damaged counts speak of would take hours.
TEST(KaCheckTables, may_count_billions_of_prototypes)
{
    std::string functions;
    for (int i = 0; i < 5000; i++)
        functions += "{\"f" + std::to_string(i) + "\", 0, 2147483647, 0},";
    const BuiltModule module(prototypes(1, "1") + "t_DLL_FUNC KaFuncList[] = {" + functions + "{0, 0, 0, 0}};");
    const Outcome outcome = check(module);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("f4999: its prototypes 0 to 2147483646 are outside KaArgList"), std::string::npos);
    EXPECT_EQ(outcome.out.find("belong to no function"), std::string::npos);
}

// Without sections there are still the program headers.
TEST(KaCheckTables, are_read_from_a_file_without_sections)
{
    const BuiltModule module("t_DLL_PROTO KaArgList[] = {{\"a\", 10, 0}};"
                             "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, 1, 0}, {0, 0, 0, 0}};");
    for (const auto &[offset, zeros] : no_sections())
        module.put(offset, zeros);
    const Outcome outcome = check(module);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("argument 1 (a) is of kind 10"), std::string::npos) << outcome.out;
}

// Of a library, or of the module itself: the dynamic linker fills them in.
TEST(KaCheckTables, may_have_names_that_are_symbols)
{
    const std::string tables = "extern char far_name[]; t_DLL_PROTO KaArgList[] = {{far_name, 1, 0}};"
                               "t_DLL_FUNC KaFuncList[] = {{far_name, 0, 1, 0}, {0, 0, 0, 0}};";
    const BuiltModule module(sound_tables);
    module.build("libname.so", "char far_name[] = \"f\";", "-shared -fPIC");
    const std::string flags = " -L" + module.folder() + " -lname" + host_flags(":'$ORIGIN'");
    for (const std::string way : {"", "-no-pie -fno-pie", "-fPIC -pie"})
        for (const std::string use : {"0", "far_name[0] == 0"}) { // by its code too: then the linker copies it
            module.build("user",
                         "#include \"ka/dll_module.h\"\n" + tables + "int32_t KaCall(int32_t i, void **a) { return " +
                             use + "; }",
                         way + flags);
            const std::string user = module.folder() + "/user";
            EXPECT_EQ(ka({"check", user}).out, user + ": good\n") << way << ", " << use;
        }
}

TEST(KaCheckTables, have_the_names_that_are_symbols_of_the_module)
{
    const BuiltModule module("char own_name[] = \"by_symbol\"; t_DLL_PROTO KaArgList[] = {{\"a\", 10, 0}};"
                             "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, 1, 0}, {0, 0, 0, 0}};",
                             "-rdynamic");
    if (module_bits() == 64)
        name_by_symbol<Elf64, Elf64_Rela>(module, DT_RELA, DT_RELASZ, "own_name");
    else
        name_by_symbol<Elf32, Elf32_Rel>(module, DT_REL, DT_RELSZ, "own_name");
    const Outcome outcome = ka({"check", module.path()});
    EXPECT_NE(outcome.out.find(": by_symbol: argument 1 (a) is of kind 10"), std::string::npos) << outcome.out;
}

// In a 64-bit program the relocation alone has the pointer: not every linker leaves it at its place, too.
TEST(KaCheckTables, have_the_names_of_their_relocations)
{
    const BuiltModule module("t_DLL_PROTO KaArgList[] = {{\"a\", 10, 0}};"
                             "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, 1, 0}, {0, 0, 0, 0}};");
    std::string why;
    const ElfFile file = read_elf(module.path(), why).value();
    for (const char *table : {"KaFuncList", "KaArgList"})
        if (module_bits() == 64)
            module.put(offset_of(file, find_defined(file, table)->value).value(), std::string(8, '\0'));
    const Outcome outcome = check(module);
    EXPECT_NE(outcome.out.find(": f: argument 1 (a) is of kind 10"), std::string::npos) << outcome.out;
}
