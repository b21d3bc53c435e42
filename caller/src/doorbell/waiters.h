/* SPDX-License-Identifier: MIT
 *
 * Who waits for which host: what the handler of SIGUSR2 may know. It can run in any thread at any moment, so the
 * records are never freed, and their state is taken and given back without a lock. */
#ifndef KA_CALLER_WAITERS_H
#define KA_CALLER_WAITERS_H

#include <atomic>
#include <signal.h>
#include <sys/types.h>

struct ka_host;

enum t_LISTENING : int32_t {
    LISTENER_FREE,
    LISTENER_IDLE,       /* belongs to a host; nobody waits */
    LISTENER_WAITING,    /* a thread waits for the host's reply */
    LISTENER_LOOKED_AT,  /* it waits, and a handler reads the host's block to learn whether to rouse it */
    LISTENER_LOOK_AGAIN, /* the same, and another handler asks for a second look */
    LISTENER_ROUSED      /* it waits, and has been sent a signal of ours */
};

struct t_LISTENER {
    std::atomic<int32_t> state;
    std::atomic<pid_t> process; /* the host's, 0 when there is none */
    const ka_host *host;        /* this and thread are set before the state becomes LISTENER_WAITING */
    pid_t thread;
    volatile bool arrived; /* the signal of ours; written in the thread itself */
    t_LISTENER *next;
};

/* One record for a host; null when there is no memory. Released, the process counts as a host's for a while: its last
   signal can still be on its way. */
t_LISTENER *claim_listener(const ka_host *host);
void release_listener(t_LISTENER *listener);

/* This thread waits from the one to the other, with SIGUSR2 blocked but for where it waits. No signal of ours is left
   when it ends. */
void start_listening(t_LISTENER *listener, pid_t own_thread);
void stop_listening(t_LISTENER *listener);

/* What a signal means to those who wait. True when it is a host's, or one of ours; else it is for the program.
   Async-signal-safe. */
bool take_signal(const siginfo_t *info);

/* In a child of fork: the hosts are its parent's. */
void forget_listeners(void);

#endif
