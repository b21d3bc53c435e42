// SPDX-License-Identifier: MIT
//
// The exception of ka/caller.hpp, which includes this.
#ifndef KA_CALLER_ERROR_HPP
#define KA_CALLER_ERROR_HPP

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "ka/arguments.hpp"
#include "ka/caller.h"

namespace ka {

// The contents of ka_last_error and of the two reports when something failed; what() is the error's message.
class Error : public std::runtime_error {
public:
    // report and json may be null.
    explicit Error(const ka_error &record, const char *report = nullptr, const char *json = nullptr)
        : std::runtime_error(record.message),
          details_(std::make_shared<const Details>(Details{record, report ? report : "", json ? json : ""}))
    {
    }
    const ka_error &record() const noexcept { return details_->record; }
    std::int32_t error_class() const noexcept { return details_->record.error_class; }
    const char *class_name() const noexcept { return ka_error_name(error_class()); }
    std::int32_t retry() const noexcept { return details_->record.retry; }
    const std::string &report() const noexcept { return details_->report; }
    const std::string &report_json() const noexcept { return details_->json; }

private:
    struct Details {
        ka_error record;
        std::string report;
        std::string json;
    };
    std::shared_ptr<const Details> details_; // exceptions are copied, and that must not fail
};

namespace detail {

[[noreturn]] inline void raise(const Error &error)
{
#ifdef __cpp_exceptions
    throw error;
#else
    std::fprintf(stderr, "ka: %s\n", error.what());
    std::abort();
#endif
}

[[noreturn]] inline void raise(std::int32_t error_class, const char *text)
{
    ka_error record = {};
    record.error_class = error_class;
    record.exit_status = -1;
    std::snprintf(record.message, sizeof record.message, "%s", text);
    raise(Error(record));
}

} // namespace detail

} // namespace ka

#endif
