/* SPDX-License-Identifier: MIT
 *
 * The order of the functions, and what is said to a program that does not keep to it. */
#include "host.h"

namespace {

enum t_VERDICT {
    OK,
    ENDED,                    /* nothing can be done without a process */
    ENDED_UNLESS_RESTARTABLE, /* ka_call starts a host with a restart policy again */
    BEGIN_FIRST,
    CALL_FIRST,
    IN_CALLBACK,      /* a second call would overwrite the first one's block */
    CALL_IS_UNDER_WAY /* the host is needed until ka_call returns */
};

struct t_ROW {
    const char *function;
    t_VERDICT in_state[STATE_CALLED + 1];
};

} // namespace

/* ORDER TURN down, ORDER STATE across. */
// clang-format off
static constexpr t_ROW rows[] = {
    //                        ENDED                     READY        BUILDING    CALLING            CALLED
    {"ka_begin",              {ENDED_UNLESS_RESTARTABLE, OK,          OK,         IN_CALLBACK,       OK}},
    {"ka_add_...",            {ENDED,                    BEGIN_FIRST, OK,         BEGIN_FIRST,       BEGIN_FIRST}},
    {"ka_..._descriptor",     {ENDED,                    BEGIN_FIRST, OK,         BEGIN_FIRST,       BEGIN_FIRST}},
    {"ka_call",               {ENDED,                    BEGIN_FIRST, OK,         IN_CALLBACK,       BEGIN_FIRST}},
    {"ka_get_...",            {ENDED,                    CALL_FIRST,  CALL_FIRST, CALL_FIRST,        OK}},
    {"ka_host_tables",        {ENDED,                    OK,          OK,         OK,                OK}},
    {"ka_set_trace",          {ENDED,                    OK,          OK,         OK,                OK}},
    {"ka_restart",            {OK,                       OK,          OK,         CALL_IS_UNDER_WAY, OK}},
    {"ka_close",              {OK,                       OK,          OK,         CALL_IS_UNDER_WAY, OK}},
};
// clang-format on
static_assert(sizeof rows / sizeof rows[0] == TURN_CLOSE + 1);

static int32_t refuse(ka_host *host, t_VERDICT verdict, const char *function)
{
    switch (verdict) {
    case BEGIN_FIRST:
        return fail(host, KA_ARGUMENT, "%s before ka_begin", function);
    case CALL_FIRST:
        return fail(host, KA_ARGUMENT, "%s before ka_call", function);
    case IN_CALLBACK:
        return fail(host, KA_ARGUMENT, "%s inside a call-back of the same host; use a second host", function);
    case CALL_IS_UNDER_WAY:
        return fail(host, KA_ARGUMENT, "%s inside a call-back of the same host; ka_call must return first", function);
    default:
        return fail(host, KA_CLOSED, "%.300s: the host has ended", host->module);
    }
}

int32_t take_turn(ka_host *host, t_TURN turn)
{
    const t_VERDICT verdict = rows[turn].in_state[host->life.state];
    if (verdict == OK || (verdict == ENDED_UNLESS_RESTARTABLE && can_restart(host))) return KA_DONE;
    return refuse(host, verdict, rows[turn].function);
}
