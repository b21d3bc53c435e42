// SPDX-License-Identifier: MIT
//
// The outside of the library: names, their one version, its own name, and the libraries that it needs.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "toolchain.h"

namespace {

using Names = std::set<std::string>;

Names listed()
{
    std::ifstream file(LINKING_SYMBOLS);
    Names names;
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line[0] != '#') names.insert(line);
    }
    return names;
}

struct Exports {
    Names names;
    Names versions;
};

// Lines like "00001234 T decadd@@KAHOST_1"; the node itself is there as an absolute symbol.
Exports exports_of(const std::string &library)
{
    std::istringstream lines(linking::run("nm -D --defined-only " + library));
    Exports exports;
    std::string address, kind, symbol;
    while (lines >> address >> kind >> symbol) {
        if (kind == "A") continue;
        const size_t at = symbol.find('@');
        exports.names.insert(symbol.substr(0, at));
        exports.versions.insert(at == std::string::npos ? "none" : symbol.substr(at));
    }
    return exports;
}

// The global names of an archive: lines like "00001234 T decadd", after the names of its members.
Names defined_by(const std::string &archive)
{
    std::istringstream lines(linking::run("nm -g --defined-only " + archive));
    Names names;
    for (std::string line; std::getline(lines, line);)
        if (const size_t at = line.rfind(' '); at != std::string::npos) names.insert(line.substr(at + 1));
    return names;
}

// Every name marked KA_API in a public header.
Names declared()
{
    Names names;
    for (const char *folder : {"/dll/include/ka", "/math/include/ka", "/math/decimal/include/ka"}) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(std::string(LINKING_ROOT) + folder)) {
            if (!entry.is_regular_file()) continue;
            std::ifstream file(entry.path());
            const std::string whole{std::istreambuf_iterator<char>(file), {}};
            const std::string text = std::regex_replace(whole, std::regex(R"(__attribute__\(\(\w+\)\) )"), "");
            static const std::regex declaration(R"(\nKA_API [^;(\[]*?(\w+)(\(|\[|;))");
            for (std::sregex_iterator it(text.begin(), text.end(), declaration), end; it != end; ++it) {
                names.insert((*it)[1]);
            }
        }
    }
    return names;
}

class ExportsOf : public testing::TestWithParam<std::string> {
protected:
    std::string library() const { return linking::host_folder(GetParam()) + "/libkahost.so.1"; }
};
INSTANTIATE_TEST_SUITE_P(Hosts, ExportsOf,
                         testing::Values("built", "gcc_symbolic", "gcc_lto", "clang", "clang_symbolic", "clang_lto"),
                         [](const auto &built) { return built.param; });

TEST_P(ExportsOf, names_are_exactly_those_listed)
{
    EXPECT_EQ(exports_of(library()).names, listed());
}

TEST_P(ExportsOf, all_names_have_the_one_version)
{
    EXPECT_EQ(exports_of(library()).versions, Names{"@@KAHOST_1"});
}

TEST_P(ExportsOf, needs_the_c_library_only)
{
    EXPECT_EQ(linking::dynamic_entries(library(), "NEEDED"), Names{"libc.so.6"});
}

TEST(Library, names_listed_are_those_that_the_public_headers_declare)
{
    Names expected = declared();
    ASSERT_TRUE(expected.contains("decadd") && expected.contains("dll_debug") && expected.contains("KaFuncList"));
    for (const char *module : {"KaFuncList", "KaArgList", "KaCall"})
        expected.erase(module);
    for (const char *caller : {"ka_real_read", "ka_real_from_text", "ka_real_to_text"})
        expected.erase(caller);
    expected.insert("main");
    EXPECT_EQ(listed(), expected);
}

TEST(Archive, names_are_exactly_those_listed)
{
    EXPECT_EQ(defined_by(linking::host_folder("archive") + "/libkahost.a"), listed());
}

TEST(Library, name_is_versioned)
{
    EXPECT_EQ(linking::dynamic_entries(linking::host_folder("built") + "/libkahost.so", "SONAME"),
              Names{"libkahost.so.1"});
}

TEST(Library, code_needs_no_relocation)
{
    EXPECT_EQ(linking::dynamic_entries(linking::host_folder("built") + "/libkahost.so", "TEXTREL"), Names{});
}

} // namespace
