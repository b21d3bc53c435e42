/* SPDX-License-Identifier: MIT
 *
 * Calls of a module in the test's own process, in C: ka/module_test.h without the header for C++. */
#include "ka/module.h" /* beside which it can be included */
#include "ka/module_test.h"

int calls_in_c(void);

#define CHECK(CONDITION) \
    if (!(CONDITION)) return __LINE__

static int numbers(void)
{
    int32_t sum = 0;
    CHECK(ka_test_call("add", ka_in_int32(2), ka_in_real(40.5), ka_ref_int32(&sum)) == 0 && sum == 42);
    CHECK(ka_test_call("add", ka_in_decimal("1.9"), ka_in_decimal("1"), ka_ref_int32(&sum)) == 0 && sum == 2);
    CHECK(ka_test_call("add") == KA_WRONG_COUNT);
    CHECK(ka_test_call("missing", ka_in_text("a")) == KA_NO_FUNCTION);
    int32_t values[] = {1, 2, 3};
    CHECK(ka_test_call("twice", ka_spaced(ka_shifted(ka_ref_int32s(values, 3), 1), 2)) == 0 && values[2] == 6);
    CHECK(ka_test_call("twice", ka_in_int32s(values, 3)) == 0 && values[2] == 6);
    CHECK(ka_test_call("twice", ka_in_int32s(values, 0)) == KA_TOO_FEW_ELEMENTS);
    CHECK(ka_test_call("twice", ka_in_int32s(values, -3)) == KA_TOO_FEW_ELEMENTS);
    double reals[] = {1, 2};
    CHECK(ka_test_call("scale", ka_ref_reals(reals, 2), ka_in_int32(3)) == 0 && reals[1] == 6);
    CHECK(ka_test_call("scale", ka_in_reals(reals, 2), ka_in_int32(3)) == 0 && reals[1] == 6);
    t_DECIMAL exact[2] = {ka_test_decimal("0.3", 3), ka_test_decimal("1", 1)};
    CHECK(ka_test_call("halve", ka_in_decimals(exact, 2)) == 0 && exact[1].dec_dgts[0] == 1);
    CHECK(ka_test_call("halve", ka_ref_decimals(exact, 2)) == 0 && exact[1].dec_dgts[0] == 50);
    double amount = 0;
    CHECK(ka_test_call("interest", ka_in_int32(1000), ka_in_decimal("2.5"), ka_ref_real(&amount)) == 0 &&
          amount == 25);
    return 0;
}

static int strings(void)
{
    char room[20] = "previous";
    KaStr greeting = {sizeof room, 8, room};
    CHECK(ka_test_call("greet", ka_in_text("world"), ka_ref_strings(&greeting, 1)) == 0);
    CHECK(greeting.len == 12 && memcmp(room, "hello, world", 12) == 0);
    CHECK(ka_test_call("greet", ka_in_text("everybody here"), ka_ref_strings(&greeting, 1)) == 18 &&
          greeting.len == 12);
    char a[4] = "a", b[4] = "bcd";
    KaStr words[] = {{4, 1, a}, {4, 3, b}};
    int32_t sum = 0;
    CHECK(ka_test_call("lengths", ka_in_strings(words, 2), ka_ref_int32(&sum)) == 0 && sum == 4);
    CHECK(ka_test_call("shout", ka_ref_strings(words, 2)) == 0 && words[1].len == 4 && memcmp(b, "bcd!", 4) == 0);
    return 0;
}

static int32_t count_down(int32_t value, void *user)
{
    return value - (*(int32_t *)user)--;
}

static int callers(void)
{
    int32_t left = 10, sum = 0;
    ka_test_settings settings;
    ka_test_settings_init(&settings);
    settings.layout = 64;
    settings.scratch_bytes = 4;
    settings.callback = count_down;
    settings.user = &left;
    ka_test *test = ka_test_open(&settings);
    CHECK(ka_test_call_of(test, "ask", ka_in_int32(20), ka_ref_int32(&sum)) == 0 && sum == 22 && left == 8);
    ka_test_settings_of(test)->callback = NULL;
    CHECK(ka_test_call_of(test, "ask", ka_in_int32(20), ka_ref_int32(&sum)) == 0 && sum == 0);
    CHECK(ka_test_call_of(test, "keep", ka_in_int32(7), ka_ref_int32(&sum)) == 0 && sum == 7);
    CHECK(*(int32_t *)ka_test_scratch(test) == 7);
    ka_test_argument arguments[] = {ka_in_int32(1), ka_in_int32(2), ka_ref_int32(&sum), {.form = KA_TEST_END}};
    CHECK(ka_test_send(test, "add", arguments) == 0 && sum == 3);
    CHECK(arguments[0].gives_back == 0 && arguments[2].gives_back == 1);
    ka_test_close(test);
    return 0;
}

int calls_in_c(void)
{
    const int line = numbers() != 0 ? numbers() : strings();
    return line != 0 ? line : callers();
}
