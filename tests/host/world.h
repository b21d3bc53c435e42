// SPDX-License-Identifier: MIT
//
// What the kernel's interface looks like to the hosts that this run calls: tests that filter or watch their system
// calls see the numbers and records of the hosts' word size, whatever that of the test is.
#ifndef TESTS_HOST_WORLD_H
#define TESTS_HOST_WORLD_H

#include <linux/audit.h>

#include <cstdint>

#include "module_bits.h"

namespace harness {

// -1: there is no such system call.
struct World {
    uint32_t arch;
    int32_t close, close_range, exit_group, ipc, kill, openat, rt_sigaction, rt_sigprocmask, rt_sigsuspend, shmat,
        shmdt, sigaltstack, tgkill, write;
};

inline constexpr World i386 = {.arch = AUDIT_ARCH_I386,
                               .close = 6,
                               .close_range = 436,
                               .exit_group = 252,
                               .ipc = 117,
                               .kill = 37,
                               .openat = 295,
                               .rt_sigaction = 174,
                               .rt_sigprocmask = 175,
                               .rt_sigsuspend = 179,
                               .shmat = 397,
                               .shmdt = 398,
                               .sigaltstack = 186,
                               .tgkill = 270,
                               .write = 4};
inline constexpr World x86_64 = {.arch = AUDIT_ARCH_X86_64,
                                 .close = 3,
                                 .close_range = 436,
                                 .exit_group = 231,
                                 .ipc = -1,
                                 .kill = 62,
                                 .openat = 257,
                                 .rt_sigaction = 13,
                                 .rt_sigprocmask = 14,
                                 .rt_sigsuspend = 130,
                                 .shmat = 30,
                                 .shmdt = 67,
                                 .sigaltstack = 131,
                                 .tgkill = 234,
                                 .write = 1};

inline const World &hosts_world()
{
    return module_bits() == 32 ? i386 : x86_64;
}

} // namespace harness

#endif
