// SPDX-License-Identifier: MIT
//
// The possible steps of a program: every operation of the decimal library and of the REAL layer.
#include <algorithm>
#include <climits>
#include <cmath>

#include "fuzz/machine.h"
#include "ka/real.h"
#include "model/guarded.h"
#include "model/real.h"

using namespace model;

namespace fuzz {

static constexpr int unwritten = -77777;

static t_DECIMAL &reg(Machine &m, int i)
{
    return m.registers[static_cast<size_t>(i)];
}

static void expect_result(Machine &m, const Step &s, int code, const Outcome &expected)
{
    m.expect("code", code, expected.code);
    m.expect("result", reg(m, s.r), expected.record);
}

static void expect_result(Machine &m, const Step &s, int status, const Real &expected)
{
    expect_result(m, s, status, Outcome{expected.status, expected.value});
}

// ---- Values from the program ------------------------------------------------------------------------------------

static bool load(Machine &m, const Step &s)
{
    const int exp = m.byte() % 128 + DEC_EXP_MIN;
    const int header = m.byte();
    const int kind = header >> 4;
    t_DECIMAL x = filled(exp,
                         kind < 7    ? DEC_POSITIVE
                         : kind < 15 ? DEC_NEGATIVE
                                     : DEC_NULL,
                         std::min(header & 15, +DEC_DIGITS), 0xEE);
    for (int i = 0; i < x.dec_ndgts; i++)
        x.dec_dgts[i] = static_cast<uint8_t>(m.byte() % DEC_BASE);
    reg(m, s.r) = x;
    return true;
}

template <auto constant, auto expectation>
static bool store_constant(Machine &m, const Step &s)
{
    m.expect("status", constant(&reg(m, s.r)), +REAL_OK);
    m.expect("constant", reg(m, s.r), *expectation);
    return true;
}

// ---- Arithmetic -------------------------------------------------------------------------------------------------

template <auto operation, auto expectation>
static bool combine(Machine &m, const Step &s)
{
    const t_DECIMAL a = reg(m, s.a);
    const t_DECIMAL b = reg(m, s.b);
    constexpr bool is_real = std::is_same_v<decltype(expectation(a, b)), Real>;
    const bool divides = operation == decdiv || operation == m_dvd;
    if (is_real && (is_null(a) || is_null(b))) return false;
    if (divides && !can_divide_by(b)) return false;
    const int code = operation(&reg(m, s.a), &reg(m, s.b), &reg(m, s.r));
    expect_result(m, s, code, expectation(a, b));
    return true;
}

static bool decimal_compare(Machine &m, const Step &s)
{
    m.expect("order", deccmp(&reg(m, s.a), &reg(m, s.b)), compare(reg(m, s.a), reg(m, s.b)));
    return true;
}

static bool real_compare(Machine &m, const Step &s)
{
    if (is_null(reg(m, s.a)) || is_null(reg(m, s.b))) return false;
    m.expect("order", m_cmp(&reg(m, s.a), &reg(m, s.b)), compare(reg(m, s.a), reg(m, s.b)));
    m.expect("sign", m_sgn(&reg(m, s.a)), sign(reg(m, s.a)));
    return true;
}

static bool decimal_negate(Machine &m, const Step &s)
{
    const t_DECIMAL x = reg(m, s.r);
    m.expect("code", decchs(&reg(m, s.r)), +DEC_OK);
    m.expect("result", reg(m, s.r), change_sign(x));
    return true;
}

static bool real_negate(Machine &m, const Step &s)
{
    const t_DECIMAL x = reg(m, s.a);
    if (is_null(x)) return false;
    m.expect("status", m_chs(&reg(m, s.a), &reg(m, s.r)), +REAL_OK);
    m.expect("result", reg(m, s.r), change_sign(x));
    return true;
}

// ---- Places -----------------------------------------------------------------------------------------------------

template <auto operation, auto expectation>
static bool places_in_place(Machine &m, const Step &s)
{
    const t_DECIMAL x = reg(m, s.r);
    const int places = s.n == -128 ? INT_MIN : s.n == 127 ? INT_MAX : s.n;
    expect_result(m, s, operation(&reg(m, s.r), places), expectation(x, places));
    return true;
}

template <auto operation, auto expectation>
static bool real_places(Machine &m, const Step &s)
{
    const t_DECIMAL x = reg(m, s.a);
    if (is_null(x) || s.n < 0) return false;
    expect_result(m, s, operation(&reg(m, s.a), s.n, &reg(m, s.r)), expectation(x, s.n));
    return true;
}

static bool precision(Machine &m, const Step &s)
{
    const t_DECIMAL x = reg(m, s.r);
    const bool small_first = x.dec_ndgts > 0 && x.dec_dgts[0] < 10;
    if (s.n + (small_first ? 1 : 0) < 0) return false;
    expect_result(m, s, mkprec(&reg(m, s.r), s.n), with_precision(x, s.n));
    return true;
}

// ---- Packed fields ----------------------------------------------------------------------------------------------

template <auto operation>
static bool store_field(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    if (operation == m_store && is_null(x)) return false;
    const int length = 2 + std::abs(s.n) % 11;
    Guarded field(length);
    m.expect("code", operation(&x, field.data(), length), +DEC_OK);
    m.expect("field", field.bytes(), packed(x, length));
    m.expect("overrun", field.intact(), true);
    return true;
}

static Bytes field_of(Machine &m, const Step &s)
{
    Bytes field = m.bytes(1 + std::abs(s.n) % 12);
    std::transform(field.begin() + 1, field.end(), field.begin() + 1, [](uint8_t b) { return b % DEC_BASE; });
    return field;
}

static bool decimal_load(Machine &m, const Step &s)
{
    const Bytes field = field_of(m, s);
    const int code = lddecimal(field.data(), static_cast<int>(field.size()), &reg(m, s.r));
    expect_result(m, s, code, Outcome{DEC_OK, unpacked(field)});
    return true;
}

static bool real_load(Machine &m, const Step &s)
{
    const Bytes field = field_of(m, s);
    const int status = m_load(field.data(), static_cast<int>(field.size()), &reg(m, s.r));
    expect_result(m, s, status, real_from_field(field));
    return true;
}

// ---- Text -------------------------------------------------------------------------------------------------------

static std::vector<char> text_of(Machine &m, const Step &s)
{
    const Bytes text = m.bytes(std::abs(s.n) % 31);
    return {text.begin(), text.end()};
}

static bool decimal_read(Machine &m, const Step &s)
{
    const std::vector<char> text = text_of(m, s);
    const int code = deccvasc(text.data(), static_cast<int>(text.size()), &reg(m, s.r));
    expect_result(m, s, code, parse({text.data(), text.size()}));
    return true;
}

static bool real_read(Machine &m, const Step &s)
{
    const std::vector<char> text = text_of(m, s);
    const std::optional<Real> expected = real_from_text({text.data(), text.size()});
    if (!expected) return false;
    expect_result(m, s, m_cv_asc(text.data(), static_cast<int>(text.size()), &reg(m, s.r)), *expected);
    return true;
}

template <auto operation, Count meaning, bool real>
static bool digits(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    if (real && is_null(x)) return false;
    Digits expected = digit_string(x, s.n, meaning);
    if (real && expected.text.starts_with('0')) expected.decpt = expected.sign = 0;
    int decpt = unwritten;
    int sign_flag = unwritten;
    m.expect("digits", std::string(operation(&x, s.n, &decpt, &sign_flag)), expected.text);
    m.expect("decpt", decpt, expected.decpt.value_or(unwritten));
    m.expect("sign", sign_flag, expected.sign.value_or(unwritten));
    return true;
}

static bool decimal_layout(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    const int length = m.byte() % 48;
    Guarded field(length);
    m.expect("code", dectoasc(&x, field.data(), length, s.n), +DEC_OK);
    m.expect("field", field.text(), layout(x, length, s.n));
    m.expect("overrun", field.intact(), true);
    return true;
}

static bool text_layout(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    if (is_null(x)) return false;
    const int length = 1 + m.byte() % 47;
    Guarded buffer(length + 1);
    m.expect("text", std::string(m_to_asc(&x, buffer.data(), length, s.n)), real_layout(x, length, s.n));
    m.expect("overrun", buffer.intact(), true);
    return true;
}

static bool general(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    if (is_null(x)) return false;
    const std::optional<std::string> expected = real_general(x, s.n);
    Guarded buffer(std::max(s.n + 8, 2));
    const std::string text = m_gcvt(&x, s.n, buffer.data());
    if (expected) m.expect("text", text, *expected);
    m.expect("overrun", buffer.intact(), true);
    return true;
}

// ---- Binary numbers ---------------------------------------------------------------------------------------------

template <typename Integer, auto operation>
static bool decimal_from_integer(Machine &m, const Step &s)
{
    const Integer value = m.raw<Integer>();
    const bool null = value == std::numeric_limits<Integer>::min();
    expect_result(m, s, operation(value, &reg(m, s.r)), Outcome{DEC_OK, null ? null_record() : from_integer(value)});
    return true;
}

static bool real_from_int(Machine &m, const Step &s)
{
    const int32_t value = m.raw<int32_t>();
    expect_result(m, s, m_cv_int(value, &reg(m, s.r)), real_from_integer(value));
    return true;
}

template <typename Integer, auto operation>
static bool decimal_to_integer(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    constexpr int32_t least = std::numeric_limits<Integer>::min();
    const std::optional<int32_t> whole = is_null(x) ? least : to_int32(x);
    const bool fits = whole && *whole >= least && *whole <= std::numeric_limits<Integer>::max();
    Integer value = 4711;
    m.expect("code", operation(&x, &value), fits ? +DEC_OK : +DEC_OVERFLOW);
    m.expect("integer", value, fits ? static_cast<Integer>(*whole) : Integer{4711});
    return true;
}

static bool real_to_int(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    if (is_null(x)) return false;
    const Integer expected = real_to_integer(x);
    int32_t value = 4711;
    m.expect("status", m_to_int(&x, &value), expected.status);
    m.expect("integer", value, expected.value);
    return true;
}

template <typename Float, auto operation, int decimals>
static bool decimal_from_float(Machine &m, const Step &s)
{
    const Float value = m.raw<Float>();
    const int code = operation(value, &reg(m, s.r));
    expect_result(m, s, code,
                  std::isfinite(value) ? from_double(static_cast<double>(value), decimals)
                                       : Outcome{DEC_OVERFLOW, null_record()});
    return true;
}

static bool real_from_dbl(Machine &m, const Step &s)
{
    const double value = m.raw<double>();
    expect_result(m, s, m_cv_dbl(value, &reg(m, s.r)), real_from_double(value));
    return true;
}

static bool decimal_to_float(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    double wide = 0;
    float narrow = 0;
    m.expect("code", dectodbl(&x, &wide) | dectoflt(&x, &narrow), +DEC_OK);
    m.expect("double", wide, to_double(x, DEC_DIGITS));
    m.expect("float", static_cast<double>(narrow), static_cast<double>(to_float(x)));
    return true;
}

static bool real_to_dbl(Machine &m, const Step &s)
{
    const t_DECIMAL &x = reg(m, s.a);
    if (is_null(x)) return false;
    const std::optional<double> expected = real_to_double(x);
    double value = 0;
    m.expect("status", m_to_dbl(&x, &value), +REAL_OK);
    if (expected) m.expect("double", value, *expected);
    return true;
}

// clang-format off
const std::vector<Operation> operations = {
    {"load",       true,  load},
    {"decadd",     true,  combine<decadd, add>},
    {"decsub",     true,  combine<decsub, subtract>},
    {"decmul",     true,  combine<decmul, multiply>},
    {"decdiv",     true,  combine<decdiv, divide>},
    {"deccmp",     false, decimal_compare},
    {"decchs",     true,  decimal_negate},
    {"decround",   true,  places_in_place<decround, to_places>},
    {"dectrunc",   true,  places_in_place<dectrunc, cut_to_places>},
    {"stdecimal",  false, store_field<stdecimal>},
    {"lddecimal",  true,  decimal_load},
    {"dececvt",    false, digits<dececvt, Count::total, false>},
    {"decfcvt",    false, digits<decfcvt, Count::after_point, false>},
    {"dectoasc",   false, decimal_layout},
    {"deccvasc",   true,  decimal_read},
    {"deccvint16", true,  decimal_from_integer<int16_t, deccvint16>},
    {"deccvint32", true,  decimal_from_integer<int32_t, deccvint32>},
    {"dectoint16", false, decimal_to_integer<int16_t, dectoint16>},
    {"dectoint32", false, decimal_to_integer<int32_t, dectoint32>},
    {"deccvdbl",   true,  decimal_from_float<double, deccvdbl, 15>},
    {"deccvflt",   true,  decimal_from_float<float, deccvflt, 6>},
    {"dectodbl",   false, decimal_to_float},
    {"m_zero",     true,  store_constant<m_zero, &c_dec_zero>},
    {"m_one",      true,  store_constant<m_one, &c_dec_one>},
    {"m_huge",     true,  store_constant<m_huge, &c_dec_huge>},
    {"m_chs",      true,  real_negate},
    {"m_cmp",      false, real_compare},
    {"m_add",      true,  combine<m_add, real_add>},
    {"m_sub",      true,  combine<m_sub, real_subtract>},
    {"m_mpy",      true,  combine<m_mpy, real_multiply>},
    {"m_dvd",      true,  combine<m_dvd, real_divide>},
    {"m_trunc",    true,  real_places<m_trunc, real_cut>},
    {"m_round",    true,  real_places<m_round, real_to_places>},
    {"mkprec",     true,  precision},
    {"m_store",    false, store_field<m_store>},
    {"m_load",     true,  real_load},
    {"m_to_dbl",   false, real_to_dbl},
    {"m_cv_dbl",   true,  real_from_dbl},
    {"m_to_int",   false, real_to_int},
    {"m_cv_int",   true,  real_from_int},
    {"m_to_asc",   false, text_layout},
    {"m_cv_asc",   true,  real_read},
    {"m_ecvt",     false, digits<m_ecvt, Count::total, true>},
    {"m_fcvt",     false, digits<m_fcvt, Count::after_point, true>},
    {"m_gcvt",     false, general},
};
// clang-format on

} // namespace fuzz
