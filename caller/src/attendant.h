/* SPDX-License-Identifier: MIT
 *
 * The attendant: a thread of the library's own. It starts the hosts, because the kernel ends a host when the thread
 * that started it ends, and threads of the program come and go; and it reads what must be read although nobody is
 * calling. It is created when first needed, lives as long as the process, and blocks every signal. */
#ifndef KA_CALLER_ATTENDANT_H
#define KA_CALLER_ATTENDANT_H

#include <pthread.h>
#include <stddef.h>

/* Runs work in the attendant and waits until it has returned. Work must not take long: everything else waits for it.
   0, or an errno when there is no attendant; then nothing was run. */
int attendant_run(void (*work)(void *argument), void *argument);

/* Creates a thread that blocks every signal, which the attendant is not the only one to need. 0 or an errno. */
int create_quiet_thread(pthread_t *created, size_t stack_bytes, void *(*run)(void *), void *argument);

/* A descriptor that the attendant waits for. The record is the caller's, and stays unchanged while it is watched. */
struct t_WATCH {
    int fd;
    void (*on_readable)(void *argument); /* also at the end of a pipe; must neither block nor take long */
    void *argument;
};

/* Calls on_readable whenever fd is readable. 0, or an errno; then nothing is watched. */
int attendant_watch(t_WATCH *watch);

/* Stops that. Once this returns on_readable is not running and will not run. It may be called inside on_readable, and
   inside work; fd must still be open. */
void attendant_forget(const t_WATCH *watch);

/* For forked.cpp. */
void hold_attendant(void);
void release_attendant(void);
void begin_attendant_anew(void); /* in the child, while it is held */

#endif
