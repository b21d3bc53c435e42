/* SPDX-License-Identifier: MIT
 *
 * The end of what the conversions have allocated. A call frees its own buffers as it gives back; those of a call that
 * failed half-way stay until the next call of a known function. */
#include <stdlib.h>
#include <string.h>

#include "call.h"

void release_slot(int32_t slot)
{
    if (KaCv[slot] != CV_BLOCK) free(KaAv[slot]);
    KaAv[slot] = nullptr;
}

/* As a rule nothing is left: the first slot is null, and each is like the one before it. */
void release_leftovers(void)
{
    if (KaAv[0] == nullptr && memcmp(KaAv, KaAv + 1, sizeof KaAv - sizeof KaAv[0]) == 0) return;
    for (int32_t slot = 0; slot < DLL_MAX_ARGS; slot++) {
        release_slot(slot);
    }
}
