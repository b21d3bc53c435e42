// SPDX-License-Identifier: MIT
//
// Calls of a module in the test's own process, with the types of C++.
#include <gtest/gtest.h>

#include <array>
#include <cfenv>
#include <cmath>

#include "ka/module_test.hpp"
#include "module_test/modules/tested.h"

extern "C" int calls_in_c(); // in_c.c: the line of what went wrong, or 0

namespace {

using ka::test::call;

class InProcess : public testing::TestWithParam<std::int32_t> {
protected:
    static ka::test::Settings in_layout()
    {
        ka::test::Settings settings;
        settings.layout = GetParam();
        return settings;
    }
    ka::test::Caller caller{in_layout()};
};

INSTANTIATE_TEST_SUITE_P(Layouts, InProcess, testing::Values(32, 64),
                         [](const auto &layout_info) { return "layout_" + std::to_string(layout_info.param); });

TEST_P(InProcess, numbers_go_in_and_come_back)
{
    std::int32_t sum = 0;
    EXPECT_EQ(caller.call("add", 2, std::int32_t{40}, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 42);
    EXPECT_EQ(caller.call("add", true, 2.9, ka::ref(sum)), 0); // truncated
    EXPECT_EQ(sum, 3);
    std::vector<double> values{1, 0.1};
    EXPECT_EQ(caller.call("scale", ka::ref(values), 2.5F), 0);
    EXPECT_EQ(values, (std::vector<double>{2.5, 0.25}));
    EXPECT_EQ(caller.call("scale", values, 2.5), 0);
    EXPECT_EQ(values, (std::vector<double>{2.5, 0.25})) << "by value nothing comes back";
    std::int32_t numbers[] = {1, -2, 3};
    EXPECT_EQ(caller.call("twice", ka::ref(numbers)), 0);
    EXPECT_EQ(std::vector<std::int32_t>(numbers, numbers + 3), (std::vector<std::int32_t>{2, -4, 6}));
}

TEST_P(InProcess, text_goes_in_and_comes_back)
{
    std::string greeting = "Guten Tag";
    EXPECT_EQ(caller.call("greet", "world", ka::ref(greeting, 80)), 0);
    EXPECT_EQ(greeting, "hello, world");
    EXPECT_EQ(caller.call("greet", std::string("a\0b", 3), ka::ref(greeting, 0)), 0) << "as long as it is";
    EXPECT_EQ(greeting, std::string("hello, a\0b", 10));
    EXPECT_EQ(caller.call("greet", std::string_view("somebody else"), ka::ref(greeting, 0)), 18);
    EXPECT_EQ(greeting, std::string("hello, a\0b", 10));
    std::vector<std::string> words{"a", "", "long"};
    EXPECT_EQ(caller.call("shout", ka::ref(words, 9)), 0);
    EXPECT_EQ(words, (std::vector<std::string>{"a!", "!", "long!"}));
    EXPECT_EQ(caller.call("shout", words), 18);
    EXPECT_EQ(caller.call("shout", ka::in(words, 6)), 0);
    std::int32_t sum = 0;
    const std::array<std::string_view, 2> views{"one", "three"};
    EXPECT_EQ(caller.call("lengths", views, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 8);
}

TEST_P(InProcess, one_variable_may_be_several_arguments)
{
    std::string text = "the name of somebody whose name is long";
    EXPECT_EQ(caller.call("copy", text, ka::ref(text, 100)), 0);
    EXPECT_EQ(text, "the name of somebody whose name is long!");
    EXPECT_EQ(caller.call("copy", ka::ref(text, 100), ka::ref(text, 200)), 0);
    EXPECT_EQ(text, "the name of somebody whose name is long!!");
    EXPECT_EQ(caller.call("copy", ka::ref(text, 100), text), 18);
}

TEST_P(InProcess, reals_are_exact)
{
    ka::Decimal text;
    EXPECT_EQ(caller.call("interest", ka::Decimal("9999999999999.99"), ka::decimal("100"), ka::ref(text)), 0);
    EXPECT_EQ(text.text, "9999999999999.99");
    ka::decimal real;
    EXPECT_EQ(caller.call("interest", ka::Decimal("1000"), 2.5, ka::ref(real)), 0);
    EXPECT_EQ(real, ka::decimal(25));
    std::vector<ka::decimal> reals{ka::decimal("0.3"), ka::decimal("5")};
    EXPECT_EQ(caller.call("halve", ka::ref(reals)), 0);
    EXPECT_EQ(reals[0].text() + " " + reals[1].text(), "0.15 2.5");
    std::vector<ka::Decimal> texts{ka::Decimal("0.3"), ka::Decimal("1E+20")};
    EXPECT_EQ(caller.call("halve", ka::ref(texts)), 0);
    EXPECT_EQ(texts[0].text + " " + texts[1].text, "0.15 5E+19");
    t_DECIMAL record = ka::decimal("7").record();
    EXPECT_EQ(caller.call("halve", ka::ref(record)), 0);
    EXPECT_EQ(ka::decimal(record), ka::decimal("3.5"));
}

TEST_P(InProcess, refusals_are_those_of_the_call_host)
{
    std::int32_t sum = 7;
    const std::vector<std::int32_t> none;
    EXPECT_EQ(caller.call("subtract", 2, 40, ka::ref(sum)), KA_NO_FUNCTION);
    EXPECT_EQ(caller.call(std::string_view("add\0", 4), 2, 40, ka::ref(sum)), KA_NO_FUNCTION);
    EXPECT_EQ(caller.call("add", "2", 40, ka::ref(sum)), KA_WRONG_TYPE);
    EXPECT_EQ(caller.call("add", 2, 40), KA_WRONG_COUNT);
    EXPECT_EQ(caller.call("add"), KA_WRONG_COUNT);
    EXPECT_EQ(caller.call("add", 2, 40, ka::ref(sum), 1), KA_WRONG_COUNT);
    EXPECT_EQ(caller.call("scale", 1.5, 2), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(caller.call("add", none, 40, ka::ref(sum)), KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(sum, 7);
}

template <std::size_t... I>
std::int32_t with_arguments(ka::test::Caller &caller, std::index_sequence<I...>)
{
    std::string text;
    return caller.call("describe", ka::ref(text, 2000), static_cast<std::int32_t>(I)...);
}

TEST_P(InProcess, fifty_arguments_are_not_too_many)
{
    EXPECT_EQ(with_arguments(caller, std::make_index_sequence<49>()), 0);
    EXPECT_EQ(with_arguments(caller, std::make_index_sequence<50>()), KA_TOO_MANY_ARGS);
    EXPECT_EQ(with_arguments(caller, std::make_index_sequence<90>()), KA_TOO_MANY_ARGS);
}

TEST_P(InProcess, a_function_learns_of_its_call)
{
    std::string text;
    std::vector<std::int32_t> numbers{1, 2};
    const std::vector<double> reals{1, 2, 3};
    EXPECT_EQ(caller.call("describe", ka::ref(text, 200), 7, ka::ref(numbers), reals, "word"), 0);
    EXPECT_EQ(text, "2rest1@0/1 3rest2@0/1r 6rest3@0/3 8rest1@0/2 ");
}

TEST_P(InProcess, elements_lie_as_the_test_places_them)
{
    using ka::test::shifted;
    using ka::test::spaced;
    std::string text;
    std::vector<std::int32_t> numbers{1, 2, 3};
    EXPECT_EQ(caller.call("describe", ka::ref(text, 200), spaced(shifted(ka::ref(numbers), 3), 5), shifted(2.5, 1)),
              0);
    EXPECT_EQ(text, "3rest3@3/5r 5rest1@1/3 ");
    for (std::int32_t bytes = 0; bytes < 8; bytes++) {
        for (std::int32_t words = 1; words <= 5; words++) {
            numbers = {bytes, words, 3};
            EXPECT_EQ(caller.call("twice", shifted(spaced(ka::ref(numbers), words), bytes)), 0);
            EXPECT_EQ(numbers, (std::vector<std::int32_t>{2 * bytes, 2 * words, 6}));
        }
    }
    std::vector<std::string> words{"a", "b"};
    EXPECT_EQ(caller.call("shout", spaced(shifted(ka::ref(words, 4), 5), 9)), 0);
    EXPECT_EQ(words, (std::vector<std::string>{"a!", "b!"}));
    std::vector<double> reals{1, 2};
    EXPECT_EQ(caller.call("scale", shifted(spaced(ka::ref(reals), 4), 7), 2), 0);
    EXPECT_EQ(reals, (std::vector<double>{2, 4}));
}

TEST_P(InProcess, call_backs_are_answered)
{
    std::int32_t sum = 1;
    EXPECT_EQ(caller.call("ask", 3, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 0) << "as by a caller without call-backs";
    std::vector<std::int32_t> asked;
    caller.on_callback([&asked](std::int32_t question) { return asked.push_back(question), 10 * question; });
    EXPECT_EQ(caller.call("ask", 3, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 70);
    EXPECT_EQ(asked, (std::vector<std::int32_t>{3, 4}));
}

TEST_P(InProcess, the_scratch_area_stays)
{
    std::int32_t sum = 0;
    EXPECT_EQ(caller.call("keep", 3, ka::ref(sum)), 0);
    EXPECT_EQ(caller.call("keep", 4, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 7);
    EXPECT_EQ(*static_cast<std::int32_t *>(caller.scratch()), 7);
    for (const auto &[bytes, expected] : {std::pair{4, 5}, {3, -1}, {0, -1}}) {
        ka::test::Settings settings = in_layout();
        settings.scratch_bytes = bytes;
        ka::test::Caller other(settings);
        EXPECT_EQ(other.call("keep", 5, ka::ref(sum)), 0);
        EXPECT_EQ(sum, expected) << bytes;
        EXPECT_EQ(other.scratch() != nullptr, bytes > 0);
    }
}

TEST_P(InProcess, module_and_test_compute_in_their_own_ways)
{
    std::vector<int> rounding;
    caller.on_callback([&rounding](std::int32_t) { return rounding.push_back(std::fegetround()), 0; });
    std::fesetround(FE_DOWNWARD);
    feenableexcept(FE_DIVBYZERO);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(caller.call("leave_arithmetic"), 0);
        volatile long double third = 1; // by a unit that traps late, if it has a reason
        third = third / 3;
    }
    rounding.push_back(std::fegetround());
    fedisableexcept(FE_DIVBYZERO);
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(rounding, std::vector<int>(3, FE_DOWNWARD));
}

TEST_P(InProcess, exceptions_become_codes)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(caller.call("fail", 1234), 1234);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ka: fail: as it was told\n");
}

TEST(InProcessHooks, run_with_the_module)
{
    ka::test::end_module();
    hooks_that_ran = "";
    ka::test::end_module();
    EXPECT_EQ(hooks_that_ran, "");
    EXPECT_EQ(call("nothing"), KA_NO_FUNCTION);
    EXPECT_EQ(call("nothing"), KA_NO_FUNCTION);
    EXPECT_EQ(hooks_that_ran, "up ");
    ka::test::end_module();
    EXPECT_EQ(hooks_that_ran, "up down ");
    EXPECT_EQ(KaFuncInfo(), nullptr);
    EXPECT_EQ(call("nothing"), KA_NO_FUNCTION);
    EXPECT_EQ(hooks_that_ran, "up down up ");
}

TEST(InProcessUsual, caller_is_always_there)
{
    std::int32_t sum = 0;
    ka::test::on_callback([](std::int32_t question) { return -question; });
    EXPECT_EQ(call("ask", 1, ka::ref(sum)), 0);
    EXPECT_EQ(sum, -3);
    ka::test::on_callback({});
    EXPECT_EQ(call("ask", 1, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 0);
    *static_cast<std::int32_t *>(ka::test::scratch()) = 40;
    EXPECT_EQ(call("keep", 2, ka::ref(sum)), 0);
    EXPECT_EQ(sum, 42);
}

const std::int32_t arguments_before_main = u_get_argc();

TEST(InProcessUsual, outside_of_a_call_there_are_no_arguments)
{
    EXPECT_EQ(arguments_before_main, 0);
    for (const bool ended : {false, true}) {
        call("nothing");
        if (ended) ka::test::end_module();
        EXPECT_EQ(u_get_argc(), 0);
        EXPECT_EQ(u_get_arg(0).type, DLL_NONE);
        EXPECT_EQ(u_unref_arg(0), -1);
        EXPECT_EQ(KaArgInfo(0), nullptr);
        EXPECT_EQ(dll_scratch(1) != nullptr, !ended);
    }
}

TEST(InProcessUsual, calls_are_made_in_c)
{
    EXPECT_EQ(calls_in_c(), 0);
}

// ---- The end of a test -------------------------------------------------------------------------------------------

TEST(InProcessDeathTest, an_abort_is_the_test_s)
{
    EXPECT_EXIT(call("end"), testing::KilledBySignal(SIGABRT), "^$");
}

TEST(InProcessDeathTest, dll_cleanup_comes_at_the_end_of_the_program_before_destructors)
{
    prints_its_end = true;
    EXPECT_EXIT((call("remember"), std::exit(0)), testing::ExitedWithCode(0), "^after remember\n$");
    EXPECT_EXIT(call("quit"), testing::ExitedWithCode(3), "^$") << "as in a host process";
    prints_its_end = false;
}

TEST(InProcessDeathTest, what_no_caller_can_send_ends_it)
{
    std::string text = "too long";
    EXPECT_DEATH(call("greet", ka::ref(text, 3)),
                 "unit test: argument 1 of \"greet\": a string longer than its room");
    EXPECT_DEATH(call("scale", 1, NAN), "argument 2 of \"scale\": a double that cannot be held by a REAL");
    EXPECT_DEATH(call("scale", ka::Decimal("1,5")), "\"1,5\" is not a REAL");
    EXPECT_DEATH(call("halve", t_DECIMAL{0, DEC_NULL, 0, {}}), "argument 1 of \"halve\": a null REAL");
    EXPECT_DEATH(call("twice", std::vector<std::int32_t>(1 << 18)), "segment_bytes is too small");
    EXPECT_DEATH(ka_test_send(nullptr, "twice", std::array{ka_in_int32s(nullptr, 2), ka_test_argument{}}.data()),
                 "argument 1 of \"twice\": values is null");
    EXPECT_DEATH(call("twice", ka::test::shifted(1, 8)), "shift is not 0 to 7");
    EXPECT_DEATH(call("halve", ka::test::spaced(1.5, 2)), "elsz is less than an element needs");
    ka::test::on_callback([](std::int32_t) { return call("end"); });
    std::int32_t sum = 0;
    EXPECT_DEATH(call("ask", 1, ka::ref(sum)), "a call inside of a call");
    ka::test::on_callback([](std::int32_t) { return ka::test::end_module(), 0; });
    EXPECT_DEATH(call("ask", 1, ka::ref(sum)), "the module is ended in a call");
    ka::test::on_callback({});
    ka::test::end_module();
    calls_back_in_setup = true;
    EXPECT_DEATH(call("ask", 1, ka::ref(sum)), "dll_callback outside of a call");
    calls_back_in_setup = false;
    EXPECT_DEATH(dll_callback(1), "dll_callback outside of a call");
}

} // namespace
