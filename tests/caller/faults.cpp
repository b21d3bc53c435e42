// SPDX-License-Identifier: MIT
//
// System calls that fail: a caller that starts, calls and closes a host is traced, and one of its system calls after
// the other is answered with an error, without being made. Whatever fails, the caller survives, no process and no
// segment is left, and an error names what the system answered.
#include "caller/hosts.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <set>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include "caller/waiting.h"

namespace {

constexpr int refusal = EDOM; // no system call answers that by itself

// Of each row one is made by every start, as the C library has it.
const std::vector<long> needed_by_every_start[] = {
    {SYS_shmget}, {SYS_shmat}, {SYS_pipe2}, {SYS_clone, SYS_clone3}, {SYS_write}};

struct Step {
    int32_t status = -1; // not made
    ka_error error{};
};

// Shared with the caller.
struct Outcome {
    Step open;
    Step call;
    Step close;
    bool child_is_left = false;
    bool finished = false; // from here on nothing fails
};

// The numbers of the system calls that fail, and which one of them: counted from 0, and alone or with all that
// follow.
struct Fault {
    std::vector<long> numbers;
    int first = 0;
    bool lasts = false;
};

class Faults : public testing::TestWithParam<int32_t> {
protected:
    Faults()
    {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        outcome = static_cast<Outcome *>(
            mmap(nullptr, sizeof *outcome, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    }
    ~Faults() override { munmap(outcome, sizeof *outcome); }

    bool run(const Fault &fault);
    void expect_nothing_left(const std::string &where) const;
    void expect_told(const std::string &where) const;

    Outcome *outcome;
    int exit_status = -1;
    pid_t caller = 0;
    std::set<long> seen; // the numbers of system calls that can fail, of all runs

private:
    [[noreturn]] void live() const;
    bool trace(const Fault &fault);
    bool is_named(const Fault &fault, long number);
};

INSTANTIATE_TEST_SUITE_P(Ways, Faults, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &way) { return way.param == KA_WAIT_FAST ? "fast" : "safe"; });

void keep(Step *step, ka_host *host, int32_t status)
{
    step->status = status;
    step->error = *ka_last_error(host);
}

// In the caller.
void Faults::live() const
{
    ka_options options = default_options();
    options.waiting = GetParam();
    options.deadline_ms = 20000;
    options.grace_ms = 2000;
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    ka_host *host;
    int32_t code = 0;
    keep(&outcome->open, host, ka_open(&host, tasks_module.c_str(), &options));
    if (outcome->open.status == KA_DONE) {
        ka_begin(host, "ask");
        ka_add_integer(host, 1, KA_BY_VALUE);
        keep(&outcome->call, host, ka_call(host, &code));
    }
    outcome->close.status = ka_close(host);
    if (outcome->close.status != KA_DONE) keep(&outcome->close, host, outcome->close.status);
    outcome->finished = true;
    outcome->child_is_left = waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
    if (outcome->close.status != KA_DONE) ka_close(host);
    _exit(0);
}

// ---- The tracer ------------------------------------------------------------------------------------------------

#ifdef __x86_64__
void set_number(struct user_regs_struct *registers)
{
    registers->orig_rax = static_cast<unsigned long long>(-1);
}
void set_answer(struct user_regs_struct *registers)
{
    registers->rax = static_cast<unsigned long long>(-refusal);
}
#else
void set_number(struct user_regs_struct *registers)
{
    registers->orig_eax = -1;
}
void set_answer(struct user_regs_struct *registers)
{
    registers->eax = -refusal;
}
#endif

void change(pid_t pid, void (*set)(struct user_regs_struct *registers))
{
    struct user_regs_struct registers;
    ptrace(PTRACE_GETREGS, pid, nullptr, &registers);
    set(&registers);
    ptrace(PTRACE_SETREGS, pid, nullptr, &registers);
}

// The C library gives up when locks fail; memory and ends do not; and a child is born with its own tests.
bool can_fail(long number)
{
    static const std::vector<long> cannot = {
        SYS_futex,       SYS_exit,   SYS_exit_group, SYS_rt_sigreturn, SYS_munmap, SYS_mprotect,
        SYS_brk,         SYS_mmap,   SYS_madvise,    SYS_close,        SYS_shmdt,  SYS_rt_sigprocmask,
        SYS_sched_yield, SYS_gettid, SYS_getpid,
#ifdef SYS_mmap2
        SYS_mmap2,
#endif
    };
    return std::find(cannot.begin(), cannot.end(), number) == cannot.end();
}

// The C library of 32 bits makes the calls for segments by another, whose first argument tells which one is meant.
long number_of(const struct __ptrace_syscall_info &entry)
{
    const auto number = static_cast<long>(entry.entry.nr);
#ifdef SYS_ipc
    static const std::map<uint64_t, long> meant = {
        {21, SYS_shmat}, {22, SYS_shmdt}, {23, SYS_shmget}, {24, SYS_shmctl}};
    if (number == SYS_ipc) return meant.at(entry.entry.args[0] & 0xffff);
#endif
    return number;
}

// Lets the caller run to its next entry into or exit from a system call; false when it has ended.
bool run_on(pid_t pid, int *exit_status)
{
    constexpr int at_system_call = SIGTRAP | 0x80;
    int signal = 0;
    do {
        ptrace(PTRACE_SYSCALL, pid, nullptr, signal);
        if (waitpid(pid, exit_status, __WALL) != pid || !WIFSTOPPED(*exit_status)) return false;
        signal = WSTOPSIG(*exit_status);
    } while (signal != at_system_call);
    return true;
}

bool Faults::is_named(const Fault &fault, long number)
{
    if (can_fail(number)) seen.insert(number);
    return std::find(fault.numbers.begin(), fault.numbers.end(), number) != fault.numbers.end();
}

bool Faults::trace(const Fault &fault)
{
    int count = 0;
    while (run_on(caller, &exit_status)) {
        struct __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, caller, sizeof info, &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY || outcome->finished) continue;
        if (!is_named(fault, number_of(info))) continue;
        const int index = count++;
        if (fault.lasts ? index < fault.first : index != fault.first) continue;
        change(caller, set_number);
        if (!run_on(caller, &exit_status)) break;
        change(caller, set_answer);
    }
    return count > fault.first;
}

// False when there was no such system call.
bool Faults::run(const Fault &fault)
{
    *outcome = {};
    caller = fork();
    if (caller == 0) live();
    EXPECT_EQ(waitpid(caller, nullptr, 0), caller);
    EXPECT_EQ(ptrace(PTRACE_SETOPTIONS, caller, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL), 0);
    return trace(fault);
}

bool no_child_is_left()
{
    while (waitpid(-1, nullptr, WNOHANG) > 0)
        ;
    return errno == ECHILD;
}

void Faults::expect_nothing_left(const std::string &where) const
{
    EXPECT_TRUE(WIFEXITED(exit_status)) << where << ": the caller was killed by " << strsignal(WTERMSIG(exit_status));
    EXPECT_TRUE(outcome->finished) << where;
    EXPECT_EQ(outcome->close.status, KA_DONE) << where << ": " << outcome->close.error.message;
    EXPECT_FALSE(outcome->child_is_left) << where;
    EXPECT_TRUE(becomes_true(no_child_is_left)) << where;
    EXPECT_TRUE(segments_of_creator_vanish(caller)) << where;
}

// A refusal of /proc gives an error of another number only if nothing else shows the state of the host.
void Faults::expect_told(const std::string &where) const
{
    for (const Step *step : {&outcome->open, &outcome->call}) {
        if (step->status <= KA_DONE) continue;
        const std::string text = step->error.message;
        if (text == "cannot read the host's state from /proc: Input/output error") continue;
        EXPECT_NE(text.find(strerror(refusal)), std::string::npos) << where << ": " << text;
        EXPECT_TRUE(step->status == KA_SYSTEM || step->status == KA_START) << where << ": " << text;
        if (step->status == KA_SYSTEM) {
            EXPECT_EQ(step->error.sys_errno, refusal) << where << ": " << text;
        }
    }
}

} // namespace

