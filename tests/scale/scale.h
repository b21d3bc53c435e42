// SPDX-License-Identifier: MIT
//
// How much a test of scale does, and what it does it beside.
#ifndef TESTS_SCALE_SCALE_H
#define TESTS_SCALE_SCALE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

// As many rounds as its default; 10,000 in the long mode (KA_FOR, whatever it says); KA_ROUNDS=N sets another number.
int32_t rounds(int32_t by_default);

// The same for what is quick: 1,000,000 in the long mode.
int32_t of_a_million(int32_t by_default);

// Processes that compute, the given number for each processor, for as long as this record lives.
class Load {
public:
    explicit Load(int per_processor);
    ~Load();
    Load(const Load &) = delete;
    Load &operator=(const Load &) = delete;

private:
    std::vector<pid_t> processes_;
};

// The resources of this process, to compare two moments.
struct Belongings {
    static Belongings now();
    bool operator==(const Belongings &) const = default;
    int descriptors;
    int threads;
    int mappings; // of files and of segments; those of the allocator come and go
    int segments; // of the system, created by this process
    bool children;
};
void PrintTo(const Belongings &belongings, std::ostream *out);

// True once nothing is owned beside what was owned then; false after ten seconds.
bool back_to(const Belongings &then);

// Shows how long a test took and for how much, on standard error: a figure to report, never to compare.
class Timed {
public:
    Timed(std::string what, int32_t count);
    ~Timed();
    Timed(const Timed &) = delete;
    Timed &operator=(const Timed &) = delete;

private:
    std::string what_;
    int32_t count_;
    int64_t start_;
};

#endif
