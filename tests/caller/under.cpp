// SPDX-License-Identifier: MIT
//
// ka_options.under: the command is the program's child, the host is whoever attaches the segment.
#include "caller/hosts.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

namespace {

std::function<void(ka_options &)> under(const char *const *words, int32_t waiting = KA_WAIT_SAFE)
{
    return [=](ka_options &options) {
        options.under = words;
        options.waiting = waiting;
        options.restart = KA_RESTART_NEXT_CALL;
        options.restart_pause_ms = 0;
    };
}

std::string parent_of(pid_t pid)
{
    const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find("\nPPid:\t") + 7;
    return status.substr(at, status.find('\n', at) - at);
}

constexpr const char *becomes[] = {"nice", nullptr};
void add_line(const std::string &path, const std::string &line)
{
    std::ofstream(path, std::ios::app) << line << std::endl;
}

// A process of its own with a host under the command, whose id it tells once it waits to be ended.
struct Program {
    explicit Program(const std::function<pid_t()> &open_one)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        pid = fork();
        if (pid == 0) {
            host = open_one();
            if (write(ends[1], &host, sizeof host) == sizeof host) pause();
            _exit(1);
        }
        EXPECT_EQ(read(ends[0], &host, sizeof host), static_cast<ssize_t>(sizeof host));
        close(ends[0]);
        close(ends[1]);
    }
    ~Program()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        if (host > 0) kill(host, SIGKILL);
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    pid_t pid;
    pid_t host = 0;
};

pid_t open_host(const std::function<void(ka_options &)> &adjust, const char *function)
{
    ka_host *host = nullptr;
    ka_options options = default_options();
    int32_t code = -1;
    adjust(options);
    if (ka_open(&host, tasks_module.c_str(), &options) != KA_DONE) return -1;
    ka_begin(host, function);
    return ka_call(host, &code) == KA_DONE && code >= 0 ? ka_pid(host) : -1;
}

constexpr const char *starts[] = {"sh", "-c", "\"$@\"; exit 7", "sh", nullptr};

} // namespace

TEST(Under, the_hosts_process_is_the_one_that_attaches)
{
    for (const int32_t waiting : {KA_WAIT_SAFE, KA_WAIT_FAST}) {
        const Host own(under(becomes, waiting));
        EXPECT_EQ(parent_of(ka_pid(own)), std::to_string(getpid()));
        EXPECT_EQ(call_with(own, "give_code", 42), 42);
        const Host other(under(starts, waiting));
        EXPECT_NE(parent_of(ka_pid(other)), std::to_string(getpid()));
        EXPECT_EQ(segment_of(ka_pid(other)) > 0, true);
        EXPECT_EQ(call_with(other, "give_code", 43), 43);
    }
}

TEST(Under, the_words_are_copied)
{
    char name[] = "nice";
    const char *words[] = {name, nullptr};
    const Host host(under(words));
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    memset(name, 'x', 4);
    words[0] = nullptr;
    ASSERT_EQ(ka_restart(host), KA_DONE);
    EXPECT_EQ(call_with(host, "give_code", 2), 2);
}

