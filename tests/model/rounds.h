// SPDX-License-Identifier: MIT
//
// How often a random test goes round: for (Rounds rounds(20000); rounds.more();) ...
//
// As many rounds as its default, fewer with the sanitizers; KA_ROUNDS=N sets another number. In the long mode,
// KA_FOR=90s (10m, 2h), it goes on for its share of that time, but never for fewer rounds: what is left of the time,
// divided by the selected tests that have not begun yet. Then standard error shows the rounds done, their rate, the
// time left and the seed: in place on a terminal, else a line every ten seconds and one at the end.
#pragma once

#include <chrono>
#include <cstdint>

namespace model {

// The sanitizers make a round slower by about as much, and the faults that they look for need fewer: a random test
// goes round so much less often.
#ifdef __SANITIZE_ADDRESS__
inline constexpr int sanitizer_step = 17;
#else
inline constexpr int sanitizer_step = 1;
#endif

class Rounds {
public:
    // One for each test, made before its first round.
    explicit Rounds(int by_default);
    ~Rounds();
    Rounds(const Rounds &) = delete;
    Rounds &operator=(const Rounds &) = delete;

    bool more();
    // The number of the round that more began, from 0: KA_ROUNDS must be above it to come there again.
    int64_t number() const { return begun_ - 1; }

    // Whether KA_FOR is set.
    static bool timed();

private:
    using Clock = std::chrono::steady_clock;

    bool time_is_left();
    void show(Clock::time_point now, const char *end) const;

    int64_t least_;
    int64_t begun_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point end_ = start_; // with start_ equal: no time is given
    Clock::time_point shown_ = start_;
};

} // namespace model
