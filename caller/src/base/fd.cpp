/* SPDX-License-Identifier: MIT
 *
 * See fd.h. */
#include "fd.h"

#include <string.h>
#include <unistd.h>

void close_fd(int *fd)
{
    if (*fd != -1) close(*fd);
    *fd = -1;
}

const char *errno_text(int error_number)
{
    const char *text = strerrordesc_np(error_number);
    return text ? text : "unknown error";
}
