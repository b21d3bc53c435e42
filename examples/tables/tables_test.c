/* SPDX-License-Identifier: MIT
 *
 * The unit test of tables.c, in C: cc tables.c tables_test.c -lkahost_test -o tables_test */
#undef NDEBUG
#include <assert.h>
#include <ka/module_test.h>

int main(void)
{
    int32_t sum = 0;
    assert(ka_test_call("add", ka_in_int32(2), ka_in_int32(40), ka_ref_int32(&sum)) == 0);
    assert(sum == 42);
    assert(ka_test_call("add", ka_in_real(2.9), ka_in_int32(-3), ka_ref_int32(&sum)) == 0);
    assert(sum == -1); /* a REAL is truncated */
    assert(ka_test_call("add", ka_in_int32(2)) == KA_WRONG_COUNT);
    assert(ka_test_call("add", ka_in_text("2"), ka_in_int32(40), ka_ref_int32(&sum)) == KA_WRONG_TYPE);
    return 0;
}
