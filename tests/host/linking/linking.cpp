// SPDX-License-Identifier: MIT
//
// Modules built in every usual way, with hosts built in every usual way: hooks and trace level of the module take
// effect, and a module needs nothing but -lkahost.
#include <gtest/gtest.h>

#include "host/host_process.h"
#include "toolchain.h"

namespace {

using namespace harness;
using linking::Folder;

struct Build {
    const char *name;
    const char *compiler;
    const char *flags;
};

void PrintTo(const Build &build, std::ostream *out)
{
    *out << build.name;
}

// clang-format off
// The ways that differ most in how a symbol is found; with each of the hosts.
const Build basic_builds[] = {
    {"gcc_c",          "gcc",     "-std=c11 -pedantic"},
    {"gcc_c_no_pie",   "gcc",     "-std=c11 -fno-pie -no-pie"},
    {"gcc_c_lto_hidden_no_pie", "gcc", "-std=c11 -flto -fvisibility=hidden -fno-pie -no-pie"},
    {"gcc_cxx_hidden", "g++",     "-std=c++17 -fvisibility=hidden -x c++"},
    {"clang_c",        "clang",   "-std=c11 -pedantic"},
    {"clang_c_no_pie", "clang",   "-std=c11 -fno-pie -no-pie"},
    {"clang_cxx_lto_hidden", "clang++", "-std=c++17 -flto -fuse-ld=lld -fvisibility=hidden -x c++"},
};

// With the build's own host.
const Build more_builds[] = {
    {"gcc_c_pie",      "gcc",     "-std=c11 -fPIE -pie"},
    {"gcc_c_hidden",   "gcc",     "-std=c11 -fvisibility=hidden"},
    {"gcc_c_sections", "gcc",     "-std=c11 -ffunction-sections -fdata-sections -Wl,--gc-sections -s"},
    {"gcc_c_lto",      "gcc",     "-std=c11 -flto"},
    {"gcc_c_now",      "gcc",     "-std=c11 -Wl,-z,now -Wl,-z,relro -fno-plt"},
    {"gcc_c_debug",    "gcc",     "-std=c11 -O0 -g"},
    {"gcc_cxx",        "g++",     "-std=c++17 -x c++"},
    {"gcc_cxx_no_pie", "g++",     "-std=c++17 -fno-pie -no-pie -x c++"},
    {"gcc_cxx_lto_hidden", "g++", "-std=c++17 -flto -fvisibility=hidden -x c++"},
    {"clang_c_pie",    "clang",   "-std=c11 -fPIE -pie"},
    {"clang_c_hidden", "clang",   "-std=c11 -fvisibility=hidden"},
    {"clang_c_lld",    "clang",   "-std=c11 -fuse-ld=lld"},
    {"clang_c_lld_sections", "clang", "-std=c11 -fuse-ld=lld -ffunction-sections -Wl,--gc-sections"},
    {"clang_c_lto",    "clang",   "-std=c11 -flto -fuse-ld=lld"},
    {"clang_cxx",      "clang++", "-std=c++17 -x c++"},
    {"clang_cxx_lto_hidden_no_pie", "clang++",
                       "-std=c++17 -flto -fuse-ld=lld -fvisibility=hidden -fno-pie -no-pie -x c++"},
};
// With the build's own host as an archive.
const Build single_files[] = {
    {"gcc_c",          "gcc",     "-std=c11 -pedantic"},
    {"gcc_c_lto_hidden_no_pie", "gcc", "-std=c11 -flto -fvisibility=hidden -fno-pie -no-pie"},
    {"gcc_c_sections", "gcc",     "-std=c11 -ffunction-sections -fdata-sections -Wl,--gc-sections -s"},
    {"clang_cxx_lto_hidden", "clang++", "-std=c++17 -flto -fuse-ld=lld -fvisibility=hidden -x c++"},
};
// clang-format on

const std::string hosts[] = {"built", "gcc_symbolic", "gcc_lto", "clang", "clang_symbolic", "clang_lto"};

struct Outcome {
    int32_t code;
    std::string errors;
    bool operator==(const Outcome &) const = default;
};

void PrintTo(const Outcome &outcome, std::ostream *out)
{
    *out << "code " << outcome.code << ", wrote " << testing::PrintToString(outcome.errors);
}

Outcome call_level(const std::string &module)
{
    Block block;
    HostProcess host(block, module);
    place(block, "level");
    const int32_t code = host.call();
    EXPECT_EQ(host.terminate(), exited(0));
    return {code, host.errors()};
}

class Linking : public testing::TestWithParam<std::tuple<std::string, Build>> {
protected:
    Outcome call_of(const std::string &define) const
    {
        const auto [host, build] = GetParam();
        const std::string module = folder_.path("module");
        linking::build_module(build.compiler, define + " " + build.flags, host, module);
        return call_level(module);
    }

private:
    Folder folder_;
};

TEST_P(Linking, hooks_of_the_module_run_and_the_level_that_it_assigns_counts)
{
    EXPECT_EQ(call_of("-DASSIGNS"),
              (Outcome{101, "setup\n\ncalling level, argc = 0\nreturn code is 101\ncleanup\n"}));
}

TEST_P(Linking, a_level_that_the_module_defines_counts)
{
    EXPECT_EQ(call_of("-DDEFINES"),
              (Outcome{101, "setup\n\ncalling level, argc = 0\nreturn code is 101\ncleanup\n"}));
}

TEST_P(Linking, a_module_without_hooks_works)
{
    EXPECT_EQ(call_of(""), (Outcome{100, ""}));
}

std::string case_name(const testing::TestParamInfo<std::tuple<std::string, Build>> &pair)
{
    return "host_" + std::get<0>(pair.param) + "_module_" + std::get<1>(pair.param).name;
}

INSTANTIATE_TEST_SUITE_P(EachHost, Linking,
                         testing::Combine(testing::ValuesIn(hosts), testing::ValuesIn(basic_builds)), case_name);
INSTANTIATE_TEST_SUITE_P(OwnHost, Linking, testing::Combine(testing::Values("built"), testing::ValuesIn(more_builds)),
                         case_name);

INSTANTIATE_TEST_SUITE_P(OneFile, Linking,
                         testing::Combine(testing::Values("archive"), testing::ValuesIn(single_files)), case_name);

TEST(LinkingC, a_module_of_one_file_needs_the_c_library_only)
{
    const Folder folder;
    const std::string module = folder.path("module");
    linking::build_module("gcc", "-std=c11", "archive", module);
    EXPECT_EQ(linking::dynamic_entries(module, "NEEDED"), (std::set<std::string>{"libc.so.6"}));
}

TEST(LinkingC, a_c_module_needs_the_host_and_the_c_library_only)
{
    for (const char *compiler : {"gcc", "clang"}) {
        const Folder folder;
        const std::string module = folder.path("module");
        linking::build_module(compiler, "-std=c11 -DASSIGNS", "built", module);
        EXPECT_EQ(linking::dynamic_entries(module, "NEEDED"), (std::set<std::string>{"libkahost.so.1", "libc.so.6"}));
        const std::string loaded = linking::run("ldd " + module);
        EXPECT_EQ(loaded.find("libstdc++"), std::string::npos) << loaded;
        EXPECT_NE(loaded.find("libkahost.so.1 => "), std::string::npos) << loaded;
    }
}

} // namespace
