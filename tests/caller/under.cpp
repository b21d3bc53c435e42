// SPDX-License-Identifier: MIT
//
// ka_options.under: the command is the program's child, the host is whoever attaches the segment.
#include "caller/hosts.h"

#include <csignal>
#include <cstring>
#include <sys/wait.h>
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
