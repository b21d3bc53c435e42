// SPDX-License-Identifier: MIT
//
// Calls through hosts of each word size, beside the least that two processes can do. The caller is bare where it is
// not the library: it writes the request, signals, and waits with sigwait. Caller and host share one processor.
// usage: bench_hosts [--csv FILE] ADDER ECHO BARE-HOST [ADDER ECHO BARE-HOST], the modules of the machine's own word
// size first
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bare.h"
#include "burst_process.h"
#include "columns.h"
#include "host.h"
#include "ka/decimal.h"
#include "ka/dll_block.h"
#include "timing.h"

namespace {

constexpr size_t segment_size = 32768;

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::exit(1);
}

const sigset_t &calls()
{
    static const sigset_t set = [] {
        sigset_t made;
        sigemptyset(&made);
        sigaddset(&made, SIGUSR2);
        return made;
    }();
    return set;
}

class Segment {
public:
    Segment() : id_(shmget(IPC_PRIVATE, segment_size, 0600)), data_(static_cast<char *>(shmat(id_, nullptr, 0)))
    {
        if (id_ == -1 || data_ == reinterpret_cast<char *>(-1)) fail("segment");
        shmctl(id_, IPC_RMID, nullptr); // hosts can attach it as long as it is attached here
    }
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;
    ~Segment() { shmdt(data_); }
    int id() const { return id_; }
    char *at(size_t offset) const { return data_ + offset; }

private:
    int id_;
    char *data_;
};

// ---- What takes part -------------------------------------------------------------------------------------------

// One request after the other to another process.
class Peer {
public:
    Peer() = default;
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    virtual ~Peer() { end(); }

    virtual void exchange() = 0;
    virtual bool right() const = 0;

    bench::Burst burst()
    {
        const auto exchanges = bench::burst_of([this](long) { exchange(); });
        return [this, exchanges](long times) {
            const double ns = exchanges(times);
            if (!right()) fail("a wrong result");
            return ns;
        };
    }

protected:
    void end()
    {
        if (pid_ != -1) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }
    pid_t pid_ = -1;
};

// A process that gets the segment's identifier, and is called by signals.
class Host : public Peer {
public:
    Host(const char *path, const char *second) : path_(path), second_(second) {}

    void exchange() override
    {
        if (pid_ == -1) start();
        request();
        kill(pid_, SIGUSR2);
        int signal;
        sigwait(&calls(), &signal);
        take();
    }

    // From the start of the process to its first reply.
    bench::Burst first_reply(rlim_t descriptors)
    {
        return [this, descriptors](long times) {
            double ns = 0;
            for (long i = 0; i < times; i++) {
                descriptors_ = descriptors;
                ns += bench::burst_of([this](long) { exchange(); })(1);
                if (!right()) fail("a wrong result");
                end();
            }
            return ns;
        };
    }

protected:
    virtual void request() = 0;
    virtual void take() {}
    Segment segment_;

private:
    void start()
    {
        const std::string id = std::to_string(segment_.id());
        pid_ = fork();
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (descriptors_ != 0) {
            rlimit limit = {};
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = std::min(descriptors_, limit.rlim_max);
            setrlimit(RLIMIT_NOFILE, &limit);
        }
        execl(path_, path_, id.c_str(), second_, static_cast<char *>(nullptr));
        fail(path_);
    }
    const char *path_;
    const char *second_;
    rlim_t descriptors_ = 0;
};

// Adds two integers, and nothing else.
class BareHost : public Host {
public:
    BareHost(const char *path, const char *way) : Host(path, way)
    {
        shared()->pid = getpid();
        shared()->a = 2;
        shared()->b = 40;
    }
    bool right() const override { return shared()->sum == 42; }

protected:
    void request() override { shared()->sum = 0; }
    bare *shared() const { return static_cast<bare *>(static_cast<void *>(segment_.at(0))); }
};

// The same beside doubles that are copied into the segment and out of it.
class BareHostWithDoubles : public BareHost {
public:
    using BareHost::BareHost;

protected:
    void request() override
    {
        BareHost::request();
        std::memcpy(shared()->values, values_.data(), sizeof shared()->values);
    }
    void take() override { std::memcpy(values_.data(), shared()->values, sizeof shared()->values); }

private:
    std::vector<double> values_ = std::vector<double>(bare_values, 1234.5678);
};

