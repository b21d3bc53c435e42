// SPDX-License-Identifier: MIT
#include "host/system_calls.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/world.h"

namespace harness {
namespace {

enum { IPC_SHMAT = 21, IPC_SHMDT = 22, IPC_SHMCTL = 24 };

// The kernel's records of a signal action.
struct KernelAction32 {
    uint32_t handler;
    uint32_t flags;
    uint32_t restorer;
    uint32_t mask[2];
};
struct KernelAction64 {
    uint64_t handler;
    uint64_t flags;
    uint64_t restorer;
    uint64_t mask;
};
constexpr uint32_t restorer_flag = 0x04000000; // the C library's own business

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

// A host under ptrace, stopped whenever this program looks at it; killed with this object.
class Traced {
public:
    Traced(const Start &how, const std::string &argument) : started_(start(how, argument, true))
    {
        wait();
        const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
        if (ptrace(PTRACE_SETOPTIONS, started_.pid, nullptr, options) == -1) fail("ptrace");
    }
    ~Traced()
    {
        if (!ended()) {
            kill(started_.pid, SIGKILL);
            waitpid(started_.pid, nullptr, 0);
        }
        close(started_.errors);
    }
    Traced(const Traced &) = delete;
    Traced &operator=(const Traced &) = delete;

    bool ended() const { return WIFEXITED(status_) || WIFSIGNALED(status_); }
    End end() const { return WIFEXITED(status_) ? exited(WEXITSTATUS(status_)) : killed(WTERMSIG(status_)); }

    // On to the next system call's beginning or end, or to the process's end; signals are passed on.
    void advance()
    {
        do {
            const int stop = WSTOPSIG(status_);
            const long signal = stop == (SIGTRAP | 0x80) || stop == SIGTRAP ? 0 : stop;
            if (ptrace(PTRACE_SYSCALL, started_.pid, nullptr, signal) == -1) fail("ptrace");
            wait();
        } while (!ended() && WSTOPSIG(status_) != (SIGTRAP | 0x80));
    }

    // The system call that is about to begin; false at the end of one.
    bool entered(__ptrace_syscall_info &info)
    {
        info = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, started_.pid, sizeof info, &info) == -1) fail("ptrace");
        return info.op == PTRACE_SYSCALL_INFO_ENTRY;
    }

