// SPDX-License-Identifier: MIT
//
// See callback_rule.h. A rule is computed as it is read. Unsigned numbers wrap around as the signed ones are to.
#include "callback_rule.h"

#include <charconv>
#include <string_view>

#include "literal.h"

namespace {

constexpr int nesting_max = 100;

struct Reader {
    std::string_view rest;
    int32_t value;
    int nesting = 0;
    bool divides_by_zero = false;

    bool accept(std::string_view wanted)
    {
        while (rest.starts_with(' '))
            rest.remove_prefix(1);
        if (!rest.starts_with(wanted)) return false;
        rest.remove_prefix(wanted.size());
        return true;
    }

    int32_t sum();
    int32_t product();
    int32_t factor();
    int32_t number();
    int32_t divide(int32_t a, int32_t b, bool remainder);
};

// -2147483648 is read as minus and 2147483648, so that is allowed.
int32_t Reader::number()
{
    uint32_t found = 0;
    const auto [stop, error] = std::from_chars(rest.data(), rest.data() + rest.size(), found);
    if (error == std::errc::invalid_argument) {
        const std::string where = rest.empty() ? "at the end" : "before \"" + std::string(rest) + "\"";
        throw Malformed("a number, \"value\" or a parenthesis is missing " + where);
    }
    if (error != std::errc() || found > 1u << 31) throw Malformed("a number that does not fit 32 bits");
    rest.remove_prefix(static_cast<size_t>(stop - rest.data()));
    return static_cast<int32_t>(found);
}

int32_t Reader::factor()
{
    if (nesting == nesting_max) throw Malformed("nested too deeply");
    nesting++;
    int32_t result = 0;
    if (accept("-")) {
        result = static_cast<int32_t>(0u - static_cast<uint32_t>(factor()));
    } else if (accept("(")) {
        result = sum();
        if (!accept(")")) throw Malformed("a closing parenthesis is missing");
    } else {
        result = accept("value") ? value : number();
    }
    nesting--;
    return result;
}

// The one quotient that does not fit, -2147483648 / -1, wraps around.
int32_t Reader::divide(int32_t a, int32_t b, bool remainder)
{
    if (b == 0) {
        divides_by_zero = true;
        return 0;
    }
    const int64_t result = remainder ? int64_t{a} % b : int64_t{a} / b;
    return static_cast<int32_t>(static_cast<uint32_t>(result));
}

int32_t Reader::product()
{
    int32_t result = factor();
    for (;;) {
        if (accept("*")) {
            result = static_cast<int32_t>(static_cast<uint32_t>(int64_t{result} * factor()));
        } else if (accept("/")) {
            result = divide(result, factor(), false);
        } else if (accept("%")) {
            result = divide(result, factor(), true);
        } else {
            return result;
        }
    }
}

int32_t Reader::sum()
{
    int32_t result = product();
    for (;;) {
        if (accept("+")) {
            result = static_cast<int32_t>(static_cast<uint32_t>(int64_t{result} + product()));
        } else if (accept("-")) {
            result = static_cast<int32_t>(static_cast<uint32_t>(int64_t{result} - product()));
        } else {
            return result;
        }
    }
}

} // namespace

Answer answer_to(const std::string &rule, int32_t value)
{
    Reader reader{rule, value};
    reader.accept("const:");
    const int32_t answer = reader.sum();
    reader.accept("");
    if (!reader.rest.empty()) throw Malformed("\"" + std::string(reader.rest) + "\" is not arithmetic");
    return {reader.divides_by_zero ? 0 : answer, reader.divides_by_zero};
}
