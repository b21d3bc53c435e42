// SPDX-License-Identifier: MIT
//
// What a call costs where something is against it: other threads of the program, a death, unequal priority, a quota
// of processor time. usage: bench_risks [--csv FILE] ECHO; without arguments it is one of its own processes, which
// measures with other threads beside it.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "burst_process.h"
#include "columns.h"
#include "host.h"

namespace {

bench::Host host_of(const char *module, int32_t waiting, int32_t transport = KA_TRANSPORT_SIGNALS)
{
    return bench::Host(module, [=](ka_options &options) {
        options.waiting = waiting;
        options.transport = transport;
    });
}

bench::Burst calls(const bench::Host &host, const char *function = "nothing")
{
    return bench::burst_of([&host, function](long) { host.call(function); });
}

void block_replies()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

// ---- Idle threads ----------------------------------------------------------------------------------------------

// All hosts of a program wait in the same way, and threads would be beside all of its columns: so each column is a
// process, which is told how it is to be.
struct Program {
    int32_t waiting;
    int32_t threads;
    char module[1000];
};
enum { NOTHING, ANSWERED, ANSWERED_THE_SAME };

// In one of four waits, until the program ends.
void start_idle_thread(int i)
{
    static std::mutex held;
    static std::mutex mutex;
    static std::condition_variable never;
    if (i == 0) held.lock();
    std::thread([i] {
        if (i % 4 == 0) sleep(1000000);
        if (i % 4 == 1) pause();
        if (i % 4 == 2) held.lock();
        std::unique_lock lock(mutex);
        for (;;)
            never.wait(lock);
    }).detach();
}

int serve()
{
    Program program;
    if (!bench::read_all(STDIN_FILENO, &program, sizeof program)) return 1;
    if (program.waiting == KA_WAIT_FAST) block_replies();
    for (int i = 0; i < program.threads; i++)
        start_idle_thread(i);
    int status = 0;
    {
        const bench::Host host = host_of(program.module, program.waiting);
        status = bench::serve({calls(host), calls(host, "ask"), calls(host, "agree")});
    }
    _exit(status); // beside threads that wait for what would be destroyed
}

std::unique_ptr<bench::BurstProcess> start(const char *module, int32_t waiting, int32_t threads)
{
    Program program = {waiting, threads, {}};
    std::snprintf(program.module, sizeof program.module, "%s", module);
    auto process = std::make_unique<bench::BurstProcess>("/proc/self/exe");
    process->send(&program, sizeof program);
    return process;
}

// A function "ask" returns something else than the answer to its call-back, "agree" the answer: that is the value
// that the next answer finds.
void print_programs(bench::Csv &csv, const char *echo)
{
    for (const auto &[way, waiting] : {std::pair("safe", KA_WAIT_SAFE), std::pair("fast", KA_WAIT_FAST)}) {
        const auto alone = start(echo, waiting, 0);
        const auto beside = start(echo, waiting, 16);
        bench::print(csv, std::string("threads and answers, ") + way + " wait",
                     {{"call", alone->burst(NOTHING), 0},
                      {"call beside 16 idle threads", beside->burst(NOTHING), 0, 1.1},
                      {"call with a call-back", alone->burst(ANSWERED), 2},
                      {"call-back whose answer stands there already", alone->burst(ANSWERED_THE_SAME), 2, 1.05}});
    }
}

// ---- Deaths ----------------------------------------------------------------------------------------------------

// From the kill inside a call to the return of ka_call.
double death_ns(const char *module, int32_t waiting, int32_t transport)
{
    using clock = std::chrono::steady_clock;
    const bench::Host host = host_of(module, waiting, transport);
    host.call("nothing");
    std::atomic<clock::rep> killed{0};
    std::thread killer([&, pid = ka_pid(host)] {
        usleep(10000);
        killed = clock::now().time_since_epoch().count();
        kill(pid, SIGKILL);
    });
    int32_t code;
    ka_begin(host, "hang");
    ka_call(host, &code);
    const clock::rep ended = clock::now().time_since_epoch().count();
    killer.join();
    return static_cast<double>(ended - killed);
}

void print_deaths(bench::Csv &csv, const char *echo)
{
    struct Row {
        const char *name;
        int32_t transport;
        std::vector<double> times;
    };
    block_replies(); // in the killers, too, for the fast wait
    for (const auto &[way, waiting] : {std::pair("safe", KA_WAIT_SAFE), std::pair("fast", KA_WAIT_FAST)}) {
        Row rows[] = {{"plain", KA_TRANSPORT_PLAIN, {}},
                      {"signals", KA_TRANSPORT_SIGNALS, {}},
                      {"fast transport", KA_TRANSPORT_FAST, {}}};
        for (int i = 0; i < 50; i++) {
            for (Row &row : rows)
                row.times.push_back(death_ns(echo, waiting, row.transport));
        }
        std::vector<bench::Line> lines;
        for (Row &row : rows) {
            std::sort(row.times.begin(), row.times.end());
            lines.push_back(
                {row.name, {row.times[25], row.times.back()}, 0, row.transport == KA_TRANSPORT_PLAIN ? 0 : 1.1});
        }
        bench::print_lines(csv, std::string("50 deaths in a call, ") + way + " wait", lines, "largest");
    }
}

// ---- Unequal priority ------------------------------------------------------------------------------------------

struct Priority {
    int policy;
    int nice;
};

// False where the system does not allow it.
bool give(pid_t process, Priority priority)
{
    const sched_param real_time = {priority.policy == SCHED_FIFO ? 1 : 0};
    return sched_setscheduler(process, priority.policy, &real_time) == 0 &&
           setpriority(PRIO_PROCESS, static_cast<id_t>(process), priority.nice) == 0;
}

// The host, or the caller while it measures, has another priority than the other side.
class Unequal {
public:
    Unequal(const char *echo, int32_t transport, bool of_host, Priority priority)
        : host_(host_of(echo, KA_WAIT_SAFE, transport)), of_host_(of_host), priority_(priority)
    {
        host_.call("nothing");
        allowed_ = give(of_host ? ka_pid(host_) : 0, priority) && (of_host || give(0, {SCHED_OTHER, 0}));
    }
    bool is_allowed() const { return allowed_; }
    bench::Burst burst() const
    {
        return [this](long times) {
            if (!of_host_) give(0, priority_);
            const double ns = calls(host_)(times);
            if (!of_host_) give(0, {SCHED_OTHER, 0});
            return ns;
        };
    }

private:
    bench::Host host_;
    bool of_host_;
    Priority priority_;
    bool allowed_;
};

void print_priorities(bench::Csv &csv, const std::string &where, const char *echo)
{
    const struct {
        const char *name;
        bool of_host;
        Priority priority;
    } cases[] = {{"equal", true, {SCHED_OTHER, 0}},
                 {"host at nice 10", true, {SCHED_OTHER, 10}},
                 {"caller at nice 10", false, {SCHED_OTHER, 10}},
                 {"host in real time", true, {SCHED_FIFO, 0}},
                 {"caller in real time", false, {SCHED_FIFO, 0}}};
    std::vector<std::unique_ptr<Unequal>> sides;
    std::vector<bench::Column> columns;
    for (const auto &[name, of_host, priority] : cases) {
        for (const auto &[transport, kind] :
             {std::pair("signals", KA_TRANSPORT_SIGNALS), std::pair("fast transport", KA_TRANSPORT_FAST)}) {
            sides.push_back(std::make_unique<Unequal>(echo, kind, of_host, priority));
            if (!sides.back()->is_allowed())
                std::printf("%s: not allowed here\n", name);
            else
                columns.push_back({std::string(transport) + ", " + name, sides.back()->burst(),
                                   kind == KA_TRANSPORT_FAST ? size_t{1} : size_t{0}});
        }
    }
    bench::print(csv, "priorities, " + where, columns);
}

// ---- A quota ---------------------------------------------------------------------------------------------------

// Of a file that is there.
bool write_file(const std::string &path, const std::string &text)
{
    std::FILE *const file = std::fopen(path.c_str(), "r+");
    if (file == nullptr) return false;
    const bool written = std::fputs(text.c_str(), file) >= 0;
    return std::fclose(file) == 0 && written;
}

// Half of a processor for a group of processes; both kinds of control group know it.
class Quota {
public:
    Quota()
    {
        allowed_ = make("/sys/fs/cgroup", "cpu.max", "50000 100000") ||
                   make("/sys/fs/cgroup/cpu", "cpu.cfs_quota_us", "50000");
    }
    ~Quota()
    {
        if (allowed_) rmdir(group_.c_str());
    }
    Quota(const Quota &) = delete;
    Quota &operator=(const Quota &) = delete;
    bool is_allowed() const { return allowed_; }
    bool enter() const { return write_file(group_ + "/cgroup.procs", std::to_string(getpid())); }

private:
    bool make(const std::string &root, const std::string &file, const std::string &text)
    {
        group_ = root + "/kahost-bench-" + std::to_string(getpid());
        if (mkdir(group_.c_str(), 0755) != 0) return false;
        if (write_file(group_ + "/" + file, text)) return true;
        rmdir(group_.c_str());
        return false;
    }
    std::string group_;
    bool allowed_;
};

// In a process of its own, since a process does not leave its group again. The runs are long enough for the quota to
// be used up many times.
void print_quota(bench::Csv &csv, const char *echo)
{
    const Quota quota;
    if (!quota.is_allowed()) {
        std::printf("a quota: not allowed here\n\n");
        return;
    }
    csv.flush();
    const pid_t child = fork();
    if (child == 0) {
        if (!quota.enter()) _exit(1);
        {
            const bench::Host signals = host_of(echo, KA_WAIT_SAFE),
                              fast = host_of(echo, KA_WAIT_SAFE, KA_TRANSPORT_FAST);
            const bench::Host asleep(echo, [](ka_options &options) {
                options.transport = KA_TRANSPORT_FAST;
                options.spin_us = 0;
            });
            bench::print(csv, "quota of half a processor",
                         {{"signals", calls(signals), 0},
                          {"fast transport", calls(fast), 0},
                          {"fast transport, without spinning", calls(asleep), 0}},
                         {1e9, 3, 1});
            csv.flush();
        }
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 1) return serve();
    const char *const file = bench::csv_path(argc, argv);
    const int first = file != nullptr ? 3 : 1;
    if (argc - first != 1) {
        std::fprintf(stderr, "usage: bench_risks [--csv FILE] ECHO\n");
        return 2;
    }
    const char *const echo = argv[first];
    bench::Csv csv(file);
    bench::use_processors(1);
    print_programs(csv, echo);
    print_priorities(csv, "one processor", echo);
    bench::use_processors(2);
    print_priorities(csv, "two processors", echo);
    print_quota(csv, echo);
    print_deaths(csv, echo);
}
