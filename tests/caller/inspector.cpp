// SPDX-License-Identifier: MIT
//
// Inspectors: called when a host dies by a signal or hangs, and without effect otherwise.
#include "caller/hosts.h"

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

struct Inspections {
    int count = 0;
    int32_t pid = 0;
    int32_t signal = 0;
    bool could_look = false;
};

// Looks at what only a tracer may see.
static void inspect(int32_t pid, int32_t signal, char *text, int32_t size, void *user)
{
    auto *seen = static_cast<Inspections *>(user);
    siginfo_t info = {};
    seen->could_look = ptrace(PTRACE_GETSIGINFO, pid, nullptr, &info) == 0;
    seen->count++;
    seen->pid = pid;
    seen->signal = signal;
    snprintf(text, static_cast<size_t>(size), "looked at\n");
}

class Inspector : public BothLayouts {
protected:
    std::function<void(ka_options &)> with_inspector(int32_t deadline_ms = 30000)
    {
        return [this, deadline_ms](ka_options &options) {
            options.layout = GetParam();
            options.inspector = inspect;
            options.user = &seen;
            options.deadline_ms = deadline_ms;
        };
    }
    Inspections seen;
};
IN_BOTH_LAYOUTS(Inspector);

TEST_P(Inspector, sees_a_host_that_dies_by_a_signal)
{
    for (int signal : {SIGSEGV, SIGABRT, SIGFPE, SIGQUIT, SIGRTMIN}) {
        seen = {};
        Host host(with_inspector());
        const pid_t pid = ka_pid(host);
        ka_begin(host, "die_by");
        ka_add_integer(host, signal, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_EQ(ka_last_error(host)->signal, signal);
        EXPECT_EQ(seen.count, 1);
        EXPECT_EQ(seen.pid, pid);
        EXPECT_EQ(seen.signal, signal);
        EXPECT_TRUE(seen.could_look);
        EXPECT_EQ(kill(pid, 0), -1) << "a zombie is left";
    }
}

TEST_P(Inspector, sees_a_fault)
{
    Host host(with_inspector());
    ka_begin(host, "fault");
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_last_error(host)->signal, SIGSEGV);
    EXPECT_EQ(seen.count, 1);
}

TEST_P(Inspector, sees_a_host_that_dies_before_its_first_call)
{
    setenv("KA_TEST_SETUP", "kill11", 1);
    Host host(with_inspector());
    unsetenv("KA_TEST_SETUP");
    ka_begin(host, "count_call");
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_last_error(host)->signal, SIGSEGV);
    EXPECT_EQ(seen.count, 1);
}

TEST_P(Inspector, sees_a_host_that_hangs_and_hears_nothing_too)
{
    for (const char *function : {"hang", "hang_deaf"}) {
        seen = {};
        Host host([this](ka_options &options) {
            with_inspector(1000)(options);
            options.grace_ms = 100;
        });
        const pid_t pid = ka_pid(host);
        ka_begin(host, function);
        EXPECT_EQ(call_fails(host), KA_DEADLINE);
        EXPECT_EQ(seen.count, 1);
        EXPECT_EQ(seen.signal, SIGTERM);
        EXPECT_TRUE(seen.could_look);
        EXPECT_EQ(kill(pid, 0), -1);
    }
}

TEST_P(Inspector, is_not_called_for_ends_without_a_signal_to_see)
{
    for (const char *function : {"leave", "die_by"}) {
        Host host(with_inspector());
        ka_begin(host, function);
        ka_add_integer(host, SIGKILL, KA_BY_VALUE); // or exit status 9
        EXPECT_EQ(call_fails(host), KA_DIED);
    }
    {
        Host host(with_inspector());
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        kill(ka_pid(host), SIGTERM);
        ASSERT_TRUE(ends(ka_pid(host)));
    }
    EXPECT_EQ(seen.count, 0);
}

TEST_P(Inspector, leaves_calls_and_callbacks_as_they_are)
{
    Host host([this](ka_options &options) {
        with_inspector()(options);
        options.callback = [](ka_host *, int32_t value, void *) { return value * 2; };
    });
    for (int32_t i = 0; i < 200; i++) {
        ka_begin(host, "ask_many");
        ka_add_integer(host, 10, KA_BY_VALUE);
        ka_add_integer(host, 0, KA_BY_REFERENCE);
        ASSERT_EQ(call(host), 0);
        ASSERT_EQ(integers(host, 2, 1)[0], 90);
    }
    EXPECT_EQ(seen.count, 0);
}

