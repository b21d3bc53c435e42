// SPDX-License-Identifier: MIT
//
// What one operation on a decimal costs, beside the same on a double. Operands vary: 256 pairs of 1 to 8 digits.
#include <array>
#include <cstdlib>
#include <cstring>
#include <random>

#include "ka/decimal.h"
#include "ka/real.h"
#include "timing.h"

namespace {

constexpr size_t count = 256;
std::array<t_DECIMAL, count> a, b;
std::array<double, count> x, y;
std::array<int32_t, count> integers;
std::array<std::array<char, 32>, count> texts;

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
        m_to_dbl(&a[i], &x[i]);
        m_to_dbl(&b[i], &y[i]);
        integers[i] = static_cast<int32_t>(random());
        m_gcvt(&a[i], 16, texts[i].data());
    }
}

size_t at(long i)
{
    return static_cast<size_t>(i) % count;
}

} // namespace

int main()
{
    fill();
    t_DECIMAL r;
    double d;
    int32_t n;
    int decpt, sign;
    char text[64];

    bench::Table table("decimal operation (ratio to a double's sum)");
    const auto run = [&](const char *name, auto operation) {
        table.row(name, bench::nanoseconds([&](long i) {
                      operation(at(i));
                      bench::keep(r);
                      bench::keep(d);
                      bench::keep(n);
                      bench::keep(text);
                  }));
    };
    run("double +", [&](size_t i) { d = x[i] + y[i]; });
    run("decadd", [&](size_t i) { decadd(&a[i], &b[i], &r); });
    run("decsub", [&](size_t i) { decsub(&a[i], &b[i], &r); });
    run("deccmp", [&](size_t i) { n = deccmp(&a[i], &b[i]); });
    run("stdecimal, 9 bytes", [&](size_t i) { stdecimal(&a[i], text, 9); });
    run("lddecimal, 9 bytes", [&](size_t) { lddecimal(text, 9, &r); });
    run("deccvint32", [&](size_t i) { deccvint32(integers[i], &r); });
    run("dectoint32", [&](size_t i) { dectoint32(&a[i], &n); });
    run("ecvt (the C library), 15 decimals", [&](size_t i) { n = ecvt(x[i], 15, &decpt, &sign)[0]; });
    run("deccvdbl", [&](size_t i) { deccvdbl(x[i], &r); });
    run("dectodbl", [&](size_t i) { dectodbl(&a[i], &d); });
    run("strtod (the C library)", [&](size_t i) { d = strtod(texts[i].data(), nullptr); });
    run("m_to_dbl", [&](size_t i) { m_to_dbl(&a[i], &d); });
    run("m_cv_dbl", [&](size_t i) { m_cv_dbl(x[i], &r); });
    run("m_gcvt, 14 decimals", [&](size_t i) { m_gcvt(&a[i], 14, text); });
    run("dececvt, 14 decimals", [&](size_t i) { n = dececvt(&a[i], 14, &decpt, &sign)[0]; });
    run("dectoasc, field of 20", [&](size_t i) { dectoasc(&a[i], text, 20, -1); });
    run("deccvasc", [&](size_t i) { deccvasc(texts[i].data(), static_cast<int>(std::strlen(texts[i].data())), &r); });
}
