/* SPDX-License-Identifier: MIT
 *
 * What a function finds of its call: its arguments and the scratch area; and how the host treats the addresses of
 * each layout. */
#include <string.h>

#include "block.h"
#include "wire/always_assert.h"

extern "C" {
int32_t dll_compat;
t_DLL_INFO *dll_info;
void *shm_addr;
int32_t shm_id;
}
size_t host::segment_bytes;

/* ---- The three layouts: one row each, one accessor for all ----------------------------------------------------- */

namespace {

using host::at;
using host::layout;

/* A layout, beside the offsets: how the host treats its addresses. */
struct t_ROW {
    t_LAYOUT layout;
    bool translates_ptr;    /* see row_32 */
    const char *range_text; /* what a failed address check prints */
};

/* The suffix of the command line alone names the layout: a caller need not know for which word size a module was
   built. 32 bits of an address are enough in a host of either word size, since addresses count by their distance from
   base. */
constexpr t_ROW row_0 = {wire::layout_32, true, "ofs >= 0 && ofs < dll_info->shmsz"};
/* KEPT: with this layout an argument's ptr is handed on as stored, neither translated nor checked, although the
   scratch address is both. Test: Layout32.u_get_arg_hands_ptr_on_as_stored. */
constexpr t_ROW row_32 = {wire::layout_32, false, "ofs >= 0 && ofs < ((t_DLL_INFO32 *)dll_info)->shmsz"};
/* KEPT: a scratch field counts as empty only when all 8 bytes are zero, although only 4 are translated.
   Test: Scratch.layout_64_is_present_when_only_the_high_half_is_set. */
constexpr t_ROW row_64 = {wire::layout_64, true, "ofs >= 0 && ofs < ((t_DLL_INFO64 *)dll_info)->shmsz"};

const t_ROW &row_in_force(void)
{
    if (dll_compat == 0) return row_0;
    return dll_compat == 32 ? row_32 : row_64;
}

/* Descriptor i of the layout in force. The caller has checked i against argc; argc itself is trusted. */
char *descriptor(const t_LAYOUT &in_force, int32_t i)
{
    return at(in_force.args + static_cast<uint32_t>(i) * in_force.arg_size);
}

bool has_descriptor(const t_LAYOUT &in_force, int32_t i)
{
    return i >= 0 && i < load32(at(in_force.argc));
}

/* An address of the caller's as an offset in the segment; anything outside ends the process. */
int32_t offset_of(const t_ROW &row, uint32_t address, const char *function)
{
    const int32_t ofs = static_cast<int32_t>(address - static_cast<uint32_t>(load32(at(row.layout.base))));
    if (ofs < 0 || ofs >= load32(at(row.layout.shmsz)))
        always_assert_fail(row.range_text, "dll/src/dllmain", __LINE__, function);
    return ofs;
}

} // namespace

int32_t block_size(void)
{
    return load32(at(layout().shmsz));
}

/* ---- Argument access ------------------------------------------------------------------------------------------- */

void *u_get_baseptr(void)
{
    return dll_info;
}

int32_t u_get_argc(void)
{
    return load32(at(layout().argc));
}

/* Once for each row, which is known to the compiler: an argument is read twice in every call. */
template <const t_ROW &row>
static t_DLL_ARG get_arg(int32_t i)
{
    if (!has_descriptor(row.layout, i)) return {};
    const char *from = descriptor(row.layout, i);
    const uint32_t ptr = static_cast<uint32_t>(load32(from + wire::ARG_PTR_AT));
    void *const own = row.translates_ptr ? at(static_cast<uint32_t>(offset_of(row, ptr, "u_get__arg")))
                                         : reinterpret_cast<void *>(static_cast<uintptr_t>(ptr));
    const char *counts = from + row.layout.arg_counts;
    return {load32(from + wire::ARG_TYPE_AT),
            load32(from + wire::ARG_REF_AT),
            own,
            load32(counts),
            load32(counts + 4),
            load32(counts + 8)};
}

t_DLL_ARG u_get_arg(int32_t i)
{
    if (dll_compat == 0) return get_arg<row_0>(i);
    return dll_compat == 32 ? get_arg<row_32>(i) : get_arg<row_64>(i);
}

int32_t u_unref_arg(int32_t i)
{
    const t_LAYOUT &in_force = layout();
    if (!has_descriptor(in_force, i)) return -1;
    store32(descriptor(in_force, i) + wire::ARG_REF_AT, 0);
    return 0;
}

void *dll_scratch(int32_t size)
{
    static const char none[sizeof(uint64_t)] = {};
    const t_ROW &row = row_in_force();
    if (memcmp(at(row.layout.scratch), none, row.layout.address_size) == 0) return nullptr;
    const int32_t ofs = offset_of(row, static_cast<uint32_t>(load32(at(row.layout.scratch))), "dll_scratch");
    if (load32(at(row.layout.shmsz)) - ofs < size) return nullptr;
    return at(static_cast<uint32_t>(ofs));
}
