// SPDX-License-Identifier: MIT
//
// Many random calls of one host against the model: return codes, what the function received, every byte of the block
// after each call, no signal lost or too many, and memory that does not grow. KA_SEED repeats a run, KA_CALLS sets
// the number of calls.
#include <gtest/gtest.h>

#include <fstream>

#include "driver/model.h"
#include "driver/random_call.h"

namespace driver {
namespace {

struct Memory {
    int64_t resident_kb = 0;
    int64_t data_kb = 0;
};

Memory memory_of(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    Memory memory;
    std::string word;
    while (status >> word) {
        if (word == "VmRSS:") status >> memory.resident_kb;
        if (word == "VmData:") status >> memory.data_kb;
    }
    return memory;
}

#ifdef SANITIZED_HOST
constexpr int64_t growth_kb = 8192; // the sanitizer's own book-keeping
constexpr uint64_t usual_calls = 10000;
#else
constexpr int64_t growth_kb = 256;
constexpr uint64_t usual_calls = 100000;
#endif

class Soak : public testing::TestWithParam<Layout> {
protected:
    Soak() { session_.block.set(Head::scratch, session_.block.address(scratch_offset)); }

    // One call; an empty text when all is as the model says.
    std::string run(RandomCalls &random);
    std::string said() const;

    // A host under the sanitizer keeps freed memory back, so that its use is noticed: little of it here.
    Session session_{
        GetParam(),
        {.module = "driver", .environment = {"ASAN_OPTIONS=quarantine_size_mb=1:allocator_may_return_null=1"}},
        segment_size};
    Block expected_{GetParam(), segment_size};
    int64_t called_ = 0;
    int64_t refused_ = 0;
    int64_t call_backs_ = 0;
};

std::string Soak::said() const
{
    const auto length = session_.block.load<int32_t>(scratch_offset);
    if (length < 0) return "nothing";
    return {session_.block.at(scratch_offset + 4), static_cast<size_t>(length)};
}

std::string Soak::run(RandomCalls &random)
{
    RandomCalls::Call call = random.next();
    write_script(session_.block, call.script);
    place(session_.block, call.function, call.arguments, scratch_offset);
    if (random.spoil(session_.block, call)) {
        call.script = {step(RETURN, 1)};
        call.answers.clear();
        write_script(session_.block, call.script);
    }
    session_.block.store(scratch_offset, int32_t{-1});
    std::memcpy(expected_.at(0), session_.block.at(0), scratch_offset);
    const Outcome outcome = predict(expected_, call.script, call.answers);
    if (!outcome.called) call.answers.clear();

    const int32_t code = session_.host.call(call.answers);
    (outcome.called ? called_ : refused_)++;
    call_backs_ += static_cast<int64_t>(outcome.cbvals.size());
    if (code != outcome.code) return "code " + std::to_string(code) + ", expected " + std::to_string(outcome.code);
    if (session_.host.cbvals() != outcome.cbvals) return "call-backs with other values";
    const std::string expected = outcome.called ? outcome.said : "nothing";
    if (said() != expected) return "the function says\n" + said() + "\nexpected\n" + expected;
    return difference(session_.block, expected_, scratch_offset);
}

TEST_P(Soak, random_calls_do_what_the_model_says)
{
    const uint64_t seed = setting("KA_SEED", std::random_device()());
    const uint64_t calls = setting("KA_CALLS", usual_calls);
    std::cout << "KA_SEED=" << seed << " KA_CALLS=" << calls << std::endl;
    RecordProperty("seed", std::to_string(seed));
    RandomCalls random(seed);
    session_.host.await_idle();
    Memory early;
    for (uint64_t i = 0; i < calls; i++) {
        if (i == calls / 10) early = memory_of(session_.host.pid());
        const std::string problem = run(random);
        ASSERT_EQ(problem, "") << "call " << i << " with KA_SEED=" << seed;
    }
    const Memory late = memory_of(session_.host.pid());
    EXPECT_LE(late.resident_kb, early.resident_kb + growth_kb);
    EXPECT_LE(late.data_kb, early.data_kb + growth_kb);
    EXPECT_FALSE(session_.host.has_signalled());
    EXPECT_EQ(session_.host.terminate(), harness::exited(0));
    EXPECT_EQ(session_.output(), "");
    std::cout << called_ << " called, " << refused_ << " refused, " << call_backs_ << " call-backs; resident "
              << early.resident_kb << " kB, then " << late.resident_kb << " kB; data " << early.data_kb
              << " kB, then " << late.data_kb << " kB" << std::endl;
    // The mixture is what it is meant to be.
    EXPECT_GE(called_, static_cast<int64_t>(calls / 3));
    EXPECT_GE(refused_, static_cast<int64_t>(calls / 10));
}

INSTANTIATE_TEST_SUITE_P(Layouts, Soak, testing::Values(Layout::native, Layout::layout_64),
                         [](const auto &layout) { return name_of(layout.param); });

} // namespace
} // namespace driver
