// SPDX-License-Identifier: MIT
//
// See failure.h.
#include "failure.h"

#include <nlohmann/json.hpp>

#include "base/exit_status.h"
#include "base/output.h"
#include "base/text.h"
#include "one_call.h"

// A host that was ended, or ended itself, has a report; other errors have a line only.
static const char *report_of(ka_host *host, const char *(*write)(ka_host *))
{
    const int32_t error_class = ka_last_error(host)->error_class;
    const bool was_ended = error_class == KA_DIED || error_class == KA_DEADLINE || error_class == KA_CANCELLED;
    return was_ended ? write(host) : nullptr;
}

std::string failure_text(ka_host *host)
{
    const char *report = report_of(host, ka_report_text);
    std::string text = report != nullptr ? report : ka_last_error(host)->message;
    while (text.ends_with('\n'))
        text.pop_back();
    return text;
}

std::string failure_json(ka_host *host, const std::string &function)
{
    const char *report = report_of(host, ka_report_json);
    return report != nullptr ? report : error_json(function, *ka_last_error(host)).text();
}

int32_t pid_of_failure(ka_host *host)
{
    const bool was_started = ka_last_error(host)->error_class != KA_START;
    const char *report = was_started ? ka_report_json(host) : nullptr;
    if (report == nullptr) return 0;
    const auto process = nlohmann::json::parse(report)["process"];
    return process.is_object() ? process["pid"].get<int32_t>() : 0;
}

static ka_error error_of(int32_t error_class, const std::string &text)
{
    ka_error error{};
    error.error_class = error_class;
    error.retry = KA_RETRY_NO;
    printable(text).copy(error.message, sizeof error.message - 1);
    return error;
}

std::string refused_call_json(const std::string &function, int32_t error_class, const std::string &text)
{
    return error_json(function, error_of(error_class, text)).text();
}

static int report(ExitStatus status, int32_t error_class, const std::string &text, Form form)
{
    report_error(status, text);
    return form == Form::text ? status : write_results(error_json(error_of(error_class, text)).text() + "\n", status);
}

int report_failure(int32_t error_class, const std::string &text, Form form)
{
    return report(exit_status_of(error_class), error_class, text, form);
}

int report_unreachable(int32_t error_class, const std::string &text, Form form)
{
    return report(EXIT_NOT_STARTED, error_class, text, form);
}
