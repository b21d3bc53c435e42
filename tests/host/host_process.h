// SPDX-License-Identifier: MIT
//
// A host process and the conversation with it, from a caller that can do everything wrong. Every wait has a deadline
// and sees the host's death at once; then, and when anything else of the harness fails, it throws, which fails the
// test with a text that says what was awaited and what the host wrote. Whatever happens, the destructor ends the
// host.
//
// SIGUSR2 is blocked in the test's process from the first start on. Replies of two hosts can merge: have one at a
// time.
#ifndef TESTS_HOST_HOST_PROCESS_H
#define TESTS_HOST_HOST_PROCESS_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/arguments.h"
#include "host/block.h"
#include "host/process_state.h"
#include "host/start.h"

namespace harness {

inline constexpr std::chrono::seconds deadline{60};

class HostProcess {
public:
    HostProcess(Block &block, Start how);
    HostProcess(Block &block, const std::string &module) : HostProcess(block, Start{.module = module}) {}
    ~HostProcess();
    HostProcess(const HostProcess &) = delete;
    HostProcess &operator=(const HostProcess &) = delete;

    pid_t pid() const { return pid_; }

    // The whole of a call whose arguments are in the block: doorbell, call-backs answered in turn (their values are
    // then in cbvals()), reply. Returns retcode.
    int32_t call(const std::vector<int32_t> &answers = {});
    const std::vector<int32_t> &cbvals() const { return cbvals_; }

    // The same in steps.
    void ring(int signal = SIGUSR2);
    void await_signal();                        // a SIGUSR2 from the host: call-back or reply
    void answer(int32_t value);                 // to a call-back: retcode and doorbell
    void ring_from_elsewhere();                 // by a process that is not the caller
    void ring_thread(pid_t thread, int signal); // one of the host's threads
    bool has_signalled();                       // a SIGUSR2 from the host has come; takes it

    // Until the host waits in sigsuspend, for a call or for the answer to a call-back.
    void await_idle();
    // Until condition holds, looked at every millisecond.
    void await(const std::function<bool()> &condition, const std::string &what);

    // The end: by itself, or asked for by SIGTERM.
    End await_end();
    End terminate();

    // Stops the host, and lets it go on; signals sent in between arrive at once, the lower numbers first, but those
    // to a thread before those to the process. Each comes on top of the handler of the one before it.
    void stop();
    void resume() { ring(SIGCONT); }

    // The host's standard error so far; all of it once the host has ended.
    const std::string &errors();

    std::set<int> signals(const std::string &line) const { return harness::signals(pid_, line); }
    std::set<int> descriptors() const { return harness::descriptors(pid_); }

private:
    void drain();
    void look(int timeout_ms);
    [[noreturn]] void fail(const std::string &what);

    Block &block_;
    pid_t pid_ = -1;
    int errors_fd_ = -1;
    int death_fd_ = -1;  // pidfd
    int signal_fd_ = -1; // signalfd of SIGUSR2
    int arrived_ = 0;    // signals from the host, not yet taken
    std::optional<End> end_;
    std::string errors_;
    std::vector<int32_t> cbvals_;
};

// The text with its first number between colons written as LINE: assertions name a line, and lines move.
std::string with_line_hidden(const std::string &text);

} // namespace harness

#endif
