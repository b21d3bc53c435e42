// SPDX-License-Identifier: MIT
//
// Start and end hooks that write on standard error what they find. With HOOKS_AWAIT_CALL set, dll_cleanup returns
// only when a call signal is pending; with HOOKS_BLOCK=n dll_setup blocks signal n; with HOOKS_CALLBACK=n it hands n
// to the caller and writes the answer; with HOOKS_END_AGAIN set dll_cleanup lets SIGTERM in and raises it. dll_setup:
// with HOOKS_X87=n sets that control word; with HOOKS_STACK=n an alternate stack of n bytes, negative: one that
// handlers disarm.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"

namespace {

unsigned long block_address;

// Whether the block's address is still in the process's memory map.
int attached()
{
    FILE *maps = fopen("/proc/self/maps", "r");
    if (maps == nullptr) return -1;
    int found = 0;
    char line[512];
    while (fgets(line, sizeof line, maps) != nullptr) {
        if (strtoul(line, nullptr, 16) == block_address) found = 1;
    }
    fclose(maps);
    return found;
}

int has_handler(int signal)
{
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN ? 1 : 0;
}

void block(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

void await_call_signal()
{
    sigset_t pending;
    do {
        const timespec pause = {0, 1000000};
        nanosleep(&pause, nullptr);
        sigpending(&pending);
    } while (sigismember(&pending, SIGUSR2) == 0);
}

void end_again()
{
    static int times;
    if (times++ > 0) return;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    raise(SIGTERM);
}

void set_x87(int value)
{
    const auto word = static_cast<unsigned short>(value);
    __asm__ volatile("fldcw %0" : : "m"(word));
}

void set_stack(int size)
{
    static char memory[65536];
    stack_t stack = {};
    stack.ss_sp = memory;
    stack.ss_size = static_cast<size_t>(abs(size));
    stack.ss_flags = size < 0 ? static_cast<int>(1U << 31) : 0; // SS_AUTODISARM
    sigaltstack(&stack, nullptr);
}

} // namespace

void dll_setup(void)
{
    block_address = static_cast<unsigned long>(reinterpret_cast<uintptr_t>(u_get_baseptr()));
    fprintf(stderr, "setup: handlers %d %d, attached %d\n", has_handler(SIGTERM), has_handler(SIGUSR2), attached());
    if (const char *signal = getenv("HOOKS_BLOCK")) block(atoi(signal));
    if (const char *word = getenv("HOOKS_X87")) set_x87(static_cast<int>(strtol(word, nullptr, 16)));
    if (const char *size = getenv("HOOKS_STACK")) set_stack(atoi(size));
    if (const char *value = getenv("HOOKS_CALLBACK")) fprintf(stderr, "answer: %d\n", dll_callback(atoi(value)));
}

void dll_cleanup(void)
{
    fprintf(stderr, "cleanup: attached %d\n", attached());
    if (getenv("HOOKS_AWAIT_CALL") != nullptr) await_call_signal();
    if (getenv("HOOKS_END_AGAIN") != nullptr) end_again();
}
