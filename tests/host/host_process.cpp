// SPDX-License-Identifier: MIT
#include "host/host_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <stdexcept>
#include <system_error>

namespace harness {
namespace {

using Clock = std::chrono::steady_clock;

int doorbell()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    const int fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd == -1) throw std::system_error(errno, std::generic_category(), "signalfd");
    signalfd_siginfo stale;
    while (read(fd, &stale, sizeof stale) > 0) {
    }
    return fd;
}

End end_of(int status)
{
    return WIFSIGNALED(status) ? killed(WTERMSIG(status)) : exited(WEXITSTATUS(status));
}

} // namespace

HostProcess::HostProcess(Block &block, Start how) : block_(block), signal_fd_(doorbell())
{
    try {
        const Started started = start(how, block.argument());
        pid_ = started.pid;
        errors_fd_ = started.errors;
    } catch (...) {
        close(signal_fd_);
        throw;
    }
    fcntl(errors_fd_, F_SETFL, O_NONBLOCK);
    death_fd_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
}

HostProcess::~HostProcess()
{
    if (!end_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(errors_fd_);
    close(death_fd_);
    close(signal_fd_);
}

int32_t HostProcess::call(const std::vector<int32_t> &answers)
{
    cbvals_.clear();
    ring();
    for (const int32_t value : answers) {
        await_signal();
        cbvals_.push_back(static_cast<int32_t>(block_.get(Head::cbval)));
        answer(value);
    }
    await_signal();
    return static_cast<int32_t>(block_.get(Head::retcode));
}

void HostProcess::ring(int signal)
{
    if (end_) fail("signal " + std::to_string(signal) + " to a host that has ended");
    if (kill(pid_, signal) == -1) throw std::system_error(errno, std::generic_category(), "kill");
}

void HostProcess::ring_from_elsewhere()
{
    const pid_t stranger = fork();
    if (stranger == 0) _exit(kill(pid_, SIGUSR2) == 0 ? 0 : 1);
    int status = 1;
    if (waitpid(stranger, &status, 0) != stranger || status != 0) fail("a stranger's signal was not sent");
}

void HostProcess::ring_thread(pid_t thread, int signal)
{
    if (end_) fail("signal " + std::to_string(signal) + " to a thread of a host that has ended");
    if (syscall(SYS_tgkill, pid_, thread, signal) == -1)
        throw std::system_error(errno, std::generic_category(), "tgkill");
}

void HostProcess::stop()
{
    ring(SIGSTOP);
    int status = 0;
    if (waitpid(pid_, &status, WUNTRACED) == -1) throw std::system_error(errno, std::generic_category(), "waitpid");
    if (WIFSTOPPED(status)) return;
    end_ = end_of(status);
    fail("the host does not stop");
}

void HostProcess::answer(int32_t value)
{
    block_.set(Head::retcode, value);
    ring();
}

void HostProcess::await_signal()
{
    const auto limit = Clock::now() + deadline;
    while (!has_signalled()) {
        if (end_) fail("no signal from the host");
        if (Clock::now() > limit) fail("no signal from the host within the deadline");
        look(100);
    }
}

bool HostProcess::has_signalled()
{
    look(0);
    if (arrived_ == 0) return false;
    arrived_--;
    return true;
}

void HostProcess::await(const std::function<bool()> &condition, const std::string &what)
{
    const auto limit = Clock::now() + deadline;
    while (!condition()) {
        if (end_) fail("not seen: " + what);
        if (Clock::now() > limit) fail("not seen within the deadline: " + what);
        look(1);
    }
}

void HostProcess::await_idle()
{
    const auto waits = [this] {
        return end_ || (signals("SigCgt").contains(SIGUSR2) && !signals("SigBlk").contains(SIGUSR2) &&
                        !signals("ShdPnd").contains(SIGUSR2));
    };
    await(waits, "the host waiting for a signal");
    if (end_) fail("the host does not wait");
}

End HostProcess::await_end()
{
    const auto limit = Clock::now() + deadline;
    while (!end_) {
        if (Clock::now() > limit) fail("the host does not end within the deadline");
        look(100);
    }
    return *end_;
}

End HostProcess::terminate()
{
    ring(SIGTERM);
    return await_end();
}

const std::string &HostProcess::errors()
{
    drain();
    return errors_;
}

void HostProcess::drain()
{
    char buffer[4096];
    ssize_t count;
    while ((count = read(errors_fd_, buffer, sizeof buffer)) > 0)
        errors_.append(buffer, static_cast<size_t>(count));
}

// Takes in whatever has happened; waits for the first of it.
void HostProcess::look(int timeout_ms)
{
    if (end_) return;
    pollfd events[] = {{signal_fd_, POLLIN, 0}, {death_fd_, POLLIN, 0}, {errors_fd_, POLLIN, 0}};
    poll(events, 3, timeout_ms);
    const bool dead = (events[1].revents & POLLIN) != 0;
    signalfd_siginfo info;
    while (read(signal_fd_, &info, sizeof info) > 0) {
        if (static_cast<pid_t>(info.ssi_pid) == pid_) arrived_++;
    }
    drain();
    if (!dead) {
        // A host that closed its standard error early would otherwise turn the wait into a busy loop.
        if ((events[2].revents & (POLLIN | POLLHUP)) == POLLHUP) usleep(1000);
        return;
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    end_ = end_of(status);
    drain();
}

void HostProcess::fail(const std::string &what)
{
    std::ostringstream text;
    text << what << "; ";
    if (end_) {
        text << *end_;
    } else {
        text << "the host is alive";
    }
    text << "; it wrote: \"" << errors() << "\"";
    throw std::runtime_error(text.str());
}

std::string with_line_hidden(const std::string &text)
{
    for (size_t colon = text.find(':'); colon != std::string::npos; colon = text.find(':', colon + 1)) {
        const size_t end = text.find_first_not_of("0123456789", colon + 1);
        if (end == std::string::npos || end == colon + 1 || text[end] != ':') continue;
        return text.substr(0, colon) + ":LINE" + text.substr(end);
    }
    return text;
}

} // namespace harness
