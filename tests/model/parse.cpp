// SPDX-License-Identifier: MIT
//
// Reading a number from a field of characters.
#include <algorithm>

#include "model/text.h"

namespace model {

static constexpr size_t most_decimals = 18;
static constexpr int largest_exponent = 999;

// Takes from the front of text the longest run of the given characters.
static std::string_view take(std::string_view &text, std::string_view characters)
{
    const size_t size = std::min(text.find_first_not_of(characters), text.size());
    const std::string_view run = text.substr(0, size);
    text.remove_prefix(size);
    return run;
}

// Takes a sign from the front; true for a minus.
static bool take_minus(std::string_view &text)
{
    const bool minus = !text.empty() && text[0] == '-';
    if (minus || (!text.empty() && text[0] == '+')) text.remove_prefix(1);
    return minus;
}

// The significant decimals of a mantissa, at most 18 of them, and how many of its decimals count as fraction.
struct Mantissa {
    std::string significant;
    int places;
};

static Mantissa weigh(std::string_view mantissa)
{
    const size_t point = std::min(mantissa.find('.'), mantissa.size());
    std::string_view whole = mantissa.substr(0, point);
    std::string_view fraction = mantissa.substr(std::min(point + 1, mantissa.size()));
    take(whole, "0");
    Mantissa m = {std::string(whole.substr(0, most_decimals)), 0};
    if (m.significant.empty()) m.places = static_cast<int>(take(fraction, "0").size());
    const std::string_view counted = fraction.substr(0, most_decimals - m.significant.size());
    m.significant += counted;
    m.places += static_cast<int>(counted.size());
    return m;
}

static Outcome valued(bool minus, const Mantissa &m, int exponent)
{
    const int pos = minus ? DEC_NEGATIVE : DEC_POSITIVE;
    if (m.significant.empty()) return {DEC_OK, record(0, pos, {})};
    Int units(m.significant);
    int scale = exponent - m.places;
    if (scale % 2 != 0) {
        units *= 10;
        scale--;
    }
    return normal(pos, units, scale / 2);
}

Outcome parse(std::string_view field)
{
    const auto refused = [](int code) { return Outcome{code, null_record()}; };
    take(field, " ");
    if (field.empty()) return refused(DEC_OK);
    const bool minus = take_minus(field);
    const std::string_view mantissa = take(field, "0123456789.");
    if (std::count(mantissa.begin(), mantissa.end(), '.') > 1) return refused(DEC_BAD_TEXT);

    int exponent = 0;
    if (field.size() > 1 && (field[0] == 'e' || field[0] == 'E')) {
        field.remove_prefix(1);
        const bool downward = take_minus(field);
        for (const char digit : take(field, "0123456789"))
            exponent = std::min(exponent * 10 + (digit - '0'), largest_exponent + 1);
        if (exponent > largest_exponent) return refused(DEC_BAD_EXPONENT);
        if (downward) exponent = -exponent;
    }
    // One stray character may end the field or come before a blank.
    if (field.size() > 1 && field[1] != ' ') return refused(DEC_BAD_TEXT);
    return valued(minus, weigh(mantissa), exponent);
}

} // namespace model
