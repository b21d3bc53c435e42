// SPDX-License-Identifier: MIT
//
// A module may give any name to its functions and data: the host uses its own. Meant to be shared or replaced are
// main, the hooks and the trace level only.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "host/host_process.h"
#include "module_bits.h"
#include "toolchain.h"

namespace {

using namespace harness;
using linking::Folder;

const std::set<std::string> shared = {"main", "dll_setup", "dll_cleanup", "dll_debug"};

// A definition of every other exported name: functions that write their name and end the process, data of other
// values.
std::string own_definitions()
{
    std::istringstream lines(
        linking::run("nm -D -S --defined-only " + linking::host_folder("built") + "/libkahost.so"));
    std::ostringstream source;
    source << "#include <stdlib.h>\n#include <unistd.h>\n"
              "static void end(const char *name, unsigned length) { if (write(2, name, length) > 0) abort(); }\n";
    std::string line;
    while (std::getline(lines, line)) {
        std::string address, size, kind, name;
        std::istringstream(line) >> address >> size >> kind >> name;
        name = name.substr(0, name.find('@'));
        if (kind.empty() || name.empty() || shared.contains(name)) continue;
        if (kind == "T" || kind == "W") {
            source << "void " << name << "(void) { end(\"" << name << "\\n\", sizeof \"" << name << "\"); }\n";
        } else {
            source << "char " << name << "[] = \"\\x7f\\2\\1\\1\\1\\1\\1\\1\\1\\1\\1\";\n";
        }
    }
    return source.str();
}

class OwnNames : public testing::TestWithParam<const char *> {
protected:
    OwnNames()
    {
        const std::string source = folder_.path("own.c");
        const std::string own = folder_.path("own.o");
        std::ofstream(source) << own_definitions();
        linking::run("gcc" + module_flag() + "-c " + GetParam() + " " + source + " -o " + own);
        link("", plain());
        link(own, module());
    }
    std::string module() const { return folder_.path("module"); }
    std::string plain() const { return folder_.path("plain"); } // the same without names of the host's

private:
    void link(const std::string &own, const std::string &output) const
    {
        const std::string folder = linking::host_folder("built");
        linking::run("gcc" + module_flag() + "-rdynamic " + GetParam() +
                     " -I" LINKING_ROOT "/dll/include -I" LINKING_ROOT "/math/include -I" LINKING_ROOT
                     "/math/decimal/include " LINKING_FOLDER "/own_names.c " +
                     own + " -o " + output + " -L" + folder + " -Wl,-rpath," + folder + " -lkahost");
    }

