// SPDX-License-Identifier: MIT
//
// ka check: what would go wrong with a module, before it does.
#include "commands.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <unistd.h>

#include "base/exit_status.h"
#include "base/json.h"
#include "base/output.h"
#include "base/terminal.h"
#include "base/text.h"
#include "call/failure.h"
#include "check/finding.h"
#include "cli/host_options.h"
#include "cli/subcommand.h"
#include "module/find.h"

namespace {

struct Options {
    std::string module;
    std::string deadline = "10s";
    bool no_start = false;
    bool json = false;

    Form form() const { return json ? Form::json : Form::text; }
};

struct CheckResult {
    Findings findings;
    std::optional<int> bits;                 // of the module; nothing when it is no program for this machine
    std::optional<std::string> interruption; // the start was interrupted, and showed nothing
};

constexpr const char *description = R"(Looks for what would go wrong with a module, before it does.

The file is read: its format, loader, libraries, symbols and tables. Then the module is started once and asked for a
function that it does not have; of its own code only dll_setup and dll_cleanup run.
Each finding is an error, a warning or a note, with what to do. The module may have either word size; --json tells it
as bits: 64 or 32, or null for what is no program of this machine. Status 0: nothing worse than notes; 1: errors or
warnings; 4: the module cannot be started.)";

constexpr const char *examples = R"(Examples:
  ka check ./adder
  ka check --no-start ./adder
  ka check --json ./adder
)";

const char *name_of(Severity severity)
{
    switch (severity) {
    case Severity::note:
        return "note";
    case Severity::warning:
        return "warning";
    default:
        return "error";
    }
}

Severity worst_of(const Findings &findings)
{
    Severity worst = Severity::note;
    for (const Finding &finding : findings)
        worst = std::max(worst, finding.severity);
    return worst;
}

ExitStatus status_of(const Findings &findings)
{
    switch (worst_of(findings)) {
    case Severity::note:
        return EXIT_DONE;
    case Severity::fatal:
        return EXIT_NOT_STARTED;
    default:
        return EXIT_NONZERO;
    }
}

// Lines after the first are indented, and are not taken for other findings.
std::string indented(std::string text)
{
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at++)
        text.insert(at + 1, "    ");
    return text;
}

std::string show(const std::string &module, const Findings &findings)
{
    std::string text;
    for (const Finding &finding : findings) {
        const Paint paint = finding.severity >= Severity::error     ? Paint::error
                            : finding.severity == Severity::warning ? Paint::warning
                                                                    : Paint::faint;
        text += painted(name_of(finding.severity), paint, STDOUT_FILENO) + ": " + printable(module) + ": " +
                indented(printable_lines(finding.text)) + "\n";
        if (!finding.remedy.empty()) text += "  " + finding.remedy + "\n";
        for (const std::string &line : finding.backtrace)
            text += (&line == &finding.backtrace[0] ? "  backtrace  " : "             ") + printable(line) + "\n";
    }
    return text.empty() ? printable(module) + ": " + painted("good", Paint::good, STDOUT_FILENO) + "\n" : text;
}

std::string json_of(const std::string &module, const CheckResult &checked)
{
    JsonArray list;
    for (const Finding &finding : checked.findings)
        list.add(JsonObject()
                     .add("severity", name_of(finding.severity))
                     .add("text", printable_lines(finding.text))
                     .add("remedy", finding.remedy)
                     .add("backtrace", finding.backtrace));
    const bool is_startable = worst_of(checked.findings) != Severity::fatal;
    return JsonObject()
               .add("module", module)
               .add("bits", checked.bits)
               .add("startable", is_startable)
               .add("findings", list)
               .text() +
           "\n";
}

// What the file already shows to fail is not started: the answer would be a second one to the same question.
CheckResult check_all(Options &options)
{
    CheckResult checked;
    Findings &findings = checked.findings;
    const std::string fault = find_module(options.module);
    if (!fault.empty()) {
        findings.push_back({Severity::fatal, fault, "look at the path"});
        return checked;
    }
    const auto program = check_program(options.module, findings);
    if (program) checked.bits = program->machine->bits;
    const bool tables_come_later = program && !check_tables(*program, findings);
    const bool can_start = program && worst_of(findings) != Severity::fatal;
    const auto never_answers = [](const Finding &each) { return each.never_answers; };
    const bool would_answer = std::none_of(findings.begin(), findings.end(), never_answers);
    if (can_start && would_answer && !options.no_start) {
        const Progress progress("starting " + options.module);
        checked.interruption =
            check_start(options.module, deadline_ms(options.deadline), tables_come_later, findings);
    } else if (tables_come_later) {
        findings.push_back({Severity::note, "its tables are filled as it starts, and were not looked at", ""});
    }
    return checked;
}

// Earlier findings are good to know; that nothing was found would say that the module is good.
int show_interrupted(const Options &options, const CheckResult &checked)
{
    if (!options.json && !checked.findings.empty()) std::cout << show(options.module, checked.findings) << std::flush;
    return report_failure(KA_CANCELLED, *checked.interruption, options.form());
}

int run_check(Options &options)
{
    const CheckResult checked = check_all(options);
    if (checked.interruption) return show_interrupted(options, checked);
    return write_results(options.json ? json_of(options.module, checked) : show(options.module, checked.findings),
                         status_of(checked.findings));
}

} // namespace

void add_check_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<Options>();
    CLI::App *check = add_subcommand(app, {"check", description, examples});
    add_option(check,
               {.name = "MODULE",
                .text = "path of the module, or its name in the current folder or in KA_PATH",
                .is_required = true},
               options->module);
    add_deadline_option(check, options->deadline, "how long to wait for the start");
    add_flag(check, "--no-start", options->no_start, "reads the file only, and runs nothing");
    add_flag(check, "--json", options->json, "shows one JSON object");
    when_chosen(check, exit_status, [options] { return run_check(*options); });
}
