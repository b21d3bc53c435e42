/* SPDX-License-Identifier: MIT
 *
 * The helper thread: a thread of the library's own that starts the hosts, because the kernel ends a host when the
 * thread that started it ends, and threads of the program come and go. It is created when first needed, lives as long
 * as the process, blocks every signal, and has no descriptor that the program could close. */
#ifndef KA_CALLER_HELPER_THREAD_H
#define KA_CALLER_HELPER_THREAD_H

#include <stdint.h>

/* Runs work in the helper thread and waits until it has returned. Work must not wait for anything: everything else
   waits for it. 0, or an errno with nothing run: ETIMEDOUT when the thread was busy with other work until then. */
int run_in_helper_thread(void (*work)(void *argument), void *argument, int64_t deadline);

/* For fork.cpp. */
void hold_helper_thread(void);
void release_helper_thread(void);
void begin_helper_thread_anew(void); /* in the child, while it is held */

#endif
