// SPDX-License-Identifier: MIT
//
// How the cost of a call grows with what it carries and with what is around it; the points of one line take turns.
// Caller and hosts share one processor, but for the threads. usage: bench_growth_BITS [--csv FILE] ECHO MANY
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <thread>

#include "host.h"
#include "timing.h"

namespace {

const char *echo_module;
const char *many_module;
std::FILE *csv;

std::function<void(ka_options &)> with_segment_of(int32_t bytes)
{
    return [bytes](ka_options &options) { options.segment_bytes = bytes; };
}

// ---- Lines -----------------------------------------------------------------------------------------------------

struct Point {
    long x;
    bench::Burst burst;
};

// What a straight line from the first to the last point has there.
double straight(const std::vector<Point> &points, const std::vector<bench::Figure> &figures, size_t i)
{
    const auto run = static_cast<double>(points.back().x - points[0].x);
    const double slope = (figures.back().decile - figures[0].decile) / run;
    return figures[0].decile + slope * static_cast<double>(points[i].x - points[0].x);
}

void print(const std::string &title, const std::string &name, const std::vector<Point> &points)
{
    std::vector<bench::Burst> bursts;
    for (const Point &point : points)
        bursts.push_back(point.burst);
    const std::vector<bench::Figure> figures = bench::measure(bursts);
    std::printf("%-44s %12s %12s %12s\n", title.c_str(), "median ns", "decile ns", "straight");
    for (size_t i = 0; i < points.size(); i++) {
        const double line = straight(points, figures, i);
        std::printf("%44ld %12.0f %12.0f %12.0f\n", points[i].x, figures[i].median, figures[i].decile, line);
        if (csv == nullptr) continue;
        std::fprintf(csv, "%zu,%s,%ld,%.0f,%.0f,%.0f\n", 8 * sizeof(void *), name.c_str(), points[i].x,
                     figures[i].median, figures[i].decile, line);
    }
    std::printf("\n");
    std::fflush(stdout);
}

template <typename MakeOperation>
std::vector<Point> points_of(std::initializer_list<long> xs, MakeOperation operation_for)
{
    std::vector<Point> points;
    for (const long x : xs)
        points.push_back({x, bench::burst_of(operation_for(x))});
    return points;
}

// ---- What a call carries ---------------------------------------------------------------------------------------

void print_what_a_call_carries()
{
    const bench::Host host(echo_module, with_segment_of(8 << 20));
    print("arguments, INTEGERs", "arguments", points_of({0, 1, 2, 5, 10, 20, 35, 50}, [&](long count) {
              return [&host, count](long) {
                  host.call("any", [count](ka_host *to) {
                      for (int32_t i = 0; i < count; i++)
                          ka_add_integer(to, i, KA_BY_VALUE);
                  });
              };
          }));

    static constexpr std::initializer_list<long> lengths = {1, 10, 100, 1000, 10000, 100000};
    const std::vector<int32_t> integers(100000, 123456);
    print("elements of an INTEGER array, by reference", "integers", points_of(lengths, [&](long count) {
              return [&, count](long) {
                  host.call("any", [&](ka_host *to) {
                      ka_add_integers(to, integers.data(), static_cast<int32_t>(count), KA_BY_REFERENCE);
                  });
              };
          }));
    t_DECIMAL real;
    ka_real_from_text("1234.5678", 9, &real);
    const std::vector<t_DECIMAL> reals(100000, real);
    print("elements of a REAL array, by reference", "reals", points_of(lengths, [&](long count) {
              return [&, count](long) {
                  host.call("any", [&](ka_host *to) {
                      ka_add_reals(to, reals.data(), static_cast<int32_t>(count), KA_BY_REFERENCE);
                  });
              };
          }));
    const std::string text(1000000, 'x');
    print("characters of a STRING, by value", "characters",
          points_of({1, 10, 100, 1000, 10000, 100000, 1000000}, [&](long count) {
              return [&, count](long) {
                  host.call("text", [&](ka_host *to) {
                      ka_add_string(to, text.data(), static_cast<int32_t>(count), 0, KA_BY_VALUE);
                  });
              };
          }));
}

// ---- What is around it -----------------------------------------------------------------------------------------

void print_what_is_around_it()
{
    print("functions in the module, the last is called", "functions",
          points_of({1, 10, 100, 1000, 2000, 5000, 10000}, [](long count) {
              setenv("BENCH_FUNCTIONS", std::to_string(count).c_str(), 1);
              const auto host = std::make_shared<bench::Host>(many_module, with_segment_of(8 << 20));
              host->call("last"); // started with this number
              return [host](long) { host->call("last"); };
          }));
    print("hosts that are called in turn", "hosts", points_of({1, 2, 4, 8, 16, 32, 64}, [](long count) {
              std::vector<std::shared_ptr<bench::Host>> hosts;
              for (long i = 0; i < count; i++)
                  hosts.push_back(std::make_shared<bench::Host>(echo_module, with_segment_of(1 << 20)));
              return [hosts](long i) { hosts[static_cast<size_t>(i) % hosts.size()]->call("nothing"); };
          }));
    print("MiB of the segment", "segment", points_of({1, 4, 16, 64, 256}, [](long megabytes) {
              const auto host =
                  std::make_shared<bench::Host>(echo_module, with_segment_of(static_cast<int32_t>(megabytes << 20)));
              return [host](long) { host->call("nothing"); };
          }));
}

// Calls of all threads together, each with a host of its own, until there were so many.
double call_in_threads(const std::vector<std::shared_ptr<bench::Host>> &hosts, long calls)
{
    std::atomic<long> left{calls};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (const auto &host : hosts)
        threads.emplace_back([&left, &go, host] {
            go.wait(false);
            while (left-- > 0)
                host->call("nothing");
        });
    const auto start = std::chrono::steady_clock::now();
    go = true;
    go.notify_all();
    for (std::thread &thread : threads)
        thread.join();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

// The time from one call of the program to its next, in bursts that are long enough for all threads to take part.
void print_threads()
{
    constexpr int longer = 20;
    std::vector<Point> points;
    for (const long count : {1, 2, 4, 8, 16, 32}) {
        std::vector<std::shared_ptr<bench::Host>> hosts;
        for (long i = 0; i < count; i++) {
            hosts.push_back(std::make_shared<bench::Host>(echo_module, with_segment_of(1 << 20)));
            hosts.back()->call("nothing");
        }
        points.push_back({count, [hosts](long times) { return call_in_threads(hosts, longer * times) / longer; }});
    }
    print("threads that call a host each", "threads", points);
}

// ---- Memory ----------------------------------------------------------------------------------------------------

// Pages that a process shares with nobody, in KiB.
long private_kib(int32_t pid)
{
    std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
    long sum = 0;
    for (std::string line; std::getline(rollup, line);)
        if (line.starts_with("Private_Clean:") || line.starts_with("Private_Dirty:"))
            sum += std::atol(line.c_str() + line.find(':') + 1);
    return sum;
}

void print_memory()
{
    const bench::Host host(echo_module, with_segment_of(8 << 20));
    std::printf("%-44s %12s %12s\n", "private pages, KiB", "host", "caller");
    for (const long calls : {1, 1000, 100000}) {
        for (long i = 0; i < calls; i++)
            host.call("nothing");
        const long hosts = private_kib(ka_pid(host)), callers = private_kib(getpid());
        std::printf("after %ld calls more %*ld %12ld\n", calls, static_cast<int>(38 - std::to_string(calls).size()),
                    hosts, callers);
        if (csv != nullptr) std::fprintf(csv, "%zu,memory,%ld,%ld,%ld,\n", 8 * sizeof(void *), calls, hosts, callers);
    }
    std::printf("\n");
}

void run_on(const cpu_set_t &processors)
{
    sched_setaffinity(0, sizeof processors, &processors);
}

} // namespace

int main(int argc, char **argv)
{
    const char *const file = bench::csv_path(argc, argv);
    const int first = file != nullptr ? 3 : 1;
    if (argc - first != 2) {
        std::fprintf(stderr, "usage: bench_growth [--csv FILE] ECHO MANY\n");
        return 2;
    }
    echo_module = argv[first];
    many_module = argv[first + 1];
    if (file != nullptr) {
        csv = std::fopen(file, "w");
        if (csv == nullptr) return std::perror(file), 1;
        std::fprintf(csv, "bits,line,x,median,decile,straight\n");
    }
    cpu_set_t all, one;
    sched_getaffinity(0, sizeof all, &all);
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    run_on(one);
    print_what_a_call_carries();
    print_what_is_around_it();
    print_memory();
    run_on(all);
    print_threads();
    if (csv != nullptr) std::fclose(csv);
}
