// SPDX-License-Identifier: MIT
//
// The module's tables as ranges.
#include <algorithm>
#include <gtest/gtest.h>

#include "caller/hosts.h"
#include "ka/caller.hpp"
#include "ka/dll_module.h"

static void expect_add(const ka::Tables &tables)
{
    EXPECT_EQ(std::distance(tables.begin(), tables.end()), static_cast<std::ptrdiff_t>(tables.size()));
    EXPECT_TRUE(std::any_of(tables.begin(), tables.end(),
                            [](const ka_function &function) { return std::string(function.name) == "give_code"; }));
    const ka_function *const add = tables.find("add");
    ASSERT_NE(add, nullptr);
    std::string names;
    for (const ka_prototype &prototype : ka::Prototypes{*add})
        names += std::string(prototype.name) + ' ';
    EXPECT_EQ(names, "a b sum ");
    EXPECT_EQ(ka::Prototypes{*add}.size(), 3U);
    EXPECT_EQ(ka::Prototypes{*add}.begin()[2].kind, KA_INT_BY_REFERENCE);
    EXPECT_EQ(tables.find("ad"), nullptr);
    EXPECT_EQ(tables.find(std::string_view("add\0", 4)), nullptr);
}

TEST(CppTables, are_those_of_the_host)
{
    ka::Host host(tasks_module);
    expect_add(host.tables());
}

TEST(CppTables, kinds_are_told_in_words)
{
    EXPECT_STREQ(ka::kind_name(KA_REAL_BY_VALUE), "RealByValue");
    EXPECT_STREQ(ka::kind_takes(KA_REAL_BY_VALUE), "INTEGER or REAL");
    EXPECT_FALSE(ka::kind_gives_back(KA_REAL_BY_VALUE));
    EXPECT_TRUE(ka::kind_gives_back(KA_STRING));
    EXPECT_STREQ(ka::version(), ka_version());
}

TEST(CppTables, are_those_of_the_file_and_may_be_copied)
{
    const ka::Tables copy = ka::read_tables(tasks_module);
    expect_add(copy);
    EXPECT_FALSE(copy.filled_at_start());
}

TEST(CppTables, that_are_missing_are_an_error_with_the_reason)
{
    try {
        ka::read_tables("/no/such/file");
        FAIL() << "nothing is thrown";
    } catch (const ka::Error &error) {
        EXPECT_EQ(error.error_class(), KA_ARGUMENT);
        EXPECT_STRNE(error.what(), "");
    }
    ka::Host ended = ka::Host::try_open("/no/such/file");
    EXPECT_THROW(ended.tables(), ka::Error);
}
