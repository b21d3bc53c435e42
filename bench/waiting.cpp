// SPDX-License-Identifier: MIT
//
// The cost of each way of waiting, next to a ping-pong of SIGUSR2 between two bare processes, and of a deadline.
// usage: waiting PATH-OF-ECHO-MODULE
#include <atomic>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host.h"
#include "ping_pong.h"
#include "timing.h"

namespace {

using clock_type = std::chrono::steady_clock;

const char *module_path;

bench::Host host_of(int32_t waiting, const std::function<void(ka_options &)> &change = {})
{
    return bench::Host(module_path, [&](ka_options &options) {
        options.waiting = waiting;
        if (change) change(options);
    });
}

double nanoseconds(const bench::Host &host, const char *function)
{
    return bench::nanoseconds([&](long) { host.call(function); });
}

// Until the host is killed or the call has lasted too long.
void hang(ka_host *host)
{
    int32_t code;
    ka_begin(host, "hang");
    ka_call(host, &code);
}

// Time from one call to the next of the whole program, with this number of threads, each with a host of its own.
double in_threads(int count)
{
    std::atomic<long> calls{0};
    std::atomic<bool> ended{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; i++)
        threads.emplace_back([&] {
            const bench::Host host = host_of(KA_WAIT_SAFE);
            for (; !ended; calls++)
                host.call("nothing");
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const long before = calls;
    const auto start = clock_type::now();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double ns = std::chrono::duration<double, std::nano>(clock_type::now() - start).count();
    const long done = calls - before;
    ended = true;
    for (std::thread &thread : threads)
        thread.join();
    return ns / static_cast<double>(done);
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

double since(clock_type::time_point start)
{
    return std::chrono::duration<double, std::nano>(clock_type::now() - start).count();
}

// A host's first call waits until it is ready; checked, its tables are read then.
double first_call(int32_t checking)
{
    std::vector<double> times;
    for (int i = 0; i < 51; i++) {
        const bench::Host host = host_of(KA_WAIT_SAFE, [&](ka_options &options) { options.checking = checking; });
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const auto start = clock_type::now();
        host.call("nothing");
        times.push_back(since(start));
    }
    return median(times);
}

double inspected(void)
{
    const auto inspect = [](ka_options &options) {
        options.inspector = [](int32_t, int32_t, char *, int32_t, void *) {};
    };
    return nanoseconds(host_of(KA_WAIT_SAFE, inspect), "nothing");
}

// How late a call returns after its deadline; the end of the host process is included.
double deadline_overrun(int32_t waiting)
{
    std::vector<double> times;
    for (int i = 0; i < 21; i++) {
        const bench::Host host = host_of(waiting, [](ka_options &options) { options.deadline_ms = 50; });
        host.call("nothing");
        const auto start = clock_type::now();
        hang(host);
        times.push_back(since(start) - 50e6);
    }
    return median(times);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: waiting MODULE\n");
        return 2;
    }
    module_path = argv[1];

    bench::Table trips("round trip (ratio to the bare ping-pong)");
    trips.row("bare ping-pong of two processes", bench::ping_pong());
    trips.row("fast: call without arguments", nanoseconds(host_of(KA_WAIT_FAST), "nothing"));
    trips.row("safe: call without arguments", nanoseconds(host_of(KA_WAIT_SAFE), "nothing"));
    trips.row("fast: call with a call-back", nanoseconds(host_of(KA_WAIT_FAST), "ask"));
    trips.row("safe: call with a call-back", nanoseconds(host_of(KA_WAIT_SAFE), "ask"));
    double in_thread = 0;
    std::thread([&] { in_thread = nanoseconds(host_of(KA_WAIT_SAFE), "nothing"); }).join();
    trips.row("safe: call without arguments, not in the main thread", in_thread);
    trips.row("safe: with an inspector", inspected());
    trips.row("safe: the first call, checked", first_call(KA_CHECKED));
    trips.row("safe: the first call, raw", first_call(KA_RAW));
    for (int count : {1, 2, 4, 8})
        trips.row("safe: " + std::to_string(count) + " threads, a host each, per call", in_threads(count));

    std::printf("\n");
    bench::Table ends("when a call is too long");
    ends.row("fast: overrun of a deadline of 50 ms", deadline_overrun(KA_WAIT_FAST));
    ends.row("safe: overrun of a deadline of 50 ms", deadline_overrun(KA_WAIT_SAFE));
}
