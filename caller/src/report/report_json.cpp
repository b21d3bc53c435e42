/* SPDX-License-Identifier: MIT
 *
 * The report that programs read. Every member is always there; null stands for what is not known or does not exist.
 * REAL values are strings, since a number would be read as a double and lose digits. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/json.h"
#include "base/text.h"
#include "base/thread.h"
#include "block/check.h"
#include "block/results.h"
#include "block/segment.h"
#include "facts.h"
#include "host/host.h"
#include "host/owner.h"
#include "wire/kinds.h"

/* ---- Arguments ------------------------------------------------------------------------------------------------- */

/* True when the element is shown whole. */
static bool write_element(t_JSON *json, const ka_host *host, const t_ARGUMENT *argument, int32_t index)
{
    if (argument->type == DLL_INTEGER) {
        json_number(json, nullptr, read_integer(host, argument, index));
        return true;
    }
    if (argument->type == DLL_REAL) {
        char text[KA_REAL_TEXT];
        const t_DECIMAL value = read_real(host, argument, index);
        json_text(json, nullptr, value.dec_pos == DEC_NULL ? nullptr : ka_real_to_text(&value, text));
        return true;
    }
    char bytes[SHOWN_CHARACTERS];
    const int32_t length = read_string(host, argument, index, bytes, sizeof bytes);
    const bool whole = length <= SHOWN_CHARACTERS;
    json_string(json, nullptr, bytes, whole ? static_cast<size_t>(length) : sizeof bytes);
    return whole;
}

static void write_argument(t_JSON *json, const ka_host *host, int32_t number)
{
    const t_ARGUMENT *argument = &host->arguments[number];
    const ka_prototype *prototype = prototype_of(host, number);
    bool whole = argument->count <= SHOWN_ELEMENTS;
    json_open(json, nullptr, '{');
    json_text(json, "name", prototype ? prototype->name : nullptr);
    json_text(json, "kind", prototype ? ka_kind_name(prototype->kind) : nullptr);
    json_text(json, "type", wire::type_name(argument->type));
    json_bool(json, "by_reference", argument->passing == KA_BY_REFERENCE);
    if (argument->type == DLL_STRING) json_number(json, "room", argument->room);
    json_number(json, "count", argument->count);
    json_open(json, "values", '[');
    for (int32_t i = 0; i < shown_elements(argument); i++)
        if (!write_element(json, host, argument, i)) whole = false;
    json_close(json, ']');
    json_bool(json, "cut", !whole);
    json_close(json, '}');
}

static void write_call(t_JSON *json, const ka_host *host)
{
    if (!concerns_call(host)) {
        json_null(json, "function");
        json_null(json, "arguments");
        json_null(json, "reason");
        return;
    }
    json_text(json, "function", host->function);
    json_open(json, "arguments", '[');
    for (int32_t argument = 1; argument < host->building.argc; argument++)
        write_argument(json, host, argument);
    json_close(json, ']');
    json_text(json, "reason", host->reason[0] != '\0' ? host->reason : nullptr);
}

/* ---- The process ----------------------------------------------------------------------------------------------- */

static void write_signal(t_JSON *json, int32_t signal)
{
    char name[16];
    const char *short_name = sigabbrev_np(signal);
    snprintf(name, sizeof name, "SIG%s", short_name ? short_name : "");
    json_number(json, "signal", signal);
    json_text(json, "signal_name", short_name ? name : nullptr);
    json_text(json, "meaning", sigdescr_np(signal));
}

static void write_process(t_JSON *json, const ka_host *host)
{
    const t_LAST_END *last_end = &host->last_end;
    if (!concerns_end(host)) {
        json_null(json, "process");
        return;
    }
    json_open(json, "process", '{');
    json_number(json, "pid", last_end->pid);
    json_bool(json, "ended_by_library", last_end->by_library);
    if (last_end->how == CLD_EXITED) {
        json_number(json, "exit_status", last_end->status);
        json_text(json, "meaning", exit_status_meaning(host));
    } else if (last_end->how != 0) {
        write_signal(json, last_end->status);
    }
    json_close(json, '}');
}

static void write_header_damage(t_JSON *json, const ka_host *host)
{
    const uint32_t fields = concerns_end(host) ? host->last_end.overwritten : 0;
    json_open(json, "overwritten_header", '[');
    for (int i = 0; header_field(i); i++)
        if (fields >> i & 1) json_text(json, nullptr, header_field(i));
    json_close(json, ']');
}

static void write_moment(t_JSON *json, const ka_host *host)
{
    char text[TIME_TEXT];
    write_time(host->moment.time_ns, text);
    json_text(json, "time", text);
    if (host->moment.after_ns >= 0)
        json_number(json, "call_microseconds", host->moment.after_ns / 1000);
    else
        json_null(json, "call_microseconds");
    json_bool(json, "called_back", host->moment.in_callback);
}

/* ---- All of it ------------------------------------------------------------------------------------------------- */

static void write_lines(t_JSON *json, const char *name, const char *text, const char *end)
{
    t_LINE line;
    json_open(json, name, '[');
    while (next_line(&text, end, &line))
        json_string(json, nullptr, line.start, line.length);
    json_close(json, ']');
}

static void write_outputs(t_JSON *json, const ka_host *host)
{
    const char *backtrace = concerns_end(host) && host->last_end.backtrace ? host->last_end.backtrace : "";
    write_lines(json, "backtrace", backtrace, backtrace + strlen(backtrace));
    const char *end;
    const char *lines = last_lines(host, &end);
    write_lines(json, "error_output", lines, end);
}

const char *ka_report_json(ka_host *host)
{
    HOLD_CANCELLATION;
    COME_IN(host, nullptr);
    free(host->report);
    host->report = nullptr;
    if (host->error.error_class == KA_DONE) return nullptr;
    t_JSON json = {};
    json_open(&json, nullptr, '{');
    json_text(&json, "error", ka_error_name(host->error.error_class));
    json_number(&json, "error_class", host->error.error_class);
    json_text(&json, "message", host->error.message);
    json_text(&json, "retry", retry_name(host->error.retry));
    json_text(&json, "module", host->module);
    write_process(&json, host);
    write_header_damage(&json, host);
    write_moment(&json, host);
    write_call(&json, host);
    write_outputs(&json, host);
    json_close(&json, '}');
    return host->report = finish_text(&json.text);
}
