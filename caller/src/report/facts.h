/* SPDX-License-Identifier: MIT
 *
 * What is known about the last error, for the text and for the JSON object. The block is read as the call left it;
 * where its values lie is taken from the library's own record of the arguments. */
#ifndef KA_CALLER_FACTS_H
#define KA_CALLER_FACTS_H

#include "host/host.h"

/* How much is shown of an array, of a string, and of the standard error. */
enum { SHOWN_ELEMENTS = 16, SHOWN_CHARACTERS = 256, SHOWN_LINES = 20 };

/* Whether the error was one of a call that was built: then function and arguments are shown. */
bool concerns_call(const ka_host *host);

/* Whether the error has to do with the end of a process that ran the module. */
bool concerns_end(const ka_host *host);

/* An argument's prototype; null when the tables are not known, or have none for it. */
const ka_prototype *prototype_of(const ka_host *host, int32_t argument);

int32_t shown_elements(const t_ARGUMENT *argument);

/* 2026-11-21T16:20:31.123Z */
enum { TIME_TEXT = 32 };
void write_time(int64_t time_ns, char text[TIME_TEXT]);

/* Of the process that ended; null when it has none in particular. */
const char *exit_status_meaning(const ka_host *host);
const char *retry_name(int32_t retry);

/* The next line of a text, without its end; false at the end of the text. */
struct t_LINE {
    const char *start;
    size_t length;
};
bool next_line(const char **text, const char *end, t_LINE *line);

/* The last lines of the standard error of the host that the error is about. */
const char *last_lines(const ka_host *host, const char **end);

#endif
