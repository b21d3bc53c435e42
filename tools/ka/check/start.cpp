// SPDX-License-Identifier: MIT
//
// See finding.h. First the host is waited for, so that a failure in the start is not taken for one in a
// call; then a call of a function that no module has shows that it answers. Of the module nothing runs but dll_setup
// and dll_cleanup.
#include <csignal>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/interruption.h"
#include "call/backtrace.h"
#include "finding.h"
#include "ka/caller.h"
#include "ka/dll_codes.h"

namespace {

constexpr const char *no_function = "\x01ka check"; // no module has one of this name
constexpr size_t shown_bytes = 400;                 // of what the module writes, its last

// Of what the host has written on standard error, the end: whole lines, when there are some.
std::string written_by(ka_host *host)
{
    std::string text(shown_bytes, '\0');
    text.resize(static_cast<size_t>(ka_error_output(host, text.data(), static_cast<int32_t>(text.size()))));
    const bool is_cut = text.size() == shown_bytes;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    if (!is_cut) return text;
    const size_t line_end = text.find('\n');
    return "..." + (line_end == std::string::npos ? text : text.substr(line_end));
}

// What the module writes as it ends can only be read before the host is closed.
void end_module(ka_host *host, int grace_ms)
{
    const int32_t pid = ka_pid(host);
    struct pollfd process = {pid == 0 ? -1 : static_cast<int>(syscall(SYS_pidfd_open, pid, 0)), POLLIN, 0};
    if (process.fd == -1) return;
    syscall(SYS_pidfd_send_signal, process.fd, SIGTERM, nullptr, 0);
    if (poll(&process, 1, grace_ms) == 0) syscall(SYS_pidfd_send_signal, process.fd, SIGKILL, nullptr, 0);
    close(process.fd);
}

struct StartResult {
    int32_t error_class;
    std::string error;
    int32_t return_code;
    std::string written;
    std::vector<std::string> backtrace;
};

// Tables that cannot be read are not a finding: calls go unchecked then, and work.
int32_t await_start(ka_host *host, bool with_tables, Findings &findings)
{
    const ka_tables *tables = ka_host_tables(host);
    if (tables != nullptr && with_tables) check_tables(*tables, findings);
    const int32_t error_class = ka_last_error(host)->error_class;
    return tables != nullptr || error_class == KA_SYSTEM ? KA_DONE : error_class;
}

std::vector<std::string> backtrace_of(ka_host *host)
{
    const char *report = ka_report_json(host);
    if (report == nullptr) return {};
    return nlohmann::json::parse(report)["backtrace"].get<std::vector<std::string>>();
}

StartResult start_module(const std::string &module, int deadline_ms, bool with_tables, Findings &findings)
{
    ka_options options;
    ka_options_init(&options, sizeof options);
    options.deadline_ms = deadline_ms;
    options.cancel_fd = open_interruption_fd();
    options.checking = KA_RAW;
    options.inspector = backtrace_inspector();
    options.error_output = KA_STDERR_RING;
    ka_host *host = nullptr;
    StartResult result{};
    result.error_class = ka_open(&host, module.c_str(), &options);
    if (result.error_class == KA_DONE) result.error_class = await_start(host, with_tables, findings);
    if (result.error_class == KA_DONE) {
        ka_begin(host, no_function);
        result.error_class = ka_call(host, &result.return_code);
    }
    result.error = ka_last_error(host)->message;
    if (result.error_class != KA_DONE) result.backtrace = backtrace_of(host);
    end_module(host, options.grace_ms);
    result.written = written_by(host);
    ka_close(host);
    return result;
}

// The innermost of those of the module's own functions that the host runs as it starts or ends.
std::string place_of(const StartResult &result)
{
    for (const std::string &line : result.backtrace)
        for (const std::string hook : {"dll_setup", "dll_cleanup"})
            if (line.find(" " + hook + " at ") != std::string::npos ||
                line.find(" " + hook + "+0x") != std::string::npos)
                return ", in " + hook;
    return "";
}

std::string remedy_of(const StartResult &result)
{
    return result.error_class == KA_DEADLINE
               ? "dll_setup takes too long, or the host never waits for calls; --deadline gives it longer"
               : "look at dll_setup and at what was written; ka explain knows statuses and signals";
}

} // namespace

std::optional<std::string> check_start(const std::string &module, int deadline_ms, bool with_tables,
                                       Findings &findings)
{
    const StartResult result = start_module(module, deadline_ms, with_tables, findings);
    const std::string written = result.written.empty() ? "" : "; it wrote: " + result.written;
    if (result.error_class == KA_CANCELLED) return result.error + written;
    if (result.error_class != KA_DONE) {
        findings.push_back({Severity::fatal, "it does not start: " + result.error + place_of(result) + written,
                            remedy_of(result), result.backtrace});
        return std::nullopt;
    }
    if (result.return_code != KA_NO_FUNCTION)
        findings.push_back({Severity::error,
                            "a function that it does not have is answered with " +
                                std::to_string(result.return_code) + ", not with 7",
                            "its tables are damaged, or changed as it starts"});
    if (!result.written.empty())
        findings.push_back({Severity::warning, "it writes on standard error as it starts or ends: " + result.written,
                            "its callers see that too, mixed with their own"});
    return std::nullopt;
}
