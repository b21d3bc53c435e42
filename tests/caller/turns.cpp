// SPDX-License-Identifier: MIT
//
// Every function in every state of a host: it does its work, or says what has to be done before it.
#include "caller/in_steps.h"

namespace {

enum State { ended, ready, building, calling, sent, calls_back, called };
constexpr State states[] = {ended, ready, building, calling, sent, calls_back, called};

using Function = std::function<int32_t(ka_host *)>;

int32_t get_tables(ka_host *host)
{
    return ka_host_tables(host) ? KA_DONE : ka_last_error(host)->error_class;
}

// What is said in each state; empty where the function may be called.
struct Row {
    const char *name;
    Function function;
    const char *said[7];
};

constexpr const char *has_ended = ": the host has ended";

#define BEFORE_WAIT(function) function " before ka_wait has ended the call that was sent"
#define BEFORE_ANSWER(function) function " before ka_answer has answered the call-back"
#define UNDER_WAY(function) function " while a call is under way; ka_cancel and then ka_wait end it"
#define IN_CALLBACK(function) function " inside a call-back of the same host; "
#define UNASKED(function) function " without a call-back from ka_wait"

// ended, ready, building, calling, sent, calls_back, called
const Row rows[] = {
    {"ka_begin",
     [](ka_host *host) { return ka_begin(host, "give_code"); },
     {has_ended, "", "", IN_CALLBACK("ka_begin") "use a second host", BEFORE_WAIT("ka_begin"),
      BEFORE_ANSWER("ka_begin"), ""}},
    {"ka_add_integer",
     [](ka_host *host) { return ka_add_integer(host, 1, KA_BY_VALUE); },
     {has_ended, "ka_add_... before ka_begin", "", "ka_add_... before ka_begin", "ka_add_... before ka_begin",
      "ka_add_... before ka_begin", "ka_add_... before ka_begin"}},
    {"ka_add_string",
     [](ka_host *host) { return ka_add_string(host, "a", 1, 0, KA_BY_VALUE); },
     {has_ended, "ka_add_... before ka_begin", "", "ka_add_... before ka_begin", "ka_add_... before ka_begin",
      "ka_add_... before ka_begin", "ka_add_... before ka_begin"}},
    {"ka_set_argc",
     [](ka_host *host) { return ka_set_argc(host, 1); },
     {has_ended, "ka_..._descriptor before ka_begin", "", "ka_..._descriptor before ka_begin",
      "ka_..._descriptor before ka_begin", "ka_..._descriptor before ka_begin", "ka_..._descriptor before ka_begin"}},
    {"ka_call",
     [](ka_host *host) {
         int32_t code;
         return ka_call(host, &code);
     },
     {has_ended, "ka_call before ka_begin", "", IN_CALLBACK("ka_call") "use a second host", BEFORE_WAIT("ka_call"),
      BEFORE_ANSWER("ka_call"), "ka_call before ka_begin"}},
    {"ka_send",
     ka_send,
     {has_ended, "ka_send before ka_begin", "", IN_CALLBACK("ka_send") "use a second host", BEFORE_WAIT("ka_send"),
      BEFORE_ANSWER("ka_send"), "ka_send before ka_begin"}},
    {"ka_wait",
     [](ka_host *host) {
         int32_t what;
         int32_t value;
         return ka_wait(host, 0, &what, &value);
     },
     {has_ended, "ka_wait before ka_send", "ka_wait before ka_send",
      IN_CALLBACK("ka_wait") "ka_call must return first", "", BEFORE_ANSWER("ka_wait"), "ka_wait before ka_send"}},
    {"ka_answer",
     [](ka_host *host) { return ka_answer(host, 1); },
     {has_ended, UNASKED("ka_answer"), UNASKED("ka_answer"), IN_CALLBACK("ka_answer") "ka_call must return first",
      UNASKED("ka_answer"), "", UNASKED("ka_answer")}},
    {"ka_get_integers",
     [](ka_host *host) {
         int32_t value;
         return ka_get_integers(host, 1, &value, 1);
     },
     {has_ended, "ka_get_... before ka_call", "ka_get_... before ka_call", "ka_get_... before ka_call",
      "ka_get_... before ka_call", "ka_get_... before ka_call", ""}},
    {"ka_host_tables", get_tables, {has_ended, "", "", "", BEFORE_WAIT("ka_host_tables"), "", ""}},
    {"ka_set_trace",
     [](ka_host *host) { return ka_set_trace(host, 0); },
     {has_ended, "", "", "", BEFORE_WAIT("ka_set_trace"), "", ""}},
    {"ka_restart",
     ka_restart,
     {"", "", "", IN_CALLBACK("ka_restart") "ka_call must return first", UNDER_WAY("ka_restart"),
      UNDER_WAY("ka_restart"), ""}},
};

std::string outcome_of(const Row &row, ka_host *host)
{
    return row.function(host) == KA_DONE ? "" : error_text(host);
}

struct Inside {
    const Row *row;
    std::string outcome;
};

std::string outcome_inside_callback(const Row &row)
{
    Inside inside = {&row, "was not called back"};
    Host host([&inside](ka_options &options) {
        options.checking = KA_RAW;
        options.user = &inside;
        options.callback = [](ka_host *own, int32_t, void *user) {
            auto *of = static_cast<Inside *>(user);
            of->outcome = outcome_of(*of->row, own);
            return 0;
        };
    });
    EXPECT_EQ(call_with(host, "ask", 7), 0);
    return inside.outcome;
}

// What is under way goes on as if nothing had been asked.
void end_steps(ka_host *host, const Row &row, State state)
{
    const std::string name = row.name;
    if (state == calls_back && name != "ka_answer") answer_step(host, 1);
    const bool is_sent = state == calls_back || state == sent || (state == building && name == "ka_send");
    EXPECT_EQ(is_sent ? take_steps(host) : 0, state == calls_back ? 1 : 0) << name;
}

std::string outcome_in(State state, const Row &row)
{
    if (state == calling) return outcome_inside_callback(row);
    Host host([](ka_options &options) { options.checking = KA_RAW; });
    if (state == building || state == called) {
        ka_begin(host, "double");
        ka_add_integer(host, 1, KA_BY_REFERENCE);
    }
    if (state == called) call(host);
    if (state == ended) {
        ka_begin(host, "fault");
        call_fails(host);
    }
    if (state == sent) send_call_of(host, "nap", 5);
    if (state == calls_back) {
        send_call_of(host, "ask", 1);
        EXPECT_EQ(step_of(host).what, KA_CALLBACK);
    }
    const std::string outcome = outcome_of(row, host);
    end_steps(host, row, state);
    return outcome;
}

} // namespace

