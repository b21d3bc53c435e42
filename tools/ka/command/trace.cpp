// SPDX-License-Identifier: MIT
//
// ka trace: the trace level of a running host, switched from outside.
#include "commands.h"

#include <cerrno>
#include <chrono>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/duration.h"
#include "base/exit_status.h"
#include "base/interruption.h"
#include "call/failure.h"
#include "cli/subcommand.h"
#include "ka/caller.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct Wishes {
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

void tell(const std::string &text)
{
    std::cerr << "ka: " << text << std::endl;
}

// ---- The level -------------------------------------------------------------------------------------------------

// What is wrong has been told when the status is not EXIT_DONE.
int access_level(const Wishes &wishes, const int32_t *level, int32_t *old, Form form)
{
    char why[512] = "";
    const int32_t error_class = ka_trace_process(wishes.pid, level, old, why, sizeof why);
    return error_class == KA_DONE ? EXIT_DONE : tell_unreachable(error_class, why, form);
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

int show_levels(const Wishes &wishes, int32_t old)
{
    if (wishes.json) {
        nlohmann::ordered_json json;
        json["pid"] = wishes.pid;
        json["was"] = old;
        json["is"] = wishes.has_level ? wishes.level : old;
        std::cout << json.dump() << std::endl;
    } else if (wishes.has_level) {
        std::cout << "trace level of " << wishes.pid << ": was " << old << ", is " << wishes.level << std::endl;
    } else {
        std::cout << "trace level of " << wishes.pid << ": is " << old << std::endl;
    }
    return std::cout ? EXIT_DONE : complain(EXIT_USAGE, "the results could not be written");
}

// Where a module sets its own level meanwhile, that one is left alone. The object on standard output has been
// written.
int restore_level(const Wishes &wishes, int32_t old)
{
    int32_t present = 0;
    const int status = access_level(wishes, nullptr, &present, Form::text);
    if (status != EXIT_DONE) return status;
    if (present != wishes.level) {
        tell("the level has become " + std::to_string(present) + " meanwhile, and is left so");
        return EXIT_DONE;
    }
    tell("level " + std::to_string(old) + " again");
    return access_level(wishes, &old, nullptr, Form::text);
}

int hold_level(const Wishes &wishes, int32_t old, int host_fd, int interruption_fd,
               const std::optional<milliseconds> &duration)
{
    tell("the host traces on its own standard error; level " + std::to_string(old) + " comes back " +
         (duration ? "after " + wishes.duration : "when this command is ended"));
    const End end = await_end(host_fd, interruption_fd, duration);
    if (end == End::host_ended) {
        tell("the host has ended");
        return EXIT_DONE;
    }
    const int status = restore_level(wishes, old);
    if (status != EXIT_DONE) return status;
    return end == End::interrupted ? EXIT_INTERRUPTED : EXIT_DONE;
}

int switch_level(const Wishes &wishes, int host_fd, int interruption_fd, const std::optional<milliseconds> &duration)
{
    int32_t old = 0;
    int status = access_level(wishes, wishes.has_level ? &wishes.level : nullptr, &old, wishes.form());
    if (status != EXIT_DONE) return status;
    status = show_levels(wishes, old);
    if (!wishes.has_level || wishes.keep) return status;
    const int held = hold_level(wishes, old, host_fd, interruption_fd, duration);
    return held == EXIT_DONE ? status : held;
}

// A descriptor of the process, so that a later one of the same number is not taken for it.
int open_process(int32_t pid)
{
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

int run_trace(const Wishes &wishes)
{
    const auto duration = read_duration(wishes.duration);
    if (!wishes.has_level && (duration || wishes.keep))
        return tell_failure(KA_ARGUMENT, "--for and --keep need a --level", wishes.form());
    if (wishes.keep && duration)
        return tell_failure(KA_ARGUMENT, "--for and --keep exclude each other", wishes.form());
    // From here on an interruption waits until the level is restored.
    const int interruption_fd = wishes.has_level ? interruption_descriptor() : -1;
    const int host_fd = open_process(wishes.pid);
    if (host_fd == -1)
        return tell_unreachable(KA_ARGUMENT, "there is no process " + std::to_string(wishes.pid), wishes.form());
    const int status = switch_level(wishes, host_fd, interruption_fd, duration);
    close(host_fd);
    return status;
}

} // namespace

void add_trace_command(CLI::App &app, int &exit_status)
{
    const auto wishes = std::make_shared<Wishes>();
    CLI::App *trace = add_subcommand(app, {"trace", description, examples});
    add_option(trace, {.name = "PID", .text = "process of a host", .is_required = true, .range = Range{1, INT32_MAX}},
               wishes->pid);
    add_option(trace,
               {.name = "--level", .value = "N", .text = "the level to set: 0 to 4", .range = Range{0, KA_TRACE_MAX}},
               wishes->level);
    add_option(trace,
               {.name = "--for",
                .value = "TIME",
                .text = "how long: 10s, 500ms, 2m; otherwise until interrupted",
                .fault = refuse_duration},
               wishes->duration);
    add_flag(trace, "--keep", wishes->keep, "leaves the level set, and ends at once");
    add_flag(trace, "--json", wishes->json, "shows one JSON object");
    when_chosen(trace, exit_status, [wishes, trace] {
        wishes->has_level = is_given(trace, "--level");
        return run_trace(*wishes);
    });
}
