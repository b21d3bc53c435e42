/* SPDX-License-Identifier: MIT
 *
 * The call host's services for a function while it runs. None of them is reentrant. */
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

/* Descriptor i (0 is the function name, 1 the first argument, which is argv[0] and KaArgInfo's 0), its ptr translated
   to the host's address; all zero when there is no such descriptor. A ptr outside the segment ends the process with
   an assertion. */
KA_API t_DLL_ARG u_get_arg(int32_t i);

/* Marks argument i, so that the caller does not treat it as passed by reference. Returns 0, or -1 when there is no
   such descriptor. */
KA_API int32_t u_unref_arg(int32_t i);

/* The scratch area if it has room for size bytes, else null. An address outside the segment ends the process with an
   assertion. Every call returns the same address: caller and function agree on how they share the area. */
KA_API void *dll_scratch(int32_t size);

/* Sends value to the caller, waits for its answer and returns it; in a call or in dll_setup, on any thread, one at a
   time. Ends the host process when the caller is gone. From the first call-back of a call until that call ends,
   SIGUSR1 is not blocked in the thread that called back. */
KA_API int32_t dll_callback(int32_t value);

typedef struct t_DLL_FUNCINFO {
    const char *name; /* of the function being called */
    int32_t argc;     /* its arguments, the function name not counted */
} t_DLL_FUNCINFO;

typedef struct t_DLL_ARGINFO {
    int32_t type;     /* kind of the argument as it arrived */
    const char *name; /* of its prototype */
    int32_t elcnt;    /* elements passed */
} t_DLL_ARGINFO;

/* The call in progress; null before the first. The record is static; the next call of this function overwrites it. */
KA_API t_DLL_FUNCINFO *KaFuncInfo(void);

/* One argument of the call in progress: x is a pointer from argv, or a position (0 is the first argument, as in argv;
   u_get_arg counts it as 1). A VarArg, IntByReference, RealByReference or String with several elements is reported as
   the array kind. Null when there is no such argument. The record is static; the next call of this function
   overwrites it. */
KA_API t_DLL_ARGINFO *KaArgInfo(uintptr_t x);

/* Trace level, 0 at start: how much the host writes on standard error about each call. Set by the module, or from
   outside. Any nonzero value: the call and its return code; 2: argument values; 3: matching and most refusals; 4: the
   block. */
KA_API extern int32_t dll_debug;

#ifdef __cplusplus
}
#endif

#endif
