// SPDX-License-Identifier: MIT
//
// Names and texts of a module that are made to do something to the terminal: colour, a title, a line of their own
// that looks like one of ka. All that is printed of them can be read, and does nothing.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ka/built_module.h"
#include "ka/command.h"
#include "ka/input.h"
#include "ka/terminal_text.h"

namespace {

// Both streams, with --json too where there is it.
void expect_harmless(std::vector<std::string> words, const std::string &input = "")
{
    for (const bool json : {false, true}) {
        if (json) words.insert(words.begin() + 1, "--json");
        const Input file(input);
        const Outcome outcome = await_ka(start_ka(words, file.fd()));
        EXPECT_EQ(fault_on_terminal(outcome.out), "") << testing::PrintToString(words) << outcome.out;
        EXPECT_EQ(fault_on_terminal(outcome.err), "") << testing::PrintToString(words) << outcome.err;
        EXPECT_EQ(outcome.out.find("\nforged"), std::string::npos) << outcome.out;
        EXPECT_EQ(outcome.err.find("\nforged"), std::string::npos) << outcome.err;
        EXPECT_NE(outcome.out + outcome.err, "") << testing::PrintToString(words);
    }
}

void expect_all_harmless(const std::string &module)
{
    expect_harmless({"list", module});
    expect_harmless({"list", "--start", module});
    expect_harmless({"list", module, "nosuch\x1b[31m\xc2\x9b"});
    expect_harmless({"check", "--no-start", module});
    expect_harmless({"check", module});
    expect_harmless({"call", module, "evil"});
    expect_harmless({"shell", module}, "evil\nevil 1 2 3\n:list\n:list evil\n");
}

// As it is written in C.
const std::string evil_name = R"(evil\x1b[31m\xc2\x9b\x9b\x7f\r\nforged: \xe2\x80\xae\xe2\x80\xa8\t)";
const std::string evil_bytes = "evil\x1b[31m\xc2\x9b\x9b\x7f\r\nforged: \xe2\x80\xae\xe2\x80\xa8\t";

std::string tables(const std::string &prototypes, const std::string &functions)
{
    return "t_DLL_PROTO KaArgList[] = {" + prototypes + "}; t_DLL_FUNC KaFuncList[] = {" + functions + "};";
}

std::string named(const std::string &rest)
{
    return "{\"" + evil_name + "\", " + rest + "}";
}

} // namespace

TEST(KaHostileNames, of_functions_and_arguments)
{
    const BuiltModule sound(tables(named("1, 0") + "," + named("8, 0"), named("0, 2, 0") + ",{0, 0, 0, 0}"));
    expect_all_harmless(sound.path());
    for (const char *argument : {"1", "x", "'", "[1,2]"})
        for (const char *second : {"1", "", "'\\x", "&2"})
            expect_harmless({"call", sound.path(), evil_bytes, argument, second});
    expect_harmless({"call", "--raw", sound.path(), evil_bytes, "1", "1"});
    expect_harmless({"call", "--trace", "0", sound.path(), evil_bytes, "7", "back"});
    EXPECT_NE(ka({"list", sound.path()}).out.find(R"(evil\x1b[31m\xc2\x9b\x9b\x7f\x0d\x0aforged: \xe2\x80\xae)"),
              std::string::npos);
}

TEST(KaHostileNames, in_tables_that_are_wrong)
{
    const std::string lists[] = {
        named("0, 99, 0") + ",{0}",                         // too many prototypes
        named("0, -2, 0") + ",{0}",                         //
        named("70, 1, 0") + ",{0}",                         // outside of the table
        named("0x7000000, 1, 0") + ",{0}",                  // outside of the module
        named("0, 1, 0") + "," + named("0, 1, 0") + ",{0}", // of one name
        named("0, 1, 0"),                                   // without an end
    };
    for (const std::string &functions : lists)
        for (const std::string &prototypes : {named("77, 0"), named("0, 3") + "," + named("1, -2"), named("3, -1")}) {
            const BuiltModule module(tables(prototypes, functions));
            expect_harmless({"list", module.path()});
            expect_harmless({"check", "--no-start", module.path()});
            expect_harmless({"call", module.path(), evil_bytes, "1"});
        }
}

TEST(KaHostileNames, of_the_loader_and_of_libraries)
{
    const BuiltModule loader(sound_tables);
    loader.replace("/ld-linux", "/\x1b[31m\xc2\x9b\n");
    expect_all_harmless(loader.path());
    const BuiltModule library(sound_tables);
    library.replace("libkahost.so.1", "libk\x1b[31m\xc2\x9b\x9b.1");
    expect_harmless({"list", library.path()});
    expect_harmless({"check", library.path()}); // a host writes itself where another ka starts it
}

