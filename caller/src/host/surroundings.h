/* SPDX-License-Identifier: MIT
 *
 * ka_options.environment and ka_options.directory, kept for every start. */
#ifndef KA_CALLER_SURROUNDINGS_H
#define KA_CALLER_SURROUNDINGS_H

#include "host.h"

/* Copies both. With a directory, the module's path becomes one that begins at the root. */
int32_t take_surroundings(ka_host *host);

void forget_surroundings(ka_host *host);

/* A relative path, from where the program is now: malloc'd, and replaced by a malloc'd one if the host gets a
   directory of its own. */
int32_t fix_path(ka_host *host, char **path);

#endif
