/* SPDX-License-Identifier: MIT
 *
 * A tour in C: every argument kind, strings, a call-back, the scratch area, the trace level, a crash.
 * KaCall receives a function's position in KaFuncList, so the bodies are in the same order. */
#include <ka/dll_codes.h>
#include <ka/dll_host.h>
#include <ka/dll_module.h>
#include <ka/kastring.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* IntArray, IntByReference: the elements that the caller passed are counted by KaArgInfo. */
static int32_t total(void **argv)
{
    const int32_t *values = argv[0];
    int32_t *sum = argv[1];
    const int32_t count = KaArgInfo(0)->elcnt;
    *sum = 0;
    for (int32_t k = 0; k < count; k++) {
        *sum += values[k];
    }
    return 0;
}

/* RealByValue, RealArray, RealByReference. */
static int32_t scale(void **argv)
{
    const double factor = *(double *)argv[0];
    double *values = argv[1];
    double *largest = argv[2];
    *largest = 0;
    for (int32_t k = 0; k < KaArgInfo(1)->elcnt; k++) {
        values[k] *= factor;
        if (values[k] > *largest) *largest = values[k];
    }
    return 0;
}

/* zString, String: returns 18 when there is no room for the greeting, and leaves the string unchanged. */
static int32_t greet(void **argv)
{
    char text[100];
    snprintf(text, sizeof text, "hello, %s", (const char *)argv[0]);
    return str2KaStr(text, argv[1]);
}

/* StringArray, String, VarArg: joins the words, then shows how each further argument arrived. */
static int32_t join(void **argv)
{
    const KaStr *words = argv[0];
    KaStr *line = argv[1];
    char kind[] = " 0";
    KaStr piece = {2, 2, kind};
    int32_t code = KASTR_OK;
    line->len = 0;
    for (int32_t k = 0; code == KASTR_OK && k < KaArgInfo(0)->elcnt; k++) {
        code = KaStrcat(line, &words[k]);
    }
    for (int32_t i = 2; code == KASTR_OK && i < KaFuncInfo()->argc; i++) {
        kind[1] = (char)('0' + KaArgInfo((uintptr_t)i)->type);
        code = KaStrcat(line, &piece);
    }
    return code;
}

/* A call-back: the caller answers while the function waits. The scratch area keeps the answers of earlier calls. */
static int32_t ask(void **argv)
{
    int32_t *kept = dll_scratch(sizeof *kept);
    const int32_t answer = dll_callback(*(int32_t *)argv[0]);
    *(int32_t *)argv[1] = answer;
    if (kept != NULL) *kept += answer;
    *(int32_t *)argv[2] = kept != NULL ? *kept : answer;
    return 0;
}

/* No argument: shows callers a crash. */
static int32_t crash(void **argv)
{
    (void)argv;
    abort();
}

/* IntByValue: shows callers a function that takes too long. */
static int32_t nap(void **argv)
{
    sleep((unsigned)*(int32_t *)argv[0]);
    return 0;
}

/* Runs once at start: TOUR_TRACE in the environment sets the trace level. */
void dll_setup(void)
{
    const char *level = getenv("TOUR_TRACE");
    if (level != NULL) dll_debug = (int32_t)strtol(level, NULL, 10);
}

/* clang-format off */
t_DLL_PROTO KaArgList[] = {
    /*  0 */ {"values", KA_INT_ARRAY, 1},     {"sum", KA_INT_BY_REFERENCE, 0},
    /*  2 */ {"factor", KA_REAL_BY_VALUE, 0}, {"values", KA_REAL_ARRAY, 2}, {"largest", KA_REAL_BY_REFERENCE, 0},
    /*  5 */ {"name", KA_ZSTRING, 0},         {"greeting", KA_STRING, 0},
    /*  7 */ {"words", KA_STRING_ARRAY, 1},   {"line", KA_STRING, 0},       {"more", KA_VARARG, 0},
    /* 10 */ {"question", KA_INT_BY_VALUE, 0}, {"answer", KA_INT_BY_REFERENCE, 0}, {"sum", KA_INT_BY_REFERENCE, 0},
    /* 13 */ {"seconds", KA_INT_BY_VALUE, 0},
};

t_DLL_FUNC KaFuncList[] = {
    {"total", 0, 2, NULL},
    {"scale", 2, 3, NULL},
    {"greet", 5, 2, NULL},
    {"join",  7, 3, NULL},
    {"ask",  10, 3, NULL},
    {"crash", 0, 0, NULL},
    {"nap", 13, 1, NULL},
    {NULL, 0, 0, NULL},
};
/* clang-format on */

int32_t KaCall(int32_t index, void **argv)
{
    static int32_t (*const bodies[])(void **) = {total, scale, greet, join, ask, crash, nap};
    return bodies[index](argv);
}
