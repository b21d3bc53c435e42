/* SPDX-License-Identifier: MIT
 *
 * The annex: memory behind the shared block in which our own caller and our own host tell each other what signals
 * cannot. It begins at the last whole step of the segment, behind everything that the block describes, so neither a
 * caller nor a host that does without it meets it. Each side trusts nothing in it: a module can write there as it can
 * in the block. */
#ifndef KA_WIRE_ANNEX_H
#define KA_WIRE_ANNEX_H

#include <stddef.h>
#include <stdint.h>

/* Of each group but the first there is one writer, and each has a cache line of its own. */
struct t_ANNEX {
    alignas(64) char magic[8]; /* before the start, by the caller: wire::ANNEX_MAGIC, its version being the last
                                  character */
    int32_t caller;            /* process */

    /* The caller's. */
    alignas(64) uint32_t request; /* counts requests and answers */
    uint32_t answers;             /* 1: the number counted next is an answer; written before it is counted */
    uint32_t wants_signal;        /* a reply comes as SIGUSR2, too */
    uint32_t without_signal;      /* the next request may come without one: the host says in waits how to wake it */
    uint32_t spin_us;             /* so long each side spins before it sleeps, where that pays */
    uint32_t caller_cpu;          /* on which it asked last, counted from 1; 0: not known */

    /* The host's. */
    alignas(64) int32_t host; /* process; 0 until it uses the annex */
    uint32_t started;         /* counts calls: before it reads argc */
    uint32_t done;            /* the same: after its last look at the block */
    uint32_t reply;           /* twice the number of the request that it belongs to; plus 1 for a call-back */
    uint32_t waits;           /* wire::HOST_..., of requests without a signal; the caller writes one of them, too */
    uint32_t host_cpu;        /* on which it replied last, as above */

    /* A robust mutex of the host's C library, held by its main thread as long as that lives: the kernel marks its
       first word, and wakes who sleeps on it, when the thread ends in any way or executes another program. Only the
       host calls mutex functions: the caller may have another word size, in which a mutex has another form. */
    union alignas(64) {
        uint32_t life;
        char mutex[64];
    };
};
static_assert(sizeof(t_ANNEX) == 256 && offsetof(t_ANNEX, life) == 192, "the same in both word sizes");

namespace wire {

/* The size of a segment that ends with an annex is so much above a multiple of the step, where the annex begins. */
enum : size_t { ANNEX_STEP = 4096, ANNEX_MARK = 0x6b1 };
static_assert(sizeof(t_ANNEX) <= ANNEX_MARK);

inline constexpr char ANNEX_MAGIC[sizeof t_ANNEX::magic] = {'K', 'A', 'A', 'N', 'N', 'E', 'X', '2'};

/* In the word life, as the kernel has it. */
enum : uint32_t { LIFE_WAITED_FOR = 0x80000000, LIFE_OWNER_DIED = 0x40000000, LIFE_THREAD = 0x3fffffff };

/* How the host waits for a request or an answer. A side that is about to sleep says so, and looks once more; who has
   written what it sleeps for looks at what it said after that. So one of them sees the other, and no wake-up is lost.
   HOST_SIGNALLED is the caller's: it has found HOST_IN_SIGSUSPEND and sends the signal, so the host, which takes its
   word back where it sees the request itself, knows whether a signal comes. */
enum : uint32_t { HOST_IN_SIGSUSPEND = 0, HOST_SIGNALLED = 1, HOST_AWAKE = 2, HOST_SLEEPS_ON_REQUEST = 3 };

/* Both sides hold these in their own memory, and write or compare the annex's. */
inline uint32_t reply_to(uint32_t request, bool callback)
{
    return request << 1 | static_cast<uint32_t>(callback);
}

} // namespace wire

#endif