TEST(Turns, functions_are_called_in_their_turn_or_say_what_comes_before)
{
    for (const Row &row : rows) {
        for (State state : states) {
            const std::string said = row.said[state];
            EXPECT_EQ(outcome_in(state, row), said == has_ended ? tasks_module + said : said)
                << row.name << " in state " << state;
        }
    }
}

TEST(Turns, host_that_can_be_started_again_may_be_called_after_its_end)
{
    Host host([](ka_options &options) { options.restart = KA_RESTART_NEXT_CALL; });
    ka_begin(host, "fault");
    call_fails(host);
    EXPECT_EQ(ka_begin(host, "give_code"), KA_DONE);
}

TEST(Turns, host_is_not_closed_between_steps)
{
    Host host;
    for (const char *function : {"nap", "ask"}) {
        send_call_of(host, function, 1);
        const bool asks = std::string(function) == "ask";
        EXPECT_EQ(asks ? step_of(host).what : KA_CALLBACK, KA_CALLBACK);
        EXPECT_EQ(ka_close(host.host), KA_ARGUMENT);
        EXPECT_EQ(error_text(host), UNDER_WAY("ka_close"));
        if (asks) answer_step(host, 0);
        EXPECT_EQ(take_steps(host), 0);
    }
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
}

TEST(Turns, host_is_not_closed_inside_its_callback)
{
    std::string said;
    Host host([&said](ka_options &options) {
        options.user = &said;
        options.callback = [](ka_host *own, int32_t, void *user) {
            EXPECT_EQ(ka_close(own), KA_ARGUMENT);
            *static_cast<std::string *>(user) = error_text(own);
            return 0;
        };
    });
    EXPECT_EQ(call_with(host, "ask", 7), 0);
    EXPECT_EQ(said, "ka_close inside a call-back of the same host; ka_call must return first");
}