    // Through a file: an address of a 64-bit host has no room in a pointer of a 32-bit test.
    void read(uint64_t address, void *to, size_t size) const
    {
        const int memory = open(("/proc/" + std::to_string(started_.pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
        const ssize_t count = pread64(memory, to, size, static_cast<off64_t>(address));
        close(memory);
        if (count != static_cast<ssize_t>(size)) fail("the host's memory");
    }

    void signal(int number) const { kill(started_.pid, number); }

private:
    void wait()
    {
        if (waitpid(started_.pid, &status_, 0) == -1) fail("waitpid");
    }

    Started started_;
    int status_ = 0;
};

std::string with_signals(std::string line, uint64_t mask)
{
    for (int signal = 1; signal <= 64; signal++) {
        if ((mask >> (signal - 1) & 1) != 0) line += " " + std::to_string(signal);
    }
    return line;
}

std::string mask_line(const Traced &host, const char *what, uint64_t address)
{
    uint64_t mask = 0;
    host.read(address, &mask, sizeof mask);
    return with_signals(what, mask);
}

KernelAction64 read_action(const Traced &host, uint64_t address)
{
    KernelAction64 wide = {};
    if (module_bits() == 64) {
        host.read(address, &wide, sizeof wide);
        return wide;
    }
    KernelAction32 narrow = {};
    host.read(address, &narrow, sizeof narrow);
    return {narrow.handler, narrow.flags, narrow.restorer, narrow.mask[0] | uint64_t{narrow.mask[1]} << 32};
}

std::string action_line(const Traced &host, uint64_t signal, uint64_t address)
{
    if (address == 0) return "look " + std::to_string(signal);
    const KernelAction64 action = read_action(host, address);
    const uint64_t flags = action.flags & ~uint64_t{restorer_flag};
    std::string line = action.handler == 0 ? "default" : action.handler == 1 ? "ignore" : "handle";
    line += " " + std::to_string(signal);
    if (flags == SA_RESTART) {
        line += " restart";
    } else if (flags != 0) {
        line += " flags " + std::to_string(flags);
    }
    return action.mask == 0 ? line : with_signals(line + " mask", action.mask);
}

std::string text_at(const Traced &host, uint64_t address, uint64_t size)
{
    std::string text(static_cast<size_t>(size), '\0');
    host.read(address, text.data(), text.size());
    return text;
}

// The line for a system call, or nothing when it is of no interest.
std::string line_of(const Traced &host, const __ptrace_syscall_info &info)
{
    const auto &arg = info.entry.args;
    const World &world = hosts_world();
    const auto is = [&info](int32_t system_call) { return info.entry.nr == static_cast<uint64_t>(system_call); };
    if (is(world.write)) return arg[0] == STDERR_FILENO ? "write " + text_at(host, arg[1], arg[2]) : "";
    if (is(world.close) || is(world.close_range)) return "close";
    if (is(world.kill)) return "kill";
    if (is(world.tgkill)) return "raise";
    if (is(world.ipc) && arg[0] == IPC_SHMCTL) return ""; // how long the segment is
    if (is(world.ipc)) return arg[0] == IPC_SHMAT ? "attach" : arg[0] == IPC_SHMDT ? "detach" : "ipc";
    if (is(world.shmat)) return "attach";
    if (is(world.shmdt)) return "detach";
    if (is(world.rt_sigaction)) return action_line(host, arg[0], arg[1]);
    if (is(world.rt_sigprocmask)) return arg[0] == SIG_BLOCK && arg[1] != 0 ? mask_line(host, "block", arg[1]) : "";
    if (is(world.rt_sigsuspend)) return mask_line(host, "wait", arg[0]);
    return is(world.exit_group) ? "exit " + std::to_string(arg[0]) : "";
}

void note(Life &life, const std::string &line)
{
    const bool begun = !life.steps.empty() || line.starts_with("block");
    if (line.empty() || !begun) return;
    if (line == "close") {
        if (std::find(life.steps.begin(), life.steps.end(), "attach") != life.steps.end()) return;
        life.closes++;
    }
    if (life.steps.empty() || life.steps.back() != line) life.steps.push_back(line);
}

} // namespace

Life watch(const Start &how, const std::string &argument)
{
    alarm(60); // a host that comes to no end must not hold the test: then both are killed
    Start quiet = how;
    quiet.environment.push_back("ASAN_OPTIONS=detect_leaks=0"); // which would trace what is traced already
    Traced host(quiet, argument);
    Life life;
    bool waited = false;
    for (host.advance(); !host.ended(); host.advance()) {
        __ptrace_syscall_info info;
        if (!host.entered(info)) continue;
        const std::string line = line_of(host, info);
        note(life, line);
        if (line.starts_with("wait") && !std::exchange(waited, true)) host.signal(SIGTERM);
    }
    alarm(0);
    life.end = host.end();
    return life;
}

int system_calls_until_next_wait(pid_t host)
{
    if (ptrace(PTRACE_SEIZE, host, nullptr, PTRACE_O_TRACESYSGOOD) == -1) fail("ptrace");
    kill(host, SIGUSR2);
    int count = 0;
    for (;;) {
        int status = 0;
        if (waitpid(host, &status, 0) == -1 || !WIFSTOPPED(status)) fail("waitpid");
        const bool call = WSTOPSIG(status) == (SIGTRAP | 0x80);
        __ptrace_syscall_info info = {};
        if (call && ptrace(PTRACE_GET_SYSCALL_INFO, host, sizeof info, &info) == -1) fail("ptrace");
        const bool entered = call && info.op == PTRACE_SYSCALL_INFO_ENTRY;
        if (entered && info.entry.nr == static_cast<uint64_t>(hosts_world().rt_sigsuspend)) break;
        if (entered && info.entry.nr != static_cast<uint64_t>(hosts_world().sigaltstack))
            count++; // which the address sanitizer asks at a jump
        if (ptrace(PTRACE_SYSCALL, host, nullptr, call ? 0 : WSTOPSIG(status)) == -1) fail("ptrace");
    }
    if (ptrace(PTRACE_DETACH, host, nullptr, nullptr) == -1) fail("ptrace");
    return count;
}

} // namespace harness
