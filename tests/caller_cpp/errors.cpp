// SPDX-License-Identifier: MIT
//
// Errors as exceptions and as results.
#include <gtest/gtest.h>

#include "caller/hosts.h"
#include "ka/caller.hpp"

std::string refusal_without_exceptions(const std::string &module, std::int32_t &sum); // no_exceptions.cpp
void end_without_exceptions();

namespace {

// The error that something throws.
ka::Error thrown_by(const std::function<void()> &action)
{
    try {
        action();
    } catch (const ka::Error &error) {
        return error;
    }
    ADD_FAILURE() << "nothing is thrown";
    return ka::Error(ka_error{});
}

} // namespace

TEST(CppError, tells_class_retry_and_text)
{
    const ka::Error error = thrown_by([] { ka::Host("/no/such/module"); });
    EXPECT_EQ(error.error_class(), KA_START);
    EXPECT_STREQ(error.class_name(), ka_error_name(KA_START));
    EXPECT_EQ(error.retry(), KA_RETRY_NO);
    EXPECT_STREQ(error.what(), "cannot start /no/such/module: no such file");
    EXPECT_STREQ(error.record().message, error.what());
}

TEST(CppError, of_a_refused_call_names_the_argument)
{
    ka::Host host(tasks_module);
    std::int32_t sum = 0;
    const ka::Error error = thrown_by([&] { host.call("add", 1, "two", ka::ref(sum)); });
    EXPECT_EQ(error.error_class(), KA_REFUSED);
    EXPECT_EQ(error.record().argument, 2);
    EXPECT_EQ(error.record().return_code, KA_WRONG_TYPE);
    EXPECT_EQ(host.call("add", 1, 2, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 3);
}

TEST(CppError, of_a_death_has_reports_and_outlives_the_host)
{
    const ka::Error error = thrown_by([] {
        ka::Host host(tasks_module);
        host.call("die_by", 9);
    });
    EXPECT_EQ(error.error_class(), KA_DIED);
    EXPECT_EQ(error.retry(), KA_RETRY_UNSURE);
    EXPECT_EQ(error.record().signal, 9);
    EXPECT_NE(error.report().find("die_by"), std::string::npos) << error.report();
    EXPECT_EQ(error.report_json().substr(0, 1), "{");
    EXPECT_NE(error.report_json().find("die_by"), std::string::npos) << error.report_json();
}

TEST(CppError, is_a_result_of_the_other_functions)
{
    ka::Host lost = ka::Host::try_open("/no/such/module");
    EXPECT_EQ(lost.error().error_class, KA_START);
    EXPECT_EQ(lost.try_call("add").error_class, KA_CLOSED);
    ka::Host host = ka::Host::try_open(tasks_module);
    EXPECT_EQ(host.error().error_class, KA_DONE);
    const ka::Result died = host.try_call("die_by", 9);
    EXPECT_FALSE(died);
    EXPECT_EQ(died.error_class, KA_DIED);
    EXPECT_EQ(host.error().error_class, KA_DIED);
    EXPECT_NE(host.report().find("die_by"), std::string::npos);
    EXPECT_NE(host.report_json().find("die_by"), std::string::npos);
    EXPECT_EQ(host.try_call("count_call").error_class, KA_CLOSED);
}

TEST(CppError, too_big_a_call_names_the_size)
{
    ka::Host host(tasks_module);
    const std::vector<std::int32_t> many(1 << 20);
    const ka::Error error = thrown_by([&] { host.call("double", many); });
    EXPECT_EQ(error.error_class(), KA_TOO_BIG);
    ka::Options options;
    options.segment_bytes = static_cast<std::int32_t>(error.record().needed_bytes);
    EXPECT_EQ(ka::Host(tasks_module, options).call("double", many), 0);
}

TEST(CppError, text_that_is_no_real_is_named)
{
    ka::Host host(tasks_module);
    for (const auto &[text, named] : {std::pair<std::string, const char *>{"two", "\"two\" is not a REAL"},
                                      {"", "\"\" is not a REAL"},
                                      {"null", "\"null\" is not a REAL"},
                                      {std::string("1\0002", 3), "\"1?2\" is not a REAL"}}) {
        const ka::Error error = thrown_by([&] { host.call("scale_one", ka::Decimal(text), 1.0); });
        EXPECT_EQ(error.error_class(), KA_ARGUMENT);
        EXPECT_NE(std::string(error.what()).find(named), std::string::npos) << error.what();
        EXPECT_THROW(ka::Decimal(text).value(), ka::Error);
    }
}

// A name must not be taken for the part before a zero in it.
TEST(CppError, function_name_is_taken_whole)
{
    ka::Host host(tasks_module);
    const ka::Error error = thrown_by([&] { host.call(std::string_view("count_call\0x", 12)); });
    EXPECT_EQ(error.error_class(), KA_REFUSED);
    EXPECT_NE(std::string(error.what()).find("count_call?x"), std::string::npos) << error.what();
}

TEST(CppError, path_is_taken_whole)
{
    const std::string path = tasks_module + std::string("\0.old", 5);
    EXPECT_THROW(ka::Host{path}, ka::Error);
    EXPECT_THROW(ka::read_tables(path), ka::Error);
}

TEST(CppError, failing_step_changes_nothing_in_the_steps_after_it)
{
    ka::Host host(tasks_module);
    std::int32_t value = 7;
    EXPECT_EQ(thrown_by([&] { host.send(); }).error_class(), KA_ARGUMENT);
    host.begin("count_call");
    EXPECT_EQ(host.send(), 1);
    EXPECT_NO_THROW(host.take(1, value));
    EXPECT_EQ(value, 7);
    host.begin("double");
    host.add(ka::ref(value));
    EXPECT_EQ(host.send(), 0);
    double wrong_type = 0;
    EXPECT_EQ(thrown_by([&] { host.take(1, wrong_type); }).error_class(), KA_ARGUMENT);
    std::vector<std::int32_t> too_many(2);
    EXPECT_EQ(thrown_by([&] { host.take(1, too_many); }).error_class(), KA_ARGUMENT);
    host.take(1, value);
    EXPECT_EQ(value, 14);
}

TEST(CppError, without_exceptions_is_a_result)
{
    std::int32_t sum = 0;
    EXPECT_EQ(refusal_without_exceptions(tasks_module, sum),
              "argument 2 of \"add\", element 0: \"two\" is not a REAL");
    EXPECT_EQ(sum, 42);
}

TEST(CppErrorDeathTest, without_exceptions_ends_the_program_where_it_would_be_thrown)
{
    EXPECT_EXIT(end_without_exceptions(), testing::KilledBySignal(SIGABRT),
                "ka: cannot start /no/such/file: no such file");
}
