/* SPDX-License-Identifier: MIT
 *
 * Ordinary functions in C, with every kind of parameter. It is built with several levels of optimization, with the
 * sanitizer of undefined behaviour, and by both compilers; the header is the first include, so it must compile alone.
 */
#include <ka/module.h>

/* ---- One parameter of each kind ----------------------------------------------------------------------------------
 */

static int32_t integer_in(int32_t a)
{
    return a;
}

static int32_t integer_changed(int32_t *a)
{
    *a *= 2;
    return 0;
}

static int32_t integers(ka_int32_array a)
{
    return a.count * 1000 + a.at[a.step].value;
}

static int32_t real_in(double a, double *copy)
{
    *copy = a;
    return 0;
}

static int32_t real_changed(double *a)
{
    *a *= 2;
    return 0;
}

static int32_t reals(ka_real_array a, double *last)
{
    *last = a.count == 0 ? -1 : a.at[(a.count - 1) * a.step];
    return a.count;
}

static int32_t text_in(const char *a)
{
    return (int32_t)strlen(a);
}

static int32_t exclaim(KaStr *text)
{
    char mark[] = "!";
    const KaStr added = {1, 1, mark};
    return KaStrcat(text, &added);
}

static int32_t string_changed(KaStr *a)
{
    return exclaim(a);
}

static int32_t strings_changed(ka_string_array a)
{
    int32_t code = 0;
    for (int32_t k = 0; k < a.count && code == 0; k++)
        code = exclaim(&a.at[k * a.step]);
    return code;
}

/* What arrived, as number of elements and type of each. */
static int32_t rest(int32_t first, ka_args more)
{
    int32_t found = first;
    for (int32_t k = 0; k < more.count; k++) {
        const t_DLL_ARG passed = u_get_arg(more.first + 1 + k);
        found = found * 100 + passed.elcnt * 10 + passed.type;
    }
    return found;
}

static int32_t double_rest(ka_args more)
{
    for (int32_t k = -1; k <= more.count; k++) { /* also where nothing is */
        const ka_int32_array integers_there = ka_args_int32(more, k);
        for (int32_t i = 0; i < integers_there.count; i++)
            integers_there.at[i * integers_there.step].value *= 2;
        const ka_real_array reals_there = ka_args_real(more, k);
        for (int32_t i = 0; i < reals_there.count; i++)
            reals_there.at[i * reals_there.step] *= 2;
        const ka_string_array strings_there = ka_args_string(more, k);
        for (int32_t i = 0; i < strings_there.count; i++)
            exclaim(&strings_there.at[i * strings_there.step]);
    }
    return 0;
}

static int32_t nothing(void)
{
    return 42;
}

/* A function in which names are those of the header's own words. */
static int32_t at(int32_t argv, int32_t n, int32_t code, int32_t *index)
{
    *index = argv + n + code;
    return 0;
}

/* ---- Loops that a compiler turns into vector instructions --------------------------------------------------------
 */

static int32_t twice(ka_int32_array values)
{
    for (int32_t k = 0; k < values.count; k++)
        values.at[k * values.step].value *= 2;
    return 0;
}

static int32_t twice_in_a_row(ka_int32_array values)
{
    if (values.step != 1) return 1001;
    for (int32_t k = 0; k < values.count; k++)
        values.at[k].value *= 2;
    return 0;
}

static int32_t reverse(ka_int32_array values)
{
    for (int32_t i = 0, j = values.count - 1; i < j; i++, j--) {
        const ka_integer kept = values.at[i * values.step];
        values.at[i * values.step] = values.at[j * values.step];
        values.at[j * values.step] = kept;
    }
    return 0;
}

static int32_t negate(int32_t *value)
{
    *value = -*value;
    return 0;
}

/* ---- Fifty parameters --------------------------------------------------------------------------------------------
 */

/* clang-format off */
static int32_t fifty(int32_t a1, double a2, int32_t a3, double a4, int32_t a5, int32_t a6, int32_t a7, int32_t a8,
                     int32_t a9, int32_t a10, int32_t a11, int32_t a12, int32_t a13, int32_t a14, int32_t a15,
                     int32_t a16, int32_t a17, int32_t a18, int32_t a19, int32_t a20, int32_t a21, int32_t a22,
                     int32_t a23, int32_t a24, int32_t a25, int32_t a26, int32_t a27, int32_t a28, int32_t a29,
                     int32_t a30, int32_t a31, int32_t a32, int32_t a33, int32_t a34, int32_t a35, int32_t a36,
                     int32_t a37, int32_t a38, int32_t a39, int32_t a40, int32_t a41, int32_t a42, int32_t a43,
                     int32_t a44, int32_t a45, int32_t a46, int32_t a47, int32_t a48, int32_t a49, int32_t *sum)
{
    const int32_t all[] = {a1, (int32_t)a2, a3, (int32_t)a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a16,
                           a17, a18, a19, a20, a21, a22, a23, a24, a25, a26, a27, a28, a29, a30, a31, a32, a33, a34,
                           a35, a36, a37, a38, a39, a40, a41, a42, a43, a44, a45, a46, a47, a48, a49};
    *sum = 0;
    for (int32_t k = 0; k < 49; k++)
        *sum += (k + 1) * all[k];
    return 0;
}

#define FUNCTIONS(F)                                                                                                   \
    F(integer_in, (int32, a))                                                                                          \
    F(integer_changed, (int32_ref, a))                                                                                 \
    F(integers, (int32_array, a, 2))                                                                                   \
    F(real_in, (real, a), (real_ref, copy))                                                                            \
    F(real_changed, (real_ref, a))                                                                                     \
    F(reals, (real_array, a, 0), (real_ref, last))                                                                     \
    F(text_in, (text, a))                                                                                              \
    F(string_changed, (string, a))                                                                                     \
    F(strings_changed, (string_array, a))                                                                              \
    F(rest, (int32, first), (args, more))                                                                              \
    F(double_rest, (args, more))                                                                                       \
    F(nothing)                                                                                                         \
    F(at, (int32, argv), (int32, n), (int32, code), (int32_ref, index))                                                \
    F(twice, (int32_array, values))                                                                                    \
    F(twice_in_a_row, (int32_array, values))                                                                           \
    F(reverse, (int32_array, values))                                                                                  \
    F(negate, (int32_ref, value))                                                                                      \
    F(fifty, (int32, a1), (real, a2), (int32, a3), (real, a4), (int32, a5), (int32, a6), (int32, a7), (int32, a8),     \
      (int32, a9), (int32, a10), (int32, a11), (int32, a12), (int32, a13), (int32, a14), (int32, a15), (int32, a16),   \
      (int32, a17), (int32, a18), (int32, a19), (int32, a20), (int32, a21), (int32, a22), (int32, a23), (int32, a24),  \
      (int32, a25), (int32, a26), (int32, a27), (int32, a28), (int32, a29), (int32, a30), (int32, a31), (int32, a32),  \
      (int32, a33), (int32, a34), (int32, a35), (int32, a36), (int32, a37), (int32, a38), (int32, a39), (int32, a40),  \
      (int32, a41), (int32, a42), (int32, a43), (int32, a44), (int32, a45), (int32, a46), (int32, a47), (int32, a48),  \
      (int32, a49), (int32_ref, sum))
/* clang-format on */
KA_MODULE(FUNCTIONS)
