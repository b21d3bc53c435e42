/* SPDX-License-Identifier: MIT
 *
 * The handler of SIGUSR2 in the program, and the program's own, which it stands in for. */
#ifndef KA_CALLER_HANDLER_H
#define KA_CALLER_HANDLER_H

/* Puts it before the one that is in place, unless that is it. The first time since no host was open the program's own
   is noted. 0 or an errno. Called under a lock, in turn with remove_handler. */
int install_handler(bool is_first);

/* No other is in its place. */
bool handler_is_installed(void);

/* Restores what the program had, unless it has installed another handler since. What is pending goes where it belongs
   first. */
void remove_handler(void);

/* The same in a child of fork: what is pending there was sent to the child, and stays. */
void remove_handler_in_child(void);

#endif
