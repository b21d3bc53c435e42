// SPDX-License-Identifier: MIT
//
// A call of add(2, 40, &sum) through hosts of each word size, beside bare hosts of the same word size, which do
// nothing but add and answer; the caller is bare in all of them: it writes the request, signals, and waits with
// sigwaitinfo. Caller and host share one processor. usage: bench_hosts MODULE BARE-HOST [MODULE BARE-HOST]
//
// All hosts take turns in short bursts, so that what else the machine does meets them alike.
#include <sched.h>
#include <sys/shm.h>

#include <cstring>
#include <memory>
#include <string>

#include "bare.h"
#include "ka/dll_block.h"
#include "ping_pong.h"

namespace {

constexpr int bursts = 240;
constexpr double burst_ns = 500'000;

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::exit(1);
}

class Segment {
public:
    Segment() : id_(shmget(IPC_PRIVATE, 8192, 0600)), data_(static_cast<char *>(shmat(id_, nullptr, 0)))
    {
        if (id_ == -1 || data_ == reinterpret_cast<char *>(-1)) fail("segment");
        shmctl(id_, IPC_RMID, nullptr); // hosts can attach it as long as it is attached here
    }
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;
    ~Segment() { shmdt(data_); }
    int id() const { return id_; }
    char *data() const { return data_; }

private:
    int id_;
    char *data_;
};

// A host process, one request for it, and what that has taken.
class Host {
public:
    Host(std::string name, const char *path, const char *second) : name_(std::move(name))
    {
        const std::string id = std::to_string(segment_.id());
        pid_ = fork();
        if (pid_ == 0) {
            execl(path, path, id.c_str(), second, static_cast<char *>(nullptr));
            fail(path);
        }
    }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;
    virtual ~Host()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    virtual void request() = 0;
    virtual int32_t result() const = 0;

    void exchange()
    {
        request();
        kill(pid_, SIGUSR2);
        int signal;
        sigwait(&calls(), &signal);
    }

    void burst()
    {
        using clock = std::chrono::steady_clock;
        const auto start = clock::now();
        const long rounds = rounds_;
        for (long i = 0; i < rounds; i++)
            exchange();
        const double ns = std::chrono::duration<double, std::nano>(clock::now() - start).count();
        if (result() != 42) fail("a wrong sum");
        times_.push_back(ns / static_cast<double>(rounds));
        rounds_ = std::max(1L, static_cast<long>(burst_ns / times_.back()));
    }

    double part(double share)
    {
        std::sort(times_.begin(), times_.end());
        return times_[static_cast<size_t>(share * static_cast<double>(times_.size()))];
    }
    const std::string &name() const { return name_; }

    static const sigset_t &calls()
    {
        static const sigset_t set = [] {
            sigset_t made;
            sigemptyset(&made);
            sigaddset(&made, SIGUSR2);
            return made;
        }();
        return set;
    }

protected:
    Segment segment_;
    pid_t pid_ = -1;

private:
    std::string name_;
    long rounds_ = 50;
    std::vector<double> times_;
};

class BareHost : public Host {
public:
    BareHost(const std::string &bits, const char *path, const char *way)
        : Host("bare " + bits + "-bit host, left by a " + way, path, way)
    {
        shared()->pid = getpid();
        shared()->a = 2;
        shared()->b = 40;
    }
    void request() override { shared()->sum = 0; }
    int32_t result() const override { return shared()->sum; }

private:
    bare *shared() const { return static_cast<bare *>(static_cast<void *>(segment_.data())); }
};

class CallHost : public Host {
public:
    CallHost(const std::string &bits, const char *path) : Host(bits + "-bit module", path, nullptr)
    {
        info()->pid = getpid();
        info()->shmsz = 8192;
        info()->version = DLL_VERSION;
        std::memcpy(info()->magic, DLL_MAGIC, sizeof info()->magic);
        const int32_t name[] = {3, 'a' | 'd' << 8 | 'd' << 16};
        std::memcpy(segment_.data() + 4096, name, sizeof name);
        describe(0, DLL_STRING, 0, 4096);
        for (int i = 0; i < 3; i++)
            describe(i + 1, DLL_INTEGER, i == 2, 4112 + 4 * i);
    }
    void request() override
    {
        const int32_t values[] = {2, 40, 0};
        std::memcpy(segment_.data() + 4112, values, sizeof values);
        for (int i = 1; i <= 3; i++)
            info()->args[i].ref = i == 3;
        info()->argc = 4;
    }
    int32_t result() const override
    {
        int32_t sum;
        std::memcpy(&sum, segment_.data() + 4120, sizeof sum);
        return sum;
    }

private:
    t_DLL_INFO32 *info() const { return static_cast<t_DLL_INFO32 *>(static_cast<void *>(segment_.data())); }
    void describe(int i, int32_t type, int32_t ref, uint32_t offset)
    {
        info()->args[i] = {type, ref, offset, 3, 1, 1}; // base is 0: addresses are offsets
    }
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 && argc != 5) {
        std::fprintf(stderr, "usage: bench_hosts MODULE BARE-HOST [MODULE BARE-HOST]\n");
        return 2;
    }
    sigprocmask(SIG_BLOCK, &Host::calls(), nullptr);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);

    std::vector<std::unique_ptr<Host>> hosts;
    for (int i = 1; i < argc; i += 2) {
        const std::string bits = std::to_string(i == 1 ? 8 * sizeof(void *) : 32);
        hosts.push_back(std::make_unique<BareHost>(bits, argv[i + 1], "return"));
        hosts.push_back(std::make_unique<BareHost>(bits, argv[i + 1], "jump"));
        hosts.push_back(std::make_unique<CallHost>(bits, argv[i]));
    }
    for (auto &host : hosts)
        host->exchange(); // its start; the signal is blocked in it until it can answer
    for (int i = 0; i < bursts; i++)
        for (auto &host : hosts)
            host->burst();

    // The bare host whose handler is left as the call host leaves its own.
    std::printf("%-44s %12s %9s %12s %9s\n", "add(2, 40, &sum) (ratio to the bare host)", "median ns", "ratio",
                "decile ns", "ratio");
    for (size_t i = 0; i < hosts.size(); i++) {
        Host &bare = *hosts[i / 3 * 3];
        Host &host = *hosts[i];
        std::printf("%-44s %12.0f %9.3f %12.0f %9.3f\n", host.name().c_str(), host.part(0.5),
                    host.part(0.5) / bare.part(0.5), host.part(0.1), host.part(0.1) / bare.part(0.1));
    }
}
