// SPDX-License-Identifier: MIT
//
// The host's process group: what a module forks ends with its host. And the terminal, of which a host is never in the
// foreground.
#include "caller/hosts.h"

#include <cerrno>
#include <csignal>
#include <optional>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "caller/waiting.h"

// A host whose module has forked a sleeper.
struct Family {
    explicit Family(const std::function<void(ka_options &)> &adjust, int32_t in_session_of_its_own = 0)
        : host(adjust), pid(ka_pid(*host)), segment(segment_of(pid)),
          sleeper(call_with(*host, "fork_sleeper", in_session_of_its_own))
    {
        EXPECT_EQ(kill(sleeper, 0), 0);
    }
    void close() { host.reset(); }
    void expect_none() const
    {
        EXPECT_EQ(kill(pid, 0), -1) << "process " << pid << " is left";
        EXPECT_TRUE(ends(sleeper)) << "the sleeper " << sleeper << " is left";
        EXPECT_TRUE(becomes_true([this] { return users_of(segment) <= 1; })) << "segment " << segment << " is used";
    }
    std::optional<Host> host;
    pid_t pid;
    int segment;
    pid_t sleeper;
};

class ProcessGroup : public EveryWay {};
IN_EVERY_WAY(ProcessGroup);

TEST_P(ProcessGroup, of_a_closed_host_ends_with_it)
{
    Family family(layout());
    family.close();
    family.expect_none();
    EXPECT_TRUE(segment_vanishes(family.segment));
}

TEST_P(ProcessGroup, of_a_host_that_dies_ends_with_it)
{
    Family family(layout());
    ka_begin(*family.host, "die_by");
    ka_add_integer(*family.host, SIGKILL, KA_BY_VALUE);
    EXPECT_EQ(call_fails(*family.host), KA_DIED);
    EXPECT_EQ(ka_last_error(*family.host)->signal, SIGKILL);
    family.expect_none();
    family.close();
    EXPECT_TRUE(segment_vanishes(family.segment));
}

TEST_P(ProcessGroup, of_a_host_that_died_between_calls_ends_with_the_next)
{
    Family family(layout());
    kill(family.pid, SIGKILL);
    EXPECT_TRUE(ends(family.pid));
    ka_begin(*family.host, "count_call");
    EXPECT_EQ(call_fails(*family.host), KA_DIED);
    family.expect_none();
}

TEST_P(ProcessGroup, of_a_late_host_ends_with_it)
{
    for (const char *function : {"hang", "hang_deaf"}) {
        Family family([this](ka_options &options) {
            layout()(options);
            options.deadline_ms = 1000;
            options.grace_ms = 100;
        });
        ka_begin(*family.host, function);
        EXPECT_EQ(call_fails(*family.host), KA_DEADLINE);
        family.expect_none();
    }
}

TEST_P(ProcessGroup, is_the_hosts_own_from_the_start)
{
    Host host(layout());
    EXPECT_EQ(getpgid(ka_pid(host)), ka_pid(host));
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    EXPECT_EQ(getpgid(ka_pid(host)), ka_pid(host));
}

// Its number may belong to others by then.
TEST(ProcessGroupRules, is_not_signalled_when_the_program_has_taken_the_host)
{
    struct sigaction ignore = {};
    struct sigaction before;
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &before);
    Family family({});
    family.close();
    EXPECT_EQ(kill(family.pid, 0), -1);
    EXPECT_EQ(getpgid(family.sleeper), family.pid);
    EXPECT_EQ(kill(family.sleeper, SIGKILL), 0);
    EXPECT_TRUE(segment_vanishes(family.segment));
    sigaction(SIGCHLD, &before, nullptr);
}

TEST(ProcessGroupRules, is_escaped_by_a_session_of_its_own)
{
    Family family({}, 1);
    ASSERT_TRUE(becomes_true([&] { return getpgid(family.sleeper) == family.sleeper; }));
    family.close();
    EXPECT_EQ(kill(family.sleeper, 0), 0);
    EXPECT_EQ(users_of(family.segment), 1);
    kill(family.sleeper, SIGKILL);
    EXPECT_TRUE(segment_vanishes(family.segment));
}

// ---- The terminal ----------------------------------------------------------------------------------------------

// Exit status 0 when the call of the function returns that code.
static void call_beside_terminal(const char *function, int32_t argument, int32_t expected)
{
    struct termios settings;
    tcgetattr(STDIN_FILENO, &settings);
    settings.c_lflag |= TOSTOP;
    tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    ka_options options = default_options();
    options.deadline_ms = 10000;
    ka_host *host;
    int32_t code = -1;
    ka_open(&host, tasks_module.c_str(), &options);
    ka_begin(host, function);
    if (argument != 0) ka_add_integer(host, argument, KA_BY_VALUE);
    const int32_t status = ka_call(host, &code);
    ka_close(host);
    _exit(status == KA_DONE && code == expected ? 0 : 1);
}

// In a session of its own, in the foreground of a terminal that stops who writes in the background.
static int status_beside_terminal(const char *function, int32_t argument, int32_t expected)
{
    int terminal = -1;
    const pid_t program = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (program == 0) call_beside_terminal(function, argument, expected);
    int status = -1;
    EXPECT_EQ(waitpid(program, &status, 0), program);
    close(terminal);
    return status;
}

TEST(TerminalOfTheProgram, does_not_stop_a_host_that_writes)
{
    EXPECT_EQ(status_beside_terminal("write_errors", 800, 0), 0);
}

TEST(TerminalOfTheProgram, cannot_be_read_by_a_host)
{
    EXPECT_EQ(status_beside_terminal("read_terminal", 0, EIO), 0);
}
