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

// Calls after a time of quiet: what each later one takes, and the processor time of both sides for one call of all.
class QuietBursts {
public:
    QuietBursts(const char *adder, int32_t transport, unsigned quiet_us, int calls, int32_t spin_us = 50)
        : exchange_(adder, transport, spin_us), quiet_us_(quiet_us), calls_(calls)
    {
    }
    // What the host does after the last reply is of this run, too: it is counted when the next one begins.
    void run()
    {
        const double host_before = processor_ns(exchange_.pid());
        if (!later_.empty()) used_.push_back((own_ + host_before - host_) / calls_);
        host_ = host_before;
        const double before = processor_ns(getpid());
        usleep(quiet_us_);
        exchange_.add();
        const double ns = exchange_.adds()(calls_ - 1);
        later_.push_back(ns / std::max(1, calls_ - 1));
        own_ = processor_ns(getpid()) - before;
    }
    bench::Figure later() const { return bench::figure_of(later_); }
    bench::Figure used() const { return bench::figure_of(used_); }

private:
    Exchange exchange_;
    unsigned quiet_us_;
    int calls_;
    double host_ = 0; // processor time of the host when the last run began
    double own_ = 0;  // that of the caller in it
    std::vector<double> later_;
    std::vector<double> used_;
};

void print_bursts(bench::Csv &csv, const char *adder)
{
    QuietBursts signals(adder, KA_TRANSPORT_SIGNALS, 1000, 20), fast(adder, KA_TRANSPORT_FAST, 1000, 20);
    for (int i = 0; i < 500; i++) {
        signals.run();
        fast.run();
    }
    bench::print_lines(csv, "two processors: 20 calls after 1 ms",
                       {{"signals: each later call", signals.later(), 0},
                        {"fast: each later call", fast.later(), 0, 0.06},
                        {"signals: processor time of a call", signals.used(), 2},
                        {"fast: processor time of a call", fast.used(), 2, 0.3}});
}

// Each side has given up its spin long before the other one is there: the three take turns, so each waits for 5 ms.
void print_vain_spins(bench::Csv &csv, const char *adder)
{
    QuietBursts signals(adder, KA_TRANSPORT_SIGNALS, 1600, 1), fast(adder, KA_TRANSPORT_FAST, 1600, 1),
        asleep(adder, KA_TRANSPORT_FAST, 1600, 1, 0);
    for (int i = 0; i < 200; i++) {
        signals.run();
        fast.run();
        asleep.run();
    }
    bench::print_lines(
        csv, "two processors: processor time of a call every 5 ms",
        {{"signals", signals.used(), 0}, {"fast", fast.used(), 0}, {"fast, without spinning", asleep.used(), 0}});
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
    bench::use_processors(1);
    print_exchanges(csv, "one processor", adder, echo, true);
    bench::use_processors(2);
    print_exchanges(csv, "two processors", adder, echo, false);
    print_bursts(csv, adder);
    print_vain_spins(csv, adder);
    print_busy(csv, adder);
}
