// SPDX-License-Identifier: MIT
//
// Calls through the library in each transport, beside the least that two processes can do: on one processor, on two,
// in bursts after a moment of quiet, and on a machine that others keep busy.
// usage: bench_transports [--csv FILE] ADDER ECHO
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <thread>

#include "columns.h"
#include "host.h"

namespace {

// ---- What takes part
// -----------------------------------------------------------------------------------------------

// A process that answers until it is killed.
class Peer {
public:
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    virtual ~Peer()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    virtual void exchange() = 0;
    bench::Burst burst()
    {
        return bench::burst_of([this](long) { exchange(); });
    }

protected:
    Peer() = default;
    template <typename Serve>
    void start(Serve serve)
    {
        pid_ = fork();
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;)
            serve();
    }
    pid_t pid_ = -1;
};

class BareSignals : public Peer {
public:
    BareSignals()
    {
        sigemptyset(&calls_);
        sigaddset(&calls_, SIGUSR2);
        sigprocmask(SIG_BLOCK, &calls_, nullptr);
        start([this, caller = getpid()] {
            sigwaitinfo(&calls_, nullptr);
            kill(caller, SIGUSR2);
        });
    }
    void exchange() override
    {
        kill(pid_, SIGUSR2);
        sigwaitinfo(&calls_, nullptr);
    }

private:
    sigset_t calls_;
};

// Two words, each on a cache line of its own; a side spins for so many looks before it sleeps.
class BareFutex : public Peer {
public:
    explicit BareFutex(int looks) : looks_(looks)
    {
        void *const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        words_ = static_cast<uint32_t *>(page);
        start([this] {
            await(0, number_);
            tell(16, ++number_);
        });
    }
    ~BareFutex() override { munmap(words_, 4096); }
    void exchange() override
    {
        const uint32_t before = number_++;
        tell(0, number_);
        await(16, before);
    }

private:
    uint32_t at(int word) const { return __atomic_load_n(&words_[word], __ATOMIC_SEQ_CST); }
    void await(int word, uint32_t before) const
    {
        for (int i = 0; i < looks_ && at(word) == before; i++)
            __builtin_ia32_pause();
        while (at(word) == before)
            syscall(SYS_futex, &words_[word], FUTEX_WAIT, before, nullptr, nullptr, 0);
    }
    void tell(int word, uint32_t number) const
    {
        __atomic_store_n(&words_[word], number, __ATOMIC_SEQ_CST);
        syscall(SYS_futex, &words_[word], FUTEX_WAKE, 1, nullptr, nullptr, 0);
    }
    int looks_;
    uint32_t *words_;
    uint32_t number_ = 0;
};

// In one of the transports.
class Exchange {
public:
    Exchange(const char *module, int32_t transport, int32_t spin_us = 50)
        : host_(module, [=](ka_options &options) {
              options.transport = transport;
              options.spin_us = spin_us;
              options.callback = [](ka_host *, int32_t value, void *) { return value + 1; };
          })
    {
    }
    void add() const
    {
        int32_t sum = 0;
        host_.call("add", [](ka_host *host) {
            ka_add_integer(host, 2, KA_BY_VALUE);
            ka_add_integer(host, 40, KA_BY_VALUE);
            ka_add_integer(host, 0, KA_BY_REFERENCE);
        });
        host_.check(ka_get_integers(host_, 3, &sum, 1));
        if (sum != 42) std::exit(1);
    }
    bench::Burst adds() const
    {
        return bench::burst_of([this](long) { add(); });
    }
    bench::Burst asks() const
    {
        return bench::burst_of([this](long) { host_.call("ask"); });
    }
    pid_t pid() const { return ka_pid(host_); }

private:
    bench::Host host_;
};

// ---- Where they run --------------------------------------------------------------------------------------------

void use_processors(int count)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int i = 0; i < count; i++)
        CPU_SET(i, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) std::perror("processors");
}

// As many threads of another process as there are processors, which compute.
class Busy {
public:
    Busy()
    {
        pid_ = fork();
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (long i = 1; i < sysconf(_SC_NPROCESSORS_ONLN); i++)
            std::thread([] { compute(); }).detach();
        compute();
    }
    ~Busy()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Busy(const Busy &) = delete;
    Busy &operator=(const Busy &) = delete;

private:
    [[noreturn]] static void compute()
    {
        for (;;)
            bench::keep_results();
    }
    pid_t pid_ = -1;
};

// ---- Tables ----------------------------------------------------------------------------------------------------

