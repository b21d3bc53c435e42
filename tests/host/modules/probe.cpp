// SPDX-License-Identifier: MIT
//
// A module that lets the test use the host's functions one by one. Its function serve takes any arguments and then
// performs commands that the test leaves in a mailbox in the segment (tests/host/probe.h), until one ends the call
// with a return code. So the caller can change the block between two accesses, which no ordinary call allows.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include "host/probe_mailbox.h"
#include "ka/dll_host.h"
#include "ka/dll_module.h"

#ifdef PROBE_SETS_LAYOUT
extern "C" int32_t dll_compat;
#endif

t_DLL_FUNC KaFuncList[] = {
    {"serve", 0, 1, nullptr},
    {nullptr, 0, 0, nullptr},
};

t_DLL_PROTO KaArgList[] = {
    {"arguments", KA_VARARG, 0},
};

namespace {

Mailbox *mailbox()
{
    void *const place = static_cast<char *>(u_get_baseptr()) + mailbox_offset;
    return static_cast<Mailbox *>(place);
}

// -1 for a null pointer, so that it differs from the segment's first byte.
int32_t offset_in_segment(const void *address)
{
    if (address == nullptr) return -1;
    return static_cast<int32_t>(static_cast<const char *>(address) - static_cast<const char *>(u_get_baseptr()));
}

void own_handler(int) {}

int32_t own_action(int install)
{
    static struct sigaction host;
    if (install == 0) return sigaction(SIGUSR2, &host, nullptr);
    struct sigaction own = {};
    own.sa_handler = own_handler;
    own.sa_flags = SA_NODEFER;
    sigemptyset(&own.sa_mask);
    sigaddset(&own.sa_mask, SIGHUP);
    return sigaction(SIGUSR2, &own, &host);
}

// 1: the action is the one that own_action installed, mask and flags included; 2: it is the host's kind; 0: neither.
int32_t action_now()
{
    struct sigaction now = {};
    sigaction(SIGUSR2, nullptr, &now);
    const int flags = now.sa_flags & (SA_NODEFER | SA_RESTART | SA_SIGINFO | SA_RESETHAND | SA_ONSTACK);
    int members = 0;
    for (int signal = 1; signal <= 64; signal++) {
        if (sigismember(&now.sa_mask, signal) == 1) members++;
    }
    if (now.sa_handler == own_handler) {
        return flags == SA_NODEFER && members == 1 && sigismember(&now.sa_mask, SIGHUP) == 1 ? 1 : 0;
    }
    return now.sa_handler != SIG_DFL && now.sa_handler != SIG_IGN && flags == SA_RESTART && members == 0 ? 2 : 0;
}

volatile sig_atomic_t handled;

// Takes some microseconds, so that other signals have a chance to arrive inside.
void counting_handler(int)
{
    for (int i = 0; i < 5000; i++)
        __asm__ volatile("");
    handled = handled + 1;
    __atomic_store_n(&mailbox()->handled, handled, __ATOMIC_RELEASE);
}

sigset_t handler_mask; // all zero: empty
int handler_flags;

int32_t set_handler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_mask = handler_mask;
    action.sa_flags = handler_flags;
    return sigaction(signal, &action, nullptr);
}

int32_t change_mask(int how, int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return sigprocmask(how, &set, nullptr);
}

uint64_t mask_bits(const sigset_t &set)
{
    uint64_t bits = 0;
    memcpy(&bits, &set, sizeof bits);
    return bits;
}

uint64_t mask_now()
{
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    return mask_bits(now);
}

int32_t set_stack(int32_t size)
{
    static char memory[65536];
    stack_t stack = {};
    stack.ss_sp = memory;
    stack.ss_size = static_cast<size_t>(size);
    stack.ss_flags = size == 0 ? SS_DISABLE : 0;
    return sigaltstack(&stack, nullptr);
}

int32_t stack_now()
{
    stack_t stack = {};
    sigaltstack(nullptr, &stack);
    const auto size = static_cast<int32_t>(stack.ss_size);
    return stack.ss_flags < 0 ? -size : size; // the flag of disarming is the highest
}

// As the kernel has saved them; the two word sizes have different records.
void look_at_arithmetic(const ucontext_t &context, Interrupted &seen)
{
#ifdef __x86_64__
    seen.x87 = context.uc_mcontext.fpregs->cwd;
    seen.sse = context.uc_mcontext.fpregs->mxcsr;
#else
    const auto *saved = reinterpret_cast<const _fpstate *>(context.uc_mcontext.fpregs);
    seen.x87 = saved->cw & 0xffff;
    seen.sse = saved->mxcsr;
#endif
}

