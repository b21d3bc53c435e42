/* SPDX-License-Identifier: MIT
 *
 * One thread that waits in epoll for its control descriptor and for what it watches. It takes one event a round, and
 * counts the rounds: whoever forgets a watch waits until the round is over that may have taken its event already.
 *
 * A fork copies the records of the attendant, but not the thread: the child begins anew. */
#include "attendant.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

/* Only pages that are touched cost memory; but in a 32-bit caller the usual 8 MiB of addresses are a lot. */
enum { STACK_BYTES = 1 << 20 };

namespace {
struct t_JOB {
    void (*work)(void *argument);
    void *argument;
    bool done;
    t_JOB *next;
};
} // namespace

/* Everything here is guarded by lock. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t round_is_over = PTHREAD_COND_INITIALIZER;
static bool running;
static pthread_t thread;
static int control_fd = -1; /* an eventfd: makes the attendant finish a round */
static int epoll_fd = -1;
static uint32_t rounds;
static t_JOB *jobs;

/* ---- The thread ------------------------------------------------------------------------------------------------ */

static void run_jobs(void)
{
    while (jobs) {
        t_JOB *job = jobs;
        jobs = job->next;
        pthread_mutex_unlock(&lock);
        job->work(job->argument);
        pthread_mutex_lock(&lock);
        job->done = true;
    }
}

/* The descriptors cannot be replaced while this runs: only a child of fork does so, where it does not run. */
static void *attend(void *)
{
    for (;;) {
        struct epoll_event event;
        if (epoll_wait(epoll_fd, &event, 1, -1) != 1) continue;
        const t_WATCH *watch = static_cast<const t_WATCH *>(event.data.ptr);
        if (watch) watch->on_readable(watch->argument);
        uint64_t count;
        if (!watch && read(control_fd, &count, sizeof count) != sizeof count) continue;
        pthread_mutex_lock(&lock);
        run_jobs();
        rounds++;
        pthread_cond_broadcast(&round_is_over);
        pthread_mutex_unlock(&lock);
    }
}

/* ---- Start; in all of this lock is held ------------------------------------------------------------------------ */

static void close_descriptors(void)
{
    if (control_fd != -1) close(control_fd);
    if (epoll_fd != -1) close(epoll_fd);
    control_fd = epoll_fd = -1;
}

static int open_descriptors(void)
{
    control_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    if (control_fd == -1 || epoll_fd == -1) return errno;
    struct epoll_event event = {EPOLLIN, {nullptr}};
    return epoll_ctl(epoll_fd, EPOLL_CTL_ADD, control_fd, &event) == 0 ? 0 : errno;
}

/* A thread is born with the signal mask of its creator. */
int create_quiet_thread(pthread_t *created, size_t stack_bytes, void *(*run)(void *), void *argument)
{
    sigset_t all;
    sigset_t before;
    pthread_attr_t attributes;
    sigfillset(&all);
    int error = pthread_attr_init(&attributes);
    if (error != 0) return error;
    pthread_attr_setstacksize(&attributes, stack_bytes);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    error = pthread_create(created, &attributes, run, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
}

static int create_attendant(void)
{
    const int error = create_quiet_thread(&thread, STACK_BYTES, attend, nullptr);
    if (error == 0) pthread_detach(thread);
    return error;
}

static int ensure_running(void)
{
    if (running) return 0;
    int error = open_descriptors();
    if (error == 0) error = create_attendant();
    running = error == 0;
    if (!running) close_descriptors();
    return error;
}

/* ---- Services -------------------------------------------------------------------------------------------------- */

static void kick(void)
{
    const uint64_t one = 1;
    if (write(control_fd, &one, sizeof one) != sizeof one) return; /* full: it is kicked already */
}

int attendant_run(void (*work)(void *argument), void *argument)
{
    t_JOB job = {work, argument, false, nullptr};
    pthread_mutex_lock(&lock);
    const int error = ensure_running();
    if (error == 0) {
        job.next = jobs;
        jobs = &job;
        kick();
        while (!job.done)
            pthread_cond_wait(&round_is_over, &lock);
    }
    pthread_mutex_unlock(&lock);
    return error;
}

int attendant_watch(t_WATCH *watch)
{
    pthread_mutex_lock(&lock);
    int error = ensure_running();
    struct epoll_event event = {EPOLLIN, {watch}};
    if (error == 0 && epoll_ctl(epoll_fd, EPOLL_CTL_ADD, watch->fd, &event) != 0) error = errno;
    pthread_mutex_unlock(&lock);
    return error;
}

/* In a child of fork there is nothing to forget: the watches are its parent's. */
void attendant_forget(const t_WATCH *watch)
{
    pthread_mutex_lock(&lock);
    if (running) {
        epoll_ctl(epoll_fd, EPOLL_CTL_DEL, watch->fd, nullptr);
        const uint32_t round = rounds;
        kick();
        while (round == rounds && !pthread_equal(thread, pthread_self()))
            pthread_cond_wait(&round_is_over, &lock);
    }
    pthread_mutex_unlock(&lock);
}

/* ---- At a fork ------------------------------------------------------------------------------------------------- */

void hold_attendant(void)
{
    pthread_mutex_lock(&lock);
}

void release_attendant(void)
{
    pthread_mutex_unlock(&lock);
}

void begin_attendant_anew(void)
{
    running = false;
    jobs = nullptr;
    close_descriptors();
    pthread_cond_init(&round_is_over, nullptr);
}
