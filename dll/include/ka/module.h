/* SPDX-License-Identifier: MIT
 *
 * A function module of ordinary functions, in C. (For C++ there is ka/module.hpp.)
 *
 *     #include <ka/module.h>
 *
 *     static int32_t add(int32_t a, int32_t b, int32_t *sum) { *sum = a + b; return 0; }
 *     static int32_t nothing(void) { return 0; }
 *
 *     #define FUNCTIONS(F)                                 \
 *         F(add, (int32, a), (int32, b), (int32_ref, sum)) \
 *         F(nothing)
 *     KA_MODULE(FUNCTIONS)
 *
 * A function returns the call's return code, and has 0 to 50 parameters. Its line names it, and each parameter after
 * its kind:
 *
 *     kind          parameter        the caller passes
 *     int32         int32_t          an INTEGER, or a REAL, which is truncated
 *     int32_ref     int32_t *        an INTEGER to be changed: a copy, which goes back when the function returns
 *     int32_array   ka_int32_array   INTEGERs, changed where the caller has placed them
 *     real          double           a REAL or INTEGER, of 14 decimals
 *     real_ref      double *         a REAL to be changed
 *     real_array    ka_real_array    REALs to be changed
 *     text          const char *     a STRING: a terminated copy
 *     string        KaStr *          a STRING to be changed (ka/kastring.h)
 *     string_array  ka_string_array  STRINGs to be changed
 *     args          ka_args          last: any further arguments, or none
 *
 * What is changed comes back if the caller passed the argument by reference. An array has the least number of
 * elements behind its name, (real_array, values, 2), or 1; with fewer the call is refused. A parameter that is
 * neither array nor args sees the first of several elements; without one the function is not called, and the return
 * code is 17. */
#ifndef KA_MODULE_H
#define KA_MODULE_H

#if !defined __cplusplus && (!defined __STDC_VERSION__ || __STDC_VERSION__ < 201112L)
#error "ka/module.h is C11: give the compiler -std=c11 or a later standard"
#endif

#include <assert.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "ka/dll_block.h"
#include "ka/dll_codes.h"
#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"
#include "ka/module/each.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An INTEGER where the caller has placed it, at any address: the compiler must not expect the alignment of an
   int32_t, so no int32_t * may point to it. */
typedef struct ka_integer {
    int32_t value;
} __attribute__((packed)) ka_integer;

static_assert(sizeof(ka_integer) == 4, "ka_integer lies in the block as an INTEGER does");

/* The elements of an argument: at[k * step], for k from 0 to count - 1. */
typedef struct ka_int32_array {
    ka_integer *at;
    int32_t count;
    int32_t step; /* how far apart the caller has placed them; 1: one after the other */
} ka_int32_array;

typedef struct ka_real_array {
    double *at;
    int32_t count;
    int32_t step; /* always 1, as below */
} ka_real_array;

typedef struct ka_string_array {
    KaStr *at;
    int32_t count;
    int32_t step;
} ka_string_array;

/* Further arguments, of any type: at[k] for k from 0 to count - 1. */
typedef struct ka_args {
    void **at;
    int32_t count;
    int32_t first; /* position of at[0] in the call: u_get_arg(first + 1 + k) describes at[k] */
} ka_args;

/* All elements of further argument k; none when it has another type, or is not there. */
static inline ka_int32_array ka_args_int32(ka_args rest, int32_t k);
static inline ka_real_array ka_args_real(ka_args rest, int32_t k);
static inline ka_string_array ka_args_string(ka_args rest, int32_t k);

#ifndef __cplusplus

/* The functions of a module; once, at file scope, where they are declared. LIST(F) is F(function, (kind, name) ...)
   for each. */
