// SPDX-License-Identifier: MIT
//
// The cost of every operation on a decimal and on a REAL, next to the same job done with Boost's 16-digit decimal,
// with a double and the C library, and, for texts, with Intel's decimal64 in a 64-bit process. Operands vary: 256
// pairs of 1 to 8 digits; so do the texts, of 8 to 16 decimals, and the integers. A 64-bit program also measures
// beside the 32-bit one in its folder, where that was built.
//
// usage: bench_numbers [--csv FILE] [ROW]      ROW: part of a row's name; only such rows
//        bench_numbers --serve                 runs the bursts that another one asks for
#include <array>
#include <boost/multiprecision/cpp_dec_float.hpp>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>

#include "decimal64.h"
#include "ka/decimal.h"
#include "ka/real.h"
#include "timing.h"

namespace {

namespace mp = boost::multiprecision;
using Other = mp::number<mp::cpp_dec_float<16>>;

// One entry per operand pair.
constexpr size_t count = bench::operand_count;
std::array<t_DECIMAL, count> a, b;
std::array<Other, count> oa, ob;
std::array<double, count> x, y;
std::array<int32_t, count> integers, text_lengths;
std::array<t_DECIMAL, count> in_range; // of 32-bit integers, with fractions
std::array<Other, count> other_in_range;
std::array<t_DECIMAL, count> long_ones; // of the texts
std::array<double, count> long_doubles;
std::array<Other, count> other_long_ones;
bench::Operands operands;
std::array<std::array<uint8_t, 9>, count> fields;

// The results: global, so that all of them are written.
t_DECIMAL r;
Other o;
double d;
float f;
int32_t n;
int16_t n16;
char text[64];

t_DECIMAL random_decimal(std::mt19937 &random, int digits_min, int exp_min, int exp_max)
{
    t_DECIMAL value = {};
    value.dec_exp =
        static_cast<int16_t>(exp_min + static_cast<int>(random() % static_cast<unsigned>(exp_max - exp_min + 1)));
    value.dec_pos = random() % 2;
    value.dec_ndgts = static_cast<int8_t>(
        digits_min + static_cast<int>(random() % static_cast<unsigned>(DEC_DIGITS - digits_min + 1)));
    for (int i = 0; i < value.dec_ndgts; i++)
        value.dec_dgts[i] = static_cast<uint8_t>(1 + random() % 99);
    return value;
}

void fill()
{
    std::mt19937 random(1);
    for (size_t i = 0; i < count; i++) {
        a[i] = random_decimal(random, 1, -3, 3);
        b[i] = random_decimal(random, 1, -3, 3);
        oa[i] = Other(m_gcvt(&a[i], 16, text));
        ob[i] = Other(m_gcvt(&b[i], 16, text));
        m_to_dbl(&a[i], &x[i]);
        m_to_dbl(&b[i], &y[i]);
        integers[i] = static_cast<int32_t>(random());
        in_range[i] = random_decimal(random, 1, 0, 4);
        other_in_range[i] = Other(m_gcvt(&in_range[i], 16, text));
        long_ones[i] = random_decimal(random, 4, 0, 5);
        m_gcvt(&long_ones[i], 16, operands.texts[i].data());
        text_lengths[i] = static_cast<int32_t>(std::strlen(operands.texts[i].data()));
        m_to_dbl(&long_ones[i], &long_doubles[i]);
        other_long_ones[i] = Other(operands.texts[i].data());
        stdecimal(&a[i], fields[i].data(), 9);
    }
}

// ---- The table
// -----------------------------------------------------------------------------------------------------

enum Column { decimal, real, dec_float, c_library, decimal64, at_32_bits, columns };
constexpr std::array<const char *, columns> column_names = {"decimal",   "REAL",      "dec_float",
                                                            "C library", "decimal64", "32 bits"};

// What the ratio of two columns should be at most.
struct Target {
    Column ours;
    Column other;
    double at_most;
};

// A ratio that is only shown.
constexpr Target beside(Column ours, Column other)
{
    return {ours, other, 0};
}

constexpr std::nullptr_t none = nullptr; // no such operation

bench::Csv *csv;
const char *rows_wanted = "";
bench::BurstProcess *beside_32_bits; // runs the same rows by their number
int32_t row_number;
std::vector<bench::Burst> *served; // where this process is that one: what it runs

template <typename F>
bench::Burst burst(F operation)
{
    return bench::burst_of([operation](long i) { operation(static_cast<size_t>(i) % count); });
}

bench::Burst burst(bench::Burst burst)
{
    return burst;
}

bench::Burst burst(std::nullptr_t)
{
    return nullptr;
}

void print_ratio(const char *name, const Target &target, const std::array<bench::Figure, columns> &figures)
{
    const bench::Figure ours = figures[target.ours], other = figures[target.other];
    const bench::Figure ratio = {ours.median / other.median, ours.decile / other.decile};
    std::printf("  %5.3f %5.3f", ratio.median, ratio.decile);
    if (target.at_most > 0) std::printf(" %5g%s", target.at_most, ratio.decile > target.at_most ? " !" : "");
    csv->line(name, std::string(column_names[target.ours]) + " / " + column_names[target.other], ratio,
              target.at_most);
}

template <typename D, typename R, typename O, typename C, typename I = std::nullptr_t>
void row(const char *name, Target target, D by_decimal, R by_real, O by_other, C by_c, I by_decimal64 = nullptr)
{
    std::array<bench::Burst, columns> all = {burst(by_decimal), burst(by_real), burst(by_other), burst(by_c),
                                             burst(by_decimal64)};
    const int32_t number = row_number++;
    if (served != nullptr) served->push_back(all[target.ours]);
    if (served != nullptr || std::strstr(name, rows_wanted) == nullptr) return;
    if (beside_32_bits->alive()) all[at_32_bits] = beside_32_bits->burst(number);
    std::vector<bench::Burst> bursts;
    for (const bench::Burst &each : all)
        if (each) bursts.push_back(each);
    const std::vector<bench::Figure> measured = bench::measure(bursts);

    std::array<bench::Figure, columns> figures = {};
    std::printf("%-28s", name);
    for (size_t c = 0, next = 0; c < columns; c++) {
        if (!all[c]) {
            std::printf(" %9s", "-");
            continue;
        }
        figures[c] = measured[next++];
        std::printf(" %9.1f", figures[c].median);
        csv->line(name, column_names[c], figures[c]);
    }
    const bool is_wide = sizeof(void *) == 8; // the aims beside other libraries are those of 32-bit programs
    if (all[target.ours] && all[target.other])
        print_ratio(name, is_wide ? beside(target.ours, target.other) : target, figures);
    if (all[at_32_bits]) print_ratio(name, {target.ours, at_32_bits, 1}, figures);
    std::printf("\n");
    std::fflush(stdout);
}

void arithmetic()
{
    row(
        "a + b", {decimal, dec_float, 0.8}, [](size_t i) { decadd(&a[i], &b[i], &r); },
        [](size_t i) { m_add(&a[i], &b[i], &r); }, [](size_t i) { o = oa[i] + ob[i]; },
        [](size_t i) { d = x[i] + y[i]; });
    row(
        "a - b", {decimal, dec_float, 0.8}, [](size_t i) { decsub(&a[i], &b[i], &r); },
        [](size_t i) { m_sub(&a[i], &b[i], &r); }, [](size_t i) { o = oa[i] - ob[i]; },
        [](size_t i) { d = x[i] - y[i]; });
    row(
        "a * b", {decimal, dec_float, 0.4}, [](size_t i) { decmul(&a[i], &b[i], &r); },
        [](size_t i) { m_mpy(&a[i], &b[i], &r); }, [](size_t i) { o = oa[i] * ob[i]; },
        [](size_t i) { d = x[i] * y[i]; });
    row(
        "a / b", {decimal, dec_float, 0.17}, [](size_t i) { decdiv(&a[i], &b[i], &r); },
        [](size_t i) { m_dvd(&a[i], &b[i], &r); }, [](size_t i) { o = oa[i] / ob[i]; },
        [](size_t i) { d = x[i] / y[i]; });
    row(
        "compare", {decimal, dec_float, 1.2}, [](size_t i) { n = deccmp(&a[i], &b[i]); },
        [](size_t i) { n = m_cmp(&a[i], &b[i]); }, [](size_t i) { n = oa[i].compare(ob[i]); },
        [](size_t i) { n = (x[i] > y[i]) - (x[i] < y[i]); });
    row(
        "change sign", beside(real, dec_float), [](size_t i) { r = a[i], decchs(&r); },
        [](size_t i) { m_chs(&a[i], &r); }, [](size_t i) { o = -oa[i]; }, [](size_t i) { d = -x[i]; });
    row(
        "sign", beside(real, dec_float), none, [](size_t i) { n = m_sgn(&a[i]); }, [](size_t i) { n = oa[i].sign(); },
        [](size_t i) { n = (x[i] > 0) - (x[i] < 0); });
    row(
        "round to 3 places", beside(real, dec_float), [](size_t i) { r = a[i], decround(&r, 3); },
        [](size_t i) { m_round(&a[i], 3, &r); }, [](size_t i) { o = mp::round(oa[i] * 1000) / 1000; },
        [](size_t i) { d = std::round(x[i] * 1000) / 1000; });
    row(
        "truncate to 3 places", beside(real, dec_float), [](size_t i) { r = a[i], dectrunc(&r, 3); },
        [](size_t i) { m_trunc(&a[i], 3, &r); }, [](size_t i) { o = mp::trunc(oa[i] * 1000) / 1000; },
        [](size_t i) { d = std::trunc(x[i] * 1000) / 1000; });
    row(
        "round to 6 decimals", beside(real, dec_float), none, [](size_t i) { r = a[i], mkprec(&r, 6); },
        [](size_t i) { o = Other(oa[i].str(6, std::ios::scientific)); },
        [](size_t i) { std::snprintf(text, sizeof text, "%.6g", x[i]), d = std::strtod(text, nullptr); });
}

void storage_and_integers()
{
    row(
        "into 9 packed bytes", beside(real, dec_float), [](size_t i) { stdecimal(&a[i], text, 9); },
        [](size_t i) { m_store(&a[i], text, 9); }, none, none);
    row(
        "out of 9 packed bytes", beside(real, dec_float), [](size_t i) { lddecimal(fields[i].data(), 9, &r); },
        [](size_t i) { m_load(fields[i].data(), 9, &r); }, none, none);
    row(
        "from a 32-bit integer", {decimal, dec_float, 0.35}, [](size_t i) { deccvint32(integers[i], &r); },
        [](size_t i) { m_cv_int(integers[i], &r); }, [](size_t i) { o = integers[i]; },
        [](size_t i) { d = integers[i]; });
    row(
        "to a 32-bit integer", {decimal, dec_float, 0.3}, [](size_t i) { dectoint32(&in_range[i], &n); },
        [](size_t i) { m_to_int(&in_range[i], &n); }, [](size_t i) { n = other_in_range[i].convert_to<int32_t>(); },
        none);
    row(
        "from a 16-bit integer", beside(decimal, dec_float),
        [](size_t i) { deccvint16(static_cast<int16_t>(integers[i]), &r); }, none,
        [](size_t i) { o = static_cast<int16_t>(integers[i]); },
        [](size_t i) { d = static_cast<int16_t>(integers[i]); });
    row(
        "to a 16-bit integer", beside(decimal, dec_float), [](size_t i) { dectoint16(&in_range[i], &n16); }, none,
        [](size_t i) { n16 = static_cast<int16_t>(other_in_range[i].convert_to<int32_t>()); }, none);
}

void floating_point()
{
    static int decpt, sign;
    row(
        "from a double", {real, c_library, 0.1}, [](size_t i) { deccvdbl(x[i], &r); },
        [](size_t i) { m_cv_dbl(x[i], &r); }, [](size_t i) { o = x[i]; },
        [](size_t i) { n = ecvt(x[i], 15, &decpt, &sign)[0]; });
    row(
        "to a double", {real, c_library, 0.04}, [](size_t i) { dectodbl(&long_ones[i], &d); },
        [](size_t i) { m_to_dbl(&long_ones[i], &d); }, [](size_t i) { d = other_long_ones[i].convert_to<double>(); },
        [](size_t i) { d = std::strtod(operands.texts[i].data(), nullptr); });
    row(
        "from a float", beside(decimal, c_library), [](size_t i) { deccvflt(static_cast<float>(x[i]), &r); }, none,
        [](size_t i) { o = static_cast<float>(x[i]); },
        [](size_t i) { n = ecvt(static_cast<double>(static_cast<float>(x[i])), 6, &decpt, &sign)[0]; });
    row(
        "to a float", beside(decimal, c_library), [](size_t i) { dectoflt(&a[i], &f); }, none,
        [](size_t i) { f = oa[i].convert_to<float>(); }, none);
}

void text_of_numbers(bench::BurstProcess &intel)
{
    static int decpt, sign;
    const auto other = [&](bench::Decimal64 what) { return intel.alive() ? intel.burst(what) : nullptr; };
    row(
        "from text", {decimal, decimal64, 0.55},
        [](size_t i) { deccvasc(operands.texts[i].data(), text_lengths[i], &r); },
        [](size_t i) { m_cv_asc(operands.texts[i].data(), text_lengths[i], &r); },
        [](size_t i) { o = Other(operands.texts[i].data()); },
        [](size_t i) { d = std::strtod(operands.texts[i].data(), nullptr); }, other(bench::decimal64_parse));
    row(
        "text, field of 20", {decimal, decimal64, 0.9}, [](size_t i) { dectoasc(&long_ones[i], text, 20, -1); },
        [](size_t i) { m_to_asc(&long_ones[i], text, 20, -1); },
        [](size_t i) { n = static_cast<int>(other_long_ones[i].str(16).size()); },
        [](size_t i) { std::snprintf(text, sizeof text, "%20.16g", long_doubles[i]); },
        other(bench::decimal64_format));
    row(
        "text, field of 20, 3 places", beside(decimal, dec_float), [](size_t i) { dectoasc(&a[i], text, 20, 3); },
        [](size_t i) { m_to_asc(&a[i], text, 20, 3); },
        [](size_t i) { n = static_cast<int>(oa[i].str(3, std::ios::fixed).size()); },
        [](size_t i) { std::snprintf(text, sizeof text, "%20.3f", x[i]); });
    row(
        "text, 14 decimals", {real, c_library, 0.03}, none, [](size_t i) { m_gcvt(&a[i], 14, text); },
        [](size_t i) { n = static_cast<int>(oa[i].str(14).size()); },
        [](size_t i) { std::snprintf(text, sizeof text, "%.14g", x[i]); });
    row(
        "digits, 14 in all", beside(real, c_library), [](size_t i) { n = dececvt(&a[i], 14, &decpt, &sign)[0]; },
        [](size_t i) { n = m_ecvt(&a[i], 14, &decpt, &sign)[0]; }, none,
        [](size_t i) { n = ecvt(x[i], 14, &decpt, &sign)[0]; });
    row(
        "digits, 3 after the point", beside(real, c_library),
        [](size_t i) { n = decfcvt(&a[i], 3, &decpt, &sign)[0]; },
        [](size_t i) { n = m_fcvt(&a[i], 3, &decpt, &sign)[0]; }, none,
        [](size_t i) { n = fcvt(x[i], 3, &decpt, &sign)[0]; });
}

void all_rows(bench::BurstProcess &intel)
{
    arithmetic();
    storage_and_integers();
    floating_point();
    text_of_numbers(intel);
}

int serve_rows()
{
    bench::BurstProcess nobody("");
    std::vector<bench::Burst> bursts;
    served = &bursts;
    all_rows(nobody);
    return bench::serve(bursts);
}

} // namespace

int main(int argc, char **argv)
{
    fill();
    if (argc == 2 && std::strcmp(argv[1], "--serve") == 0) return serve_rows();
    bench::Csv file(bench::csv_path(argc, argv));
    csv = &file;
    if (argc % 2 == 0) rows_wanted = argv[argc - 1];
    bench::BurstProcess intel(bench::beside(argv[0], "bench_decimal64"));
    intel.send(&operands.texts, sizeof operands.texts);
    bench::BurstProcess narrow(sizeof(void *) == 8 ? bench::beside(argv[0], "bench_numbers_32") : "", "--serve");
    beside_32_bits = &narrow;

    std::printf("%-28s", "ns per operation, median");
    for (const char *name : column_names)
        std::printf(" %9s", name);
    std::printf("  ratios of medians, of lower deciles, at most\n");
    all_rows(intel);
}
