// SPDX-License-Identifier: MIT
//
// Calls that do not fit, malformed values, functions out of turn, and values that a hostile module leaves in the
// segment.
#include "caller/hosts.h"

#include <limits>

class CallLimits : public BothLayouts {};
IN_BOTH_LAYOUTS(CallLimits);

static void add_large(ka_host *host, const std::vector<int32_t> &values)
{
    ka_begin(host, "describe");
    ka_add_integers(host, values.data(), static_cast<int32_t>(values.size()), KA_BY_VALUE);
    ka_add_string(host, "tail", 4, 1001, KA_BY_REFERENCE);
}

TEST_P(CallLimits, too_big_says_how_much_is_needed_and_that_is_enough)
{
    const std::vector<int32_t> values(5000, 1);
    auto small = [this](ka_options &options) {
        layout()(options);
        options.segment_bytes = 8192;
        options.scratch_bytes = 1024;
    };
    Host host(small);
    add_large(host, values);
    EXPECT_EQ(call_fails(host), KA_TOO_BIG);
    const int64_t needed = ka_last_error(host)->needed_bytes;
    EXPECT_EQ(error_text(host),
              "the call of \"describe\" needs a segment of " + std::to_string(needed) + " bytes, this one has 8192");

    for (int64_t missing : {0, 1}) {
        Host larger([&](ka_options &options) {
            small(options);
            options.segment_bytes = static_cast<int32_t>(needed - missing);
        });
        add_large(larger, values);
        if (missing == 0) {
            EXPECT_EQ(call(larger), 300 + 5000 + 801);
        } else {
            EXPECT_EQ(call_fails(larger), KA_TOO_BIG);
        }
    }
}

TEST_P(CallLimits, host_serves_on_after_a_call_that_was_too_big)
{
    Host host(layout());
    ka_begin(host, "measure");
    ka_add_string(host, "", 0, 1 << 21, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_TOO_BIG);
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
}

TEST_P(CallLimits, sizes_beyond_every_integer_are_too_big)
{
    Host host(layout());
    const std::vector<ka_text> texts(100000, ka_text{"", 0});
    ka_begin(host, "describe");
    for (int i = 0; i < 50; i++)
        ka_add_strings(host, texts.data(), 100000, INT32_MAX, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_TOO_BIG);
    EXPECT_GT(ka_last_error(host)->needed_bytes, int64_t{50} * 100000 * INT32_MAX);
}