// A call host with one function to call. Addresses are offsets: base is 0.
class CallHost : public Host {
public:
    CallHost(const char *path, const char *function) : Host(path, nullptr)
    {
        info()->pid = getpid();
        info()->shmsz = segment_size;
        info()->version = DLL_VERSION;
        std::memcpy(info()->magic, DLL_MAGIC, sizeof info()->magic);
        const auto length = static_cast<int32_t>(std::strlen(function));
        std::memcpy(segment_.at(name_at), &length, sizeof length);
        std::memcpy(segment_.at(name_at + sizeof length), function, std::strlen(function));
        describe(0, DLL_STRING, 0, name_at, 1);
    }

protected:
    static constexpr uint32_t name_at = 4096;
    static constexpr uint32_t values_at = 4128;

    t_DLL_INFO32 *info() const { return static_cast<t_DLL_INFO32 *>(static_cast<void *>(segment_.at(0))); }
    void describe(int i, int32_t type, int32_t ref, uint32_t offset, int32_t count)
    {
        info()->args[i] = {type, ref, offset, 3, type == DLL_REAL ? 3 : 1, count};
    }
};

class Adder : public CallHost {
public:
    explicit Adder(const char *path) : CallHost(path, "add")
    {
        for (int i = 0; i < 3; i++)
            describe(i + 1, DLL_INTEGER, i == 2, values_at + 4 * static_cast<uint32_t>(i), 1);
    }
    bool right() const override
    {
        int32_t sum;
        std::memcpy(&sum, segment_.at(values_at + 8), sizeof sum);
        return sum == 42;
    }

protected:
    void request() override
    {
        const int32_t values[] = {2, 40, 0};
        std::memcpy(segment_.at(values_at), values, sizeof values);
        for (int i = 1; i <= 3; i++)
            info()->args[i].ref = i == 3;
        info()->argc = 4;
    }
};

// REALs by reference, as doubles for the function and back.
class Reals : public CallHost {
public:
    explicit Reals(const char *path) : CallHost(path, "any")
    {
        describe(1, DLL_REAL, 1, values_at, bare_values);
        const t_DECIMAL real = {2, DEC_POSITIVE, 4, {12, 34, 56, 78, 0, 0, 0, 0}};
        values_.assign(bare_values, real);
    }
    bool right() const override
    {
        return info()->retcode == 0 && values_[7].dec_dgts[3] == 78 && values_.back().dec_exp == 2;
    }

protected:
    void request() override
    {
        std::memcpy(segment_.at(values_at), values_.data(), values_.size() * sizeof values_[0]);
        info()->args[1].ref = 1;
        info()->retcode = -1;
        info()->argc = 2;
    }
    void take() override { std::memcpy(values_.data(), segment_.at(values_at), values_.size() * sizeof values_[0]); }

private:
    std::vector<t_DECIMAL> values_;
};

// Two integers there, their sum back, over a stream socket of the UNIX domain.
class SocketPeer : public Peer {
public:
    SocketPeer()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == -1) fail("socketpair");
        pid_ = fork();
        if (pid_ == 0) serve(ends[1]);
        close(ends[1]);
        socket_ = ends[0];
    }
    ~SocketPeer() override { close(socket_); }
    void exchange() override
    {
        const int32_t values[] = {2, 40};
        sum_ = 0;
        if (write(socket_, values, sizeof values) != sizeof values ||
            read(socket_, &sum_, sizeof sum_) != sizeof sum_)
            fail("socket");
    }
    bool right() const override { return sum_ == 42; }

private:
    [[noreturn]] static void serve(int socket)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        int32_t values[2];
        while (read(socket, values, sizeof values) == sizeof values) {
            const int32_t sum = values[0] + values[1];
            if (write(socket, &sum, sizeof sum) != sizeof sum) break;
        }
        _exit(0);
    }
    int socket_;
    int32_t sum_ = 0;
};

// ---- The library's caller --------------------------------------------------------------------------------------

void add(const bench::Host &host)
{
    host.call("add", [](ka_host *to) {
        for (int32_t value : {2, 40})
            ka_add_integer(to, value, KA_BY_VALUE);
        ka_add_integer(to, 0, KA_BY_REFERENCE);
    });
    int32_t sum = 0;
    if (ka_get_integers(host, 3, &sum, 1) != KA_DONE || sum != 42) fail("a wrong result");
}

