/* SPDX-License-Identifier: MIT
 *
 * Where the fields of the shared block are, for both of its layouts: the host, the caller and the tools read it here.
 */
#ifndef KA_WIRE_LAYOUT_H
#define KA_WIRE_LAYOUT_H

#include "ka/dll_block.h"

struct t_LAYOUT {
    uint8_t base, retcode, shmsz, scratch, cbval, argc, args; /* offsets in the header */
    uint8_t arg_size;                                         /* of a descriptor */
    uint8_t arg_counts;   /* offset in it of maxlen, elsz and elcnt, one after the other */
    uint8_t address_size; /* bytes of an address */
};

namespace wire {

#define LAYOUT(info, arg)                                                                                          \
    {                                                                                                              \
        offsetof(info, base), offsetof(info, retcode), offsetof(info, shmsz), offsetof(info, scratch),             \
            offsetof(info, cbval), offsetof(info, argc), offsetof(info, args), sizeof(arg), offsetof(arg, maxlen), \
            sizeof(info::scratch)                                                                                  \
    }
inline constexpr t_LAYOUT layout_32 = LAYOUT(t_DLL_INFO32, t_DLL_ARG32);
inline constexpr t_LAYOUT layout_64 = LAYOUT(t_DLL_INFO64, t_DLL_ARG64);
#undef LAYOUT

/* The fields that have the same offset in both. */
enum : int32_t {
    MAGIC_SIZE = sizeof(t_DLL_INFO32::magic),
    VERSION_AT = offsetof(t_DLL_INFO32, version),
    PID_AT = offsetof(t_DLL_INFO32, pid),
    ARG_TYPE_AT = offsetof(t_DLL_ARG32, type), /* in a descriptor */
    ARG_REF_AT = offsetof(t_DLL_ARG32, ref),
    ARG_PTR_AT = offsetof(t_DLL_ARG32, ptr)
};
static_assert(VERSION_AT == offsetof(t_DLL_INFO64, version) && PID_AT == offsetof(t_DLL_INFO64, pid));
static_assert(ARG_TYPE_AT == offsetof(t_DLL_ARG64, type) && ARG_REF_AT == offsetof(t_DLL_ARG64, ref));
static_assert(offsetof(t_DLL_ARG32, elsz) == offsetof(t_DLL_ARG32, maxlen) + 4);
static_assert(offsetof(t_DLL_ARG32, elcnt) == offsetof(t_DLL_ARG32, maxlen) + 8);
static_assert(offsetof(t_DLL_ARG64, elsz) == offsetof(t_DLL_ARG64, maxlen) + 4);
static_assert(offsetof(t_DLL_ARG64, elcnt) == offsetof(t_DLL_ARG64, maxlen) + 8);
static_assert(ARG_PTR_AT == offsetof(t_DLL_ARG64, ptr));

} // namespace wire

#endif
