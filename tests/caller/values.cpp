// SPDX-License-Identifier: MIT
//
// Every kind of argument, by value and by reference, there and back.
#include "caller/hosts.h"

#include <climits>
#include <cmath>

class CallValues : public BothLayouts {};
IN_BOTH_LAYOUTS(CallValues);

TEST_P(CallValues, integers_go_and_a_reference_comes_back)
{
    Host host(layout());
    ka_begin(host, "add");
    ka_add_integer(host, -5, KA_BY_VALUE);
    ka_add_integer(host, 47, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(integers(host, 3, 1), std::vector<int32_t>({42}));
}

TEST_P(CallValues, return_code_is_the_functions_own)
{
    Host host(layout());
    for (int32_t code : {0, 1, 2, 7, 8, 9, 17, 606, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(call_with(host, "give_code", code), code);
}

TEST_P(CallValues, integer_array_comes_back_changed)
{
    Host host(layout());
    const int32_t values[] = {1, -2, 1000000};
    ka_begin(host, "double");
    ka_add_integers(host, values, 3, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(integers(host, 1, 3), std::vector<int32_t>({2, -4, 2000000}));
}

TEST_P(CallValues, argument_by_value_gives_nothing_back)
{
    Host host(layout());
    const int32_t values[] = {1, 2};
    int32_t got[2];
    ka_begin(host, "double");
    ka_add_integers(host, values, 2, KA_BY_VALUE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(ka_gives_back(host, 1), 0);
    EXPECT_EQ(ka_get_integers(host, 1, got, 2), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "\"double\" gives nothing back in argument 1");
}

TEST_P(CallValues, reference_that_the_host_clears_gives_nothing_back)
{
    Host host(layout());
    ka_begin(host, "scale");
    ka_add_real(host, "1.5", KA_BY_REFERENCE);
    ka_add_integer(host, 2, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(ka_gives_back(host, 1), 1);
    EXPECT_EQ(ka_gives_back(host, 2), 0);
    EXPECT_EQ(reals(host, 1, 1), std::vector<std::string>({"3"}));
}

TEST_P(CallValues, real_goes_as_text_double_or_record)
{
    Host host(layout());
    t_DECIMAL record;
    ASSERT_EQ(ka_real_from_text("-0.25", 5, &record), KA_DONE);
    for (int form = 0; form < 3; form++) {
        ka_begin(host, "scale");
        if (form == 0) ka_add_real(host, "-0.25", KA_BY_REFERENCE);
        if (form == 1) ka_add_double(host, -0.25, KA_BY_REFERENCE);
        if (form == 2) ka_add_reals(host, &record, 1, KA_BY_REFERENCE);
        ka_add_real(host, "1e10", KA_BY_VALUE);
        EXPECT_EQ(call(host), 0);
        EXPECT_EQ(reals(host, 1, 1), std::vector<std::string>({"-2500000000"}));
        double got = 0;
        EXPECT_EQ(ka_get_doubles(host, 1, &got, 1), KA_DONE);
        EXPECT_EQ(got, -2.5e9);
    }
}

TEST_P(CallValues, real_array_comes_back_changed)
{
    Host host(layout());
    const double values[] = {1.1, 0, -7e100};
    ka_begin(host, "scale");
    ka_add_doubles(host, values, 3, KA_BY_REFERENCE);
    ka_add_integer(host, 3, KA_BY_VALUE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(reals(host, 1, 3), std::vector<std::string>({"3.3", "0", "-2.1E+101"}));
}

TEST_P(CallValues, string_comes_back_with_its_new_length)
{
    Host host(layout());
    ka_begin(host, "greet");
    ka_add_string(host, nullptr, 0, 20, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(string(host, 1, 0), "good day");
}

TEST_P(CallValues, string_without_enough_room_is_left_alone)
{
    Host host(layout());
    ka_begin(host, "greet");
    ka_add_string(host, "seven..", 7, 0, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 18);
    EXPECT_EQ(string(host, 1, 0), "seven..");
}

TEST_P(CallValues, string_may_hold_any_byte)
{
    Host host(layout());
    const ka_text texts[] = {{"a\0b", 3}, {"\xff", 1}};
    ka_begin(host, "shout");
    ka_add_strings(host, texts, 2, 4, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(string(host, 1, 0), std::string("a\0b!", 4));
    EXPECT_EQ(string(host, 1, 1), "\xff!");
}

TEST_P(CallValues, string_array_elements_of_odd_room_do_not_touch)
{
    Host host(layout());
    const ka_text texts[] = {{"one", 3}, {"", 0}, {"four", 4}};
    for (int32_t room : {5, 6, 7, 8, 9}) {
        ka_begin(host, "shout");
        ka_add_strings(host, texts, 3, room, KA_BY_REFERENCE);
        EXPECT_EQ(call(host), 0);
        EXPECT_EQ(string(host, 1, 0), "one!");
        EXPECT_EQ(string(host, 1, 1), "!");
        EXPECT_EQ(string(host, 1, 2), "four!");
    }
}

TEST_P(CallValues, result_longer_than_the_buffer_is_cut_and_its_length_told)
{
    Host host(layout());
    ka_begin(host, "greet");
    ka_add_string(host, "", 0, 20, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    char buffer[5] = "....";
    int32_t length = 0;
    EXPECT_EQ(ka_get_string(host, 1, 0, buffer, 3, &length), KA_DONE);
    EXPECT_EQ(length, 8);
    EXPECT_STREQ(buffer, "goo.");
}

TEST_P(CallValues, zero_terminated_copy_reaches_the_function)
{
    Host host(layout());
    ka_begin(host, "measure");
    ka_add_string(host, "twelve chars", 12, 40, KA_BY_VALUE);
    EXPECT_EQ(call(host), 12);
}

TEST_P(CallValues, fifty_arguments_of_all_types_arrive)
{
    Host host(layout());
    ka_begin(host, "describe");
    int32_t expected = 0;
    for (int i = 0; i < 50; i++) {
        if (i % 3 == 0) ka_add_integer(host, i, KA_BY_VALUE);
        if (i % 3 == 1) ka_add_real(host, "0.5", KA_BY_REFERENCE);
        if (i % 3 == 2) ka_add_string(host, "x", 1, 0, KA_BY_VALUE);
        const int32_t kinds[] = {201, 501, 801};
        expected += kinds[i % 3];
    }
    EXPECT_EQ(call(host), expected);
}

TEST_P(CallValues, empty_array_reaches_the_function)
{
    Host host(layout());
    const int32_t none = 0;
    ka_begin(host, "describe");
    ka_add_integers(host, &none, 0, KA_BY_REFERENCE);
    ka_add_strings(host, nullptr, 0, 0, KA_BY_VALUE);
    EXPECT_EQ(call(host), 200 + 800);
}

TEST_P(CallValues, every_call_starts_afresh)
{
    Host host(layout());
    for (int32_t i = 1; i <= 500; i++) {
        ka_begin(host, "add");
        ka_add_integer(host, i, KA_BY_VALUE);
        ka_add_integer(host, 1, KA_BY_VALUE);
        ka_add_integer(host, -1, KA_BY_REFERENCE);
        ASSERT_EQ(call(host), 0);
        ASSERT_EQ(integers(host, 3, 1), std::vector<int32_t>({i + 1}));
        ka_begin(host, "count_call");
        ASSERT_EQ(call(host), i);
    }
}

TEST_P(CallValues, scratch_area_is_shared)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.scratch_bytes = 4096;
    });
    int32_t size = 0;
    char *scratch = static_cast<char *>(ka_scratch(host, &size));
    ASSERT_NE(scratch, nullptr);
    EXPECT_EQ(size, 4096);
    EXPECT_EQ(call_with(host, "scratch_room", 4096), 1);
    EXPECT_EQ(scratch[0], 's');
    EXPECT_EQ(scratch[4095], 's');
    EXPECT_EQ(call_with(host, "scratch_room", 4097), 0);
}

TEST_P(CallValues, no_scratch_area_when_none_is_wanted)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.scratch_bytes = 0;
    });
    EXPECT_EQ(ka_scratch(host, nullptr), nullptr);
    EXPECT_EQ(call_with(host, "scratch_room", 1), 0);
}

extern "C" int32_t add_from_c(const char *module, int32_t a, int32_t b);

TEST(CallFromC, adds)
{
    EXPECT_EQ(add_from_c(tasks_module.c_str(), 2, 3), 5);
}
