// SPDX-License-Identifier: MIT
//
// Prints what the number layers answer to one fixed series of operands, a line each. The same program of both word
// sizes must print the same. The C library's ecvt differs between them, so nothing here starts from a double.
#include <cstdio>

#include "ka/real.h"
#include "model/draw.h"
#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

static std::string digits(const t_DECIMAL &x, int count)
{
    int decpt = 0;
    int sign = 0;
    const std::string text = m_ecvt(&x, count, &decpt, &sign);
    return text + " " + std::to_string(decpt) + " " + std::to_string(sign);
}

static std::string floating(const t_DECIMAL &x)
{
    double exact = 0;
    double through_text = 0;
    float narrow = 0;
    dectodbl(&x, &exact);
    m_to_dbl(&x, &through_text);
    dectoflt(&x, &narrow);
    return show(exact) + " " + show(through_text) + " " + show(static_cast<double>(narrow));
}

template <auto operation>
static std::string of_two(const t_DECIMAL &a, const t_DECIMAL &b)
{
    t_DECIMAL result;
    const int code = operation(&a, &b, &result);
    return std::to_string(code) + " " + show(result);
}

template <auto operation>
static std::string to_places(t_DECIMAL x, int places)
{
    const int code = operation(&x, places);
    return std::to_string(code) + " " + show(x);
}

static std::string text(const t_DECIMAL &x, int length, int places)
{
    Guarded field(length);
    dectoasc(&x, field.data(), length, places);
    t_DECIMAL back;
    const int code = deccvasc(field.data(), length, &back);
    return field.text() + "|" + std::to_string(code) + " " + show(back);
}

int main()
{
    Draw draw(20240501);
    for (int i = 0; i < 20000; i++) {
        const auto [a, b] = draw.pair({.null = false});
        t_DECIMAL sum;
        t_DECIMAL difference;
        const int added = decadd(&a, &b, &sum);
        const int subtracted = decsub(&a, &b, &difference);
        Guarded field(draw.between(2, 10));
        m_store(&a, field.data(), static_cast<int>(field.bytes().size()));
        int32_t whole = 0;
        const int converted = m_to_int(&b, &whole);
        char general[32];
        printf("%d %s %d %s %d %s %d %d ", added, show(sum).c_str(), subtracted, show(difference).c_str(),
               deccmp(&a, &b), show(field.bytes()).c_str(), converted, whole);
        const int places = draw.between(0, 16);
        printf("%s %s %s %s ", of_two<decmul>(a, b).c_str(), of_two<decdiv>(a, b).c_str(),
               to_places<decround>(a, places).c_str(), to_places<dectrunc>(b, places).c_str());
        printf("%s %s %s %s\n", digits(a, draw.between(0, 17)).c_str(), m_gcvt(&b, 14, general), floating(a).c_str(),
               text(b, draw.between(0, 24), draw.between(-1, 8)).c_str());
    }
    return 0;
}
