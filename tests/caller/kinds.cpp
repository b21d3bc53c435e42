// SPDX-License-Identifier: MIT
//
// Kinds of arguments in words, and the library's version.
#include "caller/hosts.h"
#include "ka/dll_module.h"

TEST(Kinds, are_told_in_the_words_of_ka_list)
{
    struct Row {
        int32_t kind;
        const char *name;
        const char *takes;
        int32_t gives_back;
    };
    constexpr Row rows[] = {
        {KA_VARARG, "VarArg", "anything", 1},
        {KA_INT_BY_VALUE, "IntByValue", "INTEGER or REAL", 0},
        {KA_INT_BY_REFERENCE, "IntByReference", "INTEGER", 1},
        {KA_INT_ARRAY, "IntArray", "INTEGER", 1},
        {KA_REAL_BY_VALUE, "RealByValue", "INTEGER or REAL", 0},
        {KA_REAL_BY_REFERENCE, "RealByReference", "REAL", 1},
        {KA_REAL_ARRAY, "RealArray", "REAL", 1},
        {KA_ZSTRING, "zString", "STRING", 0},
        {KA_STRING, "String", "STRING", 1},
        {KA_STRING_ARRAY, "StringArray", "STRING", 1},
        {10, "Unknown", "nothing", 0},
        {-1, "Unknown", "nothing", 0},
        {INT32_MIN, "Unknown", "nothing", 0},
        {INT32_MAX, "Unknown", "nothing", 0},
    };
    for (const Row &row : rows) {
        EXPECT_STREQ(ka_kind_name(row.kind), row.name);
        EXPECT_STREQ(ka_kind_takes(row.kind), row.takes) << row.name;
        EXPECT_EQ(ka_kind_gives_back(row.kind), row.gives_back) << row.name;
    }
}

TEST(Version, is_the_projects)
{
    EXPECT_STREQ(ka_version(), CALLER_VERSION);
}