TEST(KaHostileNames, of_symbols_and_versions)
{
    const BuiltModule module(sound_tables);
    module.build("libstub.so", "int undefined_function(void) { return 0; }", "-shared -fPIC");
    module.build("user",
                 "#include \"ka/dll_module.h\"\nint undefined_function(void);\n" + sound_tables +
                     "int32_t KaCall(int32_t i, void **a) { return undefined_function(); }",
                 "-L" + module.folder() + " -lstub -Wl,-z,lazy" + host_flags(":'$ORIGIN'"));
    module.take("user");
    module.replace("undefined_function", "undefined\x1b[31m\xc2\x9b\x9b\n");
    expect_harmless({"check", "--no-start", module.path()});
    EXPECT_NE(ka({"check", "--no-start", module.path()}).out.find("symbol undefined\\x1b[31m"), std::string::npos);
    module.replace("GLIBC_2", "GL\x1b[m\x9b_");
    expect_harmless({"check", "--no-start", module.path()});
    EXPECT_NE(ka({"check", "--no-start", module.path()}).out.find("no version GL\\x1b[m\\x9b_"), std::string::npos);
}

TEST(KaHostileNames, in_what_a_module_writes)
{
    const BuiltModule writes(sound_tables + "void dll_setup(void) { fputs(\"" + evil_name +
                             "\\n\", stderr); } void dll_cleanup(void) { fputs(\"" + evil_name + "\", stderr); }");
    expect_harmless({"check", writes.path()});
    const BuiltModule ends(sound_tables + "void dll_setup(void) { fputs(\"" + evil_name + "\", stderr); _exit(3); }");
    expect_harmless({"check", ends.path()});
}

TEST(KaHostileNames, of_the_module_itself)
{
    const BuiltModule module(sound_tables);
    const std::string evil = module.folder() + "/\x1b[31m\xc2\x9b\x9b\x7f\nforged";
    expect_all_harmless(evil); // is not there
    ASSERT_EQ(link(module.path().c_str(), evil.c_str()), 0);
    expect_all_harmless(evil);
    const BuiltModule dies(tables("{\"a\", 1, 0}", "{\"f\", 0, 1, 0}, {0}") +
                               "int32_t KaCall(int32_t i, void **a) { abort(); }",
                           "-DOWN_KACALL");
    const std::string path = dies.folder() + "/\x1b[31m\xc2\x9b\x9b\x7f\nforged";
    ASSERT_EQ(link(dies.path().c_str(), path.c_str()), 0);
    expect_harmless({"call", path, "f", "1"});
    expect_harmless({"shell", path}, "f 1\nf 1\n");
}

// The names of a crash's backtrace are those of the module's symbols.
TEST(KaHostileNames, in_a_backtrace)
{
    const BuiltModule module(tables("{\"a\", 8, 0}", "{\"f\", 0, 1, 0}, {0}") +
                                 "__attribute__((noinline)) void crashing_function(void) { abort(); }"
                                 "int32_t KaCall(int32_t i, void **a) { crashing_function(); return 1; }",
                             "-DOWN_KACALL");
    module.replace("crashing_function", "crash\x1b[31m\xc2\x9b\x9b\nng");
    expect_harmless({"call", module.path(), "f", "'\\x1b\\x9b\\xc2\\x9b'"});
}

// What a shell is offered it would put on its command line.
TEST(KaHostileNames, are_not_offered_for_completion)
{
    const BuiltModule module(tables(named("1, 0"), named("0, 1, 0") + ",{\"good\", 0, 1, 0},{0}"));
    const Outcome outcome = ka({"complete", "call", module.path(), ""});
    EXPECT_EQ(fault_on_terminal(outcome.out), "") << outcome.out;
    EXPECT_EQ(outcome.out.find("evil\\"), outcome.out.find("good\t") + 5) << outcome.out; // as an argument of good
}

TEST(KaHostileNames, of_users)
{
    const std::string evil = "\x1b[31m\xc2\x9b\x9b\nforged";
    expect_harmless({"explain", evil});
    expect_harmless({"call", "--deadline", evil, tasks_module, "add"});
    expect_harmless({"call", tasks_module, "add", evil, evil, evil});
    expect_harmless({"call", "--args", evil, tasks_module, "add"});
    expect_harmless({"call", "--callback", evil, tasks_module, "add"});
    expect_harmless({"trace", evil});
    expect_harmless({"dump", evil});
    expect_harmless({"real", evil});
    expect_harmless({"shell", tasks_module},
                    "\x1b[31m\nx = \x9b\n:trace \x1b\n:deadline \xc2\x9b\n:callback \x9b\n:\x1b\nadd $\x1b\n"
                    "x = '\x1b\xc2\x9b'\n:vars\nadd $y\nadd 'a\n");
}
