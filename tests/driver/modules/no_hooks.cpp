// SPDX-License-Identifier: MIT
//
// The module driver as it is, without additions.
#include "driver/modules/hooks.h"

namespace driver {

void at_start() {}
void at_end() {}
void dump(int32_t, const void *, int32_t) {}

} // namespace driver
