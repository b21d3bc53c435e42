/* SPDX-License-Identifier: MIT
 *
 * What the call host offers to a function while it runs. None of this is reentrant. */
#ifndef KA_DLL_HOST_H
#define KA_DLL_HOST_H

#include <stdint.h>

#include "ka/api.h"
#include "ka/dll_block.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The host's address of the shared segment. */
KA_API void *u_get_baseptr(void);

/* Number of descriptors of the call, the function name included; as the caller wrote it. */
KA_API int32_t u_get_argc(void);

/* Descriptor i (0 is the function name, 1 the first argument), its ptr translated to the host's address; all zero
   when there is none. A ptr outside the segment ends the process with an assertion. */
KA_API t_DLL_ARG u_get_arg(int32_t i);

/* Tells the caller that argument i is not to be treated as passed by reference. 0, or -1 when there is no such
   descriptor. */
KA_API int32_t u_unref_arg(int32_t i);

/* The scratch area, when there is one with room for size bytes; else null; an address outside the segment ends the
   process with an assertion. Every call returns the same address: the space is the caller's and the function's to
   share as they agree. */
KA_API void *dll_scratch(int32_t size);

/* Hands value to the caller, waits for its answer and returns it; in a call or in dll_setup, on any thread, one at a
   time. Ends the host when the caller is gone. From the first call-back of a call on until that call ends, SIGUSR1 is
   no longer blocked in the thread that called back. */
KA_API int32_t dll_callback(int32_t value);

typedef struct t_DLL_FUNCINFO {
    const char *name; /* of the function being called */
    int32_t argc;     /* its arguments, the function name not counted */
} t_DLL_FUNCINFO;

typedef struct t_DLL_ARGINFO {
    int32_t type;     /* kind that the argument arrived as */
    const char *name; /* of its prototype */
    int32_t elcnt;    /* elements passed */
} t_DLL_ARGINFO;

/* The call in progress; null before the first. The record is static; the next call of this function overwrites it. */
KA_API t_DLL_FUNCINFO *KaFuncInfo(void);

/* One argument of the call in progress: x is a pointer found in argv, or a position (0 is the first argument). Of
   several elements, a VarArg and the kinds IntByReference, RealByReference and String are reported as the array kind.
   Null when there is no such argument. The record is static; the next call of this function overwrites it. */
KA_API t_DLL_ARGINFO *KaArgInfo(uintptr_t x);

/* Trace level, 0 at start: what the host writes on standard error about each call. Set by the module, or from
   outside. Any nonzero value: the call and its return code; 2: argument values; 3: matching and most refusals; 4: the
   block. */
KA_API extern int32_t dll_debug;

#ifdef __cplusplus
}
#endif

#endif
