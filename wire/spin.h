/* SPDX-License-Identifier: MIT
 *
 * Spinning: to look at a word of memory again and again in place of sleeping until it changes. It pays where the
 * other side runs at the same time, on another processor, and answers sooner than a sleeping processor wakes; there
 * an exchange takes a thirtieth of the time. Elsewhere it burns time, perhaps that of the other side. Both sides
 * decide by the same rules, each for itself. */
#ifndef KA_WIRE_SPIN_H
#define KA_WIRE_SPIN_H

#include <sched.h>
#include <stdint.h>

#include "wire/clock.h"

/* What one side knows of its spinning so far. */
struct t_SPIN {
    uint32_t credit;   /* a success adds one, a miss takes half; without any, most waits are not spun */
    uint32_t chances;  /* waits while the other side was on another processor */
    bool several_cpus; /* that it may run on */
};

namespace wire {

enum : uint32_t { SPIN_CREDIT_MAX = 16, SPIN_TRIES_AGAIN = 64, SPIN_LOOKS = 32 };
enum : uint32_t { SPIN_US_MAX = 1000 };

inline constexpr t_SPIN new_spin = {SPIN_CREDIT_MAX, 0, false};

/* Counted from 1; 0 where it is not known. */
inline uint32_t cpu_number(void)
{
    return static_cast<uint32_t>(sched_getcpu() + 1);
}

/* More processors than fit the set are several, too. */
inline bool may_use_several_cpus(void)
{
    cpu_set_t set;
    return sched_getaffinity(0, sizeof set, &set) != 0 || CPU_COUNT(&set) > 1;
}

/* Of a wait that begins. Now and then it is tried again, and the processors are counted again. */
inline bool spinning_pays(t_SPIN *spin, uint32_t others_cpu)
{
    if (others_cpu == 0 || others_cpu == cpu_number()) return false;
    const bool tries_again = spin->chances++ % SPIN_TRIES_AGAIN == 0;
    if (tries_again) spin->several_cpus = may_use_several_cpus();
    return spin->several_cpus && (tries_again || spin->credit > 0);
}

/* Leaves the core to its other thread for a moment. */
inline void pause_core(void)
{
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

/* True once is_there says so; false when the time is over. */
template <typename T_LOOK>
inline bool spin_until(t_SPIN *spin, uint32_t us, T_LOOK is_there)
{
    const int64_t end = clock_ns() + int64_t{us < SPIN_US_MAX ? us : SPIN_US_MAX} * NS_PER_US;
    do {
        for (uint32_t i = 0; i < SPIN_LOOKS; i++) {
            if (is_there()) {
                if (spin->credit < SPIN_CREDIT_MAX) spin->credit++;
                return true;
            }
            pause_core();
        }
    } while (clock_ns() < end);
    spin->credit /= 2;
    return false;
}

} // namespace wire

#endif
