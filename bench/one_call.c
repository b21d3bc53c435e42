/* SPDX-License-Identifier: MIT
 *
 * What "ka call MODULE add 2 40 0" does, as a program of its own. usage: one_call MODULE */
#include <stdio.h>

#include "ka/caller.h"

int main(int argc, char **argv)
{
    ka_host *host = NULL;
    int32_t code = 0, sum = 0;
    if (argc != 2) return 2;
    int32_t status = ka_open(&host, argv[1], NULL);
    if (status == KA_DONE) {
        ka_begin(host, "add");
        ka_add_integer(host, 2, KA_BY_VALUE);
        ka_add_integer(host, 40, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        status = ka_call(host, &code);
    }
    if (status == KA_DONE) status = ka_get_integers(host, 3, &sum, 1);
    if (status == KA_DONE)
        printf("return code %d\n%d\n", (int)code, (int)sum);
    else
        fprintf(stderr, "%s\n", ka_last_error(host)->message);
    ka_close(host);
    return status == KA_DONE && sum == 42 ? 0 : 1;
}
