/* SPDX-License-Identifier: MIT
 *
 * Exit status 0 when the functions are right, in a module of as many bits as the program has. */
#include <ka/module_test.h>

int main(void)
{
    int32_t sum = 0, bits = 0, cents = 0;
    if (ka_test_call("checksum", ka_in_text("abc"), ka_ref_int32(&sum)) != 0 || sum != 38600999) return 1;
    if (ka_test_call("bits", ka_ref_int32(&bits)) != 0 || bits != 8 * (int32_t)sizeof(void *)) return 2;
    if (ka_test_call("cents", ka_in_real(0.29), ka_ref_int32(&cents)) != 0 || cents != 28) return 3;
    return ka_test_call("bits") == KA_WRONG_COUNT ? 0 : 4;
}
