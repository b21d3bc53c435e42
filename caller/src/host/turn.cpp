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
    SEND_FIRST,
    NO_CALLBACK,         /* there is none to answer */
    IN_CALLBACK,         /* a second call would overwrite the first one's block */
    CALL_IS_UNDER_WAY,   /* the host is needed until ka_call returns */
    WAIT_FIRST,          /* in steps: the same */
    ANSWER_FIRST,        /* in steps: the call-back waits */
    WAIT_OR_CANCEL_FIRST /* in steps: the host is needed until the call has ended */
};

struct t_ROW {
    const char *function;
    t_VERDICT in_state[STATE_CALLED + 1];
};

} // namespace

/* ORDER TURN down, ORDER STATE across. */
// clang-format off
static constexpr t_ROW rows[] = {
    //                        ENDED                     READY        BUILDING     CALLING            SENT                  ASKED                 CALLED
    {"ka_begin",              {ENDED_UNLESS_RESTARTABLE, OK,          OK,          IN_CALLBACK,       WAIT_FIRST,           ANSWER_FIRST,         OK}},
    {"ka_add_...",            {ENDED,                    BEGIN_FIRST, OK,          BEGIN_FIRST,       BEGIN_FIRST,          BEGIN_FIRST,          BEGIN_FIRST}},
    {"ka_..._descriptor",     {ENDED,                    BEGIN_FIRST, OK,          BEGIN_FIRST,       BEGIN_FIRST,          BEGIN_FIRST,          BEGIN_FIRST}},
    {"ka_call",               {ENDED,                    BEGIN_FIRST, OK,          IN_CALLBACK,       WAIT_FIRST,           ANSWER_FIRST,         BEGIN_FIRST}},
    {"ka_send",               {ENDED,                    BEGIN_FIRST, OK,          IN_CALLBACK,       WAIT_FIRST,           ANSWER_FIRST,         BEGIN_FIRST}},
    {"ka_wait",               {ENDED,                    SEND_FIRST,  SEND_FIRST,  CALL_IS_UNDER_WAY, OK,                   ANSWER_FIRST,         SEND_FIRST}},
    {"ka_answer",             {ENDED,                    NO_CALLBACK, NO_CALLBACK, CALL_IS_UNDER_WAY, NO_CALLBACK,          OK,                   NO_CALLBACK}},
    {"ka_get_...",            {ENDED,                    CALL_FIRST,  CALL_FIRST,  CALL_FIRST,        CALL_FIRST,           CALL_FIRST,           OK}},
    {"ka_host_tables",        {ENDED,                    OK,          OK,          OK,                WAIT_FIRST,           OK,                   OK}},
    {"ka_set_trace",          {ENDED,                    OK,          OK,          OK,                WAIT_FIRST,           OK,                   OK}},
    {"ka_restart",            {OK,                       OK,          OK,          CALL_IS_UNDER_WAY, WAIT_OR_CANCEL_FIRST, WAIT_OR_CANCEL_FIRST, OK}},
    {"ka_close",              {OK,                       OK,          OK,          CALL_IS_UNDER_WAY, WAIT_OR_CANCEL_FIRST, WAIT_OR_CANCEL_FIRST, OK}},
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
    case SEND_FIRST:
        return fail(host, KA_ARGUMENT, "%s before ka_send", function);
    case NO_CALLBACK:
        return fail(host, KA_ARGUMENT, "%s without a call-back from ka_wait", function);
    case IN_CALLBACK:
        return fail(host, KA_ARGUMENT, "%s inside a call-back of the same host; use a second host", function);
    case CALL_IS_UNDER_WAY:
        return fail(host, KA_ARGUMENT, "%s inside a call-back of the same host; ka_call must return first", function);
    case WAIT_FIRST:
        return fail(host, KA_ARGUMENT, "%s before ka_wait has ended the call that was sent", function);
    case ANSWER_FIRST:
        return fail(host, KA_ARGUMENT, "%s before ka_answer has answered the call-back", function);
    case WAIT_OR_CANCEL_FIRST:
        return fail(host, KA_ARGUMENT, "%s while a call is under way; ka_cancel and then ka_wait end it", function);
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
