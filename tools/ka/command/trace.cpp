// SPDX-License-Identifier: MIT
//
// ka trace: the trace level of a running host, switched from outside.
#include "commands.h"

#include <cerrno>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/duration.h"
#include "base/exit_status.h"
#include "base/interruption.h"
#include "base/json.h"
#include "base/output.h"
#include "call/failure.h"
#include "cli/subcommand.h"
#include "ka/caller.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct Options {
    int32_t pid = 0;
    int32_t level = 0;
    bool has_level = false;
    std::string duration;
    bool keep = false;
    bool json = false;

    Form form() const { return json ? Form::json : Form::text; }
};

constexpr const char *description = R"(Switches the trace of a running host.

The host writes the trace on its own standard error, mostly that of the program that started it:
  0  nothing
  1  each call and its return code
  2  and the values of the arguments, before and after
  3  and how each argument was matched, and why a call is refused
  4  and the block as the caller wrote it
The level that it had comes back at the end: after --for, when the command is interrupted, else when the host ends.
Without --level the present level is shown and nothing is changed.)";

constexpr const char *examples = R"(Examples:
  ka trace 4711
  ka trace 4711 --level 2 --for 10s
  ka trace 4711 --level 3 --keep
)";

void say(const std::string &text)
{
    std::cerr << "ka: " << text << std::endl;
}

// ---- The level -------------------------------------------------------------------------------------------------

// The fault has been reported when the status is not EXIT_DONE.
int access_level(const Options &options, const int32_t *level, int32_t *old, Form form)
{
    char why[512] = "";
    const int32_t error_class = ka_trace_process(options.pid, level, old, why, sizeof why);
    return error_class == KA_DONE ? EXIT_DONE : report_unreachable(error_class, why, form);
}

// ---- Waiting ---------------------------------------------------------------------------------------------------

enum class End { time_over, host_ended, interrupted };

std::optional<milliseconds> left_until(const std::optional<steady_clock::time_point> &end)
{
    if (!end) return std::nullopt;
    const auto left = std::chrono::ceil<milliseconds>(*end - steady_clock::now());
    return std::max(left, milliseconds(0));
}

// poll takes no more than an int of milliseconds at a time.
int timeout_of(const std::optional<milliseconds> &left)
{
    constexpr int64_t longest = 60000;
    return left ? static_cast<int>(std::min<int64_t>(left->count(), longest)) : -1;
}

End await_end(int host_fd, int interruption_fd, const std::optional<milliseconds> &duration)
{
    std::optional<steady_clock::time_point> end;
    if (duration) end = steady_clock::now() + *duration;
    for (;;) {
        struct pollfd fds[] = {{host_fd, POLLIN, 0}, {interruption_fd, POLLIN, 0}};
        const auto left = left_until(end);
        poll(fds, 2, timeout_of(left));
        if (fds[0].revents != 0) return End::host_ended;
        if (fds[1].revents != 0) return End::interrupted;
        if (left && left->count() == 0) return End::time_over;
    }
}

// ---- The command -----------------------------------------------------------------------------------------------

int show_levels(const Options &options, int32_t old)
{
    const int32_t present = options.has_level ? options.level : old;
    if (options.json) {
        const JsonObject json = JsonObject().add("pid", options.pid).add("was", old).add("is", present);
        return write_results(json.text() + "\n", EXIT_DONE);
    }
    const std::string was = options.has_level ? "was " + std::to_string(old) + ", " : "";
    return write_results("trace level of " + std::to_string(options.pid) + ": " + was + "is " +
                             std::to_string(present) + "\n",
                         EXIT_DONE);
}

// A level that the module itself has set since then is left alone. The object on standard output has been
// written.
int restore_level(const Options &options, int32_t old)
{
    int32_t present = 0;
    const int status = access_level(options, nullptr, &present, Form::text);
    if (status != EXIT_DONE) return status;
    if (present != options.level) {
        say("the level is " + std::to_string(present) + " now, and is left so");
        return EXIT_DONE;
    }
    say("level " + std::to_string(old) + " again");
    return access_level(options, &old, nullptr, Form::text);
}

int hold_level(const Options &options, int32_t old, int host_fd, int interruption_fd,
               const std::optional<milliseconds> &duration)
{
    say("the host traces on its own standard error; level " + std::to_string(old) + " comes back " +
        (duration ? "after " + options.duration : "when this command is ended"));
    const End end = await_end(host_fd, interruption_fd, duration);
    if (end == End::host_ended) {
        say("the host has ended");
        return EXIT_DONE;
    }
    const int status = restore_level(options, old);
    if (status != EXIT_DONE) return status;
    return end == End::interrupted ? EXIT_INTERRUPTED : EXIT_DONE;
}

int switch_level(const Options &options, int host_fd, int interruption_fd,
                 const std::optional<milliseconds> &duration)
{
    int32_t old = 0;
    int status = access_level(options, options.has_level ? &options.level : nullptr, &old, options.form());
    if (status != EXIT_DONE) return status;
    status = show_levels(options, old);
    if (!options.has_level || options.keep) return status;
    const int held = hold_level(options, old, host_fd, interruption_fd, duration);
    return held == EXIT_DONE ? status : held;
}

// A pidfd, so that a later process of the same number is not taken for it.
int open_process(int32_t pid)
{
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

int run_trace(const Options &options)
{
    const auto duration = read_duration(options.duration);
    if (!options.has_level && (duration || options.keep))
        return report_failure(KA_ARGUMENT, "--for and --keep need a --level", options.form());
    if (options.keep && duration)
        return report_failure(KA_ARGUMENT, "--for and --keep exclude each other", options.form());
    // From here on an interruption waits until the level is restored.
    const int interruption_fd = options.has_level ? open_interruption_fd() : -1;
    const int host_fd = open_process(options.pid);
    if (host_fd == -1)
        return report_unreachable(KA_ARGUMENT, "there is no process " + std::to_string(options.pid), options.form());
    const int status = switch_level(options, host_fd, interruption_fd, duration);
    close(host_fd);
    return status;
}

} // namespace

void add_trace_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<Options>();
    CLI::App *trace = add_subcommand(app, {"trace", description, examples});
    add_option(trace, {.name = "PID", .text = "process of a host", .is_required = true, .range = Range{1, INT32_MAX}},
               options->pid);
    add_option(trace,
               {.name = "--level", .value = "N", .text = "the level to set: 0 to 4", .range = Range{0, KA_TRACE_MAX}},
               options->level);
    add_option(trace,
               {.name = "--for",
                .value = "TIME",
                .text = "how long: 10s, 500ms, 2m; otherwise until interrupted",
                .fault = fault_of_duration},
               options->duration);
    add_flag(trace, "--keep", options->keep, "leaves the level set, and ends at once");
    add_flag(trace, "--json", options->json, "shows one JSON object");
    when_chosen(trace, exit_status, [options, trace] {
        options->has_level = is_given(trace, "--level");
        return run_trace(*options);
    });
}
