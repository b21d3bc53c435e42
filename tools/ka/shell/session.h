// SPDX-License-Identifier: MIT
//
// A session of ka shell: one host, and the variables that its calls leave.
#ifndef KA_TOOL_SHELL_SESSION_H
#define KA_TOOL_SHELL_SESSION_H

#include <string>
#include <vector>

#include "call/one_call.h"
#include "cli/host_options.h"
#include "ka/caller.h"
#include "module/functions.h"
#include "words.h"

// The size of the segment unless another is given: room for nearly every call, as that of a living host cannot
// grow. Memory is used as far as calls need it.
inline constexpr int32_t roomy_segment_bytes = 16 << 20;

struct SessionOptions {
    HostOptions host;
    std::string module;
    bool json = false;
    bool keep_going = false;
};

class Session {
public:
    Session(SessionOptions &options, int interruption) : options_(options), interruption_(interruption) {}
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Starts the module; an exit status, after the reason was shown.
    int open();

    // Calls a function or sets a variable, and shows the result; an exit status. words has one at least. Throws
    // Malformed.
    int run(const Words &words);

    // Begins every error line: "line 3: ".
    void set_place(const std::string &place) { place_ = place; }

    // The status of the last function that returned.
    int last_call() const { return last_call_; }

    bool is_over() const { return is_over_; }
    bool is_terminated() const { return is_terminated_; } // by SIGTERM

    const std::vector<Function> &functions() const { return functions_; }
    const Variables &variables() const { return variables_; }
    bool shows_json() const { return options_.json; }

    // These return the exit status that they are given, or that of results which cannot be written.
    int show(const std::string &text, int status) const;
    int fail(int status, const std::string &text) const;

    int set_trace_level(int32_t level);
    void set_deadline(int32_t milliseconds);
    void set_callback_rule(const std::string &rule) { options_.host.callback = rule; }
    int restart();
    void end() { is_over_ = true; }

private:
    int set_variable(const Words &words);
    int call_function(const Words &words);
    int show_call(const CallOutcome &outcome, const std::string &function);
    void keep_results(const CallOutcome &outcome);
    int show_error(const std::string &function);
    int fail_call(const std::string &function, int32_t error_class, const std::string &text);
    void take_interruptions();
    void learn_tables();
    void report_restart(int32_t pid);

    SessionOptions &options_;
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

#endif
