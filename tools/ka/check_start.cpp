// SPDX-License-Identifier: MIT
//
// See finding.h. A call of a function that no module has shows that the host answers, and runs nothing of the module
// but dll_setup and dll_cleanup.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "finding.h"
#include "interruption.h"
#include "ka/caller.h"
#include "ka/dll_codes.h"

namespace {

constexpr const char *nobody = "\x01ka check"; // no function is named so
constexpr size_t shown_bytes = 400;            // of what the module writes

// As long as it lives, what this process and its children write on standard error goes into memory.
class CaughtErrors {
public:
    CaughtErrors() : before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)), file_(memfd_create("ka", MFD_CLOEXEC))
    {
        if (file_ != -1) dup2(file_, STDERR_FILENO);
    }
    ~CaughtErrors()
    {
        if (before_ != -1) dup2(before_, STDERR_FILENO);
        close(before_);
        close(file_);
    }
    CaughtErrors(const CaughtErrors &) = delete;
    CaughtErrors &operator=(const CaughtErrors &) = delete;

    std::string text() const
    {
        std::string text(shown_bytes, '\0');
        const ssize_t length = file_ == -1 ? 0 : pread(file_, text.data(), text.size(), 0);
        text.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.pop_back();
        return text;
    }

private:
    int before_;
    int file_;
};

struct Trial {
    int32_t error_class;
    std::string error;
    int32_t code;
    std::string written;
};

// Tables that cannot be read are no finding: calls go unchecked then, and work.
void check_host_tables(ka_host *host, Findings &findings)
{
    const ka_tables *tables = ka_host_tables(host);
    if (tables != nullptr) check_tables(*tables, findings);
}

Trial try_module(const std::string &module, int deadline_ms, bool with_tables, Findings &findings)
{
    const CaughtErrors caught;
    ka_options options;
    ka_options_init(&options, sizeof options);
    options.deadline_ms = deadline_ms;
    options.cancel_fd = interruption_descriptor();
    options.checking = KA_RAW;
    ka_host *host = nullptr;
    Trial trial{};
    trial.error_class = ka_open(&host, module.c_str(), &options);
    if (trial.error_class == KA_DONE) {
        ka_begin(host, nobody);
        trial.error_class = ka_call(host, &trial.code);
        if (trial.error_class == KA_DONE && with_tables) check_host_tables(host, findings);
    }
    trial.error = ka_last_error(host)->text;
    ka_close(host);
    trial.written = caught.text();
    return trial;
}

std::string remedy_of(const Trial &trial)
{
    return trial.error_class == KA_DEADLINE
               ? "dll_setup takes too long, or the host never waits for calls; --deadline gives it longer"
               : "look at dll_setup and at what was written; ka explain knows statuses and signals";
}

} // namespace

std::optional<std::string> check_start(const std::string &module, int deadline_ms, bool with_tables,
                                       Findings &findings)
{
    const Trial trial = try_module(module, deadline_ms, with_tables, findings);
    const std::string written = trial.written.empty() ? "" : "; it wrote: " + trial.written;
    if (trial.error_class == KA_CANCELLED) return trial.error + written;
    if (trial.error_class != KA_DONE) {
        findings.push_back({Severity::fatal, "it does not start: " + trial.error + written, remedy_of(trial)});
        return std::nullopt;
    }
    if (trial.code != KA_NO_FUNCTION)
        findings.push_back(
            {Severity::error,
             "a function that it does not have is answered with " + std::to_string(trial.code) + ", not with 7",
             "its tables are damaged, or changed as it starts"});
    if (!trial.written.empty())
        findings.push_back({Severity::warning, "it writes on standard error as it starts or ends: " + trial.written,
                            "its callers see that too, mixed with their own"});
    return std::nullopt;
}
