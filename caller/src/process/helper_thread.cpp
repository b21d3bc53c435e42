/* SPDX-License-Identifier: MIT
 *
 * One thread that takes jobs from a list. It is woken by a condition alone: a descriptor could be closed by a program
 * that closes all that it does not know, and its number could be that of a file of the program's then.
 *
 * A fork copies its records, but not the thread: the child begins anew. */
#include "helper_thread.h"

#include <errno.h>
#include <pthread.h>
#include <time.h>

#include "base/clock.h"
#include "base/thread.h"

/* Only pages that are touched cost memory; but in a 32-bit caller the usual 8 MiB of addresses are a lot. */
enum { STACK_BYTES = 1 << 20 };

namespace {
enum t_PROGRESS_OF_JOB { JOB_WAITS, JOB_RUNS, JOB_DONE };

struct t_JOB {
    void (*work)(void *argument);
    void *argument;
    t_PROGRESS_OF_JOB progress;
    t_JOB *next;
};
} // namespace

/* Everything here is guarded by lock. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER; /* the list, or a job in it */
static bool running;
static t_JOB *jobs;

/* ---- The thread ------------------------------------------------------------------------------------------------ */

static void *run_jobs(void *)
{
    pthread_mutex_lock(&lock);
    for (;;) {
        while (!jobs)
            pthread_cond_wait(&changed, &lock);
        t_JOB *job = jobs;
        jobs = job->next;
        job->progress = JOB_RUNS;
        pthread_mutex_unlock(&lock);
        job->work(job->argument);
        pthread_mutex_lock(&lock);
        job->progress = JOB_DONE;
        pthread_cond_broadcast(&changed);
    }
}

/* ---- Start; in all of this lock is held ------------------------------------------------------------------------ */

static int ensure_running(void)
{
    if (running) return 0;
    pthread_t thread;
    const int error = create_thread_without_signals(&thread, STACK_BYTES, run_jobs, nullptr);
    if (error != 0) return error;
    pthread_detach(thread);
    running = true;
    return 0;
}

/* ---- Jobs; lock is held ---------------------------------------------------------------------------------------- */

static void add_job(t_JOB *job)
{
    t_JOB **end = &jobs;
    while (*end)
        end = &(*end)->next;
    *end = job;
    pthread_cond_broadcast(&changed);
}

static void withdraw_job(const t_JOB *job)
{
    t_JOB **link = &jobs;
    while (*link != job)
        link = &(*link)->next;
    *link = job->next;
}

/* A job that has begun uses the caller's memory, so its end is awaited: it waits for nothing. */
static int await_job(t_JOB *job, int64_t deadline)
{
    const struct timespec until = {static_cast<time_t>(deadline / NS_PER_S), static_cast<long>(deadline % NS_PER_S)};
    int error = 0;
    while (job->progress != JOB_DONE) {
        if (error == 0)
            error = pthread_cond_clockwait(&changed, &lock, CLOCK_MONOTONIC, &until);
        else
            pthread_cond_wait(&changed, &lock);
        if (error == 0 || job->progress != JOB_WAITS) continue;
        withdraw_job(job);
        return error;
    }
    return 0;
}

int run_in_helper_thread(void (*work)(void *argument), void *argument, int64_t deadline)
{
    t_JOB job = {work, argument, JOB_WAITS, nullptr};
    pthread_mutex_lock(&lock);
    int error = ensure_running();
    if (error == 0) {
        add_job(&job);
        error = await_job(&job, deadline);
    }
    pthread_mutex_unlock(&lock);
    return error;
}

/* ---- At a fork ------------------------------------------------------------------------------------------------- */

void hold_helper_thread(void)
{
    pthread_mutex_lock(&lock);
}

void release_helper_thread(void)
{
    pthread_mutex_unlock(&lock);
}

void begin_helper_thread_anew(void)
{
    running = false;
    jobs = nullptr;
    pthread_cond_init(&changed, nullptr);
}
