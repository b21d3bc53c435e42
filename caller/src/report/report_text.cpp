/* SPDX-License-Identifier: MIT
 *
 * The report that people read: the error as it is noted (that of a dead host in process/end.cpp), then what is known
 * about it, one line for each thing under a label. */
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "base/clock.h"
#include "base/name.h"
#include "base/text.h"
#include "base/thread.h"
#include "block/results.h"
#include "block/segment.h"
#include "facts.h"
#include "host/host.h"
#include "host/owner.h"

/* Begins a line; the label is only shown with the first of several. */
static void begin_line(t_TEXT *report, const char *label)
{
    write_text(report, "  %-11s", label);
}

/* ---- Arguments ------------------------------------------------------------------------------------------------- */

static void write_string(t_TEXT *report, const ka_host *host, const t_ARGUMENT *argument, int32_t index)
{
    char bytes[SHOWN_CHARACTERS];
    const int32_t length = read_string(host, argument, index, bytes, sizeof bytes);
    const int32_t shown = length < SHOWN_CHARACTERS ? length : static_cast<int32_t>(SHOWN_CHARACTERS);
    write_quoted(report, bytes, static_cast<size_t>(shown));
    if (length > SHOWN_CHARACTERS) write_text(report, "... (%d characters)", length);
}

static void write_element(t_TEXT *report, const ka_host *host, const t_ARGUMENT *argument, int32_t index)
{
    if (argument->type == DLL_INTEGER) {
        write_text(report, "%d", read_integer(host, argument, index));
    } else if (argument->type == DLL_REAL) {
        char text[KA_REAL_TEXT];
        const t_DECIMAL value = read_real(host, argument, index);
        write_text(report, "%s", ka_real_to_text(&value, text));
    } else {
        write_string(report, host, argument, index);
    }
}

static void write_elements(t_TEXT *report, const ka_host *host, const t_ARGUMENT *argument)
{
    const int32_t shown = shown_elements(argument);
    if (argument->count != 1) write_bytes(report, "[", 1);
    for (int32_t i = 0; i < shown; i++) {
        if (i > 0) write_bytes(report, ", ", 2);
        write_element(report, host, argument, i);
    }
    if (argument->count > shown) write_text(report, ", ... (%d elements)", argument->count);
    if (argument->count != 1) write_bytes(report, "]", 1);
}

static void write_argument(t_TEXT *report, const ka_host *host, int32_t number)
{
    const t_ARGUMENT *argument = &host->arguments[number];
    const ka_prototype *prototype = prototype_of(host, number);
    begin_line(report, number == 1 ? "arguments" : "");
    write_text(report, "%d", number);
    char name[SHOWN_NAME] = "";
    if (prototype) show_name(name, prototype->name);
    if (name[0] != '\0') write_text(report, " %s", name);
    write_bytes(report, " = ", 3);
    write_elements(report, host, argument);
    if (argument->passing == KA_BY_REFERENCE) write_text(report, ", by reference");
    if (argument->passing == KA_BY_REFERENCE && argument->type == DLL_STRING)
        write_text(report, ", room for %d", argument->room);
    write_bytes(report, "\n", 1);
}

static void write_call(t_TEXT *report, const ka_host *host)
{
    begin_line(report, "function");
    write_text(report, "%s\n", host->function);
    for (int32_t argument = 1; argument < host->building.argc; argument++)
        write_argument(report, host, argument);
    if (host->reason[0] == '\0') return;
    begin_line(report, "reason");
    write_text(report, "%s\n", host->reason);
}

/* ---- The process ----------------------------------------------------------------------------------------------- */

static void write_exit(t_TEXT *report, const ka_host *host)
{
    const char *meaning = exit_status_meaning(host);
    write_text(report, "exit status %d", host->last_end.status);
    if (meaning) write_text(report, " (%s)", meaning);
}

static void write_signal(t_TEXT *report, int32_t signal)
{
    const char *name = sigabbrev_np(signal);
    const char *meaning = sigdescr_np(signal);
    write_text(report, "signal %d", signal);
    if (name) write_text(report, ", SIG%s", name);
    if (meaning) write_text(report, " (%s)", meaning);
}

static void write_process(t_TEXT *report, const ka_host *host)
{
    const t_LAST_END *last_end = &host->last_end;
    begin_line(report, "process");
    write_text(report, "%d, %s: ", last_end->pid, last_end->by_library ? "ended by the library" : "ended");
    if (last_end->how == 0)
        write_text(report, "how is not known");
    else if (last_end->how == CLD_EXITED)
        write_exit(report, host);
    else
        write_signal(report, last_end->status);
    write_bytes(report, "\n", 1);
}

static void write_header_damage(t_TEXT *report, const ka_host *host)
{
    char fields[64];
    if (host->last_end.overwritten == 0) return;
    write_overwritten(host->last_end.overwritten, fields, sizeof fields);
    begin_line(report, "header");
    write_text(report, "overwritten by the module: %s\n", fields);
}

static void write_moment(t_TEXT *report, const ka_host *host)
{
    char text[TIME_TEXT];
    write_time(host->moment.time_ns, text);
    begin_line(report, "when");
    write_text(report, "%s", text);
    if (host->moment.after_ns >= 0) {
        const double ms = static_cast<double>(host->moment.after_ns) / static_cast<double>(NS_PER_MS);
        write_text(report, ", %.1f ms after the call began", ms);
    }
    if (host->moment.in_callback) write_text(report, ", which had called back");
    write_bytes(report, "\n", 1);
}

/* ---- All of it ------------------------------------------------------------------------------------------------- */

/* A tab is shown as a blank. */
static void write_line(t_TEXT *report, const char *start, size_t length)
{
    while (const char *tab = static_cast<const char *>(memchr(start, '\t', length))) {
        const size_t before = static_cast<size_t>(tab - start);
        write_printable(report, start, before);
        write_bytes(report, " ", 1);
        start += before + 1;
        length -= before + 1;
    }
    write_printable(report, start, length);
}

static void write_lines(t_TEXT *report, const char *label, const char *text, const char *end)
{
    t_LINE line;
    while (next_line(&text, end, &line)) {
        begin_line(report, label);
        write_line(report, line.start, line.length);
        write_bytes(report, "\n", 1);
        label = "";
    }
}

static void write_retry(t_TEXT *report, int32_t retry)
{
    static constexpr const char *meanings[] = {"no: it would fail again", "yes: the function was not called",
                                               "unsure: the function may have been called, and have had effects"};
    begin_line(report, "try again");
    write_text(report, "%s\n", meanings[retry]);
}

const char *ka_report_text(ka_host *host)
{
    HOLD_CANCELLATION;
    COME_IN(host, nullptr);
    free(host->report);
    host->report = nullptr;
    if (host->error.error_class == KA_DONE) return nullptr;
    t_TEXT report = {};
    write_text(&report, "%s\n", host->error.message);
    begin_line(&report, "module");
    write_printable(&report, host->module, strlen(host->module));
    write_bytes(&report, "\n", 1);
    if (concerns_end(host)) {
        write_process(&report, host);
        write_header_damage(&report, host);
    }
    write_moment(&report, host);
    if (concerns_call(host)) write_call(&report, host);
    write_retry(&report, host->error.retry);
    if (concerns_end(host) && host->last_end.backtrace) {
        const char *backtrace = host->last_end.backtrace;
        write_lines(&report, "backtrace", backtrace, backtrace + strlen(backtrace));
    }
    const char *end;
    const char *lines = last_lines(host, &end);
    write_lines(&report, "stderr", lines, end);
    return host->report = finish_text(&report);
}
