// SPDX-License-Identifier: MIT
//
// REALs as exact numbers with operators; ka/module.hpp includes this.
#ifndef KA_MODULE_DECIMAL_HPP
#define KA_MODULE_DECIMAL_HPP

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ka/module/failure.hpp"
#include "ka/real.hpp"

namespace ka {

namespace module_detail {

inline const char *meaning_of(std::int32_t status) noexcept
{
    switch (status) {
    case REAL_NOT_INTEGER:
        return "a REAL does not fit into an INTEGER";
    case REAL_RANGE:
        return "a REAL out of range";
    case REAL_DIVISION_BY_ZERO:
        return "a division of a REAL by zero";
    case REAL_NOT_NUMBER:
        return "a text is not a number";
    default:
        return "a REAL cannot be computed";
    }
}

// The double that the call host makes the same 15 decimals of: the one nearest to x rounded to 15 of them.
__attribute__((noinline)) inline double nearest_double(const t_DECIMAL &x)
{
    constexpr int decimals = 15;
    static constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    constexpr int exact_powers = static_cast<int>(sizeof powers / sizeof powers[0]);
    int point = 0, negative = 0;
    const char *const digits = m_ecvt(&x, decimals, &point, &negative);
    if (digits[0] == '\0') { // the rounding leaves the range of REALs
        double cut = 0;
        m_to_dbl(&x, &cut);
        return cut;
    }
    int count = 0;
    std::int64_t number = 0;
    for (; digits[count] != '\0'; count++)
        number = 10 * number + (digits[count] - '0');
    const int exponent = point - count;
    const double whole = static_cast<double>(negative ? -number : number);
    if (exponent >= 0 && exponent < exact_powers) return whole * powers[exponent];
    if (exponent < 0 && -exponent < exact_powers) return whole / powers[-exponent];
    char text[decimals + 16]; // without a point, which some locales write as a comma
    std::snprintf(text, sizeof text, "%s%se%d", negative ? "-" : "", digits, exponent);
    return std::strtod(text, nullptr);
}

// A value, or the substitute that an operation stores, and its status.
template <typename Value>
struct with_status {
    Value value;
    std::int32_t status = REAL_OK;
};

} // namespace module_detail

// A REAL, exact, as the caller has it: 15 or 16 decimals. (ka::Decimal of ka/caller.hpp is the text of one, for
// programs that call modules.) The operators compute as m_add, m_sub, m_mpy and m_dvd of ka/real.h. A status that is
// not REAL_OK ends the function with that code; add, subtract, multiply, divide and read return it instead:
//
//     const auto [value, status] = ka::decimal::divide(a, b);
class decimal {
public:
    using outcome = module_detail::with_status<decimal>;

    decimal() noexcept = default;
    decimal(std::int32_t number) noexcept { m_cv_int(number, &record_); }
    decimal(std::string_view text) : decimal(taken(read(text))) {}
    explicit decimal(const t_DECIMAL &record) noexcept : record_(record) {}
    decimal(double) = delete; // it would bring the inexact decimals of a double: say which ones, as text

    static outcome add(const decimal &a, const decimal &b) noexcept { return done(m_add, a, b); }
    static outcome subtract(const decimal &a, const decimal &b) noexcept { return done(m_sub, a, b); }
    static outcome multiply(const decimal &a, const decimal &b) noexcept { return done(m_mpy, a, b); }
    static outcome divide(const decimal &a, const decimal &b) noexcept { return done(m_dvd, a, b); }

    // As ka::real_from_text; the number may be rounded.
    static outcome read(std::string_view text) noexcept
    {
        outcome found;
        found.status = real_from_text(text, &found.value.record_);
        return found;
    }

    // As read, with REAL_RANGE instead of a number that would be rounded.
    static outcome read_exact(std::string_view text) noexcept
    {
        outcome found;
        bool exact = false;
        found.status = real_from_text(text, &found.value.record_, &exact);
        if (found.status == REAL_OK && !exact) found.status = REAL_RANGE;
        return found;
    }

    // All decimals, as m_gcvt writes them; or a number of them after the point.
    std::string text() const { return real_to_text(record_); }
    std::string text(int places) const
    {
        char buffer[160]; // the longest REAL has 126 decimals before the point
        const int longest = places > 0 && places < 24 ? 132 + places : 132;
        return m_to_asc(&record_, buffer, longest, places);
    }
    const t_DECIMAL &record() const noexcept { return record_; }

    decimal operator-() const noexcept
    {
        decimal negated;
        m_chs(&record_, &negated.record_);
        return negated;
    }
    friend decimal operator+(const decimal &a, const decimal &b) { return taken(add(a, b)); }
    friend decimal operator-(const decimal &a, const decimal &b) { return taken(subtract(a, b)); }
    friend decimal operator*(const decimal &a, const decimal &b) { return taken(multiply(a, b)); }
    friend decimal operator/(const decimal &a, const decimal &b) { return taken(divide(a, b)); }
    decimal &operator+=(const decimal &other) { return *this = *this + other; }
    decimal &operator-=(const decimal &other) { return *this = *this - other; }
    decimal &operator*=(const decimal &other) { return *this = *this * other; }
    decimal &operator/=(const decimal &other) { return *this = *this / other; }

    friend bool operator==(const decimal &a, const decimal &b) noexcept { return compare(a, b) == 0; }
    friend bool operator!=(const decimal &a, const decimal &b) noexcept { return compare(a, b) != 0; }
    friend bool operator<(const decimal &a, const decimal &b) noexcept { return compare(a, b) < 0; }
    friend bool operator>(const decimal &a, const decimal &b) noexcept { return compare(a, b) > 0; }
    friend bool operator<=(const decimal &a, const decimal &b) noexcept { return compare(a, b) <= 0; }
    friend bool operator>=(const decimal &a, const decimal &b) noexcept { return compare(a, b) >= 0; }

    // To places after the point, 0 or more, as m_round and m_trunc do it.
    friend decimal round(const decimal &x, int places) noexcept
    {
        decimal rounded;
        m_round(&x.record_, places, &rounded.record_);
        return rounded;
    }
    friend decimal trunc(const decimal &x, int places) noexcept
    {
        decimal cut;
        m_trunc(&x.record_, places, &cut.record_);
        return cut;
    }

private:
    static int compare(const decimal &a, const decimal &b) noexcept { return m_cmp(&a.record_, &b.record_); }
    template <typename Operation>
    static outcome done(Operation operation, const decimal &a, const decimal &b) noexcept
    {
        outcome found;
        found.status = operation(&a.record_, &b.record_, &found.value.record_);
        return found;
    }

    static decimal taken(const outcome &found)
    {
        if (found.status != REAL_OK) module_detail::fail(found.status, module_detail::meaning_of(found.status));
        return found.value;
    }

    t_DECIMAL record_ = {0, DEC_POSITIVE, 0, {}};
};

// Declared once more, so that they can be called by their full names.
decimal round(const decimal &x, int places) noexcept;
decimal trunc(const decimal &x, int places) noexcept;

} // namespace ka

#endif