void print_exchanges(bench::Csv &csv, const std::string &where, const char *adder, const char *echo, bool one)
{
    BareSignals signals;
    BareFutex futex(0);
    BareFutex spinning(one ? 0 : 2000);
    Exchange by_signals(adder, KA_TRANSPORT_SIGNALS), fast(adder, KA_TRANSPORT_FAST),
        asleep(adder, KA_TRANSPORT_FAST, 0);
    bench::print(csv, where + ": add(2, 40, &sum)",
                 {{"bare signals", signals.burst(), 0},
                  {"bare futex", futex.burst(), 0},
                  {"bare futex, and spinning", spinning.burst(), 0},
                  {"signals", by_signals.adds(), 0},
                  {"fast, without spinning", asleep.adds(), 0},
                  {"fast", fast.adds(), 0, one ? 0.8 : 0.06},
                  {"fast, beside the bare futex", fast.adds(), 1, one ? 1.5 : 0}});
    Exchange asked(echo, KA_TRANSPORT_SIGNALS), asked_fast(echo, KA_TRANSPORT_FAST);
    bench::print(csv, where + ": call with a call-back",
                 {{"signals", asked.asks(), 0}, {"fast", asked_fast.asks(), 0}});
}

double processor_ns(pid_t pid)
{
    clockid_t clock;
    timespec time = {};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0) return 0;
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

// 20 calls after 1 ms of quiet: what each later one takes, and the processor time of both sides for one call of all.
class QuietBursts {
public:
    QuietBursts(const char *adder, int32_t transport) : host_(adder, transport) {}
    void run()
    {
        const double before = processor_ns(getpid()) + processor_ns(host_.pid());
        usleep(1000);
        host_.add();
        const double ns = bench::burst_of([this](long) { host_.add(); })(calls - 1);
        later_.push_back(ns / (calls - 1));
        used_.push_back((processor_ns(getpid()) + processor_ns(host_.pid()) - before) / calls);
    }
    bench::Figure later() const { return bench::figure_of(later_); }
    bench::Figure used() const { return bench::figure_of(used_); }

private:
    static constexpr int calls = 20;
    Exchange host_;
    std::vector<double> later_;
    std::vector<double> used_;
};

void print_bursts(bench::Csv &csv, const char *adder)
{
    QuietBursts signals(adder, KA_TRANSPORT_SIGNALS), fast(adder, KA_TRANSPORT_FAST);
    for (int i = 0; i < 500; i++) {
        signals.run();
        fast.run();
    }
    const std::string title = "two processors: 20 calls after 1 ms";
    std::printf("%-52s %11s %7s %11s %7s\n", title.c_str(), "median ns", "ratio", "decile ns", "ratio");
    const auto row = [&](const std::string &name, bench::Figure own, bench::Figure floor, double at_most) {
        const bench::Figure ratio = {own.median / floor.median, own.decile / floor.decile};
        std::printf("%-52s %11.0f %7.3f %11.0f %7.3f %7.2f\n", name.c_str(), own.median, ratio.median, own.decile,
                    ratio.decile, at_most);
        csv.line(title, name, own);
        csv.line(title, name + " / signals", ratio, at_most);
    };
    row("signals: each later call", signals.later(), signals.later(), 1);
    row("fast: each later call", fast.later(), signals.later(), 0.06);
    row("signals: processor time of a call", signals.used(), signals.used(), 1);
    row("fast: processor time of a call", fast.used(), signals.used(), 0.3);
    std::printf("\n");
}

void print_busy(bench::Csv &csv, const char *adder)
{
    const Busy others;
    Exchange by_signals(adder, KA_TRANSPORT_SIGNALS), fast(adder, KA_TRANSPORT_FAST),
        asleep(adder, KA_TRANSPORT_FAST, 0);
    bench::print(csv, "beside others on every processor: add",
                 {{"signals", by_signals.adds(), 0},
                  {"fast", fast.adds(), 0, 1.0},
                  {"fast, without spinning", asleep.adds(), 0}});
}

} // namespace

int main(int argc, char **argv)
{
    const char *const file = bench::csv_path(argc, argv);
    const int first = file != nullptr ? 3 : 1;
    if (argc - first != 2) {
        std::fprintf(stderr, "usage: bench_transports [--csv FILE] ADDER ECHO\n");
        return 2;
    }
    const char *const adder = argv[first];
    const char *const echo = argv[first + 1];
    bench::Csv csv(file);
    use_processors(1);
    print_exchanges(csv, "one processor", adder, echo, true);
    use_processors(2);
    print_exchanges(csv, "two processors", adder, echo, false);
    print_bursts(csv, adder);
    print_busy(csv, adder);
}
