/* SPDX-License-Identifier: MIT
 *
 * The trace level of a running host, read and set from outside: dll_debug is an exported variable. Where the program
 * mentions it, the loader has moved it from the library into the program, so that one is the one in use. */
#include <errno.h>
#include <stdio.h>

#include "base/thread.h"
#include "image.h"
#include "ka/caller.h"

static int32_t refuse(int32_t error_class, char *why, size_t size, pid_t pid, const char *reason)
{
    snprintf(why, size, "process %d %s", pid, reason);
    return error_class;
}

/* A library that is linked into something else, too, has the variable; a host has the tables besides. */
static int32_t find_level(t_IMAGE *image, uint64_t *address, char *why, size_t size)
{
    uint64_t functions = 0;
    if (!find_symbol(image, "dll_debug", address))
        return refuse(KA_ARGUMENT, why, size, image->pid, "is not a host: it has no dll_debug");
    if (!find_symbol(image, "KaFuncList", &functions))
        return refuse(KA_ARGUMENT, why, size, image->pid, "is not a host: it has no KaFuncList");
    return KA_DONE;
}

static int32_t access_level(t_IMAGE *image, const int32_t *level, int32_t *old, char *why, size_t size)
{
    uint64_t address = 0;
    if (find_level(image, &address, why, size) != KA_DONE) return KA_ARGUMENT;
    if (old && !read_image(image, address, old, sizeof *old))
        return refuse(KA_SYSTEM, why, size, image->pid, "does not let its dll_debug be read");
    const int error = level ? write_image(image, address, level, sizeof *level) : 0;
    if (error == ESRCH) return refuse(KA_ARGUMENT, why, size, image->pid, "has ended");
    if (error != 0) return refuse(KA_SYSTEM, why, size, image->pid, "does not let its dll_debug be written");
    return KA_DONE;
}

int32_t ka_trace_process(int32_t pid, const int32_t *level, int32_t *old, char *why, int32_t size)
{
    HOLD_CANCELLATION;
    int32_t error_class = KA_DONE;
    t_IMAGE *image = open_process_image(pid, &error_class, why, static_cast<size_t>(size));
    if (!image) return error_class;
    error_class = access_level(image, level, old, why, static_cast<size_t>(size));
    close_image(image);
    return error_class;
}