TEST_P(CallLimits, fifty_first_argument_is_refused)
{
    Host host(layout());
    ka_begin(host, "describe");
    for (int i = 0; i < 50; i++)
        EXPECT_EQ(ka_add_integer(host, i, KA_BY_VALUE), KA_DONE);
    EXPECT_EQ(ka_add_integer(host, 50, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(call_fails(host), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "a call of \"describe\" with more than 50 arguments");
    EXPECT_EQ(ka_last_error(host)->argument, 51);
}

TEST(CallArguments, first_error_is_kept_until_the_call)
{
    Host host;
    ka_begin(host, "add");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(ka_add_real(host, "4,2", KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(ka_add_integer(host, 2, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(ka_add_string(host, "long", 4, 2, KA_BY_VALUE), KA_ARGUMENT);
    int32_t value = 0;
    EXPECT_EQ(ka_get_integers(host, 1, &value, 1), KA_ARGUMENT);
    EXPECT_EQ(call_fails(host), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 2 of \"add\", element 0: \"4,2\" is not a REAL");
    EXPECT_EQ(ka_last_error(host)->argument, 2);
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
}

TEST(CallArguments, values_that_no_block_can_hold_are_refused)
{
    Host host;
    const double doubles[] = {1, std::numeric_limits<double>::infinity()};
    ka_begin(host, "scale");
    EXPECT_EQ(ka_add_doubles(host, doubles, 2, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"scale\", element 1: inf cannot be held by a REAL");

    const t_DECIMAL null = {0, DEC_NULL, 0, {}};
    ka_begin(host, "scale");
    EXPECT_EQ(ka_add_reals(host, &null, 1, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"scale\", element 0: a null REAL");

    ka_begin(host, "measure");
    EXPECT_EQ(ka_add_string(host, "long", 4, 3, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(error_text(host),
              "argument 1 of \"measure\", element 0: a string of 4 bytes is longer than its room of 3");
    ka_begin(host, "measure");
    EXPECT_EQ(ka_add_string(host, "long", -1, 3, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"measure\", element 0: length is -1; it must not be below 0");
    ka_begin(host, "measure");
    EXPECT_EQ(ka_add_string(host, "long", 4, -1, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"measure\": room is -1; it must not be below 0");
    ka_begin(host, "double");
    EXPECT_EQ(ka_add_integers(host, nullptr, -1, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"double\": count is -1; it must not be below 0");
    ka_begin(host, "double");
    EXPECT_EQ(ka_add_integer(host, 1, 2), KA_ARGUMENT);
    EXPECT_EQ(error_text(host),
              "argument 1 of \"double\": passing is 2; it is KA_BY_VALUE (0) or KA_BY_REFERENCE (1)");
}

TEST(CallArguments, functions_out_of_turn_are_refused)
{
    Host host;
    int32_t value;
    EXPECT_EQ(call_fails(host), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "ka_call before ka_begin");
    EXPECT_EQ(ka_add_integer(host, 1, KA_BY_VALUE), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "ka_add_... before ka_begin");
    EXPECT_EQ(ka_get_integers(host, 1, &value, 1), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "ka_get_... before ka_call");
    EXPECT_EQ(call_with(host, "give_code", 3), 3);
    EXPECT_EQ(call_fails(host), KA_ARGUMENT);
}

TEST(CallArguments, results_must_be_asked_for_as_what_they_are)
{
    Host host;
    int32_t value;
    double real;
    char text[8];
    ka_begin(host, "double");
    ka_add_integer(host, 4, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(ka_get_integers(host, 0, &value, 1), KA_ARGUMENT);
    EXPECT_EQ(ka_get_integers(host, 2, &value, 1), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "\"double\" was called without an argument 2");
    EXPECT_EQ(ka_last_error(host)->argument, 2);
    EXPECT_EQ(ka_get_integers(host, 1, &value, 2), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"double\" has 1 elements, not 2");
    EXPECT_EQ(ka_get_doubles(host, 1, &real, 1), KA_ARGUMENT);
    EXPECT_EQ(ka_get_string(host, 1, 0, text, sizeof text, &value), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"double\" is INTEGER, not STRING");
    EXPECT_EQ(ka_get_integers(host, 1, &value, 1), KA_DONE);
    EXPECT_EQ(value, 8);
}

TEST(CallArguments, string_elements_outside_the_array_are_refused)
{
    Host host;
    char text[8];
    int32_t length;
    ka_begin(host, "greet");
    ka_add_string(host, "", 0, 20, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    for (int32_t element : {1, -1, INT32_MAX, INT32_MIN})
        EXPECT_EQ(ka_get_string(host, 1, element, text, sizeof text, &length), KA_ARGUMENT) << element;
    EXPECT_EQ(ka_get_string(host, 1, 0, text, -1, &length), KA_ARGUMENT);
}

// A zString reads a length where the first element would be. Bytes of an earlier call there must not be taken for
// one.
TEST_P(CallLimits, no_strings_at_all_are_an_empty_zstring)
{
    Host host(layout());
    const std::vector<int32_t> garbage(100, 0x7fffffff);
    ka_begin(host, "describe");
    ka_add_integers(host, garbage.data(), 100, KA_BY_VALUE);
    call(host);
    ka_begin(host, "measure");
    ka_add_strings(host, nullptr, 0, 0, KA_BY_VALUE);
    EXPECT_EQ(call(host), 0);
}

// ---- A hostile module ------------------------------------------------------------------------------------------

TEST_P(CallLimits, length_of_a_string_is_never_beyond_its_room)
{
    Host host(layout());
    for (int32_t lie : {INT32_MAX, 11, -1, INT32_MIN}) {
        ka_begin(host, "lie_about_length");
        ka_add_string(host, "", 0, 10, KA_BY_REFERENCE);
        ka_add_integer(host, lie, KA_BY_VALUE);
        EXPECT_EQ(call(host), 0);
        EXPECT_EQ(string(host, 1, 0), lie > 0 ? "xxxxxxxxxx" : "") << lie;
    }
}

TEST_P(CallLimits, impossible_real_is_read_as_null)
{
    Host host(layout());
    ka_begin(host, "forge_real");
    ka_add_real(host, "1", KA_BY_REFERENCE);
    ka_add_real(host, "2.5", KA_BY_REFERENCE);
    ka_add_integer(host, offset_of_descriptors() + descriptor_size(), KA_BY_VALUE);
    ka_add_integer(host, descriptor_size(), KA_BY_VALUE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(reals(host, 1, 1), std::vector<std::string>({"null"}));
    double value = 0;
    EXPECT_EQ(ka_get_doubles(host, 1, &value, 1), KA_DONE);
    EXPECT_NE(value, value);
    EXPECT_EQ(reals(host, 2, 1), std::vector<std::string>({"2.5"}));
}

TEST_P(CallLimits, block_that_was_scribbled_over_misleads_nobody)
{
    Host host(layout());
    for (int round = 0; round < 2; round++) {
        ka_begin(host, "scribble");
        ka_add_integer(host, offset_of_descriptors(), KA_BY_REFERENCE);
        ka_add_integer(host, descriptor_size(), KA_BY_VALUE);
        EXPECT_EQ(call(host), 0);
        EXPECT_EQ(integers(host, 1, 1), std::vector<int32_t>({77}));
        int32_t two[2];
        EXPECT_EQ(ka_get_integers(host, 1, two, 2), KA_ARGUMENT);
    }
    EXPECT_EQ(call_with(host, "give_code", 6), 6);
}

TEST_P(CallLimits, header_that_was_scribbled_over_is_whole_again_at_the_next_call)
{
    Host host(layout());
    ka_begin(host, "scribble_base");
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(call_with(host, "give_code", 6), 6);
}

TEST_P(CallLimits, return_code_that_the_function_wrote_itself_is_none)
{
    Host host(layout());
    for (int32_t i = 0; i < 3; i++) {
        EXPECT_EQ(call_with(host, "pretend", offset_of_retcode()), 78);
        EXPECT_EQ(call_with(host, "give_code", i), i);
    }
}

TEST_P(CallLimits, return_code_that_the_function_wrote_before_it_died_is_none)
{
    for (int32_t i = 0; i < 20; i++) {
        Host host(layout());
        ka_begin(host, "pretend_and_die");
        ka_add_integer(host, offset_of_retcode(), KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
    }
}

TEST_P(CallLimits, host_whose_module_took_its_calls_is_told)
{
    Host host(layout());
    ka_begin(host, "take_calls");
    EXPECT_EQ(call(host), 0);
    ka_begin(host, "give_code");
    ka_add_integer(host, 6, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_EQ(error_text(host),
              tasks_module + ": a call of \"give_code\" was not answered: the module handles SIGUSR2 itself");
}

TEST_P(CallLimits, host_that_was_made_to_ignore_calls_is_late)
{
    Host host(layout());
    ka_begin(host, "ignore_calls");
    EXPECT_EQ(call(host), 0);
    ka_set_deadline(host, 300);
    ka_begin(host, "give_code");
    ka_add_integer(host, 6, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
}
