/* SPDX-License-Identifier: MIT
 *
 * See child.h. */
#include "child.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "block/abandoned.h"

/* The status of a child that executes nothing, as shells have it. Its parent knows why, or has ended. */
enum { NOT_EXECUTED = 127 };

/* A host is never in the foreground of the program's terminal. Writing there must not stop it, whatever the
   terminal is set to; and reading there fails. It leaves ignored what it finds ignored. */
static void ignore_terminal(void)
{
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    sigaction(SIGTTOU, &action, nullptr);
    sigaction(SIGTTIN, &action, nullptr);
}

/* All signals are blocked here: a handler of the parent must not run in the child. Ignored signals stay ignored, as
   for any child, but for the two that drive the host. */
static void reset_signals(void)
{
    for (int number = 1; number <= SIGRTMAX; number++) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) != 0) continue;
        const bool drives_host = number == SIGUSR2 || number == SIGTERM;
        if (action.sa_handler == SIG_DFL || (action.sa_handler == SIG_IGN && !drives_host)) continue;
        action = {};
        action.sa_handler = SIG_DFL;
        sigaction(number, &action, nullptr);
    }
    ignore_terminal();
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    sigprocmask(SIG_SETMASK, &set, nullptr);
}

static void await_any(struct pollfd *fds, nfds_t count)
{
    while (poll(fds, count, -1) == -1 && errno == EINTR)
        ;
}

/* Reads the host's argument, or removes the segments that the caller has left, and ends. The end of the pipe does not
   show that the caller dies: children of other starts hold copies of it, and wait as this one does. So the caller is
   watched as well. And a caller that dies closes the pipe before it is dead; one that lives always sends a word, and
   looks after its segments itself. */
static void await_argument(const t_LAUNCH *launch, char argument[ARGUMENT_SIZE])
{
    const int parent_fd = static_cast<int>(syscall(SYS_pidfd_open, launch->parent, 0));
    struct pollfd fds[] = {{parent_fd, POLLIN, 0}, {launch->pipes->go[0], POLLIN, 0}};
    if (getppid() == launch->parent) {
        await_any(fds, 2);
        if (fds[1].revents & POLLIN) {
            if (read(launch->pipes->go[0], argument, ARGUMENT_SIZE) == ARGUMENT_SIZE) return;
            _exit(NOT_EXECUTED);
        }
        if (parent_fd != -1) await_any(fds, 1);
    }
    remove_abandoned_segments(launch->parent);
    _exit(NOT_EXECUTED);
}

/* The C library looks into PATH without taking memory or locks. Returns the errno. */
static int execute(const t_LAUNCH *launch, char *argument)
{
    if (launch->environment) environ = launch->environment;
    char *const own[] = {const_cast<char *>(launch->module), argument, nullptr};
    if (!launch->words) {
        execve(launch->module, own, environ);
        return errno;
    }
    launch->words[launch->word_count] = argument; /* in the child's own memory */
    execvp(launch->words[0], launch->words);
    return errno;
}

void become_host(const t_LAUNCH *launch)
{
    setpgid(0, 0);                    /* as the parent does: whoever comes first */
    prctl(PR_SET_PDEATHSIG, SIGTERM); /* the host ends with the caller's thread that started it */
    close(launch->pipes->go[1]);
    char argument[ARGUMENT_SIZE];
    await_argument(launch, argument);
    /* A parent that died before the first line sends no signal any more. */
    if (getppid() != launch->parent) _exit(NOT_EXECUTED);
    reset_signals();
    if (launch->error_fd != -1) dup2(launch->error_fd, STDERR_FILENO);
    const bool entered = !launch->directory || chdir(launch->directory) == 0;
    const t_NOT_EXECUTED report = {entered ? execute(launch, argument) : errno, !entered};
    if (write(launch->pipes->report[1], &report, sizeof report) != sizeof report) _exit(126);
    _exit(NOT_EXECUTED);
}
