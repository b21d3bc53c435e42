// SPDX-License-Identifier: MIT
//
// See failure.h.
#include "failure.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "base/exit_status.h"
#include "base/text.h"
#include "one_call.h"

// What killed a host, or kept it busy, is worth more than a line; then there is a report of it, else none.
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
    return report != nullptr ? report : "{" + error_members(function, *ka_last_error(host)) + "}";
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

std::string unmade_call_json(const std::string &function, int32_t error_class, const std::string &text)
{
    return "{" + error_members(function, error_of(error_class, text)) + "}";
}

static int tell(ExitStatus status, int32_t error_class, const std::string &text, Form form)
{
    complain(status, text);
    if (form == Form::text) return status;
    std::cout << "{" << error_members(error_of(error_class, text)) << "}" << std::endl;
    return std::cout ? status : complain(EXIT_USAGE, "the results could not be written");
}

int tell_failure(int32_t error_class, const std::string &text, Form form)
{
    return tell(exit_status_of(error_class), error_class, text, form);
}

int tell_unreachable(int32_t error_class, const std::string &text, Form form)
{
    return tell(EXIT_NOT_STARTED, error_class, text, form);
}
