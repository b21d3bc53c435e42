// SPDX-License-Identifier: MIT
//
// Bursts of a library that must not, or cannot, be in the program that measures: a process of its own runs those that
// it is asked for through a pipe, and answers how long each took.
#ifndef BENCH_BURST_PROCESS_H
#define BENCH_BURST_PROCESS_H

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "timing.h"

namespace bench {

struct Request {
    int32_t what;
    int32_t times;
};

inline bool read_all(int fd, void *to, size_t size)
{
    auto *bytes = static_cast<char *>(to);
    while (size > 0) {
        const ssize_t got = read(fd, bytes, size);
        if (got <= 0) return false;
        bytes += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

// The path of another program in the folder of this one.
inline std::string beside(const std::string &program, const std::string &name)
{
    return program.substr(0, program.rfind('/') + 1) + name;
}

// The side that measures. What it sends first is the program's affair.
class BurstProcess {
public:
    // The program is given a word, if there is one. Of one that was not built, nothing is alive, and there are no
    // such columns. Other processes that are measured do not get its pipes: our hosts would close them as they start.
    explicit BurstProcess(const std::string &program, const char *word = nullptr)
    {
        int to[2], from[2];
        if (access(program.c_str(), X_OK) != 0 || pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0) return;
        signal(SIGPIPE, SIG_IGN);
        if (fork() == 0) {
            dup2(to[0], STDIN_FILENO);
            dup2(from[1], STDOUT_FILENO);
            execl(program.c_str(), program.c_str(), word, nullptr);
            _exit(127);
        }
        close(to[0]);
        close(from[1]);
        to_ = to[1];
        from_ = from[0];
        alive_ = true;
    }
    // The process ends when its input does.
    ~BurstProcess()
    {
        if (!alive_) return;
        close(to_);
        close(from_);
    }
    BurstProcess(const BurstProcess &) = delete;
    BurstProcess &operator=(const BurstProcess &) = delete;
    bool alive() const { return alive_; }

    void send(const void *data, size_t size)
    {
        if (alive_ && write(to_, data, size) != static_cast<ssize_t>(size)) fail();
    }
    Burst burst(int32_t what)
    {
        return [this, what](long times) {
            const Request request = {what, static_cast<int32_t>(times)};
            double ns = 0;
            send(&request, sizeof request);
            if (!read_all(from_, &ns, sizeof ns)) fail();
            return ns;
        };
    }

private:
    [[noreturn]] static void fail()
    {
        std::fprintf(stderr, "a process that runs bursts has ended\n");
        std::exit(1);
    }
    int to_ = -1, from_ = -1;
    bool alive_ = false;
};

// The other side, until its input ends. Its exit status.
inline int serve(const std::vector<Burst> &bursts)
{
    Request request;
    while (read_all(STDIN_FILENO, &request, sizeof request)) {
        const double ns = bursts[static_cast<size_t>(request.what)](request.times);
        if (write(STDOUT_FILENO, &ns, sizeof ns) != sizeof ns) return 1;
    }
    return 0;
}

} // namespace bench

#endif
