/* SPDX-License-Identifier: MIT
 *
 * The host process: start, the wait for signals, the handler that performs a call and answers the caller, the end.
 * And the only code that knows the block's layouts: argument access, scratch area and call-back. Every call runs to
 * its end inside the handler of SIGUSR2, on the main thread; a module may have threads of its own. */
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <unistd.h>

#include "arithmetic.h"
#include "block.h"
#include "call.h"
#include "inherited.h"
#include "ka/dll_codes.h"
#include "ka/dll_module.h"
#include "wire/always_assert.h"
#include "wire/layout.h"

extern "C" {
int32_t dll_compat;
t_DLL_INFO *dll_info;
void *shm_addr;
int32_t shm_id;
}

/* ---- The three layouts: one row each, one accessor for all ------------------------------------------------------
 */

namespace {

/* What the host does with a layout, beside the offsets. */
struct t_ROW {
    t_LAYOUT layout;
    bool translates_ptr;    /* see row_32 */
    const char *range_text; /* what a failed address check prints */
};

/* In a 32-bit program the native layout is layout 32. */
static_assert(sizeof(t_DLL_INFO) == sizeof(t_DLL_INFO32));
constexpr t_ROW row_native = {wire::layout_32, true, "ofs >= 0 && ofs < dll_info->shmsz"};
/* KEPT: with this layout an argument's ptr is handed on as stored, neither translated nor checked, although the
   scratch address is both. Test: Layout32.u_get_arg_hands_ptr_on_as_stored. */
constexpr t_ROW row_32 = {wire::layout_32, false, "ofs >= 0 && ofs < ((t_DLL_INFO32 *)dll_info)->shmsz"};
/* KEPT: a scratch field counts as empty only when all 8 bytes are zero, although only 4 are translated.
   Test: Scratch.layout_64_is_present_when_only_the_high_half_is_set. */
constexpr t_ROW row_64 = {wire::layout_64, true, "ofs >= 0 && ofs < ((t_DLL_INFO64 *)dll_info)->shmsz"};

const t_ROW &row_in_force(void)
{
    if (dll_compat == 0) return row_native;
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

/* ---- Argument access --------------------------------------------------------------------------------------------
 */

void *u_get_baseptr(void)
{
    return dll_info;
}

int32_t u_get_argc(void)
{
    return load32(at(layout().argc));
}

t_DLL_ARG u_get_arg(int32_t i)
{
    const t_ROW &row = row_in_force();
    t_DLL_ARG arg = {};
    if (!has_descriptor(row.layout, i)) return arg;
    const char *from = descriptor(row.layout, i);
    const uint32_t ptr = static_cast<uint32_t>(load32(from + wire::ARG_PTR_AT));
    arg.type = load32(from + wire::ARG_TYPE_AT);
    arg.ref = load32(from + wire::ARG_REF_AT);
    arg.ptr = row.translates_ptr ? at(static_cast<uint32_t>(offset_of(row, ptr, "u_get__arg")))
                                 : reinterpret_cast<void *>(static_cast<uintptr_t>(ptr));
    const char *counts = from + row.layout.arg_counts;
    arg.maxlen = load32(counts);
    arg.elsz = load32(counts + 4);
    arg.elcnt = load32(counts + 8);
    return arg;
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

/* ---- Signals to the caller --------------------------------------------------------------------------------------
 */

namespace {

/* False when the caller is gone. A pid of 0 or below would name a group of processes or all of them: it counts as
   gone. */
bool signal_caller(void)
{
    const int32_t pid = load32(at(wire::PID_AT));
    return pid > 0 && kill(pid, SIGUSR2) == 0;
}

pthread_t main_thread;     /* set when main begins */
pthread_t callback_thread; /* the one in dll_callback; the main thread while nobody is */
bool ending;               /* the block is going, or gone */

/* The kernel delivers a signal of the process to any thread that lets it in. True: this was the wrong one, and the
   right one has the signal now. (After a fork in a thread there is no right one: then the thread at hand acts.) */
bool passed_on(int signal, pthread_t owner)
{
    return pthread_equal(pthread_self(), owner) == 0 && pthread_kill(owner, signal) == 0;
}

/* What the kernel puts above the return address of a handler installed without SA_SIGINFO; interrupted.oldmask holds
   signals 1 to 32 of the mask that comes into force when the handler returns. (On 64-bit x86 it is a ucontext_t.) */
struct t_FRAME {
    int signal;
    struct sigcontext interrupted;
};

/* The frame of the handler that says this. Two rules keep it the kernel's: the handler itself has no local variable
   that needs an address (the compiler may realign the stack for one, and then points elsewhere), and one argument
   (the compiler may use an argument's place for its own ends, and never touches what lies behind the last one). */
#define THIS_FRAME static_cast<const t_FRAME *>(__builtin_dwarf_cfa())

/* Whether SIGTERM is blocked in a handler of SIGUSR2, which no wait does: the handler is then on top of another one.
   For a handler that interrupts the wait itself the frame has the mask from before the wait. So without SIGTERM in
   the frame there is none, and no system call is spent on the question; with it, a module may have blocked it itself.
 */
[[gnu::noinline]] bool sigterm_is_blocked(const t_FRAME *frame)
{
    if ((frame->interrupted.oldmask >> (SIGTERM - 1) & 1) == 0) return false;
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    return sigismember(&now, SIGTERM) == 1;
}

bool put_off; /* a SIGUSR2 waits until the handler that it interrupted has returned */

/* On top of a handler that blocks SIGTERM a signal is not acted upon. If it is the host's own, the end goes on; if it
   is one of the module's, it comes back to the wait, which raises the signal anew. */
bool must_wait(const t_FRAME *frame)
{
    if (!sigterm_is_blocked(frame)) return false;
    __atomic_store_n(&put_off, true, __ATOMIC_RELAXED);
    return true;
}

sigjmp_buf dll_callback_jmp; /* valid while dll_callback waits */

void dll_callback_handler(int signal)
{
    if (passed_on(signal, callback_thread)) return;
    if (__atomic_load_n(&ending, __ATOMIC_RELAXED) || must_wait(THIS_FRAME)) return;
    siglongjmp(dll_callback_jmp, 0);
}

void install(int signal, void (*handler)(int), struct sigaction *previous)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, previous);
}

/* Lets signals in, except those of blocked, for as long as it takes. */
[[noreturn]] void wait_for_signals(const sigset_t *blocked)
{
    for (;;) {
        sigsuspend(blocked);
        if (__atomic_exchange_n(&put_off, false, __ATOMIC_RELAXED)) raise(SIGUSR2);
    }
}

} // namespace

/* SIGUSR2 is blocked on entry and stays so up to the wait: an answer that comes early stays pending and is not lost.
 */
int32_t dll_callback(int32_t value)
{
    struct sigaction previous;             /* not changed after the jump point is set, so the jump does not lose it */
    const t_ARITHMETIC own = arithmetic(); /* the handler that is left by the jump began with the defaults */
    store32(at(layout().cbval), value);
    callback_thread = pthread_self();
    install(SIGUSR2, dll_callback_handler, &previous);
    if (!signal_caller()) raise(SIGTERM);

    /* KEPT: the jump leaves the mask of the answering handler in force, so from here on SIGUSR1 is not blocked until
       the call ends; a mask saved and restored would block it again. Test: Callback.leaves_sigusr1_unblocked. */
    if (sigsetjmp(dll_callback_jmp, 0) == 0) {
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, SIGINT);
        sigaddset(&blocked, SIGIO);
        sigaddset(&blocked, SIGALRM);
        wait_for_signals(&blocked);
    }
    set_arithmetic(&own);
    sigaction(SIGUSR2, &previous, nullptr);
    callback_thread = main_thread;
    return load32(at(layout().retcode));
}

