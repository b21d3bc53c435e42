/* The functions of the module @NAME@, which callers find by their names. */
#include <ka/module.h>

#include <stdio.h>

/* A code other than 0 is an error that the caller sees. */
static int32_t divide(double a, double b, double *quotient)
{
    if (b == 0) return 1001;
    *quotient = a / b;
    return 0;
}

static int32_t scale(ka_real_array values, double factor)
{
    for (int32_t i = 0; i < values.count; i++)
        values.at[i] *= factor;
    return 0;
}

/* What does not fit into out leaves it as it was, and is code 18. */
static int32_t greet(const char *who, KaStr *out)
{
    char line[100];
    snprintf(line, sizeof line, "Hello, %.80s", who);
    return str2KaStr(line, out);
}

/* clang-format off */
#define FUNCTIONS(F)                                         \
    F(divide, (real, a), (real, b), (real_ref, quotient))    \
    F(scale, (real_array, values), (real, factor))           \
    F(greet, (text, who), (string, out))
KA_MODULE(FUNCTIONS)
