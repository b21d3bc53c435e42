// SPDX-License-Identifier: MIT
//
// How the module's functions report to the test what they see: as text in the scratch area where there is one (its
// first word is the length), else on standard error.
#ifndef TESTS_DRIVER_MODULES_SAY_H
#define TESTS_DRIVER_MODULES_SAY_H

#include <stdint.h>

#include "ka/dll_block.h"

namespace driver {

void start_saying();
__attribute__((format(printf, 1, 2))) void say(const char *format, ...);

// Writes the value of slot, an argument matched by a prototype of that kind, and changes it.
void see(int32_t kind, const t_DLL_ARG &arg, const void *slot);
void edit(int32_t kind, const t_DLL_ARG &arg, void *slot);

} // namespace driver

#endif
