/* SPDX-License-Identifier: MIT
 *
 * Whose turn it is to use a host. Threads queue in the order in which they come, and so do calls of event loops. The
 * one whose turn it is owns the host until it leaves it, also while it waits without the GIL. */
#define _GNU_SOURCE
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "extension.h"

/* ---- Forks ----------------------------------------------------------------------------------------------------- */

/* The hosts of the parent have ended for the child. What the records say about threads is of the parent's. */
static unsigned forks;

static void begin_child(void)
{
    forks++;
    replace_exported_areas();
}

unsigned fork_count(void)
{
    return forks;
}

int watch_forks(void)
{
    static bool watched;
    if (watched) return 0;
    watched = true;
    const int error = pthread_atfork(NULL, NULL, begin_child);
    return error == 0 ? 0 : (PyErr_NoMemory(), -1);
}

/* ---- Turns ----------------------------------------------------------------------------------------------------- */

bool is_closed(const t_HOST *host)
{
    return !host->ka || host->forks != forks;
}

int fail_closed(t_HOST *host)
{
    const bool forked = host->ka && host->forks != forks;
    return fail_host(host, KA_CLOSED, forked ? "the host belongs to the parent process" : "the host is closed");
}

int check_open(t_HOST *host)
{
    return is_closed(host) ? fail_closed(host) : 0;
}

static void queue_up(t_HOST *host, t_WAITER *waiter)
{
    if (host->last)
        host->last->next = waiter;
    else
        host->first = waiter;
    host->last = waiter;
}

static void drop_out(t_HOST *host, t_WAITER *waiter)
{
    t_WAITER *before = NULL;
    for (t_WAITER *each = host->first; each != waiter; each = each->next)
        before = each;
    if (before)
        before->next = waiter->next;
    else
        host->first = waiter->next;
    if (host->last == waiter) host->last = before;
}

/* Once the interpreter ends, other threads never come back to leave a host. */
static bool is_interpreter_ending(void)
{
    PyObject *function = PySys_GetObject("is_finalizing");
    PyObject *answer = function ? PyObject_CallNoArgs(function) : NULL;
    const bool ending = answer && PyObject_IsTrue(answer) == 1;
    Py_XDECREF(answer);
    PyErr_Clear();
    return ending;
}

/* Signal handlers run in between; one that raises ends the waiting. */
static int wait_for_turn(t_HOST *host, t_WAITER *waiter)
{
    const bool main_thread = in_main_thread();
    const long long longest_us = main_thread ? LOOK_MS * 1000 : -1;
    while (!waiter->has_turn) {
        PyThreadState *state = PyEval_SaveThread();
        PyThread_acquire_lock_timed(waiter->lock, longest_us, main_thread);
        PyEval_RestoreThread(state);
        if (!main_thread || waiter->has_turn) continue;
        if (PyErr_CheckSignals() < 0 || is_closed(host)) break; /* a handler may have forked, and this be the child */
        if (is_interpreter_ending() && !waiter->has_turn) {
            fail_host(host, KA_ARGUMENT, "the host is used by another thread, and the interpreter is ending");
            break;
        }
    }
    if (!PyErr_Occurred()) return 0;
    if (waiter->has_turn)
        leave_host(host);
    else
        drop_out(host, waiter);
    return -1;
}

/* On the heap: a thread that the end of the interpreter stops here leaves it in the queue. */
static t_WAITER *new_waiter(bool of_loop)
{
    t_WAITER *waiter = calloc(1, sizeof *waiter);
    if (!waiter) return PyErr_NoMemory(), NULL;
    waiter->thread = PyThread_get_thread_ident();
    waiter->event_fd = of_loop ? eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : -1;
    if (!of_loop && (waiter->lock = PyThread_allocate_lock())) {
        PyThread_acquire_lock(waiter->lock, NOWAIT_LOCK);
        return waiter;
    }
    if (waiter->event_fd != -1) return waiter;
    free(waiter);
    if (of_loop)
        PyErr_SetFromErrno(PyExc_OSError);
    else
        PyErr_NoMemory();
    return NULL;
}

static void free_waiter(t_WAITER *waiter)
{
    if (waiter->lock) PyThread_free_lock(waiter->lock);
    if (waiter->event_fd != -1) close(waiter->event_fd);
    free(waiter);
}

/* A thread that waited behind a call of its own would wait for ever: one of its event loop, or one in whose wait a
   signal handler runs. */
static int check_own_calls(t_HOST *host)
{
    const unsigned long me = PyThread_get_thread_ident();
    bool makes = host->owner == me, awaits = makes && host->awaited;
    for (const t_WAITER *each = host->first; each; each = each->next) {
        makes = makes || each->thread == me;
        awaits = awaits || (each->thread == me && each->event_fd != -1);
    }
    if (awaits) return fail_host(host, KA_ARGUMENT, "a call of it is awaited in this thread; use a second host");
    if (makes) return fail_host(host, KA_ARGUMENT, "is used while this thread makes a call of it; use a second host");
    return 0;
}

static int check_callback(t_HOST *host)
{
    if (!host->in_callback) return 0;
    if (host->owner != PyThread_get_thread_ident())
        return fail_host(host, KA_ARGUMENT, "is used by another thread, which is in a call-back");
    return fail_host(host, KA_ARGUMENT, "is used inside a call-back of the same host; use a second host");
}

static int take_turn_after_others(t_HOST *host)
{
    if (check_callback(host) < 0 || check_own_calls(host) < 0) return -1;
    t_WAITER *waiter = new_waiter(false);
    if (!waiter) return -1;
    queue_up(host, waiter);
    const int status = wait_for_turn(host, waiter);
    free_waiter(waiter);
    return status;
}

int enter_host(t_HOST *host)
{
    if (check_open(host) < 0) return -1;
    if (host->owner == 0)
        host->owner = PyThread_get_thread_ident();
    else if (take_turn_after_others(host) < 0)
        return -1;
    if (check_open(host) < 0) {
        leave_host(host);
        return -1;
    }
    settle_evidence(host);
    return 0;
}

void leave_host(t_HOST *host)
{
    if (host->forks != forks) return;
    t_WAITER *next = host->first;
    host->owner = next ? next->thread : 0;
    host->awaited = false;
    if (!next) return;
    host->first = next->next;
    if (!host->first) host->last = NULL;
    next->has_turn = true;
    host->awaited = next->event_fd != -1;
    if (host->awaited)
        eventfd_write(next->event_fd, 1);
    else
        PyThread_release_lock(next->lock);
}

int enter_host_later(t_HOST *host, t_WAITER **waiter)
{
    *waiter = NULL;
    if (check_open(host) < 0 || check_callback(host) < 0) return -1;
    if (host->owner == 0) {
        host->owner = PyThread_get_thread_ident();
        host->awaited = true;
        return 0;
    }
    if (host->owner == PyThread_get_thread_ident() && !host->awaited)
        return fail_host(host, KA_ARGUMENT, "is used while this thread makes a call of it; use a second host");
    *waiter = new_waiter(true);
    if (!*waiter) return -1;
    queue_up(host, *waiter);
    return 0;
}

void drop_waiter(t_HOST *host, t_WAITER *waiter)
{
    if (!waiter->has_turn && host->forks == forks) drop_out(host, waiter);
    free_waiter(waiter);
}
