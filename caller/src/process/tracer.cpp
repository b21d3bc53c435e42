/* SPDX-License-Identifier: MIT
 *
 * See tracer.h. Only the thread that traces a process can let it go on and look into it; so the thread seizes it,
 * waits for its stops, calls the inspector, and ends with it. It never takes the exit status, which is left to the
 * thread that waits for the host's death. The module's threads are traced as well: each can be the one that faults.
 */
#include "tracer.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "base/pidfd.h"
#include "base/proc.h"
#include "base/thread.h"

enum {
    TEXT_BYTES = 1 << 14,
    STACK_BYTES = 1 << 21, /* for the inspector, which may read debug information */
    PATIENCE_S = 10        /* for an inspection: then the host is ended all the same */
};

/* The flags are guarded by lock. text belongs to the thread until it has ended. */
struct t_INSPECTION {
    pthread_t thread;
    pthread_mutex_t lock;
    pthread_cond_t changed;
    pid_t pid;
    pid_t number; /* in /proc */
    ka_inspector *inspector;
    void *user;
    bool settled;   /* traced, or found impossible to trace */
    bool tracing;   /* until the host's end */
    bool suspended; /* by somebody's SIGSTOP: it cannot be stopped a second time */
    bool hanging;   /* it is to be looked at in its next SIGSTOP, which is ours */
    bool inspected;
    char text[TEXT_BYTES];
};

static void set_flag(t_INSPECTION *inspection, bool *flag, bool value)
{
    pthread_mutex_lock(&inspection->lock);
    *flag = value;
    pthread_cond_broadcast(&inspection->changed);
    pthread_mutex_unlock(&inspection->lock);
}

static bool get_flag(t_INSPECTION *inspection, const bool *flag)
{
    pthread_mutex_lock(&inspection->lock);
    const bool value = *flag;
    pthread_mutex_unlock(&inspection->lock);
    return value;
}

/* ---- The tracer's thread --------------------------------------------------------------------------------------- */

static bool ends_by_default(int signal)
{
    switch (signal) {
    case SIGCHLD:
    case SIGCONT:
    case SIGURG:
    case SIGWINCH:
    case SIGSTOP:
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
        return false;
    default:
        return true;
    }
}

/* The host handles SIGUSR2 whenever it lets one through, with every call; it is spared the look into /proc. */
static bool will_end(const t_INSPECTION *inspection, int signal)
{
    t_STATUS status;
    if (signal == SIGUSR2 || !ends_by_default(signal)) return false;
    /* The program could close one that is kept. */
    const int status_fd = open_proc_file(inspection->number, "status", O_RDONLY);
    const bool known = status_fd != -1 && read_status(status_fd, &status);
    if (status_fd != -1) close(status_fd);
    return known && ((status.caught | status.ignored) & signal_bit(signal)) == 0;
}

/* The first look is kept: a deadly signal can follow the look at a hanging host. */
static void look_at(t_INSPECTION *inspection, pid_t thread, int signal)
{
    if (get_flag(inspection, &inspection->inspected)) return;
    inspection->inspector(thread, signal, inspection->text, sizeof inspection->text, inspection->user);
    inspection->text[sizeof inspection->text - 1] = '\0';
    set_flag(inspection, &inspection->inspected, true);
}

/* The signal with which the thread goes on. */
static int pass_signal(t_INSPECTION *inspection, pid_t thread, int signal)
{
    if (signal == SIGSTOP && get_flag(inspection, &inspection->hanging)) {
        look_at(inspection, thread, SIGTERM);
        return 0;
    }
    if (will_end(inspection, signal)) look_at(inspection, thread, signal);
    return signal;
}

/* A stop with an event is not a delivery of a signal. One of them is the stop by job control, in which the process is
   left until a SIGCONT. */
