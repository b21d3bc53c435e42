/* SPDX-License-Identifier: MIT
 *
 * The handler of SIGUSR2 in the program, and the program's own, which it stands in for. */
#ifndef KA_CALLER_HANDLER_H
#define KA_CALLER_HANDLER_H

/* 0 or an errno. Both are called under a lock, in turn. */
int install_handler(void);

/* No other is in its place. */
bool handler_is_installed(void);

/* Restores what the program had, unless it has installed another handler since. What is pending goes where it belongs
   first. */
void remove_handler(void);

/* The same in a child of fork: what is pending there was sent to the child, and stays. */
void remove_handler_in_child(void);

#endif
