/* SPDX-License-Identifier: MIT
 *
 * How the processor computes: rounding, precision, traps. A signal handler, and so every call, begins with the
 * defaults. On x86 it has two units; the C library converts numbers with both, and a 32-bit one gives doubles back on
 * the x87 stack. */
#ifndef KA_ARITHMETIC_H
#define KA_ARITHMETIC_H

#include <stdint.h>

#if defined(__i386__) || defined(__x86_64__)

struct t_ARITHMETIC {
    uint16_t x87;
    uint32_t sse;
};

inline t_ARITHMETIC arithmetic(void)
{
    t_ARITHMETIC now;
    __asm__ volatile("fnstcw %0; stmxcsr %1" : "=m"(now.x87), "=m"(now.sse));
    return now;
}

inline void set_arithmetic(const t_ARITHMETIC *wanted)
{
    __asm__ volatile("fldcw %0; ldmxcsr %1" : : "m"(wanted->x87), "m"(wanted->sse));
}

/* The same where an operation may have left an exception behind that wanted lets trap: it would do so now. */
inline void resume_arithmetic(const t_ARITHMETIC *wanted)
{
    if ((wanted->x87 & 0x3f) != 0x3f) __asm__ volatile("fnclex");
    set_arithmetic(wanted);
}

/* Whatever state it is in: a pending trap is dropped, or the next instruction would raise it, and the x87 stack,
   which unfinished MMX code leaves full, is emptied. In a fraction of the time that fninit takes. */
inline void reset_arithmetic(void)
{
    static const t_ARITHMETIC defaults = {0x037f, 0x1f80}; /* to nearest, full precision, no traps */
    uint16_t status;
    __asm__ volatile("fnstsw %0" : "=m"(status));
    if ((status & 0x80) != 0) __asm__ volatile("fnclex");
    __asm__ volatile("emms");
    set_arithmetic(&defaults);
}

/* As the kernel has it for a handler: no exception has happened either. */
inline void renew_arithmetic(void)
{
    static const uint32_t sse = 0x1f80;
    __asm__ volatile("fninit; ldmxcsr %0" : : "m"(sse));
}

#else
#include <fenv.h>

struct t_ARITHMETIC {
    fenv_t all;
};

inline t_ARITHMETIC arithmetic(void)
{
    t_ARITHMETIC now;
    fegetenv(&now.all);
    return now;
}

inline void set_arithmetic(const t_ARITHMETIC *wanted)
{
    fesetenv(&wanted->all);
}

inline void resume_arithmetic(const t_ARITHMETIC *wanted)
{
    fesetenv(&wanted->all);
}

inline void reset_arithmetic(void)
{
    fesetenv(FE_DFL_ENV);
}

inline void renew_arithmetic(void)
{
    fesetenv(FE_DFL_ENV);
}

#endif

#endif
