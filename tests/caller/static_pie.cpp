// SPDX-License-Identifier: MIT
//
// A program with all its libraries in it, at any address: it names no symbols for others, so it has no tables to
// read.
#include "caller/hosts.h"

static const std::string module = module_path("static_pie");

TEST(StaticPie, is_called_unchecked)
{
    const Host host({}, module);
    int32_t code = -1;
    int32_t sum = 0;
    ka_begin(host, "add");
    ka_add_integer(host, 2, KA_BY_VALUE);
    ka_add_integer(host, 40, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    EXPECT_EQ(ka_call(host, &code), KA_DONE);
    EXPECT_EQ(ka_get_integers(host, 3, &sum, 1), KA_DONE);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(sum, 42);

    ka_begin(host, "no such function");
    EXPECT_EQ(ka_call(host, &code), KA_DONE);
    EXPECT_EQ(code, KA_NO_FUNCTION);
}

TEST(StaticPie, has_no_tables_to_read)
{
    char why[200] = "";
    EXPECT_EQ(ka_read_tables(module.c_str(), why, sizeof why), nullptr);
    EXPECT_STREQ(why, "not a module: KaFuncList is missing");
    const Host host({}, module);
    EXPECT_EQ(ka_host_tables(host), nullptr);
    EXPECT_EQ(ka_last_error(host)->message,
              module + ": its tables cannot be read: not a module: KaFuncList is missing");
}
