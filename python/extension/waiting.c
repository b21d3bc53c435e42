/* SPDX-License-Identifier: MIT
 *
 * Waiting inside libkacall for a start, in the main thread of Python: another thread waits, and this one looks every
 * 50 ms whether a signal handler has something to say. */
#define _GNU_SOURCE
#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include "extension.h"

typedef struct t_TASK {
    t_WORK *work;
    void *subject;
    int32_t result;
    sem_t done;
} t_TASK;

/* Asked at each call: the answer is kept until a fork. */
bool in_main_thread(void)
{
    static _Thread_local unsigned asked; /* after how many forks, counted from 1; 0: never */
    static _Thread_local bool answer;
    if (asked != fork_count() + 1) {
        asked = fork_count() + 1;
        answer = gettid() == getpid();
    }
    return answer;
}

static void *run_task(void *argument)
{
    t_TASK *task = argument;
    task->result = task->work(task->subject);
    sem_post(&task->done);
    return NULL;
}

/* Signals interrupt the main thread. SIGUSR2 is libkacall's. */
static int start_thread(t_TASK *task, pthread_t *thread)
{
    sigset_t all, before;
    sigfillset(&all);
    sigdelset(&all, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(thread, NULL, run_task, task);
    pthread_sigmask(SIG_SETMASK, &before, NULL);
    return error;
}

static bool is_done_soon(t_TASK *task)
{
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += LOOK_MS * 1000000L;
    if (until.tv_nsec >= 1000000000L) {
        until.tv_nsec -= 1000000000L;
        until.tv_sec++;
    }
    PyThreadState *state = PyEval_SaveThread();
    const bool done = sem_timedwait(&task->done, &until) == 0;
    PyEval_RestoreThread(state);
    return done;
}

static int32_t run_here(t_WORK *work, void *subject)
{
    PyThreadState *state = PyEval_SaveThread();
    const int32_t result = work(subject);
    PyEval_RestoreThread(state);
    return result;
}

int run_waiting(t_WORK *work, void *subject, void (*cancel)(void *), int32_t *result)
{
    t_TASK task = {.work = work, .subject = subject};
    pthread_t thread;
    sem_init(&task.done, 0, 0);
    if (!in_main_thread() || start_thread(&task, &thread) != 0) {
        sem_destroy(&task.done);
        *result = run_here(work, subject);
        return 0;
    }
    const unsigned forks = fork_count();
    bool raised = false;
    while (!is_done_soon(&task)) {
        if (!raised && PyErr_CheckSignals() < 0) raised = true;
        if (fork_count() != forks) return -1; /* the thread is the parent's */
        if (raised) cancel(subject);          /* again, until there is something to cancel */
    }
    PyThreadState *state = PyEval_SaveThread();
    pthread_join(thread, NULL);
    PyEval_RestoreThread(state);
    sem_destroy(&task.done);
    *result = task.result;
    return raised ? -1 : 0;
}
