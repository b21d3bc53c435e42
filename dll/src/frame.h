/* SPDX-License-Identifier: MIT
 *
 * What the kernel puts on the stack for a handler installed without SA_SIGINFO, above its return address: the state
 * that the signal interrupted, which comes into force again when the handler returns. It is only read. */
#ifndef KA_FRAME_H
#define KA_FRAME_H

#include <signal.h>
#include <stdint.h>
#include <ucontext.h>

/* The frame of the handler that says this. Two rules keep it the kernel's: the handler itself has no local variable
   that needs an address (the compiler may realign the stack for one, and then points elsewhere), and one argument
   (the compiler may use an argument's place for its own ends, and never touches what comes after the last one). */
#define THIS_FRAME static_cast<const t_FRAME *>(__builtin_dwarf_cfa())

/* Whether the handler that says this was called by the kernel itself, and context so is what comes into force when it
   returns. A handler of the module's that calls the host's hands its own context on. */
#define IS_CALLED_BY_KERNEL(context) is_frame_with(__builtin_dwarf_cfa(), context)

/* ---- Where it is known what it holds --------------------------------------------------------------------------- */

/* What was interrupted, as far as the host needs it. */
struct t_INTERRUPTED {
    uintptr_t stack;                /* 0: not known */
    uint16_t code_segment;          /* that of the host's own code, unless this is not what the kernel has written */
    const stack_t *alternate_stack; /* comes into force when the handler returns; null: the one in force stays */
};

#if defined(__x86_64__)

struct t_FRAME {
    ucontext_t interrupted;
};

inline t_INTERRUPTED interrupted_by(const ucontext_t *context)
{
    const greg_t *registers = context->uc_mcontext.gregs;
    return {static_cast<uintptr_t>(registers[REG_RSP]), static_cast<uint16_t>(registers[REG_CSGSFS]),
            &context->uc_stack};
}

inline t_INTERRUPTED interrupted_by(const t_FRAME *frame)
{
    return interrupted_by(&frame->interrupted);
}

inline bool is_frame_with(const void *frame, const ucontext_t *context)
{
    return frame == context;
}

#elif defined(__i386__)

struct t_FRAME {
    int signal;
    struct sigcontext interrupted; /* oldmask holds signals 1 to 32 */
};

inline t_INTERRUPTED interrupted_by(const ucontext_t *context)
{
    const greg_t *registers = context->uc_mcontext.gregs;
    return {static_cast<uintptr_t>(registers[REG_ESP]), static_cast<uint16_t>(registers[REG_CS]), &context->uc_stack};
}

inline t_INTERRUPTED interrupted_by(const t_FRAME *frame)
{
    return {frame->interrupted.esp, frame->interrupted.cs, nullptr};
}

/* The three arguments come first, and the record of the signal. */
inline bool is_frame_with(const void *frame, const ucontext_t *context)
{
    return static_cast<const char *>(frame) + 3 * sizeof(void *) + sizeof(siginfo_t) ==
           static_cast<const char *>(static_cast<const void *>(context));
}

#else

struct t_FRAME;

inline t_INTERRUPTED interrupted_by(const void *)
{
    return {};
}

inline bool is_frame_with(const void *, const ucontext_t *)
{
    return false;
}

#endif

/* ---- What it says ---------------------------------------------------------------------------------------------- */

/* Whether the handler may have interrupted something that blocks SIGTERM. */
inline bool may_block_sigterm([[maybe_unused]] const t_FRAME *frame)
{
#if defined(__x86_64__)
    return sigismember(&frame->interrupted.uc_sigmask, SIGTERM) == 1;
#elif defined(__i386__)
    return (frame->interrupted.oldmask >> (SIGTERM - 1) & 1) != 0;
#else
    return true; /* the system is asked */
#endif
}

/* A kernel's frame is longer on every processor; what interrupts code that needs less of the stack than this, and is
   interrupted itself, is deeper. */
constexpr uintptr_t shortest_frame = 512;

/* Whether code has been interrupted for which the stack was as deep as the address says, or a little deeper. Then the
   handler is not on top of another one, on whatever stack: that one would have its own frame in between. */
inline bool is_at(const t_INTERRUPTED &interrupted, const void *stack)
{
#if defined(__x86_64__) || defined(__i386__)
    /* Where a handler of the module's has called the host's, what is looked at is not a frame: nothing has a code
       segment in that place. */
    uint16_t own_segment;
    __asm__("mov %%cs, %0" : "=r"(own_segment));
    if (interrupted.code_segment != own_segment) return false;
#endif
    return interrupted.stack != 0 && reinterpret_cast<uintptr_t>(stack) - interrupted.stack < shortest_frame;
}

#endif
