// SPDX-License-Identifier: MIT
//
// Random calls of the module driver: mostly sound ones of every shape, with refused and hostile ones among them.
#ifndef TESTS_DRIVER_RANDOM_CALL_H
#define TESTS_DRIVER_RANDOM_CALL_H

#include <random>

#include "driver/session.h"

namespace driver {

// The block of such calls.
constexpr int32_t scratch_offset = 32768; // what the function says; arguments before it
constexpr int32_t segment_size = 98304;

// A number of the environment, as KA_SEED.
uint64_t setting(const char *name, uint64_t otherwise);

class RandomCalls {
public:
    explicit RandomCalls(uint64_t seed) : random_(seed) {}

    struct Call {
        std::string function = {};
        std::vector<Argument> arguments = {};
        std::vector<Step> script = {};
        std::vector<int32_t> answers = {};
    };
    Call next();
    // Changes one field of a call already in the block to something that no sound caller writes; the function's
    // script then must not look at its arguments. Does so rarely: returns whether it did.
    bool spoil(Block &block, const Call &call);

private:
    int32_t below(int32_t limit); // 0 .. limit - 1
    bool percent(int32_t chance) { return below(100) < chance; }
    int32_t any();

    int32_t type_for(int32_t kind);
    int32_t count_for(const t_DLL_PROTO &proto, bool many);
    Argument argument(const t_DLL_PROTO &proto, bool many);
    Argument values(int32_t type, int32_t count);
    std::string text();
    t_DECIMAL real();
    void add_steps(Call &call);

    std::mt19937_64 random_;
};

} // namespace driver

#endif
