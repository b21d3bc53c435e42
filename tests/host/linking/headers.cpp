// SPDX-License-Identifier: MIT
//
// Every public header compiles alone, without a warning, in each language that it promises, for both word sizes.
#include <gtest/gtest.h>

#include <filesystem>

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

std::set<std::string> public_headers()
{
    std::set<std::string> headers;
    for (const char *folder : {"/dll/include/ka", "/dll/include/ka/module", "/dll/test/include/ka",
                               "/math/include/ka", "/math/decimal/include/ka", "/caller/include/ka"}) {
        const std::string path = std::string(LINKING_ROOT) + folder;
        if (!std::filesystem::exists(path)) continue;
        for (const auto &entry : std::filesystem::directory_iterator(path)) {
            if (entry.path().extension() == ".h") headers.insert(entry.path());
        }
    }
    return headers;
}

// The compiler's messages, or the reason why it did not run.
std::string complaints(const std::string &command)
{
    try {
        return linking::run(command);
    } catch (const std::exception &error) {
        return error.what();
    }
}

class Headers : public testing::TestWithParam<Language> {};

TEST_P(Headers, compile_alone_without_warnings)
{
    const std::string root = LINKING_ROOT;
    const std::string flags = " -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wcast-align -Wundef "
                              "-Wstrict-aliasing -Werror -I" +
                              root + "/dll/include -I" + root + "/dll/test/include -I" + root + "/math/include -I" +
                              root + "/math/decimal/include ";
    const std::set<std::string> headers = public_headers();
    ASSERT_GE(headers.size(), 8u);
    for (const std::string &header : headers) {
        // Through standard input: a header compiled as a main file would be warned about, and so would a C source
        // that declares nothing.
        const std::string source = "printf '#include \"" + header + "\"\nextern int declared;\n'";
        EXPECT_EQ(complaints(source + " | " + GetParam().command + module_flag() + flags + "-"), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Languages, Headers, testing::ValuesIn(languages),
                         [](const auto &language) { return std::string(language.param.name); });

} // namespace
