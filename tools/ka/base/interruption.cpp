// SPDX-License-Identifier: MIT
//
// See interruption.h.
#include "interruption.h"

#include <csignal>
#include <initializer_list>
#include <sys/signalfd.h>
#include <unistd.h>

int open_interruption_fd()
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM}) {
        struct sigaction action;
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&set, signal);
    }
    const int fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd != -1) sigprocmask(SIG_BLOCK, &set, nullptr);
    return fd;
}

int take_interruption(int fd)
{
    struct signalfd_siginfo signal;
    const bool has_come = fd != -1 && read(fd, &signal, sizeof signal) == sizeof signal;
    return has_come ? static_cast<int>(signal.ssi_signo) : 0;
}
