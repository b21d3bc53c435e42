// SPDX-License-Identifier: MIT
//
// See interruption.h.
#include "interruption.h"

#include <csignal>
#include <initializer_list>
#include <sys/signalfd.h>

int interruption_descriptor()
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM}) {
        struct sigaction action;
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&set, signal);
    }
    const int fd = signalfd(-1, &set, SFD_CLOEXEC);
    if (fd != -1) sigprocmask(SIG_BLOCK, &set, nullptr);
    return fd;
}
