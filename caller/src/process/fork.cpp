/* SPDX-License-Identifier: MIT
 *
 * See fork.h. Other threads may have been at work on their hosts at the moment of the fork. Of such a record the
 * child only uses what is guarded by lock, and overwrites what it would have to release: that memory and those
 * descriptors stay until it ends. */
#include "fork.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "base/fd.h"
#include "doorbell/doorbell.h"
#include "helper_thread.h"
#include "host/host.h"
#include "host/owner.h"

/* Guards the list, and the pipes of all hosts. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static ka_host *hosts;

static int fork_error; /* why forks are not prepared for, or 0 */

static void close_all_pipes(t_PIPES *pipes)
{
    close_fd(&pipes->go[0]);
    close_fd(&pipes->go[1]);
    close_fd(&pipes->report[0]);
    close_fd(&pipes->report[1]);
}

/* ---- At a fork ------------------------------------------------------------------------------------------------- */

/* No code of ours takes one of these locks while it has another; any order would do. */
static void hold_for_fork(void)
{
    pthread_mutex_lock(&lock);
    hold_doorbells();
    hold_helper_thread();
}

static void go_on_after_fork(void)
{
    release_helper_thread();
    release_doorbells();
    pthread_mutex_unlock(&lock);
}

/* Its segment was not copied, and its process is not a child of this one. */
static void forget_process(ka_host *host)
{
    close_all_pipes(&host->pipes);
    host->life.state = STATE_ENDED;
    host->life.left = no_life.left;
    host->process = no_process;
    host->shown_pid = 0;
    if (host->owner != this_thread()) host->owner = 0; /* it is not in this process */
    host->prepared = nothing_prepared;
    host->waiting = no_waiting;
    host->segment = no_segment;
    host->last_end = no_last_end;
    host->report = nullptr;
    host->building.argc = 0;
    host->cancel = {};
    host->wait_fd = no_wait_fd; /* the descriptors are the parent's, too */
}

static void begin_anew_in_child(void)
{
    begin_helper_thread_anew();
    begin_doorbells_anew();
    for (ka_host *host = hosts; host; host = host->next)
        forget_process(host);
    go_on_after_fork();
}

/* In a constructor, not at first use: a fork that another thread has already begun would miss the handlers, and its
   child would inherit a lock that is never released. */
__attribute__((constructor)) static void prepare_for_forks(void)
{
    fork_error = pthread_atfork(hold_for_fork, go_on_after_fork, begin_anew_in_child);
}

/* ---- Hosts ----------------------------------------------------------------------------------------------------- */

int enter_host(ka_host *host)
{
    if (fork_error != 0) return fork_error;
    pthread_mutex_lock(&lock);
    host->next = hosts;
    host->link = &hosts;
    if (hosts) hosts->link = &host->next;
    hosts = host;
    pthread_mutex_unlock(&lock);
    return 0;
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
