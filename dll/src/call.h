/* SPDX-License-Identifier: MIT
 *
 * The call in progress, as the driver, the conversions, the accessors and the trace share it. The state outlives the
 * call: buffers that a failed call left in KaAv are freed by the next one. */
#ifndef KA_CALL_H
#define KA_CALL_H

#include <stdint.h>

#include "ka/dll_codes.h"
#include "ka/dll_module.h"
#include "wire/kinds.h"

struct t_KIND_NAME {
    int32_t kind;
    const char *name;
};

extern "C" {
extern t_DLL_FUNC *KaFunc;       /* the function being called; after a failed lookup the terminating record */
extern int32_t KaFunc_arg_cnt;   /* arguments of the call, the function name not counted */
extern void *KaAv[DLL_MAX_ARGS]; /* what the function receives */
extern int32_t KaCv[DLL_MAX_ARGS];
extern const t_KIND_NAME KaArgTypeNames[]; /* ends with kind -1 */

/* Performs the call that the block describes. Returns the function's return code or one of ka/dll_codes.h. */
int32_t dll_main(void);
}

/* Prototype argi of the function being called. */
inline const t_DLL_PROTO *prototype(int32_t argi)
{
    return &KaArgList[KaFunc->arg_idx + argi];
}

inline int32_t next_prototype(int32_t argi)
{
    return wire::next_prototype(argi, prototype(argi)->type);
}

/* Makes slot from the argument by the conversion code. KA_OK or KA_NO_MEMORY. */
int32_t convert(int32_t code, const t_DLL_ARG &arg, int32_t slot);

/* Carries what the function left in slot back into the argument. KA_OK or KA_BAD_PROTOTYPE. */
int32_t give_back(const t_DLL_ARG &arg, int32_t slot);

/* buffers.cpp: frees what slot holds, or every slot, and clears it. */
void release_slot(int32_t slot);
void release_leftovers(void);

#endif
