// SPDX-License-Identifier: MIT
//
// Foreign SIGUSR2 in great number.
#ifndef TESTS_CALLER_STORM_H
#define TESTS_CALLER_STORM_H

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// A process that signals another as often as it can while it lives.
struct Storm {
    explicit Storm(pid_t target)
    {
        pid = fork();
        if (pid != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            kill(target, SIGUSR2);
            usleep(20);
        }
    }
    ~Storm()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    Storm(const Storm &) = delete;
    Storm &operator=(const Storm &) = delete;
    pid_t pid;
};

#endif
