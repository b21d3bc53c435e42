// SPDX-License-Identifier: MIT
//
// Hosts of both word sizes do the same: one block, one series of random calls, and after each call the whole segment,
// the return code, the values of call-backs and the trace are the same bytes, whichever host performed it. KA_SEED
// repeats a run, KA_CALLS sets the number of calls.
#include <gtest/gtest.h>

#include <cstring>

#include "driver/model.h"
#include "driver/random_call.h"

namespace driver {
namespace {

// Each number that begins with 0x, which an address does, as X.
std::string without_addresses(const std::string &text)
{
    std::string kept;
    for (size_t at = 0; at < text.size();) {
        const size_t found = text.find("0x", at);
        kept.append(text, at, found - at);
        if (found == std::string::npos) break;
        kept += 'X';
        at = text.find_first_not_of("0123456789abcdef", found + 2);
    }
    return kept;
}

// What a host made of a call.
struct Answered {
    int32_t code;
    std::vector<int32_t> cbvals;
    std::string errors;
    std::string segment;
};

class SameBytes : public testing::TestWithParam<std::tuple<Layout, int>> {
protected:
    SameBytes() { block_.set(Head::scratch, block_.address(scratch_offset)); }

    // One call of both hosts; an empty text when they agree.
    std::string run(RandomCalls &random, std::mt19937_64 &own);

    uint64_t called() const { return called_; }
    uint64_t backwards() const { return backwards_; }

    static Start start(const std::string &bits)
    {
        return {.module = KA_MODULE_DIR "/" + bits + "/driver",
                .environment = {"DRIVER_LEVEL=" + std::to_string(std::get<int>(GetParam())),
                                "ASAN_OPTIONS=quarantine_size_mb=1:allocator_may_return_null=1"}};
    }

    Block block_{std::get<Layout>(GetParam()), segment_size};
    harness::HostProcess narrow_{block_, start("32")};
    harness::HostProcess wide_{block_, start("64")};

private:
    std::string segment() const { return {block_.at(0), segment_size}; }
    std::vector<int32_t> prepare(RandomCalls &random, std::mt19937_64 &own);
    void prepare_doubles(std::mt19937_64 &own);
    void turn_around(int i);
    Answered call(harness::HostProcess &host, const std::vector<int32_t> &answers, size_t &taken);

    Block model_{std::get<Layout>(GetParam()), segment_size};
    size_t narrow_taken_ = 0; // bytes of its output
    size_t wide_taken_ = 0;
    uint64_t called_ = 0;
    uint64_t backwards_ = 0; // arguments whose elements lie one before the other
};

// The same elements from the last to the first.
void SameBytes::turn_around(int i)
{
    const int64_t elsz = static_cast<int32_t>(block_.get(i, Arg::elsz)); // any number
    const int64_t last = int64_t{static_cast<int32_t>(block_.get(i, Arg::elcnt))} - 1;
    if (last < 1) return;
    block_.set(i, Arg::ptr, block_.address(block_.offset_of(block_.get(i, Arg::ptr)) + 4 * elsz * last));
    block_.set(i, Arg::elsz, -elsz);
    backwards_++;
}

// Writes a call into the block; returns the answers that it will ask for.
std::vector<int32_t> SameBytes::prepare(RandomCalls &random, std::mt19937_64 &own)
{
    RandomCalls::Call call = random.next();
    write_script(block_, call.script);
    place(block_, call.function, call.arguments, scratch_offset);
    if (random.spoil(block_, call)) {
        call.script = {step(RETURN, 1)};
        call.answers.clear();
        write_script(block_, call.script);
    }
    block_.store(scratch_offset, int32_t{-1});
    std::memcpy(model_.at(0), block_.at(0), scratch_offset);
    const bool is_called = predict(model_, call.script, call.answers).called;
    called_ += is_called;
    for (int i = 1; i <= static_cast<int>(call.arguments.size()); i++) {
        // A trace of so many elements would leave the segment.
        const auto count = static_cast<int32_t>(block_.get(i, Arg::elcnt));
        if (count > segment_size) block_.set(i, Arg::elcnt, -count);
        if (own() % 8 == 0) turn_around(i);
    }
    return is_called ? call.answers : std::vector<int32_t>{};
}

// A call that gives back doubles of any bits.
void SameBytes::prepare_doubles(std::mt19937_64 &own)
{
    std::vector<Step> script;
    for (int32_t k = 0; k < 8; k++) {
        const uint64_t bits = own();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        script.push_back(set_double(0, k, value));
    }
    write_script(block_, script);
    place(block_, "RealArray", {harness::reals(std::vector<std::string>(8, "1")).by_ref()}, scratch_offset);
}

Answered SameBytes::call(harness::HostProcess &host, const std::vector<int32_t> &answers, size_t &taken)
{
    const int32_t code = host.call(answers);
    const std::string &all = host.errors();
    const std::string errors = all.substr(taken);
    taken = all.size();
    return {code, host.cbvals(), without_addresses(errors), segment()};
}

std::string SameBytes::run(RandomCalls &random, std::mt19937_64 &own)
{
    std::vector<int32_t> answers;
    if (own() % 8 == 0) {
        prepare_doubles(own);
    } else {
        answers = prepare(random, own);
    }
    const std::string before = segment();
    const Answered first = call(narrow_, answers, narrow_taken_);
    std::memcpy(block_.at(0), before.data(), before.size());
    const Answered second = call(wide_, answers, wide_taken_);
    if (first.code != second.code) return "codes " + std::to_string(first.code) + ", " + std::to_string(second.code);
    if (first.cbvals != second.cbvals) return "call-backs with other values";
    if (first.errors != second.errors) return "the traces\n" + first.errors + "\n\n" + second.errors;
    for (size_t at = 0; at < before.size(); at++)
        if (first.segment[at] != second.segment[at]) return "byte " + std::to_string(at) + " of the segment differs";
    return "";
}

TEST_P(SameBytes, after_each_of_many_random_calls)
{
    const uint64_t seed = setting("KA_SEED", std::random_device()());
    const uint64_t calls = setting("KA_CALLS", 5000);
    std::cout << "KA_SEED=" << seed << " KA_CALLS=" << calls << std::endl;
    RecordProperty("seed", std::to_string(seed));
    RandomCalls random(seed);
    std::mt19937_64 own(seed);
    for (uint64_t i = 0; i < calls; i++)
        ASSERT_EQ(run(random, own), "") << "call " << i << " with KA_SEED=" << seed;
    EXPECT_EQ(narrow_.terminate(), harness::exited(0));
    EXPECT_EQ(wide_.terminate(), harness::exited(0));
    // The mixture is what it is meant to be.
    EXPECT_GE(called(), calls / 3);
    EXPECT_GE(backwards(), calls / 50);
}

INSTANTIATE_TEST_SUITE_P(Levels, SameBytes,
                         testing::Combine(testing::Values(Layout::native, Layout::layout_64), testing::Values(3, 4)),
                         [](const auto &way) {
                             return name_of(std::get<Layout>(way.param)) + "_at_level_" +
                                    std::to_string(std::get<int>(way.param));
                         });

} // namespace
} // namespace driver
