// SPDX-License-Identifier: MIT
//
// See number.h.
#include "number.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "ka/real.hpp"
#include "values/literal.h"

namespace {

constexpr const char *decimals = "0123456789";

// The significant decimals of a number and the place of its point: 0.ddd * 10^point. Zero has no decimals.
struct Digits {
    std::string digits;
    long point;
    bool operator==(const Digits &) const = default;
};

Digits trimmed(Digits number)
{
    const size_t zeros = std::min(number.digits.find_first_not_of('0'), number.digits.size());
    number.digits.erase(0, zeros);
    number.point -= static_cast<long>(zeros);
    number.digits.erase(number.digits.find_last_not_of('0') + 1);
    return number.digits.empty() ? Digits{"", 0} : number;
}

// The decimals at the front of rest, which they leave.
std::string take_decimals(std::string &rest)
{
    std::string digits = rest.substr(0, rest.find_first_not_of(decimals));
    rest.erase(0, digits.size());
    return digits;
}

void refuse_text(const std::string &text)
{
    throw Malformed("'" + text + "' is not a number, such as 12.5, -1e9 or 1:+:12,50");
}

// Stricter than the library, which passes over a stray last character and takes "." as zero.
Digits scan(const std::string &text)
{
    std::string rest = text.substr(text.find_first_of("+-") == 0 ? 1 : 0);
    const std::string whole = take_decimals(rest);
    std::string fraction;
    if (rest.starts_with('.')) {
        rest.erase(0, 1);
        fraction = take_decimals(rest);
    }
    if ((whole + fraction).empty()) refuse_text(text);
    long exponent = 0;
    if (rest.starts_with('e') || rest.starts_with('E')) {
        rest.erase(0, 1);
        const bool negative = rest.starts_with('-');
        if (negative || rest.starts_with('+')) rest.erase(0, 1);
        std::string digits = take_decimals(rest);
        if (digits.empty()) refuse_text(text);
        digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
        if (digits.size() > 3) throw Malformed("the exponent of '" + text + "' is above 999");
        exponent = (negative ? -1 : 1) * std::stol(digits);
    }
    if (!rest.empty()) refuse_text(text);
    return trimmed({whole + fraction, static_cast<long>(whole.size()) + exponent});
}

Digits digits_of(const t_DECIMAL &value)
{
    int point = 0;
    int sign = 0;
    const std::string digits = m_ecvt(&value, 2 * DEC_DIGITS, &point, &sign);
    return trimmed({digits, point});
}

void note_loss(const Digits &written, Number &number)
{
    if (digits_of(number.value) == written) return;
    number.notes.push_back("rounded: the text has " + std::to_string(written.digits.size()) +
                           " significant decimals, a REAL holds 15 or 16");
}

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

uint8_t read_sign(const std::string &text)
{
    if (text == "+") return DEC_POSITIVE;
    if (text == "-") return DEC_NEGATIVE;
    if (text == "null") return DEC_NULL;
    throw Malformed("the sign of a record is +, - or null, not '" + text + "'");
}

std::vector<uint8_t> read_hex(const std::string &hex)
{
    std::string text = hex;
    std::erase(text, ' ');
    if (text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw Malformed("bytes are hexadecimal, such as C1 0C 23, not '" + hex + "'");
    if (text.size() % 2 != 0)
        throw Malformed("every byte has two hexadecimal digits: '" + hex + "' has an odd number");
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    if (bytes.size() < 2) throw Malformed("a packed field has 2 bytes or more");
    return bytes;
}

void refuse_broken_digits(const std::vector<uint8_t> &bytes)
{
    for (size_t i = 1; i < bytes.size() && i <= DEC_DIGITS; i++)
        if (bytes[i] >= DEC_BASE)
            throw Malformed("byte " + std::to_string(i + 1) + " is " + std::to_string(bytes[i]) +
                            ": a packed digit is at most 99 (63 in hexadecimal)");
}

} // namespace

Number read_text(const std::string &text)
{
    const Digits written = scan(text);
    Number number{};
    number.status = ka::real_from_text(text, &number.value);
    if (number.status == REAL_OK) note_loss(written, number);
    return number;
}

Number read_record(const std::string &text)
{
    const std::vector<std::string> fields = split(text, ':');
    if (fields.size() != 3) throw Malformed("'" + text + "' is not a record, such as 1:+:12,34,50");
    Number number{};
    number.value.dec_exp =
        static_cast<int16_t>(read_count(fields[0], "the exponent of a record", DEC_EXP_MIN, DEC_EXP_MAX));
    number.value.dec_pos = read_sign(fields[1]);
    if (fields[2].empty()) return number;
    const std::vector<std::string> digits = split(fields[2], ',');
    if (digits.size() > DEC_DIGITS)
        throw Malformed("a record has at most 8 digits, '" + text + "' has " + std::to_string(digits.size()));
    for (const std::string &digit : digits)
        number.value.dec_dgts[number.value.dec_ndgts++] =
            static_cast<uint8_t>(read_count(digit, "a digit of a record", 0, DEC_BASE - 1));
    return number;
}

// The record keeps null, which m_load replaces.
Number read_bytes(const std::string &hex)
{
    const std::vector<uint8_t> bytes = read_hex(hex);
    const int length = static_cast<int>(bytes.size());
    if (bytes[0] != 0) refuse_broken_digits(bytes);
    Number number{};
    number.status = m_load(bytes.data(), length, &number.value);
    lddecimal(bytes.data(), length, &number.value);
    if (length > DEC_DIGITS + 1) number.notes.push_back("bytes past the ninth are not read");
    return number;
}

Number read_double(const std::string &text)
{
    char *end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0')
        throw Malformed("'" + text + "' is not a double, such as 0.1, 0x1.8p+1, inf or nan");
    Number number{};
    number.status = m_cv_dbl(value, &number.value);
    if (number.status == REAL_OK && std::strtod(exact_text(number.value).c_str(), nullptr) != value)
        number.notes.push_back("the first 15 decimals of the double " + double_text(value) +
                               " count: the double nearest to the REAL is another one");
    return number;
}

Number read_operand(const std::string &text)
{
    Number number = text.find(':') == std::string::npos ? read_text(text) : read_record(text);
    if (number.value.dec_pos == DEC_NULL)
        throw Malformed("'" + text + "' is null: an operation on null ends the process");
    if (number.status != REAL_OK) throw Malformed("'" + text + "' is out of a REAL's range");
    return number;
}

int read_count(const std::string &text, const char *what, int low, int high)
{
    int value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < low || value > high)
        throw Malformed(std::string(what) + " is a whole number from " + std::to_string(low) + " to " +
                        std::to_string(high) + ", not '" + text + "'");
    return value;
}

std::string record_text(const t_DECIMAL &value)
{
    const char *sign = value.dec_pos == DEC_NULL ? "null" : value.dec_pos == DEC_NEGATIVE ? "-" : "+";
    std::string text = std::to_string(value.dec_exp) + ":" + sign + ":";
    for (int i = 0; i < value.dec_ndgts; i++)
        text += (i > 0 ? "," : "") + std::to_string(value.dec_dgts[i]);
    return text;
}

std::string exact_text(const t_DECIMAL &value)
{
    char buffer[2 * DEC_DIGITS + 8];
    return m_gcvt(&value, 2 * DEC_DIGITS, buffer);
}

std::string double_text(double value)
{
    char buffer[32];
    return {buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr};
}
