/* SPDX-License-Identifier: MIT
 *
 * Threads that the program cancels. One that is in the library would end at its next system call, with locks held
 * that everybody needs, and with a host in the middle of a call. */
#ifndef KA_CALLER_UNCANCELLED_H
#define KA_CALLER_UNCANCELLED_H

#include <pthread.h>

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
