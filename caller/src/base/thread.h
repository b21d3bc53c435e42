/* SPDX-License-Identifier: MIT
 *
 * Threads of the library's own, and what it does to those of the program. */
#ifndef KA_CALLER_THREAD_H
#define KA_CALLER_THREAD_H

#include <pthread.h>
#include <stddef.h>
#include <sys/types.h>

/* Creates a thread that blocks every signal. 0 or an errno. */
int create_thread_without_signals(pthread_t *created, size_t stack_bytes, void *(*run)(void *), void *argument);

/* The id of this thread; the kernel is asked once. Async-signal-safe. */
pid_t own_thread(void);
void forget_own_thread(void); /* in a child of fork: it has another */

/* Between two looks at what another thread is about to finish, which runs, or needs this processor, perhaps with a
   lower priority. attempts counts from 0. */
void let_another_finish(int attempts);

/* Threads that the program cancels: one that is in the library would end at its next system call, with locks held
   that others need, and with a host in the middle of a call. */
inline int hold_cancellation(void)
{
    int before = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    return before;
}

inline void release_cancellation(const int *before)
{
    pthread_setcancelstate(*before, nullptr);
}

/* First in every function of the interface that makes system calls: what cancels the thread takes effect after it. */
#define HOLD_CANCELLATION \
    __attribute__((cleanup(release_cancellation))) const int cancellation_before = hold_cancellation()

#endif
