// SPDX-License-Identifier: MIT
//
// ka dump: the shared block of a segment or a process, decoded.
#include "commands.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "base/exit_status.h"
#include "base/json.h"
#include "base/output.h"
#include "base/text.h"
#include "block/show.h"
#include "call/failure.h"
#include "cli/mistakes.h"
#include "cli/subcommand.h"

namespace {

struct Options {
    int32_t number = 0;
    bool by_id = false;
    bool by_pid = false;
    std::string layout;
    int32_t elements = 20;
    int32_t descriptors = -1;
    bool json = false;

    Form form() const { return json ? Form::json : Form::text; }
};

constexpr const char *description = R"(Shows the shared block of a segment, or of a running host or caller.

The segment is attached read-only: nothing changes, and its users go on. Between calls argc is
mostly 0; --descriptors shows what the last call left. Status 1: no block, or something is wrong in it.)";

constexpr const char *examples = R"(Examples:
  ka dump --id 32771
  ka dump --descriptors 2 --pid 4711
  ka dump --json 4711
)";

// ---- Which segments --------------------------------------------------------------------------------------------

struct Segments {
    std::vector<int> ids;
    std::string why; // there are none
    bool is_ambiguous = false;
};

Segments find_by_pid(int32_t pid)
{
    Segments found;
    const auto ids = segments_of(pid, found.why);
    if (!ids) return found;
    if (ids->empty()) found.why = "process " + std::to_string(pid) + " has no shared segment attached";
    found.ids = *ids;
    return found;
}

// A number can be a segment and a process at once; it is not guessed which was meant.
Segments find_segments(const Options &options)
{
    if (options.by_pid) return find_by_pid(options.number);
    std::string why;
    const bool is_segment = find_segment(options.number, why).has_value();
    if (options.by_id) return is_segment ? Segments{{options.number}, ""} : Segments{{}, why};
    const Segments by_pid = find_by_pid(options.number);
    const std::string number = std::to_string(options.number);
    if (is_segment && !by_pid.ids.empty())
        return {{}, number + " is a segment, and a process that has one attached: say --id or --pid", true};
    if (is_segment) return {{options.number}, ""};
    return by_pid.ids.empty() ? Segments{{}, why + ", and " + by_pid.why} : by_pid;
}

// ---- The dump --------------------------------------------------------------------------------------------------

struct Choice {
    int layout;
    std::string from;
};

Choice choose_layout(const Options &options, const Segment &segment, Bytes bytes)
{
    if (!options.layout.empty()) return {options.layout == "64" ? 64 : 0, "as given"};
    const auto is_host = [](const Attached &process) { return process.host_layout.has_value(); };
    const auto host = std::find_if(segment.processes.begin(), segment.processes.end(), is_host);
    if (host != segment.processes.end()) return {*host->host_layout, "as given to host " + std::to_string(host->pid)};
    return {likely_layout(bytes), "which fits the header better"};
}

Limits limits_of(const Options &options)
{
    if (options.descriptors < 0) return {std::nullopt, options.elements};
    return {options.descriptors, options.elements};
}

// A segment without a block is decoded only when a layout is asked for.
Dump take_dump(const Options &options, const Segment &segment, Bytes bytes)
{
    Dump dump{segment, why_no_block(bytes), "", std::nullopt};
    if (!dump.no_block.empty() && options.layout.empty()) return dump;
    const Choice choice = choose_layout(options, segment, bytes);
    dump.layout_from = choice.from;
    dump.block = decode_block(bytes, choice.layout, limits_of(options));
    return dump;
}

bool is_sound(const Dump &dump)
{
    if (!dump.no_block.empty() || !dump.block->faults.empty()) return false;
    for (const BlockDescriptor &descriptor : dump.block->descriptors) {
        const auto has_fault = [](const BlockElement &element) { return !element.fault.empty(); };
        const auto &elements = descriptor.elements;
        if (!descriptor.faults.empty() || std::any_of(elements.begin(), elements.end(), has_fault)) return false;
    }
    return true;
}

// ---- The command -----------------------------------------------------------------------------------------------

int dump_segments(const Options &options, const std::vector<int> &ids)
{
    int status = EXIT_DONE;
    JsonArray list;
    for (const int id : ids) {
        std::string why;
        const auto segment = find_segment(id, why);
        if (!segment) return report_unreachable(KA_ARGUMENT, why, options.form());
        const Attachment attachment(id);
        if (attachment.data() == nullptr)
            return report_unreachable(KA_ARGUMENT, "segment " + std::to_string(id) + ": " + std::strerror(errno),
                                      options.form());
        const Dump dump = take_dump(options, *segment, {attachment.data(), segment->size});
        if (!is_sound(dump)) status = EXIT_NONZERO;
        list.add(dump_json(dump));
        if (!options.json && write_results(show_dump(dump), EXIT_DONE) != EXIT_DONE) return EXIT_USAGE;
    }
    return options.json ? write_results(list.text() + "\n", status) : status;
}

int run_dump(const Options &options)
{
    if (options.by_id && options.by_pid)
        return report_failure(KA_ARGUMENT, "the number is --id or --pid, not both", options.form());
    const Segments found = find_segments(options);
    if (found.is_ambiguous) return report_failure(KA_ARGUMENT, found.why, options.form());
    return found.ids.empty() ? report_unreachable(KA_ARGUMENT, found.why, options.form())
                             : dump_segments(options, found.ids);
}

std::string fault_of_layout(const std::string &text)
{
    return fault_of_choice(text, {"native", "64"});
}

} // namespace

void add_dump_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<Options>();
    CLI::App *dump = add_subcommand(app, {"dump", description, examples});
    add_option(dump,
               {.name = "NUMBER",
                .text = "a segment, or a process that has one attached",
                .is_required = true,
                .range = Range{0, INT32_MAX}},
               options->number);
    add_flag(dump, "--id", options->by_id, "the number is a segment");
    add_flag(dump, "--pid", options->by_pid, "the number is a process");
    add_option(dump,
               {.name = "--layout",
                .value = "LAYOUT",
                .text = "layout of the block: native (addresses of 32 bits) or 64; otherwise it is found out",
                .fault = fault_of_layout},
               options->layout);
    add_option(dump,
               {.name = "--elements",
                .value = "N",
                .text = "elements shown of each array",
                .shows_default = true,
                .range = Range{0, 1000000}},
               options->elements);
    add_option(
        dump,
        {.name = "--descriptors", .value = "N", .text = "descriptors shown, instead of argc", .range = Range{0, 51}},
        options->descriptors);
    add_flag(dump, "--json", options->json, "shows one JSON array, with an object for each segment");
    when_chosen(dump, exit_status, [options] { return run_dump(*options); });
}