// Those of a number one after the other: with others of other numbers between them, whose count depends on what else
// the system does (every segment of the machine is looked at), the same place would not be the same call again.
TEST_P(Faults, at_every_system_call_leave_nothing_and_are_told)
{
    run({{}, 0, false}); // nothing fails, all is seen
    std::set<long> done;
    std::set<long> told;
    const auto is_new = [&](long number) { return !done.contains(number); };
    int faults = 0;
    for (auto next = seen.begin(); (next = std::find_if(next, seen.end(), is_new)) != seen.end();
         next = seen.begin()) {
        for (int first = 0; run({{*next}, first, false}); first++, faults++) {
            const std::string where = "number " + std::to_string(*next) + ", call " + std::to_string(first);
            expect_nothing_left(where);
            expect_told(where);
            if (outcome->open.status != KA_DONE || outcome->call.status != KA_DONE) told.insert(*next);
        }
        done.insert(*next);
    }
    EXPECT_GT(faults, 30);
    for (const std::vector<long> &numbers : needed_by_every_start)
        EXPECT_TRUE(std::any_of(numbers.begin(), numbers.end(), [&](long number) { return told.contains(number); }))
            << numbers[0];
}

// Reading is also how a host that waits fast hears: what it has sent last is pending then, and must not end the
// caller.
TEST_P(Faults, that_last_leave_nothing_and_are_told)
{
#ifdef SYS_ppoll_time64
    const std::vector<long> waits = {SYS_ppoll, SYS_ppoll_time64};
#else
    const std::vector<long> waits = {SYS_ppoll};
#endif
    const std::vector<long> kinds[] = {waits, {SYS_read}, {SYS_waitid}, {SYS_pidfd_send_signal}, {SYS_kill}};
    for (const std::vector<long> &numbers : kinds) {
        int first = 0;
        for (; run({numbers, first, true}); first++) {
            const std::string where = "call " + std::to_string(first) + ", number " + std::to_string(numbers[0]);
            if (numbers[0] != SYS_waitid) expect_nothing_left(where);
            expect_told(where);
        }
        EXPECT_GT(first, 0) << numbers[0];
    }
}

