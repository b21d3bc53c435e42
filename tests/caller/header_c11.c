/* SPDX-License-Identifier: MIT
 *
 * The public header serves C programs: this one compiles it as C11 and makes a call, for a test to look at. */
#include "ka/caller.h"

int32_t add_from_c(const char *module, int32_t a, int32_t b);

int32_t add_from_c(const char *module, int32_t a, int32_t b)
{
    ka_host *host;
    int32_t code = -1;
    int32_t sum = -1;
    if (ka_open(&host, module, NULL) == KA_DONE) {
        ka_begin(host, "add");
        ka_add_integer(host, a, KA_BY_VALUE);
        ka_add_integer(host, b, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        if (ka_call(host, &code) == KA_DONE && code == 0) ka_get_integers(host, 3, &sum, 1);
    }
    ka_close(host);
    return sum;
}
