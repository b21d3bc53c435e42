/* SPDX-License-Identifier: MIT
 *
 * The least that a host can be: it attaches the segment, and adds two numbers in the handler of SIGUSR2. The handler
 * is left by its return, or by a jump, which spares the system call of a return. usage: bare_host SEGMENT return|jump
 */
#define _GNU_SOURCE
#include <setjmp.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/shm.h>

#include "bare.h"

static struct bare *shared;
static sigjmp_buf waits;

static void answer(void)
{
    shared->sum = shared->a + shared->b;
    kill(shared->pid, SIGUSR2);
}

static void handler_that_returns(int signal)
{
    (void)signal;
    answer();
}

static void handler_that_jumps(int signal)
{
    (void)signal;
    answer();
    siglongjmp(waits, 1);
}

int main(int argc, char **argv)
{
    if (argc != 3) return 2;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    void *const attached = shmat(atoi(argv[1]), NULL, 0);
    if (attached == (void *)-1) return 2;
    shared = attached;

    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = strcmp(argv[2], "jump") == 0 ? handler_that_jumps : handler_that_returns;
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR2, &action, NULL);
    sigset_t none;
    sigemptyset(&none);
    sigsetjmp(waits, 0);
    for (;;)
        sigsuspend(&none);
}
