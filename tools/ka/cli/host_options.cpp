// SPDX-License-Identifier: MIT
//
// See host_options.h.
#include "host_options.h"

#include <iostream>

#include "base/duration.h"
#include "subcommand.h"
#include "values/callback_rule.h"
#include "values/literal.h"

namespace {

void add_block_options(CLI::App *command, HostWishes &wishes, const std::string &right_size)
{
    add_option(command,
               {.name = "--layout",
                .value = "LAYOUT",
                .text = "layout of the shared block",
                .shows_default = true,
                .choices = {"native", "64"}},
               wishes.layout);
    add_option(command,
               {.name = "--segment",
                .value = "BYTES",
                .text = "size of the shared segment; 0: " + right_size,
                .shows_default = true,
                .range = Range{0, INT32_MAX}},
               wishes.segment_bytes);
    add_option(command,
               {.name = "--scratch",
                .value = "BYTES",
                .text = "size of the scratch area at its end",
                .shows_default = true,
                .range = Range{0, INT32_MAX}},
               wishes.scratch_bytes);
}

int32_t answer_callback(ka_host *, int32_t value, void *user)
{
    const Answer answer = answer_to(static_cast<const HostWishes *>(user)->callback, value);
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
                .fault = refuse_duration},
               deadline);
}

int32_t deadline_ms(const std::string &deadline)
{
    return static_cast<int32_t>(read_duration(deadline).value().count());
}

void add_host_options(CLI::App *command, HostWishes &wishes, const std::string &right_size)
{
    add_flag(command, "--raw", wishes.raw, "sends the arguments as written, unchecked");
    add_deadline_option(command, wishes.deadline, "how long to wait for the answer");
    add_option(command,
               {.name = "--callback",
                .value = "RULE",
                .text =
                    "answer to every call-back: const:N, or arithmetic over value with + - * / % and parentheses, "
                    "in 32 bits that wrap around; 0 when it divides by zero",
                .shows_default = true},
               wishes.callback);
    add_option(command,
               {.name = "--trace",
                .value = "N",
                .text = "trace of the calls on standard error: 0 (none) to 4",
                .shows_default = true,
                .range = Range{0, KA_TRACE_MAX}},
               wishes.trace_level);
    add_block_options(command, wishes, right_size);
}

void check_callback_rule(const std::string &option, const std::string &rule)
{
    try {
        answer_to(rule, 0);
    } catch (const Malformed &malformed) {
        throw Malformed(option + " " + rule + ": " + malformed.what());
    }
}

ka_options host_options(HostWishes &wishes, int32_t right_size, int cancel_fd)
{
    ka_options options;
    ka_options_init(&options, sizeof options);
    options.layout = wishes.layout == "64" ? KA_LAYOUT_64 : KA_LAYOUT_NATIVE;
    options.segment_bytes = wishes.segment_bytes != 0 ? wishes.segment_bytes : right_size;
    options.scratch_bytes = wishes.scratch_bytes;
    options.deadline_ms = deadline_ms(wishes.deadline);
    options.cancel_fd = cancel_fd;
    options.checking = wishes.raw ? KA_RAW : KA_CHECKED;
    options.trace_level = wishes.trace_level;
    options.callback = answer_callback;
    options.user = &wishes;
    return options;
}
