/* SPDX-License-Identifier: MIT
 *
 * A module to be stopped in: one function has the name of its record, one has another, and one has no function. */
#include <stdlib.h>

#include "ka/decimal.h"
#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"

static int32_t ask(void **argv)
{
    int32_t answer = -1;
    answer = dll_callback(*(int32_t *)argv[0]);
    *(int32_t *)argv[1] = answer;
    return 0;
}

static int32_t other_name(void **argv)
{
    const double *numbers = argv[0];
    KaStr *text = argv[1];
    t_DECIMAL exact = *(t_DECIMAL *)u_get_arg(1).ptr;
    exact.dec_pos = exact.dec_pos == DEC_NEGATIVE ? DEC_POSITIVE : DEC_NEGATIVE;
    text->data[0] = 'J';
    return numbers[1] > 0 ? exact.dec_ndgts : 0;
}

static int32_t wrong(void **argv)
{
    const int32_t which = *(int32_t *)argv[0];
    volatile int32_t *four = malloc(4 * sizeof *four);
    if (which == 0) return four != NULL && (four[which + 4] = 1); /* overflow */
    if (which == 1) return (which << 30) * 4;                     /* overflow of an integer */
    for (int32_t i = 0; i < 100; i++)
        four = malloc(4 * sizeof *four); /* leak */
    return four == NULL;
}

/* clang-format off */
t_DLL_PROTO KaArgList[] = {
    {"question", KA_INT_BY_VALUE, 0}, {"answer", KA_INT_BY_REFERENCE, 0},
    {"numbers", KA_REAL_ARRAY, 2}, {"text", KA_STRING, 0},
    {"a", KA_INT_BY_VALUE, 0}, {"sum", KA_INT_BY_REFERENCE, 0},
    {"which", KA_INT_BY_VALUE, 0},
};
t_DLL_FUNC KaFuncList[] = {
    {"ask", 0, 2, NULL},
    {"look at", 2, 2, NULL},
    {"add one", 4, 2, NULL},
    {"wrong", 6, 1, NULL},
    {NULL, 0, 0, NULL},
};
/* clang-format on */

int32_t KaCall(int32_t index, void **argv)
{
    switch (index) {
    case 0:
        return ask(argv);
    case 1:
        return other_name(argv);
    case 3:
        return wrong(argv);
    default:
        *(int32_t *)argv[1] = *(int32_t *)argv[0] + 1;
        return 0;
    }
}
