// SPDX-License-Identifier: MIT
//
// How a function fails in the middle: with exceptions by one of these, which becomes the return code; without
// exceptions (-fno-exceptions) the function goes on, and the call has the code of the first failure, unless the
// function returns another that is not 0. ka/module.hpp includes this.
#ifndef KA_MODULE_FAILURE_HPP
#define KA_MODULE_FAILURE_HPP

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "ka/dll_host.h"
#include "ka/kastring.h"
#include "ka/module/code.hpp"

namespace ka {

// Ends the function with a code, and text for a person: throw ka::failure(ka::own<1001>, "the book is closed").
class failure : public std::runtime_error {
public:
    failure(ka::code code, const std::string &text) : std::runtime_error(text), code_(code) {}
    failure(std::int32_t code, const std::string &text) : failure(ka::code{code}, text) {}
    ka::code code() const noexcept { return code_; }

private:
    ka::code code_;
};

// A text does not fit into a string of the caller's.
class no_room : public failure {
public:
    no_room() : failure(KASTR_NO_ROOM, "a string has no room for the text") {}
};

namespace module_detail {

// One line on standard error, whatever the text has in it.
inline void tell(const char *text) noexcept
{
    const t_DLL_FUNCINFO *const called = KaFuncInfo();
    char line[512];
    std::size_t length = 0;
    for (; text[length] != '\0' && length < sizeof line - 1; length++) {
        const auto c = static_cast<unsigned char>(text[length]);
        line[length] = c < ' ' || c == 0x7f ? ' ' : text[length];
    }
    line[length] = '\0';
    std::fprintf(stderr, "ka: %s: %s\n", called != nullptr ? called->name : "?", line);
}

#ifdef __cpp_exceptions

[[noreturn]] __attribute__((cold, noinline)) inline void fail(std::int32_t code, const char *text)
{
    throw failure(code, text);
}

[[noreturn]] __attribute__((cold, noinline)) inline void fail_for_room()
{
    throw no_room();
}

#else

inline std::int32_t first_failure; // of the call in progress

inline void fail(std::int32_t code, const char *text)
{
    if (first_failure != 0) return;
    first_failure = code;
    tell(text);
}

inline void fail_for_room()
{
    fail(KASTR_NO_ROOM, "a string has no room for the text");
}

#endif

} // namespace module_detail

} // namespace ka

#endif
