/* SPDX-License-Identifier: MIT
 *
 * See surroundings.h. */
#include "surroundings.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

void forget_surroundings(ka_host *host)
{
    for (char **entry = host->life.environment; entry && *entry; entry++)
        free(*entry);
    free(host->life.environment);
    free(host->life.directory);
    host->life.environment = nullptr;
    host->life.directory = nullptr;
}

int32_t fix_path(ka_host *host, char **path)
{
    if (!host->life.directory || **path == '/') return KA_DONE;
    char *here = getcwd(nullptr, 0);
    if (!here) return fail_system(host, errno, "cannot tell where the program is");
    const size_t size = strlen(here) + strlen(*path) + 2;
    char *fixed = static_cast<char *>(malloc(size));
    if (fixed) {
        snprintf(fixed, size, "%s/%s", here, *path);
        free(*path);
        *path = fixed;
    }
    free(here);
    return fixed ? int32_t{KA_DONE} : fail_system(host, ENOMEM, "cannot keep the path");
}

/* False without memory for all of it. */
static bool copy_environment(ka_host *host, const char *const *entries)
{
    size_t count = 0;
    while (entries[count])
        count++;
    char **copy = static_cast<char **>(calloc(count + 1, sizeof *copy)); /* null behind the last */
    host->life.environment = copy;
    for (size_t i = 0; i < count && copy; i++)
        if (!(copy[i] = strdup(entries[i]))) return false;
    return copy != nullptr;
}

int32_t take_surroundings(ka_host *host)
{
    const char *const *environment = host->options.environment;
    const char *directory = host->options.directory;
    host->options.environment = nullptr; /* the program's own memory, both */
    host->options.directory = nullptr;
    if (environment && !copy_environment(host, environment))
        return fail_system(host, ENOMEM, "cannot keep the environment");
    if (!directory) return KA_DONE;
    host->life.directory = strdup(directory);
    if (!host->life.directory) return fail_system(host, ENOMEM, "cannot keep the directory");
    return fix_path(host, &host->module);
}
