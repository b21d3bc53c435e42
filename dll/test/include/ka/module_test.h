/* SPDX-License-Identifier: MIT
 *
 * Unit tests of a function module, in C. (For C++ there is ka/module_test.hpp.) A test is a program of its own, made
 * of the module's sources and this library; it calls the module's functions by their names in its own process,
 * through the call host's own code for matching, conversion and giving back. No other process, no signal, no shared
 * segment: debuggers, sanitizers, coverage and fuzzers see one plain program.
 *
 *     #include <ka/module_test.h>
 *
 *     int main(void)
 *     {
 *         int32_t sum = 0;
 *         assert(ka_test_call("add", ka_in_int32(2), ka_in_int32(40), ka_ref_int32(&sum)) == 0 && sum == 42);
 *         assert(ka_test_call("add", ka_in_int32(2)) == KA_WRONG_COUNT);
 *         return 0;
 *     }
 *
 *     cc adder.c adder_test.c -lkahost_test -o adder_test
 *
 * The code is the one that a caller gets, the call host's own included. A function that aborts, aborts the test. A
 * test that asks for what no caller can send (a null REAL, a string longer than its room, a call inside of a call)
 * ends with a line on standard error that says so. There is one module in a program, and one call at a time; outside
 * of it u_get_arg and its like find no arguments. A program that is linked with libkacall, too, names that behind it:
 * -lkahost_test -lkacall. */
#ifndef KA_MODULE_TEST_H
#define KA_MODULE_TEST_H

#include <stdint.h>
#include <string.h>

#include "ka/api.h"
#include "ka/decimal.h"
#include "ka/dll_block.h"
#include "ka/dll_codes.h"
#include "ka/kastring.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Arguments ------------------------------------------------------------------------------------------------- */

/* ka_test_argument.form: what its values are. */
enum {
    KA_TEST_END = 0,    /* no argument: the end of a list */
    KA_TEST_INT32 = 1,  /* int32_t: an INTEGER */
    KA_TEST_DOUBLE = 2, /* double: a REAL */
    KA_TEST_REAL = 3,   /* t_DECIMAL: a REAL */
    KA_TEST_STRING = 4  /* KaStr: a STRING, with room for maxlen characters, the same for all elements */
};

/* One argument. The functions below make the usual ones. */
typedef struct ka_test_argument {
    int32_t form;
    int32_t by_reference;
    void *values;       /* the elements; by reference they are changed. Null: the one in own */
    int32_t count;      /* of elements; below 0 the call has it in its descriptor, and there are none */
    int32_t elsz;       /* distance between elements in the block, in 4-byte words; 0: one after the other */
    int32_t shift;      /* how many bytes behind an address that 8 divides the first is in the block */
    int32_t gives_back; /* after the call: not 0 if values came back. Those of others were left alone */
    union {
        int32_t int32;
        double real;
        t_DECIMAL decimal;
        KaStr string;
    } own;
} ka_test_argument;

/* By value. What a pointer points to must live until the call is over. */
static inline ka_test_argument ka_in_int32(int32_t value);
static inline ka_test_argument ka_in_int32s(const int32_t *values, int32_t count);
static inline ka_test_argument ka_in_real(double value);
static inline ka_test_argument ka_in_reals(const double *values, int32_t count);
static inline ka_test_argument ka_in_decimal(const char *text); /* a REAL, exactly: "19.99" */
static inline ka_test_argument ka_in_decimals(const t_DECIMAL *values, int32_t count);
static inline ka_test_argument ka_in_text(const char *text); /* zero-terminated */
static inline ka_test_argument ka_in_strings(const KaStr *strings, int32_t count);

/* By reference: the result is where the argument was. Of a string the characters and len change. */
static inline ka_test_argument ka_ref_int32(int32_t *value);
static inline ka_test_argument ka_ref_int32s(int32_t *values, int32_t count);
static inline ka_test_argument ka_ref_real(double *value);
static inline ka_test_argument ka_ref_reals(double *values, int32_t count);
static inline ka_test_argument ka_ref_decimals(t_DECIMAL *values, int32_t count);
static inline ka_test_argument ka_ref_strings(KaStr *strings, int32_t count);

/* An argument as an unusual caller places it in the block: elements words apart, bytes off their alignment. */
static inline ka_test_argument ka_spaced(ka_test_argument argument, int32_t words);
static inline ka_test_argument ka_shifted(ka_test_argument argument, int32_t bytes);

/* ---- Callers --------------------------------------------------------------------------------------------------- */

/* What a caller is like. Begin with ka_test_settings_init. */
typedef struct ka_test_settings {
    int32_t layout;                                 /* of the block: 32, the usual one; 64 */
    int32_t segment_bytes;                          /* 1 MiB: room for the values of a call, and the scratch area */
    int32_t scratch_bytes;                          /* 64 KiB, 0 for none */
    int32_t (*callback)(int32_t value, void *user); /* answers call-backs, and returns; null: with 0 */
    void *user;                                     /* null: passed to callback */
} ka_test_settings;

KA_API void ka_test_settings_init(ka_test_settings *settings);

typedef struct ka_test ka_test;

/* settings may be null: the usual ones. Where the following functions take a caller, null is one that is always
 * there. */
KA_API ka_test *ka_test_open(const ka_test_settings *settings);
KA_API void ka_test_close(ka_test *test);