/* ---- Start ------------------------------------------------------------------------------------------------------
 */

/* A module's own hooks take the place of these. They are looked up by name at start: a direct call could be bound to
   these empty ones inside the library, whatever the module defines (-Bsymbolic-functions does so). */
__attribute__((weak)) void dll_setup(void) {}
__attribute__((weak)) void dll_cleanup(void) {}

namespace {

using t_HOOK = void (*)(void);

/* Where the host is linked statically no symbol table names the hook, and the linker has already chosen. */
t_HOOK find_hook(const char *name, t_HOOK linked)
{
    void *found = dlsym(RTLD_DEFAULT, name);
    return found != nullptr ? reinterpret_cast<t_HOOK>(found) : linked;
}

t_HOOK cleanup; /* found at start, because a signal handler may not ask the dynamic linker */

void read_arguments(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "%s: Illegal call\n", argv[0]);
        exit(KA_EXIT_START);
    }
    shm_id = static_cast<int32_t>(strtol(argv[1], nullptr, 10));
    dll_compat = 0;
    const char *colon = strchr(argv[1], ':');
    if (colon == nullptr) return;
    const long suffix = strtol(colon + 1, nullptr, 10);
    if ((suffix & ~32L) == 0) return; /* 0 and 32: the native layout has the offsets of layout 32 */
    if (suffix != 64) {
        fprintf(stderr, "%s: Illegal argument: %s\n", argv[0], argv[1]);
        exit(KA_EXIT_START);
    }
    dll_compat = 64;
}

