// SPDX-License-Identifier: MIT
//
// The folder of public headers by itself: every header compiles alone, without a warning, in each language that it
// promises, for both word sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "module_bits.h"
#include "toolchain.h"

namespace {

struct Language {
    const char *name;
    const char *command;
};

void PrintTo(const Language &language, std::ostream *out)
{
    *out << language.command;
}

const Language languages[] = {
    {"gcc_c11", "gcc -x c -std=c11"},
    {"gcc_c17", "gcc -x c -std=c17"},
    {"gcc_cxx17", "g++ -x c++ -std=c++17"},
    {"gcc_cxx20", "g++ -x c++ -std=c++20"},
    {"clang_c11", "clang -x c -std=c11"},
    {"clang_c17", "clang -x c -std=c17"},
    {"clang_cxx17", "clang++ -x c++ -std=c++17"},
    {"clang_cxx20", "clang++ -x c++ -std=c++20"},
};

// The folder of public headers, as users have it.
const std::string include = LINKING_BUILD "/include";

std::set<std::string> headers_of(const std::string &folder, const std::string &extension)
{
    std::set<std::string> headers;
    for (const auto &entry : std::filesystem::directory_iterator(include + "/" + folder))
        if (entry.path().extension() == extension) headers.insert(folder + "/" + entry.path().filename().string());
    return headers;
}

// The compiler's messages, or the reason why it did not run, about a source that includes the headers. It comes
// through standard input: a header compiled as a main file would be warned about, and so would a C source that
// declares nothing.
std::string complaints(const Language &language, const std::set<std::string> &headers)
{
    std::string source;
    for (const std::string &header : headers)
        source += "#include <" + header + ">\\n";
    try {
        return linking::run("printf '" + source + "extern int declared;\\n' | " + language.command + module_flag() +
                            "-fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wcast-align -Wundef "
                            "-Wstrict-aliasing -Werror -I" +
                            include + " -");
    } catch (const std::exception &error) {
        return error.what();
    }
}

class Headers : public testing::TestWithParam<Language> {};

TEST_P(Headers, compile_alone_without_warnings)
{
    std::set<std::string> headers = headers_of("ka", ".h");
    headers.merge(headers_of("ka/module", ".h"));
    ASSERT_GE(headers.size(), 10u);
    for (const std::string &header : headers)
        EXPECT_EQ(complaints(GetParam(), {header}), "");
}

// Nothing but the reason: an older standard is what some compilers take without an option.
TEST(OlderLanguages, are_refused_by_name_first)
{
    const std::string gcc = "g++ -x c++ -std=c++14 -fmax-errors=1",
                      clang = "clang++ -x c++ -std=c++14 -ferror-limit=1";
    for (const auto &[header, command] : {std::pair<std::string, std::string>{"ka/module.hpp", gcc},
                                          {"ka/module.hpp", clang},
                                          {"ka/module_test.hpp", gcc},
                                          {"ka/caller.hpp", gcc}}) {
        const std::string said = complaints({"", command.c_str()}, {header});
        EXPECT_NE(said.find("\"" + header + " is C++17: "), std::string::npos) << said;
    }
    const std::string said = complaints({"", "gcc -x c -std=c99 -fmax-errors=1"}, {"ka/module.h"});
    EXPECT_NE(said.find("\"ka/module.h is C11: "), std::string::npos) << said;
}

INSTANTIATE_TEST_SUITE_P(Languages, Headers, testing::ValuesIn(languages),
                         [](const auto &language) { return std::string(language.param.name); });

// Those take their time: alone in each language for one word size, all together for the other.
struct AloneFor {
    const char *language;
    int bits;
};

class CxxHeaders : public testing::TestWithParam<AloneFor> {
protected:
    const Language &language() const
    {
        const auto named = [](const Language &each) { return std::string(each.name) == GetParam().language; };
        return *std::find_if(std::begin(languages), std::end(languages), named);
    }
};

TEST_P(CxxHeaders, compile_without_warnings)
{
    std::set<std::string> headers = headers_of("ka", ".hpp");
    ASSERT_GE(headers.size(), 7u);
    if (module_bits() == GetParam().bits) {
        for (const std::string &header : headers)
            EXPECT_EQ(complaints(language(), {header}), "");
    }
    headers.merge(headers_of("ka", ".h"));
    EXPECT_EQ(complaints(language(), headers), "");
}

INSTANTIATE_TEST_SUITE_P(Languages, CxxHeaders,
                         testing::Values(AloneFor{"gcc_cxx17", 64}, AloneFor{"gcc_cxx20", 32},
                                         AloneFor{"clang_cxx17", 32}, AloneFor{"clang_cxx20", 64}),
                         [](const auto &alone) { return std::string(alone.param.language); });

TEST(CxxParts, of_headers_compile_alone_without_warnings)
{
    const std::set<std::string> parts = headers_of("ka/module", ".hpp");
    ASSERT_GE(parts.size(), 10u);
    const Language language = {"gcc_cxx17", "g++ -x c++ -std=c++17"};
    if (module_bits() != 8 * sizeof(void *)) {
        EXPECT_EQ(complaints(language, parts), "");
        return;
    }
    for (const std::string &part : parts)
        EXPECT_EQ(complaints(language, {part}), "");
}

} // namespace
