/* The functions of the module @NAME@, which callers find by their names: its tables are written by hand. */
#include <ka/dll_host.h>
#include <ka/dll_module.h>
#include <ka/kastring.h>

#include <stdio.h>

/* Every element of argv points to an argument. A code other than 0 is an error that the caller sees. */
static int32_t divide(void **argv)
{
    const double *a = argv[0], *b = argv[1];
    double *quotient = argv[2];
    if (*b == 0) return 1001;
    *quotient = *a / *b;
    return 0;
}

static int32_t scale(void **argv)
{
    double *values = argv[0];
    const double *factor = argv[1];
    const int32_t count = KaArgInfo((uintptr_t)argv[0])->elcnt;
    for (int32_t i = 0; i < count; i++)
        values[i] *= *factor;
    return 0;
}

/* What does not fit into out leaves it as it was, and is code 18. */
static int32_t greet(void **argv)
{
    char line[100];
    snprintf(line, sizeof line, "Hello, %.80s", (const char *)argv[0]);
    return str2KaStr(line, argv[1]);
}

/* The arguments of all functions, one after the other; a number at the end is the least size of an array. */
t_DLL_PROTO KaArgList[] = {
    {"a", KA_REAL_BY_VALUE, 0},   {"b", KA_REAL_BY_VALUE, 0},      {"quotient", KA_REAL_BY_REFERENCE, 0}, /* 0 */
    {"values", KA_REAL_ARRAY, 1}, {"factor", KA_REAL_BY_VALUE, 0},                                        /* 3 */
    {"who", KA_ZSTRING, 0},       {"out", KA_STRING, 0},                                                  /* 5 */
};

/* The functions: name, the place of the first argument in KaArgList, and how many there are. */
t_DLL_FUNC KaFuncList[] = {
    {"divide", 0, 3, NULL},
    {"scale", 3, 2, NULL},
    {"greet", 5, 2, NULL},
    {NULL, 0, 0, NULL},
};

/* In the order of KaFuncList. */
static int32_t (*const functions[])(void **argv) = {divide, scale, greet};

int32_t KaCall(int32_t index, void **argv)
{
    return functions[index](argv);
}