#define KA_MODULE(LIST)                                                                                            \
    LIST(KA_CHECK_LINE_)                                                                                           \
    struct ka_module_lines {                                                                                       \
        LIST(KA_LINE_) char ka_end;                                                                                \
    };                                                                                                             \
    static_assert(offsetof(struct ka_module_lines, ka_end) > 0, "KA_MODULE: a module has one function at least");  \
    LIST(KA_CHECK_FUNCTION_)                                                                                       \
    enum { LIST(KA_FIRST_PROTOTYPE_) ka_module_prototype_count };                                                  \
    LIST(KA_RUN_)                                                                                                  \
    KA_TABLE_(t_DLL_FUNC, ka_module_functions, "KaFuncList",                                                       \
              offsetof(struct ka_module_lines, ka_end) + 1) = {LIST(KA_FUNCTION_){NULL, 0, 0, NULL}};              \
    KA_TABLE_(t_DLL_PROTO, ka_module_prototypes, "KaArgList", ka_module_prototype_count) = {LIST(KA_PROTOTYPES_)}; \
    static const ka_runner_ ka_module_runners[] = {LIST(KA_RUNNER_)};                                              \
    int32_t KaCall(int32_t index, void **argv)                                                                     \
    {                                                                                                              \
        return ka_run_(&ka_module_runners[index], argv);                                                           \
    }

#endif

/* ---- Parts of the above ------------------------------------------------------------------------------------------
 */

/* The number of elements passed at a position, if they are of that type. */
static inline int32_t ka_count_(int32_t position, int32_t type)
{
    const t_DLL_ARG passed = u_get_arg(position + 1);
    return passed.type == type && passed.elcnt > 0 ? passed.elcnt : 0;
}

static inline ka_int32_array ka_args_int32(ka_args rest, int32_t k)
{
    ka_int32_array array = {NULL, 0, 1};
    if (k < 0 || k >= rest.count) return array;
    array.at = (ka_integer *)rest.at[k];
    array.count = ka_count_(rest.first + k, DLL_INTEGER);
    array.step = u_get_arg(rest.first + k + 1).elsz;
    return array;
}

static inline ka_real_array ka_args_real(ka_args rest, int32_t k)
{
    ka_real_array array = {NULL, 0, 1};
    if (k < 0 || k >= rest.count) return array;
    array.at = (double *)rest.at[k];
    array.count = ka_count_(rest.first + k, DLL_REAL);
    return array;
}

static inline ka_string_array ka_args_string(ka_args rest, int32_t k)
{
    ka_string_array array = {NULL, 0, 1};
    if (k < 0 || k >= rest.count) return array;
    array.at = (KaStr *)rest.at[k];
    array.count = ka_count_(rest.first + k, DLL_STRING);
    return array;
}

#ifdef __cplusplus
}
#else

/* A constant that the call host knows by a name with which ka/dll_module.h has declared something that can change. It
   may have no records: that is an extension of both compilers. */
#define KA_TABLE_(TYPE, NAME, SYMBOL, COUNT)         \
    extern const TYPE NAME[] __asm__(SYMBOL) KA_API; \
    __extension__ __attribute__((used)) const TYPE NAME[COUNT]

typedef struct ka_runner_ {
    int32_t (*run)(void **argv);
    uint64_t scalars; /* bit n: without an element in argument n there is no call */
} ka_runner_;

static inline int32_t ka_run_(const ka_runner_ *function, void **argv)
{
    uint64_t scalars = function->scalars;
    for (int32_t n = 1; scalars != 0; n++, scalars >>= 1) {
        if ((scalars & 1) != 0 && u_get_arg(n).elcnt < 1) return KA_TOO_FEW_ELEMENTS;
    }
    return function->run(argv);
}

/* The kinds, a row for each: that it is one; kind of the prototype; whether it needs an element; whether it is an
   array; type of the parameter; type of what the wrapper of the function holds for it; how that is made a parameter;
   what is done with it afterwards. The parameter is made by ka_make_KIND, below. */
