// SPDX-License-Identifier: MIT
//
// See host_options.h.
#include "host_options.h"

#include <iostream>

#include "base/command_line.h"
#include "base/duration.h"
#include "call/backtrace.h"
#include "subcommand.h"
#include "values/callback_rule.h"
#include "values/literal.h"

namespace {

void add_block_options(CLI::App *command, HostOptions &options, const std::string &right_size)
{
    add_option(command,
               {.name = "--layout",
                .value = "LAYOUT",
                .text = "layout of the shared block",
                .shows_default = true,
                .choices = {"native", "64"}},
               options.layout);
    add_option(command,
               {.name = "--segment",
                .value = "BYTES",
                .text = "size of the shared segment; 0: " + right_size,
                .shows_default = true,
                .range = Range{0, INT32_MAX}},
               options.segment_bytes);
    add_option(command,
               {.name = "--scratch",
                .value = "BYTES",
                .text = "size of the scratch area at its end",
                .shows_default = true,
                .range = Range{0, INT32_MAX}},
               options.scratch_bytes);
}

int32_t answer_callback(ka_host *, int32_t value, void *user)
{
    const auto *options = static_cast<const HostOptions *>(user);
    const Answer answer = answer_to(options->callback, value);
    options->errors.flush();
    std::cerr << "ka: call-back " << value << ", answered " << answer.value
              << (answer.divides_by_zero ? ", since something is divided by zero\n" : "\n");
    return answer.value;
}

} // namespace

void add_deadline_option(CLI::App *command, std::string &deadline, const std::string &purpose)
{
    add_option(command,
               {.name = "--deadline",
                .value = "TIME",
                .text = purpose + ": 10s, 500ms, 2m, 1h; a number alone is seconds",
                .shows_default = true,
                .fault = fault_of_duration},
               deadline);
}

int32_t deadline_ms(const std::string &deadline)
{
    return static_cast<int32_t>(read_duration(deadline).value().count());
}

void add_call_options(CLI::App *command, HostOptions &options, const std::string &right_size)
{
    add_flag(command, "--raw", options.raw, "sends the arguments as written, unchecked");
    add_option(command,
               {.name = "--callback",
                .value = "RULE",
                .text =
                    "answer to every call-back: const:N, or arithmetic over value with + - * / % and parentheses, "
                    "in 32 bits that wrap around; 0 when it divides by zero",
                .shows_default = true},
               options.callback);
    add_option(command,
               {.name = "--trace",
                .value = "N",
                .text = "trace of the calls on standard error: 0 (none) to 4",
                .shows_default = true,
                .range = Range{0, KA_TRACE_MAX}},
               options.trace_level);
    add_block_options(command, options, right_size);
}

void add_host_options(CLI::App *command, HostOptions &options, const std::string &right_size)
{
    add_deadline_option(command, options.deadline, "how long to wait for the answer");
    add_flag(command, "--no-inspect", options.no_inspect,
             "does not trace the host: gdb -p, strace -p and LeakSanitizer work, and a crash has no backtrace");
    add_option(command,
               {.name = "--under",
                .value = "COMMAND",
                .text =
                    "runs the host under a command, which becomes it (taskset -c 0) or starts it (gdbserver :2345, "
                    "strace -f, perf record): words with quotes as in a shell, the module's are added",
                .fault = fault_of_command_line},
               options.under);
    add_call_options(command, options, right_size);
}

void check_callback_rule(const std::string &option, const std::string &rule)
{
    try {
        answer_to(rule, 0);
    } catch (const Malformed &malformed) {
        throw Malformed(option + " " + rule + ": " + malformed.what());
    }
}

// Null when there is none.
static const char *const *words_of_under(HostOptions &options)
{
    if (options.under.empty()) return nullptr;
    options.under_words = split_command_line(options.under).value();
    options.under_list.clear();
    for (const std::string &word : options.under_words)
        options.under_list.push_back(word.c_str());
    options.under_list.push_back(nullptr);
    return options.under_list.data();
}

ka_options host_options(HostOptions &options, int32_t right_size, int cancel_fd)
{
    ka_options settings;
    ka_options_init(&settings, sizeof settings);
    settings.layout = options.layout == "64" ? KA_LAYOUT_64 : KA_LAYOUT_NATIVE;
    settings.segment_bytes = options.segment_bytes != 0 ? options.segment_bytes : right_size;
    settings.scratch_bytes = options.scratch_bytes;
    settings.deadline_ms = deadline_ms(options.deadline);
    settings.cancel_fd = cancel_fd;
    settings.checking = options.raw ? KA_RAW : KA_CHECKED;
    settings.trace_level = options.trace_level;
    settings.callback = answer_callback;
    settings.user = &options;
    settings.under = words_of_under(options);
    if (!options.no_inspect) settings.inspector = backtrace_inspector();
    return settings;
}
