/* SPDX-License-Identifier: MIT
 *
 * A module and its unit test with mistakes that AddressSanitizer finds, each in the line that is marked with the name
 * of its function. usage: overflow FUNCTION */
#include <ka/module.h>
#include <ka/module_test.h>

static int32_t numbers_beyond(ka_int32_array values)
{
    return values.at[values.count * values.step].value; /* numbers_beyond */
}

static int32_t numbers_before(ka_int32_array values)
{
    values.at[-1].value = 1; /* numbers_before */
    return 0;
}

static int32_t reals_beyond(ka_real_array values)
{
    values.at[values.count] = 1; /* reals_beyond */
    return 0;
}

static int32_t text_beyond(KaStr *text)
{
    text->data[text->maxlen] = 'x'; /* text_beyond */
    return 0;
}

static const char *kept;
static int32_t late(KaStr *text)
{
    if (kept != NULL) return *kept; /* late */
    kept = text->data + text->maxlen - 1;
    return 0;
}

#define FUNCTIONS(F)                         \
    F(numbers_beyond, (int32_array, values)) \
    F(numbers_before, (int32_array, values)) \
    F(reals_beyond, (real_array, values))    \
    F(text_beyond, (string, text))           \
    F(late, (string, text))
KA_MODULE(FUNCTIONS)

int main(int argc, char **argv)
{
    int32_t numbers[] = {1, 2, 3};
    double reals[] = {1, 2, 3};
    char room[1000] = "a text";
    KaStr text = {9, 6, room};
    if (argc != 2) return 2;
    const char *function = argv[1];
    if (strncmp(function, "numbers", 7) == 0) return ka_test_call(function, ka_ref_int32s(numbers, 3));
    if (strcmp(function, "reals_beyond") == 0) return ka_test_call(function, ka_in_reals(reals, 3));
    if (strcmp(function, "text_beyond") == 0) return ka_test_call(function, ka_ref_strings(&text, 1));
    text.maxlen = sizeof room;
    ka_test_call("late", ka_in_strings(&text, 1));
    return ka_test_call("late", ka_in_text("short"));
}
