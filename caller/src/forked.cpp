/* SPDX-License-Identifier: MIT
 *
 * See forked.h. Other threads may have been at work on their hosts at the moment of the fork. Of such a record the
 * child only uses what is guarded by lock, and overwrites what it would have to release: that memory and those
 * descriptors stay until it ends. */
#include "forked.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "host.h"

/* Guards the list, and the pipes of all hosts. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static ka_host *hosts;

static void close_all_pipes(t_PIPES *pipes)
{
    close_fd(&pipes->go[0]);
    close_fd(&pipes->go[1]);
    close_fd(&pipes->report[0]);
    close_fd(&pipes->report[1]);
}

/* ---- At a fork ------------------------------------------------------------------------------------------------- */

static void hold_for_fork(void)
{
    pthread_mutex_lock(&lock);
}

static void go_on_after_fork(void)
{
    pthread_mutex_unlock(&lock);
}

/* Its segment was not copied, and its process is no child of this one. */
static void forget_process(ka_host *host)
{
    close_all_pipes(&host->pipes);
    host->state = STATE_ENDED;
    host->pid = 0;
    host->pid_fd = host->status_fd = host->doorbell_fd = -1;
    host->base = nullptr;
    host->listener = nullptr;
    host->doorbell_open = host->hears = false;
    host->ring = nullptr;
    host->inspection = nullptr;
    host->tables = nullptr;
    host->remains = {};
    host->report = nullptr;
    host->argc = 0;
}

static void begin_anew_in_child(void)
{
    for (ka_host *host = hosts; host; host = host->next)
        forget_process(host);
    pthread_mutex_unlock(&lock);
}

static int prepare_for_fork(void)
{
    static bool prepared;
    if (prepared) return 0;
    const int error = pthread_atfork(hold_for_fork, go_on_after_fork, begin_anew_in_child);
    prepared = error == 0;
    return error;
}

/* ---- Hosts ----------------------------------------------------------------------------------------------------- */

int enter_host(ka_host *host)
{
    pthread_mutex_lock(&lock);
    const int error = prepare_for_fork();
    if (error == 0) {
        host->next = hosts;
        host->link = &hosts;
        if (hosts) hosts->link = &host->next;
        hosts = host;
    }
    pthread_mutex_unlock(&lock);
    return error;
}

void leave_host(ka_host *host)
{
    pthread_mutex_lock(&lock);
    *host->link = host->next;
    if (host->next) host->next->link = host->link;
    pthread_mutex_unlock(&lock);
}

/* ---- Pipes ----------------------------------------------------------------------------------------------------- */

int open_pipes(ka_host *host)
{
    t_PIPES *pipes = &host->pipes;
    pthread_mutex_lock(&lock);
    int error = pipe2(pipes->go, O_CLOEXEC) == 0 ? 0 : errno;
    if (error == 0 && pipe2(pipes->report, O_CLOEXEC) != 0) error = errno;
    pthread_mutex_unlock(&lock);
    return error;
}

void close_pipe_end(int *fd)
{
    pthread_mutex_lock(&lock);
    close_fd(fd);
    pthread_mutex_unlock(&lock);
}

void close_pipes(ka_host *host)
{
    pthread_mutex_lock(&lock);
    close_all_pipes(&host->pipes);
    pthread_mutex_unlock(&lock);
}
