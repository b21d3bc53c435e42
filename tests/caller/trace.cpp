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
    CALLER_MODULES "/caller_module_tasks",       CALLER_MODULES "/caller_module_fixed",
    CALLER_MODULES "/caller_module_fixed_sysv",  CALLER_MODULES "/caller_module_level",
    CALLER_MODULES "/caller_module_level_fixed", CALLER_MODULES "/caller_module_apart",
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

// At a fixed address the variable lies in the program, not where the library defines it.
TEST(TraceOfProcess, reaches_the_variable_that_the_module_sees)
{
    for (const char *name : {"level", "level_fixed"}) {
        Host host({}, CALLER_MODULES "/caller_module_" + std::string(name));
        ASSERT_TRUE(becomes_idle(ka_pid(host)));
        EXPECT_EQ(set_level(ka_pid(host), -44).error_class, KA_DONE);
        ka_begin(host, "level");
        EXPECT_EQ(call(host), -44);
    }
}

TEST(TraceOfProcess, module_whose_file_is_gone_is_traced_like_any)
{
    const File copy(read_file(tasks_module), 0755); // which looks for its library in its own folder
    const std::string library = CALLER_HOST_LIBRARY;
    setenv("LD_LIBRARY_PATH", library.substr(0, library.rfind('/')).c_str(), 1);
    Host host({}, copy.path);
    const bool idle = becomes_idle(ka_pid(host));
    unsetenv("LD_LIBRARY_PATH");
    ASSERT_TRUE(idle);
    unlink(copy.path.c_str());
    EXPECT_EQ(set_level(ka_pid(host), 1).error_class, KA_DONE);
    EXPECT_EQ(set_level(ka_pid(host), nullptr).old, 1);
}

// ---- What is no host -------------------------------------------------------------------------------------------

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
    EXPECT_EQ(result.why, number + (sizeof(void *) == 8 ? " is a 64-bit program, and hosts are 32-bit programs"
                                                        : " is no host: it has no dll_debug"));
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
