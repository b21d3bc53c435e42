// SPDX-License-Identifier: MIT
//
// A call's requests to the heap, and when they are freed. The module counted writes every request and release into
// the segment.
#include <gtest/gtest.h>

#include <algorithm>

#include "driver/session.h"
#include "module_bits.h"

namespace driver {
namespace {

using namespace harness;

// A call that fails at its third argument, after two arguments were converted to doubles.
const std::vector<Argument> two_converted = {real("1"), real("2"), string("a")};

class Heap : public testing::Test {
protected:
    // The sizes of the buffers that a call asks for, the first 40 of them.
    std::vector<int32_t> requests(const std::string &function, const std::vector<Argument> &arguments,
                                  const std::vector<Step> &script = {})
    {
        session_.clear_heap();
        code_ = session_.call(function, arguments, script);
        const HeapCount heap = session_.heap();
        frees_ = heap.frees;
        return {heap.sizes, heap.sizes + std::min(heap.requests, 40)};
    }

    Session session_{Layout::native, {.module = "counted"}};
    int32_t code_ = 0;
    int32_t frees_ = 0; // of the call
};
using Sizes = std::vector<int32_t>;

const int32_t string_record = module_bits() == 64 ? 16 : 12; // sizeof(KaStr) of the module

TEST_F(Heap, call_asks_for_its_converted_arguments_and_nothing_else)
{
    EXPECT_EQ(requests("none", {}), Sizes{});
    EXPECT_EQ(requests("VarArg", {}), Sizes{});
    EXPECT_EQ(requests("RealByReference", {reals({"1", "2", "3"}).by_ref()}, {step(EDIT)}), Sizes{24});
    EXPECT_EQ(frees_, 1);
    EXPECT_EQ(requests("RealByValue", {integers({1, 2, 3, 4})}), Sizes{32});
    EXPECT_EQ(frees_, 1);
    EXPECT_EQ(requests("String", {strings({"a", "b", "c"}, 10).by_ref()}, {step(EDIT)}), Sizes{3 * string_record});
    EXPECT_EQ(frees_, 1);
    EXPECT_EQ(requests("zString", {string("twelve bytes", 100)}), Sizes{13});
    EXPECT_EQ(frees_, 1);
}

TEST_F(Heap, integers_in_the_block_need_none)
{
    EXPECT_EQ(requests("IntByValue", {integers({1, 2, 3})}), Sizes{});
    EXPECT_EQ(requests("IntByReference", {integers({1, 2, 3}).by_ref()}, {step(EDIT)}), Sizes{});
    EXPECT_EQ(requests("IntArray", {integers({1, 2, 3}).by_ref()}), Sizes{});
    EXPECT_EQ(requests("VarArg", std::vector<Argument>(50, integer(1).by_ref())), Sizes{});
    EXPECT_EQ(frees_, 0);
}

TEST_F(Heap, real_as_integer_gets_eight_bytes_per_element)
{
    EXPECT_EQ(requests("IntByValue", {reals({"1", "2", "3"})}), Sizes{24});
    EXPECT_EQ(frees_, 1);
}

TEST_F(Heap, empty_zstring_is_one_byte)
{
    EXPECT_EQ(requests("zString", {string("", 10)}), Sizes{1});
}

TEST_F(Heap, argument_without_elements_has_a_buffer_too)
{
    for (const auto &[function, argument] :
         {std::pair{"RealArray", reals(std::vector<std::string>{})}, {"StringArray", strings({})}}) {
        const Sizes sizes = requests(function, {argument});
        ASSERT_EQ(sizes.size(), 1) << function;
        EXPECT_LE(sizes[0], 1) << function; // the sanitizer's allocator makes 1 of 0
        EXPECT_EQ(frees_, 1) << function;
    }
}

TEST_F(Heap, each_argument_has_its_own_buffer)
{
    EXPECT_EQ(requests("VarArg", std::vector<Argument>(50, real("1").by_ref())).size(), 40);
    EXPECT_EQ(session_.heap().requests, 50);
    EXPECT_EQ(frees_, 50);
    EXPECT_EQ(requests("mix_0", {real("1"), integer(2), string("text"), string("s"), real("5"), integer(6)}),
              (Sizes{8, 8, 5, string_record, 8}));
    EXPECT_EQ(code_, 0);
    EXPECT_EQ(frees_, 5);
}

TEST_F(Heap, results_go_back_without_further_requests)
{
    const std::vector<Argument> arguments = {integer(1).by_ref(), real("2").by_ref(), string("abc", 9).by_ref(),
                                             reals({"1", "2", "3", "4", "5"}).by_ref()};
    EXPECT_EQ(requests("references", arguments, {step(EDIT)}), (Sizes{8, string_record, 40}));
    EXPECT_EQ(frees_, 3);
    EXPECT_EQ(reals_of(session_.block, 4), (std::vector<std::string>{"2", "4", "6", "8", "10"}));
}

TEST_F(Heap, call_back_needs_none)
{
    session_.clear_heap();
    EXPECT_EQ(session_.call("none", {}, {step(CALL_BACK, 1), step(CALL_BACK, 2)}, {3, 4}), 0);
    EXPECT_EQ(session_.heap().requests, 0);
}

TEST_F(Heap, refused_call_asks_for_nothing_behind_the_refusal)
{
    EXPECT_EQ(requests("three", {string("a"), real("2"), integer(3)}), Sizes{});
    EXPECT_EQ(code_, KA_WRONG_TYPE);
    EXPECT_EQ(requests("RealArray3", {reals(std::vector<std::string>{"1", "2"})}), Sizes{});
    EXPECT_EQ(code_, KA_TOO_FEW_ELEMENTS);
    EXPECT_EQ(requests("no such function", {real("1")}), Sizes{});
    EXPECT_EQ(code_, KA_NO_FUNCTION);
}

// ---- Leftovers ----------------------------------------------------------------------------------------------------

class HeapLeftovers : public Heap {
protected:
    HeapLeftovers()
    {
        EXPECT_EQ(requests("three", two_converted), (Sizes{8, 8}));
        EXPECT_EQ(code_, KA_WRONG_TYPE);
        EXPECT_EQ(frees_, 0);
    }

