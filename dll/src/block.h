/* SPDX-License-Identifier: MIT
 *
 * What the host keeps about the shared call block, set once at start and never changed afterwards; and its reply. */
#ifndef KA_BLOCK_H
#define KA_BLOCK_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "ka/dll_block.h"
#include "ka/dll_host.h"
#include "wire/layout.h"

#pragma GCC visibility push(hidden) /* read without a detour by way of the global offset table */
extern "C" {
extern int32_t dll_compat;   /* layout selector: 0, 64; 32 is understood by the accessors but never stored */
extern t_DLL_INFO *dll_info; /* the host's own address of the segment */
extern void *shm_addr;       /* the same, kept for detaching */
extern int32_t shm_id;       /* the segment identifier from the command line */
}

namespace host {
extern size_t segment_bytes; /* as the system says; 0: not known */
}
#pragma GCC visibility pop

namespace host {

/* The one in force. */
inline const t_LAYOUT &layout(void)
{
    return dll_compat == 0 || dll_compat == 32 ? wire::layout_32 : wire::layout_64;
}

/* A byte of the block. */
inline char *at(uint32_t offset)
{
    return reinterpret_cast<char *>(dll_info) + offset;
}

} // namespace host

/* What shmsz says. */
int32_t block_size(void);

/* Values in the block need not be aligned: they are loaded and stored by copying bytes. */
inline int32_t load32(const void *from)
{
    int32_t value;
    memcpy(&value, from, sizeof value);
    return value;
}

inline void store32(void *to, int32_t value)
{
    memcpy(to, &value, sizeof value);
}

/* Stores what dll_main returned, and signals the caller. False when the caller is gone. */
bool reply(int32_t code);

/* The host's address of element k of an argument. Distances wrap at 32 bits, as the block's own do, and are signed: a
   negative elsz leads backwards in a host of either word size. */
inline char *element(const t_DLL_ARG &arg, int32_t k)
{
    const auto distance = static_cast<int32_t>(static_cast<uint32_t>(k) * static_cast<uint32_t>(arg.elsz) * 4u);
    return reinterpret_cast<char *>(reinterpret_cast<uintptr_t>(arg.ptr) + static_cast<uintptr_t>(distance));
}

#endif
