// SPDX-License-Identifier: MIT
//
// See scale.h.
#include "scale/scale.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sched.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/hosts.h"
#include "caller/waiting.h"

static int32_t chosen(int32_t by_default, int32_t in_long_mode)
{
    if (const char *given = getenv("KA_ROUNDS")) return std::atoi(given);
    return getenv("KA_FOR") ? in_long_mode : by_default;
}

int32_t rounds(int32_t by_default)
{
    return chosen(by_default, 10000);
}

int32_t of_a_million(int32_t by_default)
{
    return chosen(by_default, 1000000);
}

// ---- Load ------------------------------------------------------------------------------------------------------

// Every other one gives its processor up again and again, which makes for many more switches.
[[noreturn]] static void compute(bool yields)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (std::atomic<unsigned> i = 0;; i++)
        if (yields && i % 1000 == 0) sched_yield();
}

Load::Load(int per_processor)
{
    const int count = per_processor * static_cast<int>(std::thread::hardware_concurrency());
    for (int i = 0; i < count; i++) {
        const pid_t pid = fork();
        if (pid == 0) compute(i % 2 == 0);
        processes_.push_back(pid);
    }
}

Load::~Load()
{
    for (const pid_t pid : processes_) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

// ---- Belongings ------------------------------------------------------------------------------------------------

static int entries(const char *folder)
{
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// A line of the table ends with the path, where there is one.
static int named_mappings()
{
    std::istringstream lines(read_file("/proc/self/maps"));
    int count = 0;
    for (std::string line; std::getline(lines, line);)
        count += line.find('/') != std::string::npos ? 1 : 0;
    return count;
}

static int own_segments()
{
    std::istringstream lines(read_file("/proc/sysvipc/shm"));
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string key, id, mode, size, creator;
        if (fields >> key >> id >> mode >> size >> creator) count += creator == std::to_string(getpid()) ? 1 : 0;
    }
    return count;
}

Belongings Belongings::now()
{
    siginfo_t info;
    const bool children = waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
    return {entries("/proc/self/fd"), entries("/proc/self/task"), named_mappings(), own_segments(), children};
}

void PrintTo(const Belongings &belongings, std::ostream *out)
{
    *out << belongings.descriptors << " descriptors, " << belongings.threads << " threads, " << belongings.mappings
         << " mappings, " << belongings.segments << " segments, children: " << belongings.children;
}

bool back_to(const Belongings &then)
{
    const bool same = becomes_true([&] { return Belongings::now() == then; });
    EXPECT_EQ(Belongings::now(), then);
    return same;
}

// ---- Time ------------------------------------------------------------------------------------------------------

static int64_t milliseconds()
{
    using namespace std::chrono;
    return duration_cast<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count();
}

Timed::Timed(std::string what, int32_t count) : what_(std::move(what)), count_(count), start_(milliseconds()) {}

Timed::~Timed()
{
    const double seconds = static_cast<double>(milliseconds() - start_) / 1000;
    std::fprintf(stderr, "%d %s in %.1f s, %.2f ms each\n", count_, what_.c_str(), seconds,
                 1000 * seconds / std::max(count_, 1));
}
