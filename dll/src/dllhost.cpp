/* SPDX-License-Identifier: MIT
 *
 * The host process: start, the wait for signals, the handler that performs a call and answers the caller, the end.
 * Every call runs to its end inside the handler of SIGUSR2, on the main thread; a module may have threads of its own.
 */
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>

#include "annex.h"
#include "block.h"
#include "call.h"
#include "inherited.h"
#include "ka/dll_codes.h"
#include "ka/dll_module.h"
#include "signals.h"

/* ---- Start ----------------------------------------------------------------------------------------------------- */

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

/* A number out of range is the nearest one of 32 bits, in a host of either word size. */
int32_t read_number(const char *text)
{
    const long number = strtol(text, nullptr, 10);
    return number > INT32_MAX ? INT32_MAX : number < INT32_MIN ? INT32_MIN : static_cast<int32_t>(number);
}

void read_arguments(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "%s: Illegal call\n", argv[0]);
        exit(KA_EXIT_START);
    }
    /* KEPT: text without digits is 0, here and behind the colon: "x1:" asks for segment 0 in layout 0, and is not
       an illegal argument. Test: CommandLine.text_without_digits_is_identifier_0_and_fails_to_attach. */
    shm_id = read_number(argv[1]);
    dll_compat = 0;
    const char *colon = strchr(argv[1], ':');
    if (colon == nullptr) return;
    const int32_t suffix = read_number(colon + 1);
    if ((suffix & ~32) == 0) return; /* 0 and 32 */
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
    struct shmid_ds segment;
    if (shmctl(shm_id, IPC_STAT, &segment) == 0) host::segment_bytes = segment.shm_segsz;
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

/* ---- Calls and the end ----------------------------------------------------------------------------------------- */

/* Returns only where dll_cleanup itself has let SIGTERM in once more. */
[[gnu::noinline]] void end_host(void)
{
    if (__atomic_exchange_n(&host::ending, true, __ATOMIC_RELAXED)) return;
    /* The block goes away: a call signal that comes now must not find it gone. */
    sigset_t calls;
    sigemptyset(&calls);
    sigaddset(&calls, SIGUSR2);
    sigprocmask(SIG_BLOCK, &calls, nullptr);

    host::leave_annex();
    shmdt(shm_addr);
    cleanup();
    exit(0);
}

void perform_call(bool then_waits_quietly)
{
    host::begin_call();
    const int32_t code = dll_main();
    host::before_reply(then_waits_quietly);
    if (!reply(code)) raise(SIGTERM);
}

/* Context: the frame of the handler, or what a handler with more arguments is given; null where that is another's. */
template <typename T_CONTEXT>
[[gnu::noinline]] void take_call(const T_CONTEXT *context)
{
    const bool from_wait = context != nullptr && comes_from_wait(interrupted_by(context));
    perform_call(from_wait);
    if (from_wait) jump_to_wait();
}

/* SIGTERM is never blocked: the end can come nested inside a call. */
void signal_handler(int signal)
{
    if (passed_on(signal, host::main_thread)) return;
    if (signal == SIGTERM) return end_host();
    if (!must_wait(THIS_FRAME)) take_call(THIS_FRAME);
}

/* With an annex it is known which signals of the caller bring nothing. All others do what they do without one. */
void call_handler(int signal, siginfo_t *info, void *context)
{
    if (host::is_leftover(info->si_pid) || passed_on(signal, host::main_thread)) return;
    const auto *interrupted = static_cast<const ucontext_t *>(context);
    if (must_wait(interrupted)) return;
    take_call(IS_CALLED_BY_KERNEL(interrupted) ? interrupted : nullptr);
}

void install_with_information(int signal, void (*handler)(int, siginfo_t *, void *))
{
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_RESTART | SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

/* Without an annex the action is as every caller knows it. */
void install_call_handler(void)
{
    if (host::has_annex())
        install_with_information(SIGUSR2, call_handler);
    else
        install(SIGUSR2, signal_handler, nullptr);
}

/* The module may have taken the signal for itself, or ignore it. */
bool calls_are_the_hosts(void)
{
    struct sigaction now = {};
    sigaction(SIGUSR2, nullptr, &now);
    uint64_t mask; /* of the larger set no more is filled in */
    memcpy(&mask, &now.sa_mask, sizeof mask);
    const auto flags = static_cast<uint32_t>(now.sa_flags);
    const bool is_plain = mask == 0 && (flags & (SA_NODEFER | SA_RESETHAND | SA_ONSTACK)) == 0;
    return is_plain && (flags & SA_SIGINFO) != 0 && now.sa_sigaction == call_handler;
}

/* What is not the host's goes the way that the signal would have gone. */
void perform_quiet_calls(void)
{
    if (!host::may_come_quietly()) return;
    prepare_quiet_calls();
    while (host::await_quietly()) {
        if (!calls_are_the_hosts()) return host::turn_into_signal();
        begin_quiet_call();
        if (host::has_request()) perform_call(true); /* a signal in a handler of the module's may have begun it */
        end_quiet_call();
    }
}

} // namespace

KA_API int main(int argc, char **argv)
{
    host::main_thread = pthread_self();
    read_arguments(argc, argv);

    const sigset_t blocked = blocked_at_start();
    sigprocmask(SIG_BLOCK, &blocked, nullptr);

    reset_signals();
    close_inherited();
    attach_block();
    host::find_annex(shm_addr, block_size(), host::segment_bytes);
    cleanup = find_hook("dll_cleanup", dll_cleanup);
    find_hook("dll_setup", dll_setup)();
    install(SIGTERM, signal_handler, nullptr);
    host::offer_annex();
    install_call_handler();

    wait_for_calls(perform_quiet_calls);
}
