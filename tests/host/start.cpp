// SPDX-License-Identifier: MIT
#include "host/start.h"

#include <fcntl.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/world.h"

namespace harness {
namespace {

constexpr uint32_t directory_flag = 0200000; // O_DIRECTORY of both worlds

constexpr uint32_t at_number = offsetof(seccomp_data, nr);
constexpr uint32_t at_arch = offsetof(seccomp_data, arch);
constexpr uint32_t at_arg0 = offsetof(seccomp_data, args);
constexpr uint32_t at_arg2 = at_arg0 + 2 * sizeof(uint64_t); // the low half

sock_filter load(uint32_t offset)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset);
}
sock_filter skip_unless(uint32_t value, uint8_t count)
{
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, count);
}
uint32_t number(int32_t system_call)
{
    return static_cast<uint32_t>(system_call);
}
sock_filter verdict(uint32_t value)
{
    return BPF_STMT(BPF_RET | BPF_K, value);
}

// Out of the way of those that a test asks for.
constexpr int first_own_descriptor = 200;

// The kernel's own form of an action; all zero is the default action.
struct KernelAction {
    void (*handler)(int);
    unsigned long rest[4];
};

void set_action(int signal, void (*handler)(int))
{
    KernelAction action = {};
    action.handler = handler;
    syscall(SYS_rt_sigaction, signal, &action, nullptr, 8);
}

uint64_t mask_of(const std::vector<int> &signals)
{
    uint64_t mask = 0;
    for (const int signal : signals)
        mask |= uint64_t{1} << (signal - 1);
    return mask;
}

void set_signals(const Start &how)
{
    for (int signal = 1; signal <= 64; signal++)
        set_action(signal, SIG_DFL);
    for (const int signal : how.ignored)
        set_action(signal, SIG_IGN);
    const uint64_t blocked = mask_of(how.blocked);
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &blocked, nullptr, 8);
}

void set_limit(__rlimit_resource resource, rlim_t soft)
{
    rlimit limit = {};
    getrlimit(resource, &limit);
    limit.rlim_cur = soft;
    setrlimit(resource, &limit);
}

// Files that the test itself inherited, or opened, must not reach the host.
void close_all_on_exec()
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        if (fd > STDERR_FILENO) fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
}

bool set_descriptors(const Start &how, int errors)
{
    close_all_on_exec();
    if (dup2(errors, STDERR_FILENO) == -1) return false;
    if (how.output != -1 && dup2(how.output, STDOUT_FILENO) == -1) return false;
    for (const int wanted : how.descriptors) {
        const int opened = open("/dev/null", O_RDWR);
        if (opened == -1) return false;
        if (opened == wanted) continue;
        if (dup2(opened, wanted) == -1) return false;
        close(opened);
    }
    if (how.open_max) set_limit(RLIMIT_NOFILE, *how.open_max);
    return true;
}

bool set_filter(const std::vector<sock_filter> &filter)
{
    if (filter.empty()) return true;
    sock_fprog program = {static_cast<unsigned short>(filter.size()), const_cast<sock_filter *>(filter.data())};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

std::vector<char *> pointers(std::vector<std::string> &texts)
{
    std::vector<char *> list;
    for (std::string &text : texts)
        list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

// A host built with the address sanitizer is to leave these signals as they were inherited.
std::string sanitizer_options()
{
    const char *const given = getenv("ASAN_OPTIONS");
    return "ASAN_OPTIONS=" + std::string(given == nullptr ? "" : given) + ":handle_sigfpe=0:handle_abort=0";
}

std::vector<std::string> whole_environment(const Start &how)
{
    std::vector<std::string> all = how.environment;
    all.push_back(sanitizer_options());
    for (char **entry = environ; *entry != nullptr; entry++)
        all.emplace_back(*entry);
    return all;
}

struct Command {
    std::string path;
    std::vector<std::string> words;
    std::vector<std::string> environment;
};

// In the child; returns only when something failed, with the reason in errno.
void become(const Start &how, Command &command, int errors, bool traced, pid_t parent)
{
    std::vector<char *> argv = pointers(command.words);
    std::vector<char *> envp = pointers(command.environment);
    if (how.dies_with_test && prctl(PR_SET_PDEATHSIG, SIGKILL) == -1) return;
    if (how.dies_with_test && getppid() != parent) _exit(127);
    if (traced && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == -1) return;
    set_limit(RLIMIT_CORE, 0);
    if (!set_descriptors(how, errors)) return;
    set_signals(how);
    if (!set_filter(how.filter)) return;
    execve(command.path.c_str(), argv.data(), envp.data());
}

struct Pipe {
    int ends[2];
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) == -1) throw std::system_error(errno, std::generic_category(), "pipe");
    }
};

} // namespace

namespace {

std::vector<sock_filter> close_range_fails_with(uint32_t error)
{
    return {load(at_arch),
            skip_unless(hosts_world().arch, 3),
            load(at_number),
            skip_unless(number(hosts_world().close_range), 1),
            verdict(SECCOMP_RET_ERRNO | error),
            verdict(SECCOMP_RET_ALLOW)};
}

} // namespace

std::vector<sock_filter> without_close_range()
{
    return close_range_fails_with(ENOSYS);
}

std::vector<sock_filter> refused_close_range()
{
    return close_range_fails_with(EPERM);
}

std::vector<sock_filter> without_folders()
{
    return {load(at_arch),
            skip_unless(hosts_world().arch, 7),
            load(at_number),
            skip_unless(number(hosts_world().close_range), 1),
            verdict(SECCOMP_RET_ERRNO | ENOSYS),
            skip_unless(number(hosts_world().openat), 3),
            load(at_arg2),
            BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, directory_flag, 0, 1),
            verdict(SECCOMP_RET_ERRNO | ENOENT),
            verdict(SECCOMP_RET_ALLOW)};
}

std::vector<sock_filter> killed_by_group_signals()
{
    return {load(at_arch),
            skip_unless(hosts_world().arch, 5),
            load(at_number),
            skip_unless(number(hosts_world().kill), 3),
            load(at_arg0),
            BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x80000000U, 2, 0),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
            verdict(SECCOMP_RET_ALLOW),
            verdict(SECCOMP_RET_KILL_PROCESS)};
}

std::string module_path(const std::string &module)
{
    return module.find('/') == std::string::npos ? module_folder(KA_MODULE_DIR) + "/" + module : module;
}

Started start(const Start &how, const std::string &default_argument, bool traced)
{
    Command command = {module_path(how.module), {}, whole_environment(how)};
    command.words = how.arguments.value_or(std::vector{default_argument});
    command.words.insert(command.words.begin(), how.name.value_or(command.path));
    Pipe errors;
    Pipe failure;
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        const int report = fcntl(failure.ends[1], F_DUPFD_CLOEXEC, first_own_descriptor);
        become(how, command, errors.ends[1], traced, parent);
        const int error = errno;
        (void)!write(report, &error, sizeof error);
        _exit(127);
    }
    const int fork_error = errno;
    close(errors.ends[1]);
    close(failure.ends[1]);
    int error = pid == -1 ? fork_error : 0;
    if (pid != -1 && read(failure.ends[0], &error, sizeof error) > 0) waitpid(pid, nullptr, 0);
    close(failure.ends[0]);
    if (error != 0) {
        close(errors.ends[0]);
        throw std::system_error(error, std::generic_category(), "cannot start " + command.path);
    }
    return {pid, errors.ends[0]};
}

} // namespace harness