/* The settings in force: a change of callback, user and layout takes effect with the next call. */
KA_API ka_test_settings *ka_test_settings_of(ka_test *test);

/* The scratch area, zero at first, which stays from call to call. Null when there is none. */
KA_API void *ka_test_scratch(ka_test *test);

/* One call of function, a zero-terminated name, with the arguments up to the one of form KA_TEST_END. The return
 * code. */
KA_API int32_t ka_test_send(ka_test *test, const char *function, ka_test_argument *arguments);

/* The same in one line, of the caller that is always there, or of another. */
#define ka_test_call(...) KA_TEST_CALL_(NULL, __VA_ARGS__, ka_test_end_())
#define ka_test_call_of(...) KA_TEST_CALL_(__VA_ARGS__, ka_test_end_())

/* dll_setup runs before the first call, dll_cleanup as the program ends, before objects with static storage are
   destroyed; not if a function has ended it. This runs dll_cleanup now, if there was a call; the next one runs
   dll_setup again, as in a new process, but static variables stay what they are. */
KA_API void ka_test_end_module(void);

/* ---- Parts of the above ---------------------------------------------------------------------------------------- */

/* Ends the program; what is a sentence. */
KA_API void ka_test_refuse(const char *what) __attribute__((noreturn));

/* A REAL of text, which must be one. */
KA_API t_DECIMAL ka_test_decimal(const char *text, int32_t length);

/* clang-format off */
#define KA_TEST_CALL_(TEST, FUNCTION, ...) ka_test_send(TEST, FUNCTION, (ka_test_argument[]){__VA_ARGS__})
/* clang-format on */

static inline ka_test_argument ka_test_made_(int32_t form, void *values, int32_t count, int32_t by_reference)
{
    ka_test_argument made;
    memset(&made, 0, sizeof made);
    made.form = form;
    made.values = values;
    made.count = count;
    made.by_reference = by_reference;
    return made;
}

/* By value nothing is changed. */
static inline ka_test_argument ka_test_in_(int32_t form, const void *values, int32_t count)
{
    ka_test_argument made = ka_test_made_(form, NULL, count, 0);
    memcpy(&made.values, &values, sizeof values);
    return made;
}

static inline ka_test_argument ka_test_end_(void)
{
    return ka_test_made_(KA_TEST_END, NULL, 0, 0);
}

static inline ka_test_argument ka_in_int32(int32_t value)
{
    ka_test_argument made = ka_test_made_(KA_TEST_INT32, NULL, 1, 0);
    made.own.int32 = value;
    return made;
}

static inline ka_test_argument ka_in_int32s(const int32_t *values, int32_t count)
{
    return ka_test_in_(KA_TEST_INT32, values, count);
}

static inline ka_test_argument ka_in_real(double value)
{
    ka_test_argument made = ka_test_made_(KA_TEST_DOUBLE, NULL, 1, 0);
    made.own.real = value;
    return made;
}

static inline ka_test_argument ka_in_reals(const double *values, int32_t count)
{
    return ka_test_in_(KA_TEST_DOUBLE, values, count);
}

static inline ka_test_argument ka_in_decimal(const char *text)
{
    ka_test_argument made = ka_test_made_(KA_TEST_REAL, NULL, 1, 0);
    made.own.decimal = ka_test_decimal(text, (int32_t)strlen(text));
    return made;
}

static inline ka_test_argument ka_in_decimals(const t_DECIMAL *values, int32_t count)
{
    return ka_test_in_(KA_TEST_REAL, values, count);
}

static inline ka_test_argument ka_in_text(const char *text)
{
    ka_test_argument made = ka_test_made_(KA_TEST_STRING, NULL, 1, 0);
    made.own.string.len = made.own.string.maxlen = (int32_t)strlen(text);
    memcpy(&made.own.string.data, &text, sizeof text);
    return made;
}

static inline ka_test_argument ka_in_strings(const KaStr *strings, int32_t count)
{
    return ka_test_in_(KA_TEST_STRING, strings, count);
}

static inline ka_test_argument ka_ref_int32(int32_t *value)
{
    return ka_test_made_(KA_TEST_INT32, value, 1, 1);
}

static inline ka_test_argument ka_ref_int32s(int32_t *values, int32_t count)
{
    return ka_test_made_(KA_TEST_INT32, values, count, 1);
}

static inline ka_test_argument ka_ref_real(double *value)
{
    return ka_test_made_(KA_TEST_DOUBLE, value, 1, 1);
}

static inline ka_test_argument ka_ref_reals(double *values, int32_t count)
{
    return ka_test_made_(KA_TEST_DOUBLE, values, count, 1);
}

static inline ka_test_argument ka_ref_decimals(t_DECIMAL *values, int32_t count)
{
    return ka_test_made_(KA_TEST_REAL, values, count, 1);
}

static inline ka_test_argument ka_ref_strings(KaStr *strings, int32_t count)
{
    return ka_test_made_(KA_TEST_STRING, strings, count, 1);
}

static inline ka_test_argument ka_spaced(ka_test_argument argument, int32_t words)
{
    argument.elsz = words;
    return argument;
}

static inline ka_test_argument ka_shifted(ka_test_argument argument, int32_t bytes)
{
    argument.shift = bytes;
    return argument;
}

#ifdef __cplusplus
}
#endif

#endif
