// SPDX-License-Identifier: MIT
//
// The shared library shows the interface and nothing else, and needs the C library and nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

static std::string output_of(const std::string &command)
{
    FILE *pipe = popen(command.c_str(), "r");
    std::string text;
    char buffer[512];
    while (fgets(buffer, sizeof buffer, pipe))
        text += buffer;
    EXPECT_EQ(pclose(pipe), 0) << command;
    return text;
}

TEST(CallerLibrary, exports_functions_of_the_interface_only)
{
    std::istringstream lines(output_of("nm -D --defined-only " CALLER_LIBRARY));
    std::set<std::string> names;
    std::string address;
    std::string kind;
    std::string name;
    while (lines >> address >> kind >> name)
        if (kind != "A") names.insert(name);
    EXPECT_TRUE(names.count("ka_open@@KACALL_1"));
    EXPECT_TRUE(names.count("ka_call@@KACALL_1"));
    for (const std::string &exported : names) {
        EXPECT_EQ(exported.substr(0, 3), "ka_") << exported;
        EXPECT_NE(exported.find("@@KACALL_1"), std::string::npos) << exported;
    }
}

TEST(CallerLibrary, needs_the_c_library_only)
{
    std::istringstream lines(output_of("readelf -d " CALLER_LIBRARY " | grep NEEDED"));
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        count++;
        const bool expected =
            line.find("[libc.so.") != std::string::npos || line.find("[ld-linux") != std::string::npos;
        EXPECT_TRUE(expected) << line;
    }
    EXPECT_GT(count, 0);
}
