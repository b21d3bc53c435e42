// SPDX-License-Identifier: MIT
//
// A name that the sources of an archive share means the same in each of them: who links with optimization across
// files would get one of two different types, and a warning about our files.
#include <gtest/gtest.h>

#include "module_bits.h"
#include "toolchain.h"

namespace {

struct Archive {
    const char *name;
    const char *folders; // of its sources
};

void PrintTo(const Archive &archive, std::ostream *out)
{
    *out << archive.name;
}

constexpr const char *numbers = "math/decimal/src math/src ";

const Archive archives[] = {
    {"kahost", "dll/src "},
    {"kacall", "caller/src "},
};

class OneDefinition : public testing::TestWithParam<Archive> {};

TEST_P(OneDefinition, of_each_type_in_an_archive)
{
    const linking::Folder folder;
    const std::string root = LINKING_ROOT;
    std::string includes = module_bits() == 32 ? " " LINKING_KERNEL_HEADERS : "";
    for (const char *part :
         {"", "dll/include", "math/include", "math/decimal/include", "caller/include", "caller/src"})
        includes += " -I" + root + "/" + part;
    const std::string compiler = "g++ -flto" + module_flag();
    linking::run("cd " + root + "; sources=$(find " + numbers + GetParam().folders + "-name '*.cpp' -printf '" +
                 root + "/%p '); cd " + folder.path("") + "; " + compiler +
                 " -fPIC -std=c++20 -fno-exceptions -fno-rtti" + includes + " -c $sources; gcc-ar rc all.a *.o");
    EXPECT_EQ(linking::run("cd " + folder.path("") + "; " + compiler +
                           " -Wodr -Werror=odr -shared -Wl,--whole-archive all.a -Wl,--no-whole-archive -o all.so"),
              "");
}

INSTANTIATE_TEST_SUITE_P(Archives, OneDefinition, testing::ValuesIn(archives),
                         [](const auto &archive) { return std::string(archive.param.name); });

} // namespace
