/* SPDX-License-Identifier: MIT
 *
 * Until libkacall has ka_send. */
#include <stdbool.h>

#include "ka/caller.h"

enum { KA_RETURNED = 0, KA_CALLBACK = 1, KA_WAITING = 2 };
int32_t ka_send(ka_host *host);
int32_t ka_wait(ka_host *host, int32_t timeout_ms, int32_t *what, int32_t *value);
int32_t ka_answer(ka_host *host, int32_t value);
int32_t ka_cancel(ka_host *host);
int32_t meanwhile_open(ka_host **ka, const char *path, ka_options *options);
#define ka_open meanwhile_open
