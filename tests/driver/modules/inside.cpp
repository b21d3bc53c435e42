// SPDX-License-Identifier: MIT
//
// For a module with the host's objects linked in: shows what the host keeps to itself. At its end it writes the
// current-call state; unused slots of the vector are shown as 0.
#include <stdio.h>
#include <stdlib.h>

#include "call.h"
#include "driver/modules/hooks.h"
#include "trace.h"

namespace driver {

void at_start()
{
    if (getenv("DRIVER_TELL_NAMES") == nullptr) return;
    const t_KIND_NAME *row = KaArgTypeNames;
    for (; row->kind != -1; row++)
        fprintf(stderr, "%d %s\n", row->kind, row->name);
    fprintf(stderr, "%d %s\n", row->kind, row->name);
}

void at_end()
{
    fprintf(stderr, "KaFunc %s\n",
            KaFunc == nullptr         ? "null"
            : KaFunc->name == nullptr ? "at the end of the table"
                                      : KaFunc->name);
    fprintf(stderr, "KaFunc_arg_cnt %d\n", KaFunc_arg_cnt);
    fprintf(stderr, "KaCv");
    for (int32_t slot = 0; slot < 6; slot++)
        fprintf(stderr, " %d", KaCv[slot]);
    fprintf(stderr, "\nKaAv");
    for (int32_t slot = 0; slot < DLL_MAX_ARGS; slot++) {
        if (KaAv[slot] != nullptr) fprintf(stderr, " %d", slot);
    }
    fprintf(stderr, "\n");
}

void dump(int32_t code, const void *values, int32_t count)
{
    dump_value(code, values, count);
}

} // namespace driver