/* clang-format off */
#define KA_ROW_int32        ~, 1, KA_INT_BY_VALUE,      1, 0, int32_t,         int32_t,         , KA_LEAVE_
#define KA_ROW_int32_ref    ~, 1, KA_INT_BY_REFERENCE,  1, 0, int32_t *,       int32_t,        &, KA_GIVE_BACK_
#define KA_ROW_int32_array  ~, 1, KA_INT_ARRAY,         0, 1, ka_int32_array,  ka_int32_array,  , KA_LEAVE_
#define KA_ROW_real         ~, 1, KA_REAL_BY_VALUE,     1, 0, double,          double,          , KA_LEAVE_
#define KA_ROW_real_ref     ~, 1, KA_REAL_BY_REFERENCE, 1, 0, double *,        double *,        , KA_LEAVE_
#define KA_ROW_real_array   ~, 1, KA_REAL_ARRAY,        0, 1, ka_real_array,   ka_real_array,   , KA_LEAVE_
#define KA_ROW_text         ~, 1, KA_ZSTRING,           1, 0, const char *,    const char *,    , KA_LEAVE_
#define KA_ROW_string       ~, 1, KA_STRING,            1, 0, KaStr *,         KaStr *,         , KA_LEAVE_
#define KA_ROW_string_array ~, 1, KA_STRING_ARRAY,      0, 1, ka_string_array, ka_string_array, , KA_LEAVE_
#define KA_ROW_args         ~, 1, KA_VARARG,            0, 0, ka_args,         ka_args,         , KA_LEAVE_
/* clang-format on */
#define KA_KINDS_ "int32 int32_ref int32_array real real_ref real_array text string string_array args"

#define KA_LEAVE_(TO, FROM)
#define KA_GIVE_BACK_(TO, FROM) memcpy(TO, &(FROM), sizeof(FROM));

#define KA_KNOWN_(KIND) KA_IN_ROW_(KA_FIELD_1_, KIND)
#define KA_KIND_(KIND) KA_IN_ROW_(KA_FIELD_2_, KIND)
#define KA_SCALAR_(KIND) KA_IN_ROW_(KA_FIELD_3_, KIND)
#define KA_IS_ARRAY_(KIND) KA_IN_ROW_(KA_FIELD_4_, KIND)
#define KA_TYPE_(KIND) KA_IN_ROW_(KA_FIELD_5_, KIND)
#define KA_HELD_(KIND) KA_IN_ROW_(KA_FIELD_6_, KIND)
#define KA_AS_(KIND) KA_IN_ROW_(KA_FIELD_7_, KIND)
#define KA_AFTER_(KIND) KA_IN_ROW_(KA_FIELD_8_, KIND)
#define KA_IN_ROW_(FIELD, KIND) KA_IN_FIELDS_(FIELD, KA_ROW_##KIND, 0, 0, 0, 0, 0, 0, 0, 0, ~)
#define KA_IN_FIELDS_(FIELD, ...) FIELD(__VA_ARGS__)
#define KA_FIELD_1_(ROW, A, ...) A
#define KA_FIELD_2_(ROW, A, B, ...) B
#define KA_FIELD_3_(ROW, A, B, C, ...) C
#define KA_FIELD_4_(ROW, A, B, C, D, ...) D
#define KA_FIELD_5_(ROW, A, B, C, D, E, ...) E
#define KA_FIELD_6_(ROW, A, B, C, D, E, F, ...) F
#define KA_FIELD_7_(ROW, A, B, C, D, E, F, G, ...) G
#define KA_FIELD_8_(ROW, A, B, C, D, E, F, G, H, ...) H

/* INTEGERs in the block need not be aligned. */
static inline int32_t ka_make_int32(void **argv, int32_t n)
{
    int32_t number;
    memcpy(&number, argv[n], sizeof number);
    return number;
}

static inline int32_t ka_make_int32_ref(void **argv, int32_t n)
{
    return ka_make_int32(argv, n);
}

static inline ka_int32_array ka_make_int32_array(void **argv, int32_t n)
{
    const t_DLL_ARG passed = u_get_arg(n + 1);
    const ka_int32_array array = {(ka_integer *)argv[n], passed.elcnt, passed.elsz};
    return array;
}

static inline double ka_make_real(void **argv, int32_t n)
{
    return *(const double *)argv[n];
}

static inline double *ka_make_real_ref(void **argv, int32_t n)
{
    return (double *)argv[n];
}

static inline ka_real_array ka_make_real_array(void **argv, int32_t n)
{
    const ka_real_array array = {(double *)argv[n], u_get_arg(n + 1).elcnt, 1};
    return array;
}