// It ends with its caller, then.
TEST_P(Faults, of_every_signal_to_the_host_are_told_by_close)
{
    int told = 0;
    for (int first = 0; run({{SYS_pidfd_send_signal, SYS_kill}, first, true}); first++) {
        EXPECT_TRUE(WIFEXITED(exit_status)) << first;
        EXPECT_TRUE(becomes_true(no_child_is_left)) << first;
        if (outcome->close.status == KA_DONE) continue;
        told++;
        EXPECT_EQ(outcome->close.status, KA_SYSTEM);
        EXPECT_EQ(outcome->close.error.sys_errno, refusal);
        EXPECT_NE(std::string(outcome->close.error.message).find(": process "), std::string::npos)
            << outcome->close.error.message;
        EXPECT_NE(std::string(outcome->close.error.message).find(std::string(" is left: ") + strerror(refusal)),
                  std::string::npos)
            << outcome->close.error.message;
        EXPECT_TRUE(outcome->child_is_left);
    }
    EXPECT_GT(told, 1);
}

// The kernel refuses to wait for more descriptors than a process may have.
TEST_P(Faults, of_a_limit_that_forbids_to_wait_are_told)
{
    Host host([](ka_options &options) {
        options.waiting = GetParam();
        options.transport = KA_TRANSPORT_PLAIN; // the other waits for no descriptor, and this not in the first moment
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const pid_t pid = ka_pid(host);
    struct rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    const struct rlimit low = {3, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    ka_begin(host, "hang");
    EXPECT_EQ(call_fails(host), KA_SYSTEM);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(ka_last_error(host)->sys_errno, EINVAL);
    EXPECT_EQ(error_text(host), std::string("cannot wait for the host: ") + strerror(EINVAL));
    EXPECT_EQ(kill(pid, 0), -1);
}