TEST_P(Inspector, lets_signals_pass_that_do_not_kill)
{
    Host host(with_inspector());
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const pid_t pid = ka_pid(host);
    for (int signal : {SIGWINCH, SIGCHLD, SIGURG, SIGCONT})
        kill(pid, signal);
    EXPECT_EQ(call_with(host, "give_code", 2), 2);
    kill(pid, SIGSTOP);
    EXPECT_TRUE(becomes_true([pid] {
        return read_file("/proc/" + std::to_string(pid) + "/status").find("\nState:\tt") != std::string::npos;
    }));
    std::thread waker([pid] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        kill(pid, SIGCONT);
    });
    EXPECT_EQ(call_with(host, "give_code", 3), 3);
    waker.join();
    EXPECT_EQ(seen.count, 0);
}

TEST_P(Inspector, ends_a_suspended_host_at_its_deadline)
{
    Host host([this](ka_options &options) {
        with_inspector(1000)(options);
        options.grace_ms = 100;
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    const pid_t pid = ka_pid(host);
    kill(pid, SIGSTOP);
    ka_begin(host, "count_call");
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_EQ(kill(pid, 0), -1);
}

TEST_P(Inspector, watches_the_next_process_as_well)
{
    Host host([this](ka_options &options) {
        with_inspector()(options);
        options.restart = KA_RESTART_NEXT_CALL;
    });
    for (int i = 1; i <= 5; i++) {
        ka_begin(host, "fault");
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_EQ(seen.count, i);
    }
}

// ---- The caller is killed, or may not trace --------------------------------------------------------------------

// The exit status of a process that runs this.
static int in_a_process(const std::function<int()> &run)
{
    const pid_t pid = fork();
    if (pid == 0) _exit(run());
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return status;
}

TEST_P(Inspector, holds_no_host_back_when_the_caller_is_killed)
{
    for (const char *function : {"", "hang", "nap"}) {
        int report[2];
        ASSERT_EQ(pipe(report), 0);
        const int status = in_a_process([&] {
            ka_options options = default_options();
            with_inspector()(options);
            ka_host *host;
            if (ka_open(&host, tasks_module.c_str(), &options) != KA_DONE) return 1;
            const int32_t pid = ka_pid(host);
            if (write(report[1], &pid, sizeof pid) != sizeof pid) return 1;
            std::thread killer([] {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                kill(getpid(), SIGKILL);
            });
            int32_t code;
            ka_begin(host, function);
            if (strcmp(function, "nap") == 0) ka_add_integer(host, 60000, KA_BY_VALUE);
            for (;;)
                ka_call(host, &code);
        });
        EXPECT_TRUE(WIFSIGNALED(status));
        int32_t pid = 0;
        EXPECT_EQ(read(report[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
        EXPECT_TRUE(ends(pid));
        close(report[0]);
        close(report[1]);
    }
}

static bool forbid_tracing()
{
    struct sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ptrace, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const struct sock_fprog program = {sizeof code / sizeof code[0], code};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_P(Inspector, is_not_called_where_the_system_forbids_tracing)
{
    const int status = in_a_process([this] {
        if (!forbid_tracing()) return 1;
        Host host(with_inspector());
        if (call_with(host, "give_code", 5) != 5) return 2;
        ka_begin(host, "fault");
        if (call_fails(host) != KA_DIED) return 3;
        if (ka_last_error(host)->signal != SIGSEGV) return 4;
        return seen.count == 0 ? 0 : 5;
    });
    EXPECT_EQ(status, 0) << WEXITSTATUS(status);
}

TEST_P(Inspector, looks_though_the_program_has_closed_what_it_does_not_know)
{
    const int status = in_a_process([this] {
        Host host(with_inspector());
        if (call_with(host, "give_code", 5) != 5) return 1;
        closefrom(STDERR_FILENO + 1);
        ka_begin(host, "fault");
        if (call_fails(host) != KA_DIED) return 2;
        if (ka_last_error(host)->signal != SIGSEGV) return 3;
        return seen.count == 1 && seen.could_look ? 0 : 4;
    });
    EXPECT_EQ(status, 0) << WEXITSTATUS(status);
}
