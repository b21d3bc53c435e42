// SPDX-License-Identifier: MIT
//
// The trace level of a running host, read and set from outside.
#include "caller/hosts.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

static const std::string modules[] = {
    module_path("tasks"), module_path("fixed"),       module_path("fixed_sysv"),
    module_path("level"), module_path("level_fixed"), module_path("apart"),
};

struct Level {
    int32_t error_class;
    int32_t old;
    std::string why;
};

static Level set_level(pid_t pid, const int32_t *level)
{
    char why[200] = "";
    Level result = {0, INT32_MIN, ""};
    result.error_class = ka_trace_process(pid, level, &result.old, why, sizeof why);
    result.why = why;
    return result;
}

static Level set_level(pid_t pid, int32_t level)
{
    return set_level(pid, &level);
}

TEST(TraceOfProcess, is_read_and_set_whatever_the_module_is_like)
{
    for (const std::string &module : modules) {
        SCOPED_TRACE(module);
        Host host({}, module);
        ASSERT_TRUE(becomes_idle(ka_pid(host)));
        for (int32_t level : {3, -1, 0}) {
            EXPECT_EQ(set_level(ka_pid(host), level).error_class, KA_DONE);
            EXPECT_EQ(set_level(ka_pid(host), nullptr).old, level);
        }
        EXPECT_EQ(set_level(ka_pid(host), 5).old, 0);
    }
}

// At a fixed address the variable is in the program, not where the library defines it.
TEST(TraceOfProcess, reaches_the_variable_that_the_module_sees)
{
    for (const char *name : {"level", "level_fixed"}) {
        Host host({}, module_path(name));
        ASSERT_TRUE(becomes_idle(ka_pid(host)));
        EXPECT_EQ(set_level(ka_pid(host), -44).error_class, KA_DONE);
        ka_begin(host, "level");
        EXPECT_EQ(call(host), -44);
    }
}

TEST(TraceOfProcess, module_whose_file_is_gone_is_traced_like_any)
{
    const File copy(read_file(tasks_module), 0755); // which looks for its library in its own folder
    setenv("LD_LIBRARY_PATH", library_folder(CALLER_BUILD).c_str(), 1);
    Host host({}, copy.path);
    const bool idle = becomes_idle(ka_pid(host));
    unsetenv("LD_LIBRARY_PATH");
    ASSERT_TRUE(idle);
    unlink(copy.path.c_str());
    EXPECT_EQ(set_level(ka_pid(host), 1).error_class, KA_DONE);
    EXPECT_EQ(set_level(ka_pid(host), nullptr).old, 1);
}

// ---- Processes that are not hosts ------------------------------------------------------------------------------

struct Child {
    explicit Child(const std::function<void()> &work) : pid(fork())
    {
        if (pid == 0) {
            work();
            _exit(0);
        }
    }
    ~Child()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    pid_t pid;
};

static Level refused(pid_t pid)
{
    const Level result = set_level(pid, 1);
    EXPECT_NE(result.error_class, KA_DONE);
    return result;
}

TEST(TraceOfProcess, process_that_is_not_there_is_named)
{
    const Child child([] {});
    ASSERT_TRUE(ends(child.pid));
    const std::string number = std::to_string(child.pid);
    EXPECT_EQ(refused(child.pid).why,
              "process " + number + " has no program: it has ended, or belongs to the kernel");
    EXPECT_EQ(refused(0).why, "there is no process 0");
    EXPECT_EQ(refused(-7).why, "there is no process -7");
    EXPECT_EQ(refused(INT32_MAX).why, "there is no process 2147483647");
    EXPECT_EQ(refused(INT32_MAX).error_class, KA_ARGUMENT);
}

TEST(TraceOfProcess, program_that_is_no_host_is_told_so)
{
    const std::string number = "process " + std::to_string(getpid());
    const Level result = refused(getpid());
    EXPECT_EQ(result.error_class, KA_ARGUMENT);
    EXPECT_EQ(result.why, number + " is not a host: it has no dll_debug");
}

TEST(TraceOfProcess, process_of_another_user_is_left_alone)
{
    Host host;
    ASSERT_TRUE(becomes_idle(ka_pid(host)));
    const bool is_root = geteuid() == 0;
    const pid_t pid = is_root ? ka_pid(host) : 1; // whose program is root's
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    const Child stranger([&] {
        if (is_root && (setgid(65534) != 0 || setuid(65534) != 0)) return;
        const std::string why = std::to_string(set_level(pid, 1).error_class) + " " + set_level(pid, 1).why;
        if (write(report[1], why.data(), why.size()) < 0) _exit(1);
    });
    char text[300] = "";
    EXPECT_GT(read(report[0], text, sizeof text - 1), 0);
    EXPECT_EQ(text, std::to_string(KA_SYSTEM) + " no permission to look into process " + std::to_string(pid) +
                        ": be its user or root, and see /proc/sys/kernel/yama/ptrace_scope");
    close(report[0]);
    close(report[1]);
}

