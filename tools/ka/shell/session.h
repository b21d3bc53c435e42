// SPDX-License-Identifier: MIT
//
// What ka shell does with a line: one host, and the variables that its calls leave.
#ifndef KA_TOOL_SHELL_SESSION_H
#define KA_TOOL_SHELL_SESSION_H

#include <string>
#include <vector>

#include "call/one_call.h"
#include "cli/host_options.h"
#include "ka/caller.h"
#include "module/functions.h"
#include "words.h"

// The size of the segment unless it is wished otherwise: room for nearly every call, as that of a living host cannot
// grow. Memory is used as far as calls need it.
inline constexpr int32_t roomy_segment_bytes = 16 << 20;

struct SessionWishes {
    HostWishes host;
    std::string module;
    bool json = false;
    bool keep_going = false;
};

class Session {
public:
    Session(SessionWishes &wishes, int interruption) : wishes_(wishes), interruption_(interruption) {}
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Starts the module; an exit status, after the reason was told.
    int open();

    // Does what the line says and shows what comes of it; an exit status.
    int run(const std::string &line);

    // Put in front of every complaint: "line 3: ".
    void set_place(const std::string &place) { place_ = place; }

    // The status of the last function that returned.
    int last_call() const { return last_call_; }

    bool is_over() const { return is_over_; }
    bool is_terminated() const { return is_terminated_; } // by SIGTERM

    const std::vector<Function> &functions() const { return functions_; }
    const Variables &variables() const { return variables_; }

private:
    using Words = std::vector<std::string>;
    struct Order;
    friend std::vector<std::string> order_names();
    friend std::string order_help(const std::string &indentation);
    static const Order orders[];

    int run_words(const Words &words);
    int set_variable(const Words &words);
    int call_function(const Words &words);
    int show_call(const CallOutcome &outcome, const std::string &function);
    void keep_results(const CallOutcome &outcome);
    int show_error(const std::string &function);
    int fail_unmade(const std::string &function, int32_t error_class, const std::string &text);
    int fail(int status, const std::string &text) const;
    int show(const std::string &text, int status) const;
    void take_interruptions();
    void learn_tables();
    void tell_restart(int32_t pid);

    int run_order(const Words &words);
    int help(const Words &words);
    int list(const Words &words);
    int vars(const Words &words);
    int trace(const Words &words);
    int deadline(const Words &words);
    int callback(const Words &words);
    int restart(const Words &words);
    int quit(const Words &words);

    SessionWishes &wishes_;
    int interruption_;
    ka_host *host_ = nullptr;
    int32_t pid_ = 0; // of the host that is known to the user
    std::vector<Function> functions_;
    Variables variables_;
    std::string place_;
    int last_call_ = 0;
    bool is_over_ = false;
    bool is_terminated_ = false;
};

// The orders of a session: ":list" and the others; and the lines that explain what can be typed, indented or not.
std::vector<std::string> order_names();
std::string order_help(const std::string &indentation);

#endif
