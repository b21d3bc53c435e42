// SPDX-License-Identifier: MIT
//
// Foreign SIGUSR2 in great number.
#ifndef TESTS_CALLER_STORM_H
#define TESTS_CALLER_STORM_H

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// A process that signals another while it lives: as often as it can, or after pauses.
struct Storm {
    explicit Storm(pid_t target, useconds_t pause_us = 20)
    {
        pid = fork();
        if (pid != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            kill(target, SIGUSR2);
            usleep(pause_us);
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