    Folder folder_;
};
INSTANTIATE_TEST_SUITE_P(Modules, OwnNames, testing::Values("-fPIE -pie", "-fno-pie -no-pie"), [](const auto &flags) {
    return std::string(flags.param).find("no") == std::string::npos ? "pie" : "no_pie";
});

TEST_P(OwnNames, are_all_defined_by_the_module)
{
    std::set<std::string> missing;
    std::ifstream listed(LINKING_SYMBOLS);
    const std::string defined = linking::run("nm -D --defined-only " + module());
    for (std::string name; std::getline(listed, name);) {
        if (name.empty() || name[0] == '#' || shared.contains(name)) continue;
        if (defined.find(" " + name + "\n") == std::string::npos) missing.insert(name);
    }
    EXPECT_EQ(missing, std::set<std::string>{});
}

TEST_P(OwnNames, leave_every_conversion_as_it_is)
{
    Block block;
    HostProcess host(block, module());
    place(block, "numbers",
          {real("99999999999"), integers({1, 2}).by_ref(), integer(7), reals({"1", "2", "3.25"}).by_ref(),
           real("0").by_ref()});
    EXPECT_EQ(host.call(), 1);
    EXPECT_EQ(integers_of(block, 2), (std::vector<int32_t>{1, 3}));
    EXPECT_EQ(decimals_of(block, 4)[1].dec_dgts[0], 0);
    EXPECT_EQ(reals_of(block, 4)[2], "-3.25");
    EXPECT_EQ(decimals_of(block, 4)[0].dec_exp, DEC_EXP_MAX);
    EXPECT_EQ(decimals_of(block, 4)[0].dec_dgts[0], 99);
    EXPECT_EQ(reals_of(block, 5)[0], "2147483654");

    place(block, "texts", {string("xyz"), string("abc", 5).by_ref()});
    EXPECT_EQ(host.call(), 2);
    EXPECT_EQ(strings_of(block, 2), std::vector<std::string>{"xy"});
    EXPECT_EQ(host.terminate(), exited(0));
    EXPECT_EQ(host.errors(), "");
}

// The host's trace of a few calls at the highest level, addresses aside.
std::string trace_of(const std::string &module)
{
    Block block;
    HostProcess host(block, module);
    place(block, "any", {integer(7), real("2.5"), string("text")});
    EXPECT_EQ(host.call(), 3);
    place(block, "numbers",
          {real("-8.5"), integers({1, 2}).by_ref(), integer(7), reals({"1", "2", "3.25"}), real("0")});
    EXPECT_EQ(host.call(), 1);
    place(block, "texts", {integer(7)});
    EXPECT_EQ(host.call(), 8);
    place(block, "texts", {string("a")});
    EXPECT_EQ(host.call(), 9);
    place(block, "missing");
    EXPECT_EQ(host.call(), 7);
    EXPECT_EQ(host.terminate(), exited(0));
    return std::regex_replace(host.errors(), std::regex("0x[0-9a-f]+"), "ADDRESS");
}

TEST_P(OwnNames, leave_the_trace_and_the_refusals_as_they_are)
{
    const std::string expected = trace_of(plain());
    EXPECT_NE(expected.find("dll base = ADDRESS"), std::string::npos) << expected;
    EXPECT_EQ(trace_of(module()), expected);
}

// Where the host is linked in, names of its interface are taken: the linker says so, and no call goes astray.
class OwnNamesBesideAnArchive : public testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(With, OwnNamesBesideAnArchive, testing::Values("bfd", "lld"),
                         [](const auto &linker) { return std::string(linker.param); });

TEST_P(OwnNamesBesideAnArchive, are_refused_by_the_linker_each)
{
    const Folder folder;
    std::ofstream(folder.path("own.c")) << own_definitions();
    const std::string limit = GetParam() == std::string("lld") ? " -Wl,--error-limit=0" : "";
    const std::string said =
        linking::run("cd " + folder.path("") + "; ! gcc" + module_flag() + "-w -fuse-ld=" + GetParam() + limit +
                     " -I" LINKING_ROOT "/dll/include -I" LINKING_ROOT "/math/include -I" LINKING_ROOT
                     "/math/decimal/include " LINKING_FOLDER "/own_names.c own.c -o module -rdynamic -L" +
                     linking::host_folder("archive") + " -l:libkahost.a");
    std::ifstream listed(LINKING_SYMBOLS);
    std::set<std::string> taken;
    for (std::string name; std::getline(listed, name);) {
        if (name.empty() || name[0] == '#' || shared.contains(name)) continue;
        const bool is_refused = said.find("multiple definition of `" + name + "'") != std::string::npos ||
                                said.find("duplicate symbol: " + name + "\n") != std::string::npos;
        EXPECT_TRUE(is_refused) << name;
        taken.insert(name);
    }
    EXPECT_GE(taken.size(), 60u) << said;
}

// The same for what no call reaches.
TEST(Library, asks_the_loader_for_none_of_its_own_names_but_the_level)
{
    std::istringstream words(linking::run("readelf -rW " + linking::host_folder("built") + "/libkahost.so"));
    std::set<std::string> asked;
    for (std::string word; words >> word;) {
        const size_t at = word.find("@@");
        if (at != std::string::npos) asked.insert(word.substr(0, at));
    }
    EXPECT_EQ(asked, std::set<std::string>{"dll_debug"});
}

TEST(Library, is_bound_at_start)
{
    const std::set<std::string> flags =
        linking::dynamic_entries(linking::host_folder("built") + "/libkahost.so", "FLAGS");
    ASSERT_EQ(flags.size(), 1u);
    EXPECT_NE(flags.begin()->find("BIND_NOW"), std::string::npos) << *flags.begin();
}

} // namespace