// Until the call has returned, the process having been started for it.
bench::Burst opened_and_called(const char *adder)
{
    return [adder](long times) {
        double ns = 0;
        for (long i = 0; i < times; i++) {
            std::unique_ptr<bench::Host> host;
            ns += bench::burst_of([&](long) {
                host = std::make_unique<bench::Host>(adder);
                add(*host);
            })(1);
        }
        return ns;
    };
}

// Beside the bare caller of the same module. A program waits in one way at a time.
void print_library(bench::Csv &csv, const std::string &bits, const char *adder, Adder &module)
{
    for (const auto &[name, waiting] : {std::pair("safe", KA_WAIT_SAFE), std::pair("fast", KA_WAIT_FAST)}) {
        const auto host_of = [&, way = waiting](int32_t transport) {
            return std::make_unique<bench::Host>(adder, [=](ka_options &options) {
                options.waiting = way;
                options.transport = transport;
            });
        };
        const auto host = host_of(KA_TRANSPORT_SIGNALS), plain = host_of(KA_TRANSPORT_PLAIN);
        bench::print(csv, bits + " bits: add(2, 40, &sum), " + name + " wait",
                     {{"module", module.burst(), 0},
                      {"library and module", bench::burst_of([&](long) { add(*host); }), 0, 1.12},
                      {"library and module without annex", bench::burst_of([&](long) { add(*plain); }), 0}});
    }
}

// ---- The table -------------------------------------------------------------------------------------------------

void print_word_size(bench::Csv &csv, const std::string &bits, const char *adder, const char *echo, const char *bare,
                     bench::BurstProcess &grpc)
{
    BareHost by_return(bare, "return"), by_jump(bare, "jump");
    Adder module(adder);
    SocketPeer socket;
    const std::string host = "bare " + bits + "-bit host";
    std::vector<bench::Column> calls = {{host + ", left by a jump", by_jump.burst(), 0},
                                        {host + ", left by a return", by_return.burst(), 0},
                                        {"module", module.burst(), 0, 1.05},
                                        {"stream socket of the UNIX domain", socket.burst(), 0},
                                        {"module, beside the socket", module.burst(), 3, 1.1}};
    if (grpc.alive()) {
        calls.push_back({"gRPC over such a socket", grpc.burst(0), 0});
        calls.push_back({"module, beside gRPC", module.burst(), 5, 0.08});
    }
    bench::print(csv, bits + " bits: add(2, 40, &sum)", calls);
    print_library(csv, bits, adder, module);

    BareHostWithDoubles doubles(bare, "jump");
    Reals reals(echo);
    bench::print(csv, bits + " bits: 1000 numbers by reference",
                 {{host + " that carries 1000 doubles", doubles.burst(), 0},
                  {"module that gets 1000 REALs as doubles", reals.burst(), 0, 6.5}});

    constexpr rlim_t few = 1024, many = 1 << 20;
    BareHost started(bare, "jump");
    Adder started_module(adder);
    bench::print(csv, bits + " bits: start to first reply",
                 {{host, started.first_reply(few), 0},
                  {"module", started_module.first_reply(few), 0, 1.3},
                  {"module with a limit of a million descriptors", started_module.first_reply(many), 0, 1.3},
                  {"ka_open and the first call", opened_and_called(adder), 1, 1.3}});
}

} // namespace

int main(int argc, char **argv)
{
    const char *const file = bench::csv_path(argc, argv);
    const int first = file != nullptr ? 3 : 1;
    if (argc - first != 3 && argc - first != 6) {
        std::fprintf(stderr, "usage: bench_hosts [--csv FILE] ADDER ECHO BARE-HOST [ADDER ECHO BARE-HOST]\n");
        return 2;
    }
    bench::Csv csv(file);
    sigprocmask(SIG_BLOCK, &calls(), nullptr);
    bench::stay_on_this_processor();
    bench::BurstProcess grpc(bench::beside(argv[0], "bench_grpc"));
    for (int i = first; i < argc; i += 3) {
        const std::string bits = std::to_string(i == first ? 8 * sizeof(void *) : 32);
        print_word_size(csv, bits, argv[i], argv[i + 1], argv[i + 2], grpc);
    }
}
