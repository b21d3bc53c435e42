// SPDX-License-Identifier: MIT
//
// The cost of a call, next to the least that two processes can do: a ping-pong of SIGUSR2 with sigwaitinfo and
// nothing else. Then the cost of each converted element. usage: bench_calls_BITS PATH-OF-ECHO-MODULE
#include "host.h"
#include "ping_pong.h"
#include "timing.h"

namespace {

constexpr int32_t elements = 4096;

// One call; add(host) adds its arguments.
template <typename Add>
double nanoseconds(const bench::Host &host, const char *function, Add add)
{
    return bench::nanoseconds([&](long) { host.call(function, add); });
}
double nanoseconds(const bench::Host &host, const char *function)
{
    return nanoseconds(host, function, [](ka_host *) {});
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: calls MODULE\n");
        return 2;
    }
    const bench::Host native(argv[1]);
    const bench::Host wide(argv[1], [](ka_options &options) { options.layout = KA_LAYOUT_64; });

    bench::Table trips("round trip (ratio to the bare ping-pong)");
    const double bare = bench::ping_pong();
    trips.row("bare ping-pong of two processes", bare);
    trips.row("call without arguments, native layout", nanoseconds(native, "nothing"));
    trips.row("call without arguments, 64 layout", nanoseconds(wide, "nothing"));
    trips.row("call with a call-back", nanoseconds(native, "ask"));
    trips.row("call with 50 integers", nanoseconds(native, "any", [](ka_host *host) {
                  for (int i = 0; i < 50; i++)
                      ka_add_integer(host, i, KA_BY_REFERENCE);
              }));

    const std::vector<int32_t> integers(elements, 123456);
    const std::vector<double> doubles(elements, 1234.5678);
    std::vector<t_DECIMAL> reals(elements);
    for (auto &real : reals)
        ka_real_from_text("1234.5678", 9, &real);
    const std::vector<ka_text> texts(elements, ka_text{"sixteen letters.", 16});
    const std::string text(65536, 'x');

    std::printf("\n");
    bench::Table table("per element (ratio to a REAL as double)");
    const double empty = nanoseconds(native, "nothing");
    const auto row = [&](const char *name, const char *function, int32_t count, auto add) {
        table.row(name, (nanoseconds(native, function, add) - empty) / count);
    };
    row("REAL as double", "doubles", elements,
        [&](ka_host *host) { ka_add_reals(host, reals.data(), elements, KA_BY_VALUE); });
    row("INTEGER as integer, by value", "integers", elements,
        [&](ka_host *host) { ka_add_integers(host, integers.data(), elements, KA_BY_VALUE); });
    row("INTEGER as double", "doubles", elements,
        [&](ka_host *host) { ka_add_integers(host, integers.data(), elements, KA_BY_VALUE); });
    row("REAL as integer", "integers", elements,
        [&](ka_host *host) { ka_add_reals(host, reals.data(), elements, KA_BY_VALUE); });
    row("REAL as double and back", "any", elements,
        [&](ka_host *host) { ka_add_reals(host, reals.data(), elements, KA_BY_REFERENCE); });
    row("STRING of 16 as record and back", "any", elements,
        [&](ka_host *host) { ka_add_strings(host, texts.data(), elements, 0, KA_BY_REFERENCE); });
    row("STRING as terminated copy, per character", "text", static_cast<int32_t>(text.size()),
        [&](ka_host *host) { ka_add_string(host, text.data(), static_cast<int32_t>(text.size()), 0, KA_BY_VALUE); });
}