// Takes some microseconds, too.
void looking_handler(int, siginfo_t *, void *context)
{
    const auto &interrupted = *static_cast<const ucontext_t *>(context);
    Interrupted &seen = mailbox()->interrupted;
    stack_t stack = {};
    sigaltstack(nullptr, &stack);
    seen.mask = mask_bits(interrupted.uc_sigmask);
    seen.on_alternate_stack = (stack.ss_flags & SS_ONSTACK) != 0 ? 1 : 0;
    seen.alternate_stack = static_cast<int32_t>(interrupted.uc_stack.ss_size);
    look_at_arithmetic(interrupted, seen);
    for (int i = 0; i < 5000; i++)
        __asm__ volatile("");
    seen.mask_at_end = mask_now();
    __atomic_add_fetch(&seen.times, 1, __ATOMIC_RELEASE);
}

int32_t look(int signal)
{
    struct sigaction action = {};
    action.sa_sigaction = looking_handler;
    action.sa_mask = handler_mask;
    action.sa_flags = SA_SIGINFO | handler_flags;
    return sigaction(signal, &action, nullptr);
}

int32_t set_rounding(int32_t x87)
{
    const auto word = static_cast<unsigned short>(x87);
    __asm__ volatile("fld1; fldpi; fdivrp; fstp %%st(0); fldcw %0" : : "m"(word));
    return 0;
}

int32_t look_at_own_arithmetic(int32_t *out)
{
    uint16_t control = 0;
    uint16_t status = 0;
    uint32_t sse = 0;
    __asm__ volatile("fnstcw %0; fnstsw %1; stmxcsr %2" : "=m"(control), "=m"(status), "=m"(sse));
    out[1] = status;
    out[2] = static_cast<int32_t>(sse);
    return control;
}

struct sigaction wrapped;

void wrapping_handler(int signal)
{
    mailbox()->handled++;
    wrapped.sa_handler(signal);
    mailbox()->handled++;
}

// Around a handler that is given more.
void wrapping_handler_with_information(int signal, siginfo_t *info, void *context)
{
    mailbox()->handled++;
    wrapped.sa_sigaction(signal, info, context);
    mailbox()->handled++;
}

int32_t wrap()
{
    sigaction(SIGUSR2, nullptr, &wrapped);
    struct sigaction own = wrapped;
    if ((own.sa_flags & SA_SIGINFO) != 0) {
        own.sa_sigaction = wrapping_handler_with_information;
    } else {
        own.sa_handler = wrapping_handler;
    }
    return sigaction(SIGUSR2, &own, nullptr);
}

// Leaves out the flag that the C library uses for itself.
int32_t is_default(int signal)
{
    struct sigaction now = {};
    sigaction(signal, nullptr, &now);
    int members = 0;
    for (int other = 1; other <= 64; other++) {
        if (sigismember(&now.sa_mask, other) == 1) members++;
    }
    return now.sa_handler == SIG_DFL && members == 0 && (now.sa_flags & ~0x04000000) == 0 ? 1 : 0;
}

void *callback_of_thread(void *value)
{
    int32_t *const number = static_cast<int32_t *>(value);
    *number = dll_callback(*number);
    return nullptr;
}

int32_t status_of_child(int status, int signal)
{
    const pid_t child = fork();
    if (child == 0) {
        if (signal != 0) raise(signal);
        _exit(status);
    }
    int ended = 0;
    if (waitpid(child, &ended, 0) != child || !WIFEXITED(ended)) return -1;
    return WEXITSTATUS(ended);
}

void *fork_of_thread(void *value)
{
    int32_t *const number = static_cast<int32_t *>(value);
    *number = status_of_child(99, *number);
    return nullptr;
}

int32_t in_thread(void *(*work)(void *), int32_t value)
{
    pthread_t thread;
    if (pthread_create(&thread, nullptr, work, &value) != 0) return -1;
    pthread_join(thread, nullptr);
    return value;
}

int32_t write_to(int descriptor, const char *character)
{
    return write(descriptor, character, 1) == 1 ? 0 : errno;
}

int32_t write_much(int32_t count)
{
    for (int32_t i = 0; i < count; i++)
        write_to(STDERR_FILENO, "m");
    return count;
}

// The low half, and the high one at the place that is named.
int32_t copy_address(const void *address, int32_t *high)
{
    const uint64_t number = reinterpret_cast<uintptr_t>(address);
    *high = static_cast<int32_t>(number >> 32);
    return static_cast<int32_t>(number);
}

