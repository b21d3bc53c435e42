// SPDX-License-Identifier: MIT
//
// The least that two processes can do: SIGUSR2 there and back with sigwaitinfo and nothing else.
#ifndef BENCH_PING_PONG_H
#define BENCH_PING_PONG_H

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "timing.h"

namespace bench {

// Nanoseconds of a round trip.
inline double ping_pong()
{
    sigset_t signals, before;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR2);
    sigprocmask(SIG_BLOCK, &signals, &before);
    const pid_t caller = getpid();
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            sigwaitinfo(&signals, nullptr);
            kill(caller, SIGUSR2);
        }
    }
    const double ns = bench::nanoseconds([&](long) {
        kill(child, SIGUSR2);
        sigwaitinfo(&signals, nullptr);
    });
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return ns;
}

} // namespace bench

#endif