/* Signals of these sets, as bits of their number: what the caller arranged stays, what a crash needs is reset even
   when it was inherited as ignored. */
constexpr uint32_t untouched_signals = 1u << SIGKILL | 1u << SIGUSR2 | 1u << SIGTERM | 1u << SIGSTOP;
constexpr uint32_t fault_signals = 1u << SIGILL | 1u << SIGTRAP | 1u << SIGBUS | 1u << SIGSEGV;
static_assert(untouched_signals == 0x89200 && fault_signals == 0x8b0);

bool in_set(uint32_t set, int signal)
{
    return signal < 20 && (set >> signal & 1) != 0;
}

/* Results are ignored: the C library keeps two signals for itself. */
void reset_signals(void)
{
    for (int signal = 1; signal <= 64; signal++) {
        if (in_set(untouched_signals, signal)) continue;
        struct sigaction action = {};
        if (!in_set(fault_signals, signal)) {
            sigaction(signal, nullptr, &action);
            if (action.sa_handler == SIG_IGN) continue;
        }
        action = {};
        action.sa_handler = SIG_DFL;
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

void attach_block(void)
{
    shm_addr = shmat(shm_id, nullptr, 0);
    if (shm_addr == reinterpret_cast<void *>(-1)) {
        perror("shmat");
        exit(KA_EXIT_START);
    }
    dll_info = static_cast<t_DLL_INFO *>(shm_addr);
    if (memcmp(dll_info->magic, DLL_MAGIC, sizeof dll_info->magic) != 0) {
        fputs("Bad DLL_MAGIC\n", stderr);
        exit(KA_EXIT_START);
    }
    if (dll_info->version != DLL_VERSION) {
        fprintf(stderr, "Unsupported DLL_VERSION %x\n", static_cast<unsigned>(dll_info->version));
        exit(KA_EXIT_START);
    }
}

/* ---- Calls and the end ------------------------------------------------------------------------------------------
 */

/* Returns only where dll_cleanup itself has let SIGTERM in once more. */
[[gnu::noinline]] void end_host(void)
{
    if (__atomic_exchange_n(&ending, true, __ATOMIC_RELAXED)) return;
    /* The block goes away: a call signal that comes now must not find it gone. */
    sigset_t calls;
    sigemptyset(&calls);
    sigaddset(&calls, SIGUSR2);
    sigprocmask(SIG_BLOCK, &calls, nullptr);

    shmdt(shm_addr);
    cleanup();
    exit(0);
}

[[gnu::noinline]] void perform_call(void)
{
    const int32_t code = dll_main();
    store32(at(layout().retcode), code);
    if (!signal_caller()) raise(SIGTERM);
}

/* SIGTERM is never blocked: the end can come nested inside a call. */
void signal_handler(int signal)
{
    if (passed_on(signal, main_thread)) return;
    if (signal == SIGTERM) return end_host();
    if (!must_wait(THIS_FRAME)) perform_call();
}

} // namespace

KA_API int main(int argc, char **argv)
{
    main_thread = callback_thread = pthread_self();
    read_arguments(argc, argv);

    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGUSR2);
    sigaddset(&blocked, SIGIO);
    sigaddset(&blocked, SIGALRM);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);

    reset_signals();
    close_inherited();
    attach_block();
    cleanup = find_hook("dll_cleanup", dll_cleanup);
    find_hook("dll_setup", dll_setup)();
    install(SIGTERM, signal_handler, nullptr);
    install(SIGUSR2, signal_handler, nullptr);

    sigdelset(&blocked, SIGUSR2);
    sigdelset(&blocked, SIGTERM);
    wait_for_signals(&blocked);
}
