// SPDX-License-Identifier: MIT
//
// The cost of every operation on a decimal and on a REAL, next to the same job done with Boost's 16-digit decimal and
// with a double. Operands vary: 256 pairs of 1 to 8 digits; so do the texts and integers.
#include <array>
#include <boost/multiprecision/cpp_dec_float.hpp>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>

#include "ka/decimal.h"
#include "ka/real.h"
#include "timing.h"

namespace {

namespace mp = boost::multiprecision;
using Other = mp::number<mp::cpp_dec_float<16>>;

// One entry per operand pair.
constexpr size_t count = 256;
std::array<t_DECIMAL, count> a, b;
std::array<Other, count> oa, ob;
std::array<double, count> x, y;
std::array<int32_t, count> integers;
std::array<std::array<char, 32>, count> texts;
std::array<std::array<uint8_t, 9>, count> fields;

// The results: global, so that all of them are written.
t_DECIMAL r;
Other o;
double d;
float f;
int32_t n;
int16_t n16;
char text[64];

t_DECIMAL random_decimal(std::mt19937 &random)
{
    t_DECIMAL value = {};
    value.dec_exp = static_cast<int16_t>(random() % 7) - 3;
    value.dec_pos = random() % 2;
    value.dec_ndgts = static_cast<int8_t>(1 + random() % DEC_DIGITS);
    for (int i = 0; i < value.dec_ndgts; i++)
        value.dec_dgts[i] = static_cast<uint8_t>(1 + random() % 99);
    return value;
}

void fill()
{
    std::mt19937 random(1);
    for (size_t i = 0; i < count; i++) {
        a[i] = random_decimal(random);
        b[i] = random_decimal(random);
        oa[i] = Other(m_gcvt(&a[i], 16, text));
        ob[i] = Other(m_gcvt(&b[i], 16, text));
        m_to_dbl(&a[i], &x[i]);
        m_to_dbl(&b[i], &y[i]);
        integers[i] = static_cast<int32_t>(random());
        m_gcvt(&a[i], 16, texts[i].data());
        stdecimal(&a[i], fields[i].data(), 9);
    }
}

int length_of(size_t i)
{
    return static_cast<int>(std::strlen(texts[i].data()));
}

constexpr std::nullptr_t none = nullptr; // no such operation

template <typename F>
std::optional<double> measured(F operation)
{
    return bench::nanoseconds([&](long i) {
        operation(static_cast<size_t>(i) % count);
        bench::keep_results();
    });
}

std::optional<double> measured(std::nullptr_t)
{
    return std::nullopt;
}

void print(std::optional<double> value)
{
    if (value)
        std::printf(" %9.1f", *value);
    else
        std::printf(" %9s", "-");
}

// The two ratios: the REAL (the decimal if there is no REAL operation) to the other decimal and to the double.
template <typename D, typename R, typename O, typename P>
void row(const char *name, D decimal, R real, O other, P plain)
{
    const std::optional<double> by_decimal = measured(decimal);
    const std::optional<double> by_real = measured(real);
    const std::optional<double> by_other = measured(other);
    const std::optional<double> by_double = measured(plain);
    const std::optional<double> ours = by_real ? by_real : by_decimal;
    const auto ratio = [&](std::optional<double> to) { return to ? std::optional(*ours / *to) : std::nullopt; };
    std::printf("%-30s", name);
    for (const std::optional<double> &value : {by_decimal, by_real, by_other, by_double})
        print(value);
    std::printf(" ");
    print(ratio(by_other));
    print(ratio(by_double));
    std::printf("\n");
    std::fflush(stdout);
}

void arithmetic()
{
    row(
        "a + b", [](size_t i) { decadd(&a[i], &b[i], &r); }, [](size_t i) { m_add(&a[i], &b[i], &r); },
        [](size_t i) { o = oa[i] + ob[i]; }, [](size_t i) { d = x[i] + y[i]; });
    row(
        "a - b", [](size_t i) { decsub(&a[i], &b[i], &r); }, [](size_t i) { m_sub(&a[i], &b[i], &r); },
        [](size_t i) { o = oa[i] - ob[i]; }, [](size_t i) { d = x[i] - y[i]; });
    row(
        "a * b", [](size_t i) { decmul(&a[i], &b[i], &r); }, [](size_t i) { m_mpy(&a[i], &b[i], &r); },
        [](size_t i) { o = oa[i] * ob[i]; }, [](size_t i) { d = x[i] * y[i]; });
    row(
        "a / b", [](size_t i) { decdiv(&a[i], &b[i], &r); }, [](size_t i) { m_dvd(&a[i], &b[i], &r); },
        [](size_t i) { o = oa[i] / ob[i]; }, [](size_t i) { d = x[i] / y[i]; });
    row(
        "compare", [](size_t i) { n = deccmp(&a[i], &b[i]); }, [](size_t i) { n = m_cmp(&a[i], &b[i]); },
        [](size_t i) { n = oa[i].compare(ob[i]); }, [](size_t i) { n = (x[i] > y[i]) - (x[i] < y[i]); });
    row(
        "change sign", [](size_t i) { r = a[i], decchs(&r); }, [](size_t i) { m_chs(&a[i], &r); },
        [](size_t i) { o = -oa[i]; }, [](size_t i) { d = -x[i]; });
    row(
        "sign", none, [](size_t i) { n = m_sgn(&a[i]); }, [](size_t i) { n = oa[i].sign(); },
        [](size_t i) { n = (x[i] > 0) - (x[i] < 0); });
    row(
        "round to 3 places", [](size_t i) { r = a[i], decround(&r, 3); }, [](size_t i) { m_round(&a[i], 3, &r); },
        [](size_t i) { o = mp::round(oa[i] * 1000) / 1000; }, [](size_t i) { d = std::round(x[i] * 1000) / 1000; });
    row(
        "truncate to 3 places", [](size_t i) { r = a[i], dectrunc(&r, 3); }, [](size_t i) { m_trunc(&a[i], 3, &r); },
        [](size_t i) { o = mp::trunc(oa[i] * 1000) / 1000; }, [](size_t i) { d = std::trunc(x[i] * 1000) / 1000; });
    row(
        "round to 6 decimals", none, [](size_t i) { r = a[i], mkprec(&r, 6); },
        [](size_t i) { o = Other(oa[i].str(6, std::ios::scientific)); },
        [](size_t i) { std::snprintf(text, sizeof text, "%.6g", x[i]), d = std::strtod(text, nullptr); });
}

void storage_and_binary_numbers()
{
    row(
        "into 9 packed bytes", [](size_t i) { stdecimal(&a[i], text, 9); }, [](size_t i) { m_store(&a[i], text, 9); },
        none, none);
    row(
        "out of 9 packed bytes", [](size_t i) { lddecimal(fields[i].data(), 9, &r); },
        [](size_t i) { m_load(fields[i].data(), 9, &r); }, none, none);
    row(
        "from a 32-bit integer", [](size_t i) { deccvint32(integers[i], &r); },
        [](size_t i) { m_cv_int(integers[i], &r); }, [](size_t i) { o = integers[i]; },
        [](size_t i) { d = integers[i]; });
    row(
        "to a 32-bit integer", [](size_t i) { dectoint32(&a[i], &n); }, [](size_t i) { m_to_int(&a[i], &n); },
        [](size_t i) { n = oa[i].convert_to<int32_t>(); }, [](size_t i) { n = static_cast<int32_t>(x[i]); });
    row(
        "from a 16-bit integer", [](size_t i) { deccvint16(static_cast<int16_t>(integers[i]), &r); }, none,
        [](size_t i) { o = static_cast<int16_t>(integers[i]); },
        [](size_t i) { d = static_cast<int16_t>(integers[i]); });
    row(
        "to a 16-bit integer", [](size_t i) { dectoint16(&a[i], &n16); }, none,
        [](size_t i) { n16 = static_cast<int16_t>(oa[i].convert_to<int32_t>()); },
        [](size_t i) { n16 = static_cast<int16_t>(static_cast<int32_t>(x[i])); });
    row(
        "from a double", [](size_t i) { deccvdbl(x[i], &r); }, [](size_t i) { m_cv_dbl(x[i], &r); },
        [](size_t i) { o = x[i]; }, none);
    row(
        "to a double", [](size_t i) { dectodbl(&a[i], &d); }, [](size_t i) { m_to_dbl(&a[i], &d); },
        [](size_t i) { d = oa[i].convert_to<double>(); }, none);
    row(
        "from a float", [](size_t i) { deccvflt(static_cast<float>(x[i]), &r); }, none,
        [](size_t i) { o = static_cast<float>(x[i]); }, none);
    row(
        "to a float", [](size_t i) { dectoflt(&a[i], &f); }, none, [](size_t i) { f = oa[i].convert_to<float>(); },
        none);
}

void text_of_numbers()
{
    static int decpt, sign;
    row(
        "from text", [](size_t i) { deccvasc(texts[i].data(), length_of(i), &r); },
        [](size_t i) { m_cv_asc(texts[i].data(), length_of(i), &r); }, [](size_t i) { o = Other(texts[i].data()); },
        [](size_t i) { d = std::strtod(texts[i].data(), nullptr); });
    row(
        "text, field of 20, 3 places", [](size_t i) { dectoasc(&a[i], text, 20, 3); },
        [](size_t i) { m_to_asc(&a[i], text, 20, 3); },
        [](size_t i) { n = static_cast<int>(oa[i].str(3, std::ios::fixed).size()); },
        [](size_t i) { std::snprintf(text, sizeof text, "%20.3f", x[i]); });
    row(
        "text, 14 decimals", none, [](size_t i) { m_gcvt(&a[i], 14, text); },
        [](size_t i) { n = static_cast<int>(oa[i].str(14).size()); },
        [](size_t i) { std::snprintf(text, sizeof text, "%.14g", x[i]); });
    row(
        "digits, 14 in all", [](size_t i) { n = dececvt(&a[i], 14, &decpt, &sign)[0]; },
        [](size_t i) { n = m_ecvt(&a[i], 14, &decpt, &sign)[0]; }, none,
        [](size_t i) { n = ecvt(x[i], 14, &decpt, &sign)[0]; });
    row(
        "digits, 3 after the point", [](size_t i) { n = decfcvt(&a[i], 3, &decpt, &sign)[0]; },
        [](size_t i) { n = m_fcvt(&a[i], 3, &decpt, &sign)[0]; }, none,
        [](size_t i) { n = fcvt(x[i], 3, &decpt, &sign)[0]; });
}

} // namespace

int main()
{
    fill();
    std::printf("%-30s %9s %9s %9s %9s  %9s %9s\n", "ns per operation", "decimal", "REAL", "dec_float", "double",
                "/dec_float", "/double");
    arithmetic();
    storage_and_binary_numbers();
    text_of_numbers();
}