int32_t copy_argument(const t_DLL_ARG &arg, int32_t *out)
{
    out[1] = arg.ref;
    out[2] = offset_in_segment(arg.ptr);
    out[3] = arg.maxlen;
    out[4] = arg.elsz;
    out[5] = arg.elcnt;
    out[6] = copy_address(arg.ptr, &out[7]);
    return arg.type;
}

// Returns the first result; an argument has more of them.
int32_t perform(int32_t command, int32_t value, int32_t *out)
{
    switch (command) {
    case PROBE_BASE:
        return offset_in_segment(u_get_baseptr());
    case PROBE_ARGC:
        return u_get_argc();
    case PROBE_ARG:
        return copy_argument(u_get_arg(value), out);
    case PROBE_UNREF:
        return u_unref_arg(value);
    case PROBE_SCRATCH:
        return offset_in_segment(dll_scratch(value));
    case PROBE_CALLBACK:
        return dll_callback(value);
    case PROBE_OWN_ACTION:
        return own_action(value);
    case PROBE_ACTION_NOW:
        return action_now();
    case PROBE_WRITE:
        return write_to(value, "x");
    case PROBE_WRITE_MUCH:
        return write_much(value);
    case PROBE_RAISE:
        return raise(value);
    case PROBE_ADDRESS:
        return copy_address(u_get_baseptr(), &out[1]);
    case PROBE_BLOCK:
        return change_mask(SIG_BLOCK, value);
    case PROBE_UNBLOCK:
        return change_mask(SIG_UNBLOCK, value);
    case PROBE_FLAGS:
        return handler_flags = value;
    case PROBE_LOOK:
        return look(value);
    case PROBE_SET_STACK:
        return set_stack(value);
    case PROBE_STACK_NOW:
        return stack_now();
    case PROBE_ROUNDING:
        return set_rounding(value);
    case PROBE_ARITHMETIC:
        return look_at_own_arithmetic(out);
    case PROBE_WRAP:
        return wrap();
    case PROBE_IGNORE:
        return set_handler(value, SIG_IGN);
    case PROBE_HANDLE:
        return set_handler(value, counting_handler);
    case PROBE_HANDLED:
        return handled;
    case PROBE_MASK:
        return sigaddset(&handler_mask, value);
    case PROBE_DEFAULT:
        return is_default(value);
    case PROBE_FORK:
        return status_of_child(value, 0);
    case PROBE_CALLBACK_IN_THREAD:
        return in_thread(callback_of_thread, value);
    case PROBE_FORK_IN_THREAD:
        return in_thread(fork_of_thread, value);
    case PROBE_KILL:
        return kill(value, 0);
#ifdef PROBE_SETS_LAYOUT
    case PROBE_LAYOUT:
        return dll_compat = value;
#endif
    default:
        return -1;
    }
}

int32_t serve()
{
    Mailbox *box = mailbox();
    for (;;) {
        while (__atomic_load_n(&box->state, __ATOMIC_ACQUIRE) != MAILBOX_FULL) {
            const timespec pause = {0, 100000};
            nanosleep(&pause, nullptr);
        }
        if (box->command == PROBE_RETURN) {
            const int32_t code = box->value;
            __atomic_store_n(&box->state, MAILBOX_EMPTY, __ATOMIC_RELEASE);
            return code;
        }
        box->out[0] = perform(box->command, box->value, box->out);
        __atomic_store_n(&box->state, MAILBOX_DONE, __ATOMIC_RELEASE);
    }
}

// Before main: PROBE_OPEN_MAX=n lowers the limit on descriptors to a value with which no program could be loaded.
__attribute__((constructor)) void lower_limit()
{
    const char *text = getenv("PROBE_OPEN_MAX");
    if (text == nullptr) return;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = strtoul(text, nullptr, 10);
    setrlimit(RLIMIT_NOFILE, &limit);
}

// Before main: PROBE_HANDLES=n installs a handler for signal n, with a mask and flags.
__attribute__((constructor)) void install_early()
{
    const char *text = getenv("PROBE_HANDLES");
    if (text == nullptr) return;
    struct sigaction action = {};
    action.sa_handler = counting_handler;
    action.sa_flags = SA_NODEFER | SA_ONSTACK;
    sigaddset(&action.sa_mask, SIGWINCH);
    sigaction(static_cast<int>(strtol(text, nullptr, 10)), &action, nullptr);
}

} // namespace

int32_t KaCall(int32_t, void **)
{
    return serve();
}
