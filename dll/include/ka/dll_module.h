/* SPDX-License-Identifier: MIT
 *
 * The definitions of a function module: an executable without main, linked with -lkahost, that defines KaFuncList,
 * KaArgList and KaCall, and may define dll_setup and dll_cleanup. It is a program of 32 or of 64 bits, from the same
 * source; callers see no difference. */
#ifndef KA_DLL_MODULE_H
#define KA_DLL_MODULE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "ka/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Argument kinds: the element of argv that the function gets, and what goes back if the caller passed the argument by
   reference. By value every kind is accepted, too; then what the function writes is lost. Every element of argv is a
   pointer; every kind but zString gives all elements that the caller passed. */
enum {
    KA_VARARG = 0,       /* this argument and all that follow, each as kind 2, 5 or 8 by its value type; or none */
    KA_INT_BY_VALUE = 1, /* int32_t *; INTEGER in the segment itself, or REAL truncated. Nothing goes back */
    KA_INT_BY_REFERENCE = 2,  /* int32_t * into the segment: changes are made in place */
    KA_INT_ARRAY = 3,         /* the same, at least min_elcnt elements */
    KA_REAL_BY_VALUE = 4,     /* double *, from INTEGER or REAL. Nothing goes back */
    KA_REAL_BY_REFERENCE = 5, /* double *, from REAL; each double goes back as a REAL */
    KA_REAL_ARRAY = 6,        /* the same, at least min_elcnt elements */
    KA_ZSTRING = 7,           /* char *: a zero-terminated private copy of the first element. Nothing goes back */
    KA_STRING = 8,            /* KaStr *: the characters are in the segment; each len goes back */
    KA_STRING_ARRAY = 9       /* the same, at least min_elcnt elements */
};

typedef struct t_DLL_FUNC {
    const char *name; /* as the caller spells it; null ends the table */
    int32_t arg_idx;  /* index in KaArgList of the first prototype */
    int32_t arg_cnt;  /* number of prototypes */
    void *user;       /* the module's own; the host never reads it */
} t_DLL_FUNC;

typedef struct t_DLL_PROTO {
    const char *name;  /* shown by the trace and by KaArgInfo */
    int32_t type;      /* the argument's kind */
    int32_t min_elcnt; /* the three array kinds: least number of elements */
} t_DLL_PROTO;

static_assert(offsetof(t_DLL_FUNC, arg_idx) == sizeof(char *), "t_DLL_FUNC.arg_idx");
static_assert(offsetof(t_DLL_FUNC, arg_cnt) == sizeof(char *) + 4, "t_DLL_FUNC.arg_cnt");
static_assert(sizeof(t_DLL_FUNC) == 2 * sizeof(char *) + 8, "t_DLL_FUNC");
static_assert(offsetof(t_DLL_PROTO, type) == sizeof(char *), "t_DLL_PROTO.type");
static_assert(offsetof(t_DLL_PROTO, min_elcnt) == sizeof(char *) + 4, "t_DLL_PROTO.min_elcnt");
static_assert(sizeof(t_DLL_PROTO) == sizeof(char *) + 8, "t_DLL_PROTO");

/* The functions; of two with one name the first is called; a record whose name is null ends the table. */
KA_API extern t_DLL_FUNC KaFuncList[];

/* The prototypes of all functions, without a terminator. */
KA_API extern t_DLL_PROTO KaArgList[];

/* Runs function index (its position in KaFuncList). argv has one element for each argument, a pointer to its value or
   to the first of its elements; see the kinds above. argv[0] is the first argument, as in KaArgInfo; u_get_arg counts
   it as 1. Returns the call's return code. It is called on the main thread, inside a signal handler, with SIGUSR2
   blocked; SIGTERM can end the process at any moment, through dll_cleanup. The pointers are valid until it returns.
 */
KA_API int32_t KaCall(int32_t index, void **argv);

/* Optional. dll_setup runs once at start, before the first call; dll_cleanup once after SIGTERM, when the segment is
   already detached. Standard input and output are closed. */
KA_API void dll_setup(void);
KA_API void dll_cleanup(void);

#ifdef __cplusplus
}
#endif

#endif
