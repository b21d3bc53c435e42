/* SPDX-License-Identifier: MIT
 *
 * Names of functions and arguments in messages. */
#ifndef KA_CALLER_NAME_H
#define KA_CALLER_NAME_H

#include "printable.h"

enum { SHOWN_NAME = 80 };

/* A name for messages: cut, and without control characters. */
inline void show_name(char shown[SHOWN_NAME], const char *name)
{
    copy_printable(shown, SHOWN_NAME, name);
}

#endif