    // The memory that a further call frees.
    int32_t freed_by(const std::string &function, const std::vector<Argument> &arguments = {})
    {
        requests(function, arguments);
        return frees_;
    }
};

TEST_F(HeapLeftovers, are_freed_by_the_next_call_of_a_known_function)
{
    EXPECT_EQ(freed_by("none"), 2);
    EXPECT_EQ(code_, KA_OK);
    EXPECT_EQ(freed_by("none"), 0);
}

TEST_F(HeapLeftovers, are_freed_also_when_that_call_is_refused)
{
    EXPECT_EQ(freed_by("none", {integer(1)}), 2);
    EXPECT_EQ(code_, KA_WRONG_COUNT);
    EXPECT_EQ(freed_by("none"), 0);
}

TEST_F(HeapLeftovers, are_freed_before_anything_is_converted)
{
    EXPECT_EQ(requests("three", two_converted), (Sizes{8, 8}));
    EXPECT_EQ(code_, KA_WRONG_TYPE);
    EXPECT_EQ(frees_, 2);
    EXPECT_EQ(freed_by("none"), 2);
}

TEST_F(HeapLeftovers, stay_when_the_name_is_unknown)
{
    EXPECT_EQ(freed_by("no such function", {real("1")}), 0);
    EXPECT_EQ(code_, KA_NO_FUNCTION);
    EXPECT_EQ(freed_by("none"), 2);
}

TEST_F(HeapLeftovers, stay_when_the_call_is_refused_before_its_name_is_looked_up)
{
    EXPECT_EQ(freed_by("none", std::vector<Argument>(51, integer(1))), 0);
    EXPECT_EQ(code_, KA_TOO_MANY_ARGS);
    session_.clear_heap();
    session_.block.set(Head::argc, 0);
    EXPECT_EQ(session_.host.call(), KA_WRONG_COUNT);
    session_.prepare("none");
    session_.block.set(0, Arg::type, 1);
    EXPECT_EQ(session_.host.call(), KA_WRONG_TYPE);
    EXPECT_EQ(session_.heap().frees, 0);
    EXPECT_EQ(freed_by("none"), 2);
}

TEST_F(HeapLeftovers, of_every_conversion_are_freed)
{
    EXPECT_EQ(freed_by("none"), 2);
    const std::vector<Argument> five = {real("1"),   integer(2), string("text"),
                                        string("s"), real("5"),  string("refused")};
    EXPECT_EQ(requests("mix_0", five), (Sizes{8, 8, 5, string_record, 8}));
    EXPECT_EQ(code_, KA_WRONG_TYPE);
    EXPECT_EQ(freed_by("none"), 5);
}

TEST_F(HeapLeftovers, of_too_many_and_too_few_arguments_are_freed)
{
    EXPECT_EQ(freed_by("RealByValue", {real("1"), real("2")}), 2);
    EXPECT_EQ(code_, KA_WRONG_COUNT);
    EXPECT_EQ(freed_by("three", {real("1")}), 1);
    EXPECT_EQ(code_, KA_WRONG_COUNT);
    EXPECT_EQ(freed_by("none"), 1);
}

TEST_F(HeapLeftovers, integers_in_the_block_are_not_freed)
{
    EXPECT_EQ(freed_by("two", {integer(1), string("a")}), 2);
    EXPECT_EQ(code_, KA_WRONG_TYPE);
    EXPECT_EQ(freed_by("none"), 0);
}

// The slot was doubles in the failed call; it is the block's own integers in the next, which stay untouched.
TEST_F(HeapLeftovers, slot_used_anew_for_integers_is_not_freed_again)
{
    EXPECT_EQ(freed_by("two", {integer(1), integer(2)}), 2);
    EXPECT_EQ(code_, KA_OK);
    EXPECT_EQ(freed_by("two", {integer(1), integer(2)}), 0);
}

TEST_F(HeapLeftovers, of_a_failed_giving_back_are_freed)
{
    EXPECT_EQ(freed_by("none"), 2);
    // Three arguments are given back and freed; the fourth fails, and it and the fifth stay.
    const std::vector<Argument> arguments = {real("1").by_ref(), real("2").by_ref(), string("s").by_ref(),
                                             string("text").by_ref(), real("5").by_ref()};
    EXPECT_EQ(requests("mix_2", arguments, {step(RETYPE, 3, 8)}), (Sizes{8, 8, string_record, 5, 8}));
    EXPECT_EQ(code_, KA_BAD_PROTOTYPE);
    EXPECT_EQ(frees_, 3);
    EXPECT_EQ(freed_by("none"), 2);
}

} // namespace
} // namespace driver
