// SPDX-License-Identifier: MIT
//
// The state of a process in /proc, and the end of one.
#ifndef TESTS_HOST_PROCESS_STATE_H
#define TESTS_HOST_PROCESS_STATE_H

#include <sys/types.h>

#include <cstdint>
#include <ostream>
#include <set>
#include <string>

namespace harness {

// A line of signals in /proc/PID/status: "SigBlk", "SigIgn", "SigCgt", "ShdPnd" (sent, not yet delivered),
// "SigPnd" (the same, to the main thread alone). Masks are those of the main thread.
std::set<int> signals(pid_t pid, const std::string &line);

// The numbers of its open descriptors.
std::set<int> descriptors(pid_t pid);

// Its threads, without the main one.
std::set<pid_t> other_threads(pid_t pid);

// Where it has System V segments attached.
std::set<uint64_t> segment_addresses(pid_t pid);

// How a process ended.
struct End {
    bool by_signal = false;
    int code = 0; // exit status or signal
    bool operator==(const End &) const = default;
};
inline End exited(int status)
{
    return {false, status};
}
inline End killed(int signal)
{
    return {true, signal};
}
inline std::ostream &operator<<(std::ostream &out, const End &end)
{
    return out << (end.by_signal ? "killed by signal " : "exit status ") << end.code;
}

} // namespace harness

#endif
