// SPDX-License-Identifier: MIT
//
// The REAL operations as the vector files call them.
#include "model/vectors.h"

#include <cmath>
#include <cstring>

#include "ka/real.h"
#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

static constexpr int not_written = 0x7A7A7A7A;

static int number(const std::string &word)
{
    return std::stoi(word);
}
static std::string written(int value)
{
    return value == not_written ? "-" : std::to_string(value);
}
static std::string answer(int status, const t_DECIMAL &r)
{
    return std::to_string(status) + " " + show(r);
}

static t_DECIMAL unwritten()
{
    t_DECIMAL x;
    memset(&x, 0xEE, sizeof x);
    return x;
}

static std::string sign(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    return std::to_string(m_sgn(&x));
}

static std::string change_sign(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    t_DECIMAL r = unwritten();
    const int status = m_chs(&x, &r);
    return answer(status, r);
}

static std::string order(const Words &args)
{
    const t_DECIMAL a = read_record(args[0]);
    const t_DECIMAL b = read_record(args[1]);
    return std::to_string(m_cmp(&a, &b));
}

static std::string store(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    Guarded field(number(args[1]));
    const int status = m_store(&x, field.data(), number(args[1]));
    return std::to_string(status) + " " + show(field.bytes()) + (field.intact() ? "" : " and overran the field");
}

static std::string load(const Words &args)
{
    const std::vector<uint8_t> field = read_bytes(args);
    t_DECIMAL r = unwritten();
    const int status = m_load(field.data(), static_cast<int>(field.size()), &r);
    return answer(status, r);
}

static std::string to_double(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    double d = NAN;
    const int status = m_to_dbl(&x, &d);
    return std::to_string(status) + " " + show(d);
}

static std::string from_double(const Words &args)
{
    t_DECIMAL r = unwritten();
    // strtod rather than stod, which refuses a denormal value.
    const int status = m_cv_dbl(strtod(args[0].c_str(), nullptr), &r);
    return answer(status, r);
}

static std::string to_integer(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    int32_t i = not_written;
    const int status = m_to_int(&x, &i);
    return std::to_string(status) + " " + written(i);
}

static std::string from_integer(const Words &args)
{
    t_DECIMAL r = unwritten();
    const int status = m_cv_int(number(args[0]), &r);
    return answer(status, r);
}

static std::string from_text(const Words &args)
{
    const std::string text = args[0].substr(1, args[0].size() - 2);
    t_DECIMAL r = unwritten();
    const int status = m_cv_asc(text.data(), static_cast<int>(text.size()), &r);
    return answer(status, r);
}

static std::string to_text(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    const int length = number(args[1]);
    Guarded buffer(length + 1);
    const char *text = m_to_asc(&x, buffer.data(), length, number(args[2]));
    return quoted(text) + (text == buffer.data() && buffer.intact() ? "" : " and not within the buffer");
}

template <auto operation>
static std::string digits(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    int decpt = not_written;
    int sign_flag = not_written;
    const std::string text = operation(&x, number(args[1]), &decpt, &sign_flag);
    return quoted(text) + " " + written(decpt) + " " + written(sign_flag);
}

static std::string general(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    const int ndigit = number(args[1]);
    Guarded buffer(ndigit > 0 ? ndigit + 8 : 2);
    const char *text = m_gcvt(&x, ndigit, buffer.data());
    return quoted(text) + (text == buffer.data() && buffer.intact() ? "" : " and not within the buffer");
}

// The result of an operation, provided that every aliasing gave the same and no operand was written.
static std::string agreed(const std::string &apart, const std::string &aliased, bool operands_kept)
{
    if (!operands_kept) return apart + " and an operand was written";
    return apart == aliased ? apart : apart + " but stored over an operand " + aliased;
}

template <auto operation>
static std::string arithmetic(const Words &args)
{
    const t_DECIMAL a = read_record(args[0]);
    const t_DECIMAL b = read_record(args[1]);
    t_DECIMAL x = a;
    t_DECIMAL y = b;
    t_DECIMAL r = unwritten();
    const int status = operation(&x, &y, &r);
    const std::string apart = answer(status, r);
    const bool kept = show_raw(x) == show_raw(a) && show_raw(y) == show_raw(b);
    const int over_first = operation(&x, &b, &x);
    const int over_second = operation(&a, &y, &y);
    const std::string first = answer(over_first, x);
    return agreed(apart, first == apart ? answer(over_second, y) : first, kept);
}

template <auto operation>
static std::string to_places(const Words &args)
{
    const t_DECIMAL operand = read_record(args[0]);
    t_DECIMAL x = operand;
    t_DECIMAL r = unwritten();
    const int status = operation(&x, number(args[1]), &r);
    const bool kept = show_raw(x) == show_raw(operand);
    const int over_operand = operation(&x, number(args[1]), &x);
    return agreed(answer(status, r), answer(over_operand, x), kept);
}

static std::string precision(const Words &args)
{
    t_DECIMAL x = read_record(args[0]);
    const int status = mkprec(&x, number(args[1]));
    return answer(status, x);
}

static const Operations &operations()
{
    // clang-format off
    static const Operations table = {
        {"m_sgn",    sign},
        {"m_chs",    change_sign},
        {"m_cmp",    order},
        {"m_store",  store},
        {"m_load",   load},
        {"m_to_dbl", to_double},
        {"m_cv_dbl", from_double},
        {"m_to_int", to_integer},
        {"m_cv_int", from_integer},
        {"m_cv_asc", from_text},
        {"m_to_asc", to_text},
        {"m_ecvt",   digits<m_ecvt>},
        {"m_fcvt",   digits<m_fcvt>},
        {"m_gcvt",   general},
        {"m_add",    arithmetic<m_add>},
        {"m_sub",    arithmetic<m_sub>},
        {"m_mpy",    arithmetic<m_mpy>},
        {"m_dvd",    arithmetic<m_dvd>},
        {"m_trunc",  to_places<m_trunc>},
        {"m_round",  to_places<m_round>},
        {"mkprec",   precision},
    };
    // clang-format on
    return table;
}

static const bool registered = register_vectors({"real", "real_arithmetic", "real_precision"}, operations());
