// SPDX-License-Identifier: MIT
//
// Where variants of the module driver add to it; each is empty unless another source of the module defines it.
#ifndef TESTS_DRIVER_MODULES_HOOKS_H
#define TESTS_DRIVER_MODULES_HOOKS_H

#include <stdint.h>

namespace driver {

void at_start();                                            // the block is attached, no call was made
void at_end();                                              // the block is detached
void dump(int32_t code, const void *values, int32_t count); // the host's own writing of values

} // namespace driver

#endif
