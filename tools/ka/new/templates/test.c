/* Unit tests of @NAME@: each call runs in this process, and gives what a caller gets. */
#include <ka/module_test.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

#define CHECK(condition)                                                   \
    do {                                                                   \
        if (!(condition)) {                                                \
            printf("%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            failures++;                                                    \
        }                                                                  \
    } while (0)

int main(void)
{
    double quotient = 0;
    CHECK(ka_test_call("divide", ka_in_real(1), ka_in_real(4), ka_ref_real(&quotient)) == 0);
    CHECK(quotient == 0.25);
    CHECK(ka_test_call("divide", ka_in_real(1), ka_in_real(0), ka_ref_real(&quotient)) == 1001);
    CHECK(ka_test_call("divide", ka_in_real(1), ka_in_real(4)) == KA_WRONG_COUNT);

    double values[] = {1, 2};
    CHECK(ka_test_call("scale", ka_ref_reals(values, 2), ka_in_real(2.5)) == 0);
    CHECK(values[0] == 2.5 && values[1] == 5);

    char characters[20];
    KaStr text = {sizeof characters, 0, characters};
    CHECK(ka_test_call("greet", ka_in_text("world"), ka_ref_strings(&text, 1)) == 0);
    CHECK(text.len == 12 && memcmp(characters, "Hello, world", 12) == 0);
    CHECK(ka_test_call("greet", ka_in_text("nobody who fits"), ka_ref_strings(&text, 1)) == KASTR_NO_ROOM);
    CHECK(text.len == 12 && memcmp(characters, "Hello, world", 12) == 0);

    printf("%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}
