// SPDX-License-Identifier: MIT
//
// Functions that change how the processor computes, and leave it so. Each takes REALs and touches none of them.
#include <fenv.h>
#include <mmintrin.h>
#include <xmmintrin.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"

namespace {

constexpr unsigned flush_to_zero = 0x8000;
constexpr unsigned denormals_are_zero = 0x40;
constexpr unsigned masks = 0x1f80; // of all exceptions

void set_x87_control(unsigned short word)
{
    __asm__ volatile("fldcw %0" : : "m"(word));
}

int32_t nothing()
{
    return 0;
}

int32_t round_up()
{
    return fesetround(FE_UPWARD);
}

int32_t round_to_zero()
{
    return fesetround(FE_TOWARDZERO);
}

int32_t single_precision()
{
    set_x87_control(0x007f);
    return 0;
}

int32_t no_denormals()
{
    _mm_setcsr(_mm_getcsr() | flush_to_zero | denormals_are_zero);
    return 0;
}

// Every inexact result would be a SIGFPE.
int32_t traps()
{
    set_x87_control(0x0340);
    _mm_setcsr(_mm_getcsr() & ~masks);
    return 0;
}

// A division by zero that has happened and is reported by the next x87 instruction that looks.
int32_t pending_trap()
{
    set_x87_control(0x037f);
    __asm__ volatile("fld1; fldz; fdivrp %st, %st(1); fstp %st(0)");
    set_x87_control(0x0340);
    return 0;
}

// MMX registers in use: the x87 stack, which has the same place, is full. No emms.
int32_t full_stack()
{
    __asm__ volatile("pxor %mm0, %mm0");
    return 0;
}

// A call-back in between must not change how the function computes.
int32_t rounding_after_callback()
{
    fesetround(FE_UPWARD);
    set_x87_control(0x0b7f); // the same, and single precision does not matter here
    dll_callback(1);
    unsigned short word = 0;
    __asm__ volatile("fnstcw %0" : "=m"(word));
    return (word & 0x0c00) == 0x0800 && _MM_GET_ROUNDING_MODE() == _MM_ROUND_UP ? 1 : 0;
}

// ORDER FUNCTION
int32_t (*const functions[])() = {
    nothing, round_up,     round_to_zero, single_precision,        no_denormals,
    traps,   pending_trap, full_stack,    rounding_after_callback,
};

} // namespace

// ORDER FUNCTION
t_DLL_FUNC KaFuncList[] = {
    {"nothing", 0, 1, nullptr},
    {"round_up", 0, 1, nullptr},
    {"round_to_zero", 0, 1, nullptr},
    {"single_precision", 0, 1, nullptr},
    {"no_denormals", 0, 1, nullptr},
    {"traps", 0, 1, nullptr},
    {"pending_trap", 0, 1, nullptr},
    {"full_stack", 0, 1, nullptr},
    {"rounding_after_callback", 0, 1, nullptr},
    {nullptr, 0, 0, nullptr},
};

t_DLL_PROTO KaArgList[] = {
    {"values", KA_VARARG, 0},
};

int32_t KaCall(int32_t index, void **)
{
    return functions[index]();
}
