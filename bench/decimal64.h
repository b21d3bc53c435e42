// SPDX-License-Identifier: MIT
//
// Intel's decimal64 is packaged for 64 bits only. So that programs of either word size can measure beside it, a
// 64-bit process of its own runs the bursts that it is asked for through a pipe, and answers how long each took.
#ifndef BENCH_DECIMAL64_H
#define BENCH_DECIMAL64_H

#include <csignal>
#include <cstdint>
#include <cstring>
#include <unistd.h>

#include "operands.h"
#include "timing.h"

namespace bench {

enum class Decimal64 : int32_t { parse, format };

struct Request {
    Decimal64 what;
    int32_t times;
};

// The other side: first the operands as texts, then requests, each answered with nanoseconds (a double).
class Decimal64Process {
public:
    // program: that of decimal64.cpp. Without it there are no such columns.
    explicit Decimal64Process(const std::string &program, const Operands &operands)
    {
        int to[2], from[2];
        if (access(program.c_str(), X_OK) != 0 || pipe(to) != 0 || pipe(from) != 0) return;
        signal(SIGPIPE, SIG_IGN);
        if (fork() == 0) {
            dup2(to[0], STDIN_FILENO);
            dup2(from[1], STDOUT_FILENO);
            close(to[1]);
            close(from[0]);
            execl(program.c_str(), program.c_str(), nullptr);
            _exit(127);
        }
        close(to[0]);
        close(from[1]);
        to_ = to[1];
        from_ = from[0];
        alive_ = write(to_, &operands.texts, sizeof operands.texts) == sizeof operands.texts;
    }
    bool alive() const { return alive_; }

    Burst burst(Decimal64 what)
    {
        return [this, what](long times) {
            const Request request = {what, static_cast<int32_t>(times)};
            double ns = 0;
            if (write(to_, &request, sizeof request) != sizeof request || read(from_, &ns, sizeof ns) != sizeof ns) {
                std::fprintf(stderr, "the decimal64 process ended\n");
                std::exit(1);
            }
            return ns;
        };
    }

private:
    int to_ = -1, from_ = -1; // the process ends when the first is closed
    bool alive_ = false;
};

} // namespace bench

#endif
