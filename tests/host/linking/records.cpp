// SPDX-License-Identifier: MIT
//
// The records that programs and libraries share by the public C headers lie as they are listed, for each word size.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "module_bits.h"
#include "toolchain.h"

namespace {

namespace fs = std::filesystem;

std::string listed_records()
{
    std::ifstream file(LINKING_FOLDER "/exported_records_" + std::to_string(module_bits()) + ".txt");
    std::string text;
    for (std::string line; std::getline(file, line);)
        if (!line.starts_with('#')) text += line + "\n";
    return text;
}

std::set<std::string> c_headers()
{
    std::set<std::string> found;
    for (const auto &entry : fs::directory_iterator(LINKING_BUILD "/include/ka"))
        if (entry.path().extension() == ".h") found.insert(entry.path());
    return found;
}

} // namespace

TEST(Records, lie_as_they_are_listed)
{
    const linking::Folder folder;
    std::ofstream source(folder.path("all.c"));
    for (const std::string &header : c_headers())
        source << "#include \"" << header << "\"\n";
    source.close();
    linking::run("gcc" + module_flag() + "-g -fno-eliminate-unused-debug-types -I" LINKING_BUILD "/include -c " +
                 folder.path("all.c") + " -o " + folder.path("all.o"));
    EXPECT_EQ(linking::run("gdb -nx -batch -x " LINKING_FOLDER "/records.py " + folder.path("all.o")),
              listed_records());
}

TEST(Records, are_all_listed)
{
    const std::regex definition(R"(\n(typedef )?struct (\w+) \{)");
    const std::string list = "\n" + listed_records();
    int count = 0;
    for (const std::string &header : c_headers()) {
        std::ostringstream text;
        text << std::ifstream(header).rdbuf();
        const std::string whole = text.str();
        for (std::sregex_iterator each(whole.begin(), whole.end(), definition), end; each != end; ++each, count++) {
            const std::string name = (*each)[2];
            EXPECT_NE(list.find("\n" + name + " "), std::string::npos) << name << " in " << header;
        }
    }
    EXPECT_GE(count, 25);
}
