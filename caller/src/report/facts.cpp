/* SPDX-License-Identifier: MIT
 *
 * See facts.h. */
#include "facts.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "base/clock.h"
#include "ka/dll_codes.h"
#include "wire/kinds.h"

bool concerns_call(const ka_host *host)
{
    return host->building.argc > 0 && host->segment.base && host->building.error == KA_DONE &&
           host->error.error_class != KA_CLOSED;
}

/* A child that could not become the host is not a process of the module. */
bool concerns_end(const ka_host *host)
{
    const bool never_ran = host->error.error_class == KA_START && host->error.exit_status == -1;
    return host->last_end.of_error && host->last_end.pid != 0 && !never_ran;
}

static const ka_function *called_function(const ka_host *host)
{
    const ka_tables *tables = host->last_end.of_error ? host->last_end.tables : host->prepared.tables;
    return tables ? ka_find_function(tables, host->function) : nullptr;
}

const ka_prototype *prototype_of(const ka_host *host, int32_t argument)
{
    const ka_function *function = called_function(host);
    if (!function || argument < 1) return nullptr;
    int32_t place = 0;
    for (int32_t i = 1; i < argument && place < function->prototype_count; i++)
        place = wire::next_prototype(place, function->prototypes[place].kind);
    return place < function->prototype_count ? &function->prototypes[place] : nullptr;
}

int32_t shown_elements(const t_ARGUMENT *argument)
{
    return argument->count < SHOWN_ELEMENTS ? argument->count : static_cast<int32_t>(SHOWN_ELEMENTS);
}

void write_time(int64_t time_ns, char text[TIME_TEXT])
{
    const time_t seconds = static_cast<time_t>(time_ns / NS_PER_S);
    struct tm parts;
    gmtime_r(&seconds, &parts);
    const size_t length = strftime(text, TIME_TEXT, "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text + length, TIME_TEXT - length, ".%03dZ", static_cast<int>(time_ns % NS_PER_S / NS_PER_MS));
}

/* A function can end its process with any status: only a host that failed to start says what failed. */
const char *exit_status_meaning(const ka_host *host)
{
    if (host->last_end.status == 0) return "an orderly end";
    if (host->error.error_class != KA_START) return nullptr;
    switch (host->last_end.status) {
    case KA_EXIT_START:
        return "the host could not start; see its standard error";
    case EXIT_LOADER:
        return "a library is missing; see its standard error";
    default:
        return nullptr;
    }
}

const char *retry_name(int32_t retry)
{
    return retry == KA_RETRY_YES ? "yes" : retry == KA_RETRY_UNSURE ? "unsure" : "no";
}

bool next_line(const char **text, const char *end, t_LINE *line)
{
    if (*text >= end) return false;
    const char *found = static_cast<const char *>(memchr(*text, '\n', static_cast<size_t>(end - *text)));
    const char *stop = found ? found : end;
    *line = {*text, static_cast<size_t>(stop - *text)};
    *text = found ? found + 1 : end;
    return true;
}

/* From after the line end before the last lines. */
const char *last_lines(const ka_host *host, const char **end)
{
    const t_LAST_END *last_end = &host->last_end;
    const bool there = concerns_end(host) && last_end->output;
    const char *start = there ? last_end->output : nullptr;
    *end = there ? start + last_end->output_length : nullptr;
    const char *at = *end;
    for (int lines = 0; at > start; at--)
        if (at[-1] == '\n' && at < *end && ++lines == SHOWN_LINES) break;
    return at;
}
