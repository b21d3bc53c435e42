// SPDX-License-Identifier: MIT
//
// Hooks in an archive or a library of their own: where a module must name it for them to be found.
#include <gtest/gtest.h>

#include <fstream>

#include "host/host_process.h"
#include "module_bits.h"
#include "toolchain.h"

namespace {

using namespace harness;
using linking::Folder;

constexpr const char *hooks_source = "#include <unistd.h>\n"
                                     "void dll_setup(void) { if (write(2, \"setup\\n\", 6) < 0) return; }\n"
                                     "void dll_cleanup(void) { if (write(2, \"cleanup\\n\", 8) < 0) return; }\n"
                                     "int elsewhere(void) { return 0; }\n";
constexpr const char *use_source = "int elsewhere(void);\nint (*used)(void) = elsewhere;\n";

constexpr const char *both = "setup\ncleanup\n";
constexpr const char *none = "";

class HooksElsewhere : public testing::TestWithParam<const char *> {
protected:
    HooksElsewhere()
    {
        std::ofstream(folder_.path("hooks.c")) << hooks_source;
        std::ofstream(folder_.path("use.c")) << use_source;
        const std::string compile = "gcc" + module_flag() +
                                    "-O2 -Wall -Werror -I" LINKING_ROOT "/dll/include -I" LINKING_ROOT
                                    "/math/include -I" LINKING_ROOT "/math/decimal/include ";
        run(compile + "-c hooks.c && ar rc libhooks.a hooks.o");
        run(compile + "-c use.c");
        run(compile + "-c " LINKING_SOURCE " -o module.o");
        run(compile + "-fPIC -shared hooks.c -o libshared.so");
    }

    // The output of the hooks that a module linked of these parts runs.
    std::string hooks_of(const std::string &parts) const
    {
        const std::string host = linking::host_folder("built");
        run("gcc" + module_flag() + GetParam() + " module.o " + parts + " -o module -L. -L" + host +
            " -Wl,-rpath,'$ORIGIN' -Wl,-rpath," + host);
        Block block;
        HostProcess process(block, folder_.path("module"));
        place(block, "level");
        EXPECT_EQ(process.call(), 100);
        EXPECT_EQ(process.terminate(), exited(0));
        return process.errors();
    }

private:
    void run(const std::string &command) const { linking::run("cd " + folder_.path("") + " && " + command); }

    Folder folder_;
};
INSTANTIATE_TEST_SUITE_P(With, HooksElsewhere, testing::Values("-fuse-ld=bfd", "-fuse-ld=lld"),
                         [](const auto &linker) { return std::string(linker.param).substr(9); });

TEST_P(HooksElsewhere, in_an_archive_of_which_something_else_is_used_are_found)
{
    EXPECT_EQ(hooks_of("use.o -lhooks -lkahost"), both);
    EXPECT_EQ(hooks_of("use.o -lkahost -lhooks"), both);
}

TEST_P(HooksElsewhere, in_an_archive_of_which_nothing_else_is_used_are_not_found)
{
    EXPECT_EQ(hooks_of("-lhooks -lkahost"), none);
    EXPECT_EQ(hooks_of("-lkahost -lhooks"), none);
}

TEST_P(HooksElsewhere, in_an_archive_are_asked_for_before_the_host)
{
    EXPECT_EQ(hooks_of("-Wl,-u,dll_setup -lhooks -lkahost"), both);
    EXPECT_EQ(hooks_of("-Wl,-u,dll_setup -lkahost -lhooks"), none);
}

TEST_P(HooksElsewhere, in_a_library_are_found_before_the_host_only)
{
    EXPECT_EQ(hooks_of("use.o -lshared -lkahost"), both);
    EXPECT_EQ(hooks_of("use.o -lkahost -lshared"), none);
}

// Many compilers have linkers leave out libraries of which nothing is used.
TEST_P(HooksElsewhere, in_a_library_of_which_nothing_else_is_used_must_be_kept)
{
    EXPECT_EQ(hooks_of("-Wl,--as-needed -lshared -lkahost"), none);
    EXPECT_EQ(hooks_of("-Wl,--no-as-needed -lshared -lkahost"), both);
    EXPECT_EQ(hooks_of("-Wl,--no-as-needed -lkahost -lshared"), none);
}

} // namespace
