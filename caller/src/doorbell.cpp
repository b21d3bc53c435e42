/* SPDX-License-Identifier: MIT
 *
 * SIGUSR2 on the caller's side. It is blocked and read through a descriptor, so that one wait sees a reply, the
 * host's death and a cancellation alike. A signal is only ever a hint to look: standard signals merge, and anyone may
 * send one. */
#include "host.h"

#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

/* Of this thread: hosts for which SIGUSR2 is held, and whether it was blocked before the first of them. */
static thread_local int32_t hosts_held;
static thread_local bool was_blocked;

static sigset_t doorbell_set(void)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    return set;
}

void hold_doorbell(ka_host *host)
{
    host->doorbell_thread = gettid();
    if (hosts_held++ > 0) return;
    const sigset_t set = doorbell_set();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &set, &before);
    was_blocked = sigismember(&before, SIGUSR2) == 1;
}

/* The host is dead by now, and its last signal drained: none can arrive unblocked. */
void release_doorbell(ka_host *host)
{
    const bool held_here = host->doorbell_thread == gettid();
    host->doorbell_thread = 0;
    if (!held_here) return;
    if (--hosts_held > 0 || was_blocked) return;
    const sigset_t set = doorbell_set();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

int open_doorbell(void)
{
    const sigset_t set = doorbell_set();
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

void drain_doorbell(const ka_host *host)
{
    struct signalfd_siginfo signal;
    while (read(host->doorbell_fd, &signal, sizeof signal) > 0)
        ;
}
