// SPDX-License-Identifier: MIT
//
// See one_call.h.
#include "one_call.h"

#include <chrono>
#include <cstdio>

#include "base/text.h"
#include "values/results.h"

static std::vector<Result> read_results(ka_host *host, const Invocation &invocation)
{
    std::vector<Result> results;
    for (size_t i = 0; i < invocation.arguments.size(); i++) {
        const auto number = static_cast<int32_t>(i + 1);
        if (ka_gives_back(host, number))
            results.push_back({invocation.names[i], read_back(host, number, invocation.arguments[i])});
    }
    return results;
}

CallOutcome invoke(ka_host *host, const Invocation &invocation, const ErrorOutput &errors)
{
    CallOutcome outcome{};
    ka_begin(host, invocation.function.c_str());
    for (const Argument &argument : invocation.arguments)
        add_argument(host, argument);
    errors.begin();
    const auto begin = std::chrono::steady_clock::now();
    outcome.error_class = ka_call(host, &outcome.return_code);
    const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - begin;
    outcome.milliseconds = passed.count();
    errors.flush();
    if (outcome.error_class == KA_DONE && outcome.return_code != 0)
        outcome.reason = errors.reason(invocation.function);
    if (outcome.error_class == KA_DONE) outcome.results = read_results(host, invocation);
    return outcome;
}

std::string milliseconds_text(double milliseconds)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.4f", milliseconds);
    return text;
}

Json milliseconds_json(double milliseconds)
{
    return Json::of_json(milliseconds_text(milliseconds));
}

std::string outcome_text(const CallOutcome &outcome)
{
    std::string text;
    for (const Result &result : outcome.results)
        text += printable(result.name) + " = " + argument_text(result.value) + "\n";
    const std::string reason = outcome.reason.empty() ? "" : ": " + printable(outcome.reason);
    return text + "return code " + std::to_string(outcome.return_code) + reason + "\n";
}

JsonObject outcome_json(const std::string &function, const CallOutcome &outcome)
{
    JsonObject results;
    for (const Result &result : outcome.results)
        results.add(result.name, argument_json(result.value));
    JsonObject json;
    json.add("function", function).add("return_code", outcome.return_code);
    if (!outcome.reason.empty()) json.add("reason", outcome.reason);
    return json.add("results", results).add("milliseconds", milliseconds_json(outcome.milliseconds));
}

static const char *retry_text(int32_t retry)
{
    switch (retry) {
    case KA_RETRY_NO:
        return "no";
    case KA_RETRY_YES:
        return "yes";
    default:
        return "unsure";
    }
}

JsonObject error_json(const ka_error &error)
{
    return JsonObject()
        .add("error", ka_error_name(error.error_class))
        .add("error_class", error.error_class)
        .add("message", error.message)
        .add("retry", retry_text(error.retry));
}

JsonObject error_json(const std::string &function, const ka_error &error)
{
    return error_json(error).add("function", function);
}