static inline const char *ka_make_text(void **argv, int32_t n)
{
    return (const char *)argv[n];
}

static inline KaStr *ka_make_string(void **argv, int32_t n)
{
    return (KaStr *)argv[n];
}

static inline ka_string_array ka_make_string_array(void **argv, int32_t n)
{
    const ka_string_array array = {(KaStr *)argv[n], u_get_arg(n + 1).elcnt, 1};
    return array;
}

static inline ka_args ka_make_args(void **argv, int32_t n)
{
    const ka_args rest = {argv + n, KaFuncInfo()->argc - n, n};
    return rest;
}

/* What each line becomes in each part of KA_MODULE. FUNCTION is a line's first word, LINE all of it; parts for one
   parameter have it taken apart, with the least number of elements or KA_LEAST_UNSAID_.

   First what is wrong in the line by itself: later parts would only say that something is not declared. */
#define KA_CHECK_LINE_(...) KA_FOR_LINE_(KA_CHECK_WORDS_, __VA_ARGS__)
#define KA_CHECK_WORDS_(FUNCTION, LINE)                                                          \
    static_assert(KA_COUNT_ LINE <= 51, "KA_MODULE: " #FUNCTION " has more than 50 parameters"); \
    KA_EACH_(KA_CHECK_FORM_, LINE) KA_EACH_(KA_CHECK_KIND_, LINE)
#define KA_CHECK_FORM_(FUNCTION, ...)                                         \
    static_assert(KA_COUNT_(__VA_ARGS__) == 4 || KA_COUNT_(__VA_ARGS__) == 5, \
                  "KA_MODULE: " #FUNCTION ": a parameter is (kind, name) or, of an array, (kind, name, least)");
#define KA_CHECK_KIND_(FUNCTION, KIND, ...) \
    static_assert(KA_KNOWN_(KIND), "KA_MODULE: " #FUNCTION ": " #KIND " is no kind; the kinds are " KA_KINDS_);

/* Records of char members give everything its position, and refuse a name twice. */
#define KA_LINE_(...) KA_FOR_LINE_(KA_LINE_MEMBER_, __VA_ARGS__)
#define KA_LINE_MEMBER_(FUNCTION, LINE) char FUNCTION;
#define KA_POSITION_(FUNCTION, NAME) ((int32_t)offsetof(struct ka_line_of_##FUNCTION, NAME))

/* Then its names, and whether it suits the function. */
#define KA_CHECK_FUNCTION_(...) KA_FOR_LINE_(KA_CHECK_TYPE_, __VA_ARGS__)
#define KA_CHECK_TYPE_(FUNCTION, LINE)                                          \
    struct ka_line_of_##FUNCTION {                                              \
        KA_EACH_(KA_MEMBER_, LINE) char ka_end;                                 \
    };                                                                          \
    static_assert(KA_OF_LINE_(KA_SUITS_, LINE)(FUNCTION, LINE),                 \
                  "KA_MODULE: " #FUNCTION " is not declared as its line says"); \
    KA_EACH_(KA_CHECK_PARAMETER_, LINE)
#define KA_MEMBER_(FUNCTION, KIND, NAME, ...) char NAME;

/* A function declared as int32_t f() suits no line of parameters: it would suit each. */
#define KA_SUITS_0(FUNCTION, LINE) KA_IS_(FUNCTION, (void))
#define KA_SUITS_1(FUNCTION, LINE) \
    (KA_IS_(FUNCTION, (KA_TAIL_(KA_EACH_(KA_NEXT_TYPE_, LINE)))) && !KA_IS_(FUNCTION, (void)))
#define KA_IS_(FUNCTION, PARAMETERS) __builtin_types_compatible_p(__typeof__(FUNCTION), int32_t PARAMETERS)
#define KA_NEXT_TYPE_(FUNCTION, KIND, ...) , KA_TYPE_(KIND)
#define KA_CHECK_PARAMETER_(FUNCTION, KIND, NAME, LEAST, ...)                                                        \
    static_assert(KA_KIND_(KIND) != KA_VARARG || KA_POSITION_(FUNCTION, NAME) + 1 == KA_POSITION_(FUNCTION, ka_end), \
                  "KA_MODULE: " #FUNCTION ": args is the last parameter");                                           \
    static_assert(KA_IS_ARRAY_(KIND) || (LEAST) == KA_LEAST_UNSAID_,                                                 \
                  "KA_MODULE: " #FUNCTION ": only an array has a least number of elements");                         \
    static_assert(KA_LEAST_(KIND, LEAST) >= 0, "KA_MODULE: " #FUNCTION ": a least number of elements is 0 or more");

enum { KA_LEAST_UNSAID_ = INT32_MIN };
#define KA_LEAST_(KIND, LEAST) ((LEAST) == KA_LEAST_UNSAID_ ? KA_IS_ARRAY_(KIND) : (LEAST))

#define KA_FIRST_PROTOTYPE_(...) KA_FOR_LINE_(KA_COUNT_PROTOTYPES_, __VA_ARGS__)
#define KA_COUNT_PROTOTYPES_(FUNCTION, LINE) \
    ka_first_of_##FUNCTION, ka_last_of_##FUNCTION = ka_first_of_##FUNCTION + KA_POSITION_(FUNCTION, ka_end) - 1,

/* The wrapper of the function. Names begin with ka_: a function may have any other. */
#define KA_RUN_(...) KA_FOR_LINE_(KA_DEFINE_RUN_, __VA_ARGS__)
#define KA_DEFINE_RUN_(FUNCTION, LINE)                                         \
    static int32_t ka_run_##FUNCTION(void **ka_argv)                           \
    {                                                                          \
        (void)ka_argv;                                                         \
        KA_EACH_(KA_MAKE_, LINE)                                               \
        const int32_t ka_code = FUNCTION(KA_OF_LINE_(KA_VALUES_, LINE)(LINE)); \
        KA_EACH_(KA_FINISH_, LINE)                                             \
        return ka_code;                                                        \
    }
#define KA_MAKE_(FUNCTION, KIND, NAME, ...) \
    KA_HELD_(KIND) ka_of_##NAME = ka_make_##KIND(ka_argv, KA_POSITION_(FUNCTION, NAME));
#define KA_VALUES_0(LINE)
#define KA_VALUES_1(LINE) KA_TAIL_(KA_EACH_(KA_NEXT_VALUE_, LINE))
#define KA_NEXT_VALUE_(FUNCTION, KIND, NAME, ...) , KA_AS_(KIND) ka_of_##NAME
#define KA_FINISH_(FUNCTION, KIND, NAME, ...) KA_AFTER_(KIND)(ka_argv[KA_POSITION_(FUNCTION, NAME)], ka_of_##NAME)

/* The tables. */
#define KA_FUNCTION_(...) KA_FOR_LINE_(KA_FUNCTION_RECORD_, __VA_ARGS__)
#define KA_FUNCTION_RECORD_(FUNCTION, LINE) {#FUNCTION, ka_first_of_##FUNCTION, KA_POSITION_(FUNCTION, ka_end), NULL},
#define KA_PROTOTYPES_(...) KA_FOR_LINE_(KA_PROTOTYPE_RECORDS_, __VA_ARGS__)
#define KA_PROTOTYPE_RECORDS_(FUNCTION, LINE) KA_EACH_(KA_PROTOTYPE_, LINE)
#define KA_PROTOTYPE_(FUNCTION, KIND, NAME, LEAST, ...) {#NAME, KA_KIND_(KIND), KA_LEAST_(KIND, LEAST)},
#define KA_RUNNER_(...) KA_FOR_LINE_(KA_RUNNER_RECORD_, __VA_ARGS__)
#define KA_RUNNER_RECORD_(FUNCTION, LINE) {ka_run_##FUNCTION, 0 KA_EACH_(KA_OR_SCALAR_, LINE)},
#define KA_OR_SCALAR_(FUNCTION, KIND, NAME, ...) | ((uint64_t)KA_SCALAR_(KIND) << KA_POSITION_(FUNCTION, NAME))

#endif

#endif
