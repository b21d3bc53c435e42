/* SPDX-License-Identifier: MIT
 *
 * Who waits for which host: what the handler of SIGUSR2 may know. It can run in any thread at any moment, so the
 * records are never freed, and their state is taken and given back without a lock. */
#ifndef KA_CALLER_WAITERS_H
#define KA_CALLER_WAITERS_H

#include <signal.h>
#include <stdint.h>
#include <sys/types.h>

#include "base/atomic.h"

struct ka_host;

enum t_WAITER_STATE : int32_t {
    WAITER_FREE,
    WAITER_IDLE,       /* belongs to a host; no thread waits */
    WAITER_WAITING,    /* a thread waits for the host's reply; without one, the reply is noted */
    WAITER_LOOKED_AT,  /* it waits, and a handler reads the host's block to learn whether to wake it */
    WAITER_LOOK_AGAIN, /* the same, and another handler asks for a second look */
    WAITER_WOKEN       /* it waits, and has been sent a signal of ours */
};

struct t_WAITER {
    t_ATOMIC<int32_t> state;
    t_ATOMIC<pid_t> process; /* the host's, 0 when there is none */
    const ka_host *host;     /* this and thread are set before the state becomes WAITER_WAITING */
    pid_t thread;            /* 0: none; the program may wait for the host's descriptor (wait_fd.h) */
    t_ATOMIC<bool> noted;    /* without a thread: one would have been woken */
    t_ATOMIC<bool> heard;    /* a signal of the host's has come since its request was sent */
    volatile bool arrived;   /* the signal of ours; written in the thread itself */
    t_WAITER *next;
};

/* One record for a host; null when there is no memory. Released, the process counts as a host's for a while: its last
   signal can still be on its way. */
t_WAITER *claim_waiter(const ka_host *host);
void release_waiter(t_WAITER *waiter);

/* This thread waits from the one to the other. No signal of ours is left when it ends. In between it can go away and
   another come back: what was noted counts as a signal to that one. */
void enter_waiter(t_WAITER *waiter);
void leave_waiter(t_WAITER *waiter);
void go_away_from_waiter(t_WAITER *waiter);
void come_back_to_waiter(t_WAITER *waiter);

inline bool is_noted(const t_WAITER *waiter)
{
    return waiter->noted.load(RELAXED);
}

/* Wakes who waits for the host, the calling thread too. Async-signal-safe. */
void rouse_waiter(t_WAITER *waiter);

/* A SIGUSR2 has come to this thread since it began to wait, or since this was asked last. */
bool was_told(void);

/* The same, or one comes within that time, whether or not it is blocked. What is not ours goes back, to be blocked or
   handled, unless it is to be dropped. False early when a handler of the program interrupts the wait. */
bool await_signal(int64_t ns, bool drop_foreign);

/* Takes a signal that is pending for this thread; one that is not ours is dropped. 0; EAGAIN when there is none; or
   another errno. */
int drain_signal(void);

/* To the process, where it was pending. */
void send_back(siginfo_t *info);

/* The block does not hold any more what it held before the request. */
bool has_changed(const ka_host *host);

/* A signal has come: wakes those for whom it may be. True when it is a host's, or one of ours; else it is for the
   program. Async-signal-safe. */
bool take_signal(const siginfo_t *info);

/* In a child of fork: the hosts are its parent's. */
void forget_waiters(void);

#endif
