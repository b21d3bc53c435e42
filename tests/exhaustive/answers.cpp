// SPDX-License-Identifier: MIT
//
// Prints what the number layers answer to one fixed series of operands, a line each. The same program of both word
// sizes must print the same, and so must one whose arithmetic in 64 significant bits is that of integers. Answers to
// doubles are too many to print: a line is the hash of a block of them; number_answers KIND BLOCK prints that block.
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ka/real.h"
#include "model/doubles.h"
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

static void print_records()
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
}

// Any bytes as digits, any exponent: doubles beyond the largest and below the smallest.
static void print_wild_records()
{
    Draw draw(20240502);
    for (int i = 0; i < 5000; i++) {
        t_DECIMAL x = draw.record();
        x.dec_dgts[draw.below(DEC_DIGITS)] = static_cast<uint8_t>(draw.bits());
        x.dec_exp = static_cast<int16_t>(draw.between(-200, 200));
        if (i % 500 == 0) x.dec_exp = static_cast<int16_t>(draw.bits());
        double wide = 0;
        dectodbl(&x, &wide);
        printf("%s -> %s\n", show(x).c_str(), show(wide).c_str());
    }
}

static std::string from_double(double value)
{
    t_DECIMAL result = {};
    const int code = deccvdbl(value, &result);
    std::string answers = std::to_string(code) + " " + show(result);
    const int status = m_cv_dbl(value, &result);
    answers += " " + std::to_string(status) + " " + show(result);
    if (std::fabs(value) <= static_cast<double>(FLT_MAX)) {
        const int narrow = deccvflt(static_cast<float>(value), &result);
        answers += " " + std::to_string(narrow) + " " + show(result);
    }
    return answers;
}

static constexpr int block_size = 500;

template <typename Take>
static void answer_block(const DoubleKind &kind, int block, Take take)
{
    Draw draw(static_cast<uint64_t>(block));
    for (int i = 0; i < block_size; i++) {
        const double magnitude = kind.draw(draw);
        const double value = draw.one_in(2) ? magnitude : -magnitude;
        take(value, from_double(value));
    }
}

static void print_block(const DoubleKind &kind, int block)
{
    answer_block(kind, block, [](double value, const std::string &answers) {
        printf("%s -> %s\n", show(value).c_str(), answers.c_str());
    });
}

// FNV-1a.
static uint64_t hash_of_block(const DoubleKind &kind, int block)
{
    uint64_t hash = 14695981039346656037U;
    answer_block(kind, block, [&hash](double value, const std::string &answers) {
        (void)value;
        for (const char c : answers + "\n")
            hash = (hash ^ static_cast<uint8_t>(c)) * 1099511628211U;
    });
    return hash;
}

static void print_hashes()
{
    const char *given = getenv("KA_BLOCKS");
    const int blocks = given ? atoi(given) : 100;
    for (const DoubleKind &kind : double_kinds) {
        for (int block = 0; block < blocks; block++) {
            const unsigned long long hash = hash_of_block(kind, block);
            printf("%s %d: %016llx\n", kind.name, block, hash);
        }
    }
}

int main(int argc, char **argv)
{
    if (argc == 3) {
        for (const DoubleKind &kind : double_kinds) {
            if (strcmp(argv[1], kind.name) == 0) print_block(kind, atoi(argv[2]));
        }
        return 0;
    }
    print_records();
    print_wild_records();
    print_hashes();
    return 0;
}
