// SPDX-License-Identifier: MIT
//
// The effects that a call must have, computed on a copy of the block in the test's own process: an independent, slow
// account of matching, conversion and giving back. It knows the functions' tables and the steps SEE, EDIT, RETURN and
// CALL_BACK.
//
// REAL values must have at most 14 significant decimals, so that none is rounded on its way to a double. Those that
// go back must be between 1e-20 and 1e20: there the C library's conversion of a double, doubled or not, gives the
// decimal value itself.
#ifndef TESTS_DRIVER_MODEL_H
#define TESTS_DRIVER_MODEL_H

#include <string>
#include <vector>

#include "driver/session.h"
#include "ka/decimal.h"

namespace driver {

struct Outcome {
    int32_t code = 0;                 // what retcode must be
    bool called = false;              // whether the function runs
    std::string said = {};            // what it writes
    std::vector<int32_t> cbvals = {}; // of its call-backs
};

// block: the block as it is before the call; afterwards as it must be after it, what the function says in a scratch
// area left out.
Outcome predict(Block &block, const std::vector<Step> &script, const std::vector<int32_t> &answers = {});

// Where the first bytes that differ are in a block and in what is expected of it; empty when none does. limit: only
// the bytes before it, 0 for all.
std::string difference(const Block &block, const Block &expected, int32_t limit = 0);

// The value of a REAL as a function receives it.
double double_of(const t_DECIMAL &real);
int32_t integer_of(const t_DECIMAL &real);
// The REAL that a double goes back as.
t_DECIMAL real_of(double value);

} // namespace driver

#endif