// ---- The library's own hosts -----------------------------------------------------------------------------------

// Sends standard error of this process, and of hosts that it starts, to a file.
struct CaughtErrors {
    CaughtErrors() : file("", 0600), before(dup(2))
    {
        const int fd = open(file.path.c_str(), O_WRONLY | O_APPEND);
        dup2(fd, 2);
        close(fd);
    }
    ~CaughtErrors()
    {
        dup2(before, 2);
        close(before);
    }
    CaughtErrors(const CaughtErrors &) = delete;
    CaughtErrors &operator=(const CaughtErrors &) = delete;
    std::string text() const { return read_file(file.path); }
    bool becomes(const std::string &wanted) const
    {
        return becomes_true([&] { return text() == wanted; });
    }
    File file;
    int before;
};

static const std::string traced_call = "\ncalling give_code, argc = 1\nreturn code is 5\n";

TEST(TraceLevel, of_the_options_is_set_before_the_first_call)
{
    const CaughtErrors errors;
    for (int32_t checking : {KA_CHECKED, KA_RAW}) {
        Host host([checking](ka_options &options) {
            options.trace_level = 1;
            options.checking = checking;
        });
        EXPECT_EQ(call_with(host, "give_code", 5), 5);
    }
    EXPECT_EQ(errors.text(), traced_call + traced_call);
}

TEST(TraceLevel, is_set_between_calls_and_before_the_first)
{
    const CaughtErrors errors;
    Host host;
    EXPECT_EQ(ka_set_trace(host, 1), KA_DONE) << error_text(host);
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
    EXPECT_EQ(ka_set_trace(host, 0), KA_DONE);
    EXPECT_EQ(call_with(host, "give_code", 6), 6);
    EXPECT_EQ(ka_set_trace(host, 1), KA_DONE);
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
    EXPECT_EQ(set_level(ka_pid(host), nullptr).old, 1);
    EXPECT_EQ(errors.text(), traced_call + traced_call);
}

TEST(TraceLevel, that_does_not_exist_is_refused_and_nothing_is_changed)
{
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 6), 6);
    for (int32_t level : {-1, 5, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(ka_set_trace(host, level), KA_ARGUMENT);
        EXPECT_EQ(error_text(host), "trace_level is " + std::to_string(level) + "; it must be 0 to 4");
    }
    EXPECT_EQ(set_level(ka_pid(host), nullptr).old, 0);
    EXPECT_EQ(call_with(host, "give_code", 6), 6);
}

TEST(TraceLevel, set_in_a_callback_counts_for_the_rest_of_the_call)
{
    const CaughtErrors errors;
    Host host([](ka_options &options) {
        options.callback = [](ka_host *own, int32_t, void *) { return 100 + ka_set_trace(own, 1); };
    });
    EXPECT_EQ(call_with(host, "ask", 1), 100);
    EXPECT_EQ(errors.text(), "return code is 100\n");
}

TEST(TraceLevel, set_from_outside_counts_for_the_rest_of_the_call)
{
    const CaughtErrors errors;
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    std::thread outside([pid = ka_pid(host)] {
        const bool napping = becomes_true([pid] { // SIGUSR2 is blocked while a function runs
            const bool asleep =
                read_file("/proc/" + std::to_string(pid) + "/status").find("\nState:\tS") != std::string::npos;
            return asleep && (signal_mask(pid, "SigBlk") & signal_bit(SIGUSR2)) != 0;
        });
        EXPECT_TRUE(napping);
        EXPECT_EQ(set_level(pid, 1).error_class, KA_DONE);
    });
    EXPECT_EQ(call_with(host, "nap", 3000), 0);
    outside.join();
    EXPECT_EQ(errors.text(), "return code is 0\n");
}

TEST(TraceLevel, is_remembered_for_a_new_start)
{
    const CaughtErrors errors;
    Host host([](ka_options &options) { options.restart = KA_RESTART_NEXT_CALL; });
    EXPECT_EQ(ka_set_trace(host, 1), KA_DONE);
    kill(ka_pid(host), SIGKILL);
    ASSERT_TRUE(ends(ka_pid(host)));
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
    EXPECT_EQ(errors.text(), traced_call);
}

TEST(TraceLevel, of_a_host_that_has_ended_is_not_set)
{
    for (bool called : {false, true}) {
        Host host;
        if (called) call_with(host, "give_code", 1);
        kill(ka_pid(host), SIGKILL);
        ASSERT_TRUE(ends(ka_pid(host)));
        EXPECT_EQ(ka_set_trace(host, 1), KA_DIED);
        EXPECT_EQ(ka_set_trace(host, 1), KA_CLOSED);
    }
}
