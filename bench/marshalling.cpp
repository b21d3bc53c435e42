// SPDX-License-Identifier: MIT
//
// What the caller's library needs for each value that goes into a call or comes out of one, without the call.
// usage: bench_marshalling_BITS [--csv FILE] PATH-OF-ECHO-MODULE
#include "host.h"
#include "timing.h"

namespace {

constexpr int32_t elements = 1000;

// Values to add, and where they come back to.
struct Values {
    std::vector<double> doubles;
    std::vector<t_DECIMAL> reals;
    std::vector<int32_t> integers = std::vector<int32_t>(elements, 123456);
    std::vector<ka_text> texts = std::vector<ka_text>(elements, ka_text{"nineteen characters", 19});
    char buffer[200] = {};

    // Amounts, the same in each run.
    Values()
    {
        uint64_t random = 1;
        for (int i = 0; i < elements; i++) {
            random = random * 6364136223846793005 + 1442695040888963407;
            doubles.push_back(static_cast<double>(random >> 40) / 100);
            t_DECIMAL real;
            deccvdbl(doubles.back(), &real);
            reals.push_back(real);
        }
    }
};

struct Row {
    const char *name;
    bench::Burst burst;
    int32_t count; // of elements each time
    double at_most[2];
};

// The host called with one argument; what it gives back can then be read as often as one likes.
template <typename Add, typename Get>
bench::Burst results(const bench::Host &host, Add add, Get get)
{
    host.call("any", add);
    return bench::burst_of([get, &host](long i) { host.check(get(host, i)); });
}

template <typename Add>
bench::Burst arguments(const bench::Host &host, Add add)
{
    return bench::burst_of([add, &host](long i) {
        host.check(ka_begin(host, "any"));
        host.check(add(host, i));
    });
}

std::vector<Row> adding(const bench::Host &host, Values &v)
{
    return {{"ka_add_doubles",
             arguments(host, [&v](ka_host *h,
                                  long) { return ka_add_doubles(h, v.doubles.data(), elements, KA_BY_REFERENCE); }),
             elements,
             {25, 30}},
            {"ka_add_reals",
             arguments(host,
                       [&v](ka_host *h, long) { return ka_add_reals(h, v.reals.data(), elements, KA_BY_REFERENCE); }),
             elements,
             {0.4, 0.4}},
            {"ka_add_strings, 19 characters",
             arguments(host, [&v](ka_host *h,
                                  long) { return ka_add_strings(h, v.texts.data(), elements, 0, KA_BY_REFERENCE); }),
             elements,
             {4, 4}},
            {"ka_begin and ka_add_real",
             arguments(host, [](ka_host *h, long) { return ka_add_real(h, "1234.5678", KA_BY_VALUE); }),
             1,
             {0, 0}},
            {"ka_begin and three integers",
             arguments(host,
                       [](ka_host *h, long) {
                           ka_add_integer(h, 2, KA_BY_VALUE);
                           ka_add_integer(h, 40, KA_BY_VALUE);
                           return ka_add_integer(h, 0, KA_BY_REFERENCE);
                       }),
             1,
             {80, 80}}};
}

std::vector<Row> getting(const bench::Host &reals, const bench::Host &texts, Values &v)
{
    const auto add_reals = [&v](ka_host *h) { return ka_add_reals(h, v.reals.data(), elements, KA_BY_REFERENCE); };
    const auto add_texts = [&v](ka_host *h) {
        return ka_add_strings(h, v.texts.data(), elements, 0, KA_BY_REFERENCE);
    };
    return {
        {"ka_get_doubles",
         results(reals, add_reals,
                 [&v](ka_host *h, long) { return ka_get_doubles(h, 1, v.doubles.data(), elements); }),
         elements,
         {14, 14}},
        {"ka_get_reals",
         results(reals, add_reals, [&v](ka_host *h, long) { return ka_get_reals(h, 1, v.reals.data(), elements); }),
         elements,
         {1.5, 1.5}},
        {"ka_get_string, 19 characters",
         results(texts, add_texts,
                 [&v](ka_host *h, long i) {
                     int32_t length;
                     return ka_get_string(h, 1, static_cast<int32_t>(i % elements), v.buffer, sizeof v.buffer,
                                          &length);
                 }),
         1,
         {6, 6}}};
}

std::vector<Row> texts(Values &v)
{
    return {
        {"ka_real_from_text, 9 characters",
         bench::burst_of(
             [&v](long i) { ka_real_from_text("1234.5678", 9, &v.reals[static_cast<size_t>(i % elements)]); }),
         1,
         {12, 12}},
        {"ka_real_to_text",
         bench::burst_of([&v](long i) { ka_real_to_text(&v.reals[static_cast<size_t>(i % elements)], v.buffer); }),
         1,
         {12, 12}}};
}

void print(bench::Csv &csv, const std::vector<Row> &rows)
{
    std::vector<bench::Burst> bursts;
    for (const Row &row : rows)
        bursts.push_back(row.burst);
    const std::vector<bench::Figure> figures = bench::measure(bursts);
    for (size_t i = 0; i < rows.size(); i++) {
        const bench::Figure each = {figures[i].median / rows[i].count, figures[i].decile / rows[i].count};
        const double at_most = rows[i].at_most[sizeof(void *) == 8 ? 0 : 1];
        std::printf("%-40s %9.2f %9.2f", rows[i].name, each.median, each.decile);
        if (at_most > 0) std::printf(" %9.1f", at_most);
        std::printf("\n");
        csv.line("marshalling, ns", rows[i].name, each, at_most);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_marshalling [--csv FILE] MODULE\n");
        return 2;
    }
    bench::Csv csv(bench::csv_path(argc, argv));
    const char *module = argv[argc - 1];
    const bench::Host built(module), reals(module), strings(module);
    Values values;
    std::vector<Row> rows = adding(built, values);
    for (std::vector<Row> more : {getting(reals, strings, values), texts(values)})
        rows.insert(rows.end(), more.begin(), more.end());
    std::printf("%-40s %9s %9s %9s\n", "per element, ns", "median", "decile", "at most");
    print(csv, rows);
}
