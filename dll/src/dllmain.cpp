/* SPDX-License-Identifier: MIT
 *
 * What a function finds of its call: its arguments, the scratch area and the call-back. The only code of the host
 * that knows the block's layouts. */
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <string.h>

#include "annex.h"
#include "arithmetic.h"
#include "block.h"
#include "signals.h"
#include "wire/always_assert.h"
#include "wire/layout.h"

extern "C" {
int32_t dll_compat;
t_DLL_INFO *dll_info;
void *shm_addr;
int32_t shm_id;
}
size_t host::segment_bytes;

/* ---- The three layouts: one row each, one accessor for all ----------------------------------------------------- */

namespace {

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

const t_LAYOUT &layout(void)
{
    return row_in_force().layout;
}

char *at(uint32_t offset)
{
    return reinterpret_cast<char *>(dll_info) + offset;
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

/* ---- Replies and call-backs ------------------------------------------------------------------------------------ */

namespace {

/* A pid of 0 or below would name a group of processes or all of them: it counts as gone. */
bool signal_caller(bool callback)
{
    const int32_t pid = load32(at(wire::PID_AT));
    if (pid <= 0 || (host::is_stranger(pid) && kill(pid, 0) != 0)) return false;
    return host::tell_reply(callback) || kill(pid, SIGUSR2) == 0;
}

pthread_t callback_thread;   /* the one in dll_callback; the main thread after it */
int32_t callback_value;      /* the last one */
sigjmp_buf dll_callback_jmp; /* valid while dll_callback waits */

void call_back(bool waits_quietly)
{
    host::before_reply(waits_quietly);
    if (!signal_caller(true)) raise(SIGTERM);
}

/* A signal of somebody else can begin a call before its request is counted. Then that comes during the call-back, and
   is no answer; the caller, which could not know the call-back for one of its own, and has written over its value,
   hears of it now. */
void take_late_request(bool waits_quietly)
{
    host::take_request();
    store32(at(layout().cbval), callback_value);
    call_back(waits_quietly);
}

void dll_callback_handler(int signal)
{
    if (passed_on(signal, callback_thread)) return;
    if (__atomic_load_n(&host::ending, __ATOMIC_RELAXED) || must_wait(THIS_FRAME)) return;
    if (!host::has_request()) return;
    if (host::is_answer()) siglongjmp(dll_callback_jmp, 0);
    take_late_request(false);
}

/* The mask is that of the handler which an answer with a signal would have. On a thread of the module's the wait is
   for signals: the main thread can end the process meanwhile, and the block goes away. */
bool is_answered_quietly(bool on_main_thread)
{
    if (!on_main_thread || !host::may_come_quietly()) return false;
    sigset_t blocked = blocked_in_callback();
    sigaddset(&blocked, SIGUSR2);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
    while (host::await_quietly()) {
        if (host::is_answer()) return true;
        take_late_request(true);
    }
    return false;
}

} // namespace

bool reply(int32_t code)
{
    store32(at(layout().retcode), code);
    host::end_call();
    return signal_caller(false);
}

/* SIGUSR2 is blocked on entry and stays so up to the wait: an answer that comes early stays pending and is not lost.
 */
int32_t dll_callback(int32_t value)
{
    struct sigaction previous;             /* not changed after the jump point is set, so the jump does not lose it */
    const t_ARITHMETIC own = arithmetic(); /* the handler that is left by the jump began with the defaults */
    callback_value = value;
    store32(at(layout().cbval), value);
    callback_thread = pthread_self();
    install(SIGUSR2, dll_callback_handler, &previous);
    const bool on_main_thread = pthread_equal(callback_thread, host::main_thread) != 0;
    call_back(on_main_thread);

    /* KEPT: the jump leaves the mask of the answering handler in force, so from here on SIGUSR1 is not blocked until
       the call ends; a mask saved and restored would block it again. Test: Callback.leaves_sigusr1_unblocked. */
    if (!is_answered_quietly(on_main_thread) && sigsetjmp(dll_callback_jmp, 0) == 0) {
        const sigset_t blocked = blocked_in_callback();
        wait_for_signals(&blocked);
    }
    host::called_back = true;
    host::take_request();
    set_arithmetic(&own);
    sigaction(SIGUSR2, &previous, nullptr);
    callback_thread = host::main_thread;
    return load32(at(layout().retcode));
}