static void handle_stop(t_INSPECTION *inspection, pid_t thread, int status)
{
    const int signal = status & 0xff;
    const int event = status >> 8;
    const bool suspends = event == PTRACE_EVENT_STOP && signal != SIGTRAP;
    if (event != 0 && thread == inspection->pid) set_flag(inspection, &inspection->suspended, suspends);
    if (suspends)
        ptrace(PTRACE_LISTEN, thread, nullptr, nullptr);
    else
        ptrace(PTRACE_CONT, thread, nullptr,
               event != 0 ? nullptr
                          : reinterpret_cast<void *>(static_cast<intptr_t>(pass_signal(inspection, thread, signal))));
}

/* False at the end of the host, which is only looked at. Threads that end are taken, or the host would never be
   reported. */
static bool handle_event(t_INSPECTION *inspection)
{
    siginfo_t info = {};
    if (waitid(P_ALL, 0, &info, WEXITED | WSTOPPED | WNOWAIT | __WALL | __WNOTHREAD) != 0) return errno == EINTR;
    if (info.si_code == CLD_TRAPPED || info.si_code == CLD_STOPPED) {
        handle_stop(inspection, info.si_pid, info.si_status);
        return true;
    }
    if (info.si_pid == inspection->pid) return false;
    waitid(P_PID, static_cast<id_t>(info.si_pid), &info, WEXITED | __WALL | __WNOTHREAD);
    return true;
}

static void *trace(void *argument)
{
    t_INSPECTION *inspection = static_cast<t_INSPECTION *>(argument);
    const bool traced = ptrace(PTRACE_SEIZE, inspection->pid, nullptr, PTRACE_O_TRACECLONE) == 0;
    set_flag(inspection, &inspection->tracing, traced);
    set_flag(inspection, &inspection->settled, true);
    while (traced && handle_event(inspection))
        ;
    set_flag(inspection, &inspection->tracing, false);
    return nullptr;
}

/* ---- The caller's threads -------------------------------------------------------------------------------------- */

/* Waits until the flag is set, tracing has ended, or the time is over. */
static void await_flag(t_INSPECTION *inspection, const bool *flag)
{
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += PATIENCE_S;
    pthread_mutex_lock(&inspection->lock);
    int error = 0;
    while (error == 0 && !*flag && (inspection->tracing || !inspection->settled))
        error = pthread_cond_timedwait(&inspection->changed, &inspection->lock, &until);
    pthread_mutex_unlock(&inspection->lock);
}

void start_inspection(ka_host *host)
{
    if (!host->options.inspector) return;
    t_INSPECTION *inspection = static_cast<t_INSPECTION *>(calloc(1, sizeof *inspection));
    if (!inspection) return;
    pthread_mutex_init(&inspection->lock, nullptr);
    pthread_cond_init(&inspection->changed, nullptr);
    inspection->pid = host->process.pid;
    inspection->number = number_in_proc(host->process.pid_fd);
    inspection->inspector = host->options.inspector;
    inspection->user = host->options.user;
    if (create_thread_without_signals(&inspection->thread, STACK_BYTES, trace, inspection) != 0) {
        free(inspection);
        return;
    }
    host->process.inspection = inspection;
    await_flag(inspection, &inspection->settled);
}

void inspect_hanging(ka_host *host)
{
    t_INSPECTION *inspection = host->process.inspection;
    if (!inspection || !get_flag(inspection, &inspection->tracing)) return;
    if (get_flag(inspection, &inspection->suspended)) return;
    set_flag(inspection, &inspection->hanging, true);
    if (signal_process(host->process.pid_fd, SIGSTOP) == 0) await_flag(inspection, &inspection->inspected);
}

/* A thread that does not end, since its host cannot be killed or its inspector does not return, keeps its record. */
char *finish_inspection(ka_host *host)
{
    t_INSPECTION *inspection = host->process.inspection;
    host->process.inspection = nullptr;
    if (!inspection) return nullptr;
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += PATIENCE_S;
    if (pthread_timedjoin_np(inspection->thread, nullptr, &until) != 0) {
        pthread_detach(inspection->thread);
        return nullptr;
    }
    char *text = inspection->text[0] != '\0' ? strdup(inspection->text) : nullptr;
    pthread_cond_destroy(&inspection->changed);
    pthread_mutex_destroy(&inspection->lock);
    free(inspection);
    return text;
}