TEST(Under, a_host_that_dies_is_started_again_under_it)
{
    for (const char *const *words : {becomes, starts}) {
        const Host host(under(words));
        const pid_t first = ka_pid(host);
        ka_begin(host, "die_by");
        ka_add_integer(host, SIGSEGV, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        EXPECT_EQ(ka_last_error(host)->signal, SIGSEGV) << error_text(host);
        EXPECT_EQ(call_with(host, "give_code", 5), 5);
        EXPECT_NE(ka_pid(host), first);
    }
}

TEST(Under, a_host_killed_from_outside_is_found_dead)
{
    const Host host(under(starts));
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
    const pid_t pid = ka_pid(host);
    kill(pid, SIGKILL);
    ASSERT_TRUE(ends(pid));
    EXPECT_EQ(call_with(host, "give_code", 6), 6) << error_text(host);
    EXPECT_NE(ka_pid(host), pid);
}

TEST(Under, closing_leaves_no_child)
{
    pid_t pid = 0;
    int segment = 0;
    {
        const Host host(under(starts));
        pid = ka_pid(host);
        segment = segment_of(pid);
    }
    EXPECT_TRUE(ends(pid));
    EXPECT_TRUE(segment_vanishes(segment));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST(Under, a_host_that_has_left_the_group_ends_with_the_program)
{
    Program program([] { return open_host(under(starts), "leave_group"); });
    ASSERT_GT(program.host, 0);
    ASSERT_EQ(getpgid(program.host), program.host);
    kill(program.pid, SIGKILL);
    EXPECT_TRUE(ends(program.host));
}

TEST(Under, a_host_that_waits_fast_ends_with_its_thread)
{
    for (const char *const *words : {becomes, starts}) {
        Program program([words] {
            pid_t pid = -1;
            std::thread([&] { pid = open_host(under(words, KA_WAIT_FAST), "count_call"); }).join();
            return pid;
        });
        ASSERT_GT(program.host, 0);
        EXPECT_TRUE(ends(program.host));
        EXPECT_EQ(waitpid(program.pid, nullptr, WNOHANG), 0) << "the program has ended";
    }
}

TEST(Under, a_host_that_waits_safely_outlives_its_thread)
{
    for (const char *const *words : {becomes, starts}) {
        ka_host *host = nullptr;
        std::thread([&] {
            ka_options options = default_options();
            under(words)(options);
            EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE) << error_text(host);
        }).join();
        EXPECT_EQ(call_with(host, "give_code", 5), 5);
        ka_close(host);
    }
}

// Where the command is taken by the kernel, it is the guard that keeps the group's number.
TEST(Under, what_the_command_has_left_ends_where_children_are_not_waited_for)
{
    const File left("", 0600);
    const std::string script = "sleep 1000 & echo $! >" + left.path + "; \"$@\"; exit 7";
    const char *const words[] = {"sh", "-c", script.c_str(), "sh", nullptr};
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGCHLD, SIG_IGN);
        ka_host *host = nullptr;
        ka_options options = default_options();
        under(words)(options);
        const bool opened = ka_open(&host, tasks_module.c_str(), &options) == KA_DONE;
        _exit(opened && ka_close(host) == KA_DONE ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const pid_t sleeper = std::stoi("0" + read_file(left.path));
    ASSERT_GT(sleeper, 0);
    EXPECT_TRUE(ends(sleeper));
    kill(sleeper, SIGKILL);
}

// The process that becomes the host has left the group, and its parent ends before it attaches the segment.
TEST(Under, a_host_that_comes_too_late_does_not_stay)
{
    const File late("", 0600); // empty: the command does as it should
    const File go("", 0600);
    const std::string waits = "echo $$ >>" + late.path + "; until test -s " + go.path + "; do test -e " + late.path +
                              " || exit; sleep 0.01; done; exec \"$@\" 2>/dev/null";
    const std::string script = "test -s " + late.path + " || exec \"$@\"; setsid sh -c '" + waits +
                               "' sh \"$@\" & until test $(wc -l <" + late.path +
                               ") = 2; do sleep 0.01; done; exit 3";
    const char *const words[] = {"sh", "-c", script.c_str(), "sh", nullptr};
    const Host host([&](ka_options &options) {
        under(words)(options);
        options.scratch_bytes = 16;
        options.deadline_ms = 60000;
    });
    void *scratch = ka_scratch(host, nullptr);
    memcpy(scratch, "kept", 5);
    add_line(late.path, "late");
    ASSERT_EQ(ka_restart(host), KA_START);
    EXPECT_EQ(ka_last_error(host)->exit_status, 3) << error_text(host);
    const std::string lines = read_file(late.path);
    const pid_t pid = std::stoi(lines.substr(lines.find('\n')));
    add_line(go.path, "go");
    EXPECT_TRUE(ends(pid));
    kill(pid, SIGKILL);
    std::ofstream(late.path, std::ios::trunc);
    ASSERT_EQ(ka_restart(host), KA_DONE) << error_text(host);
    EXPECT_EQ(call_with(host, "give_code", 9), 9);
    EXPECT_EQ(ka_scratch(host, nullptr), scratch);
    EXPECT_STREQ(static_cast<char *>(scratch), "kept");
}

TEST(Under, no_command_is_the_default)
{
    EXPECT_EQ(default_options().under, nullptr);
}

TEST(Under, no_words_are_refused)
{
    constexpr const char *none[] = {nullptr};
    ka_options options = default_options();
    options.under = none;
    ka_host *host;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "under has no words; the first is the name of a command");
    ka_close(host);
}

TEST(Under, a_module_without_a_slash_is_not_looked_for_in_path)
{
    constexpr const char *shows[] = {"sh", "-c", "echo \"$1\" >&2; exit 1", "sh", nullptr};
    ka_options options = default_options();
    options.under = shows;
    options.error_output = KA_STDERR_RING;
    const std::string folder = tasks_module.substr(0, tasks_module.rfind('/'));
    char before[4096];
    ASSERT_NE(getcwd(before, sizeof before), nullptr);
    ASSERT_EQ(chdir(folder.c_str()), 0);
    ka_host *host;
    EXPECT_EQ(ka_open(&host, "caller_module_tasks", &options), KA_START);
    EXPECT_EQ(chdir(before), 0);
    char text[100] = "";
    ka_error_output(host, text, sizeof text);
    EXPECT_STREQ(text, "./caller_module_tasks\n");
    EXPECT_EQ(ka_last_error(host)->exit_status, 1);
    ka_close(host);
}

TEST(Under, the_command_finds_the_surroundings_of_the_host)
{
    const File shown("", 0600);
    const std::string script = "echo $KA_TEST_MARK $PWD >" + shown.path + "; exec \"$@\"";
    const char *const words[] = {"sh", "-c", script.c_str(), "sh", nullptr};
    const char *const environment[] = {"KA_TEST_MARK=here", nullptr}; // no PATH: then the system's own
    const Host host([&](ka_options &options) {
        under(words)(options);
        options.environment = environment;
        options.directory = "/usr";
    });
    EXPECT_EQ(read_file(shown.path), "here /usr\n");
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
}

TEST(Under, a_relative_command_begins_where_the_program_was)
{
    const File command("#!/bin/sh\nexec \"$@\"\n", 0700);
    char before[4096];
    ASSERT_NE(getcwd(before, sizeof before), nullptr);
    ASSERT_EQ(chdir("/tmp"), 0);
    const std::string path = "." + command.path.substr(command.path.rfind('/'));
    const char *const words[] = {path.c_str(), nullptr};
    {
        const Host host([&](ka_options &options) {
            under(words)(options);
            options.directory = "/usr";
        });
        EXPECT_EQ(call_with(host, "give_code", 5), 5);
    }
    ASSERT_EQ(chdir(before), 0);
}

TEST(Under, path_is_that_of_the_environment)
{
    constexpr const char *nowhere[] = {"PATH=/nowhere", nullptr};
    ka_options options = default_options();
    under(becomes)(options);
    options.environment = nowhere;
    ka_host *host;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_START);
    EXPECT_EQ(error_text(host),
              "cannot start " + tasks_module + ": the command \"nice\" cannot be run: No such file or directory");
    ka_close(host);
}
