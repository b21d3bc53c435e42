// SPDX-License-Identifier: MIT
//
// The memory behind the block in which library and host tell each other what signals cannot: it makes calls cheap,
// and nothing in it can do harm.
#include "caller/hosts.h"

#include <algorithm>
#include <csignal>
#include <numeric>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "block/annex.h"
#include "caller/waiting.h"
#include "host/host.h"

namespace {

const std::string annex_module = module_path("annex");

class Annex : public EveryWay {
protected:
    std::function<void(ka_options &)> with(int32_t transport) const
    {
        return [this, transport](ka_options &options) {
            layout()(options);
            options.transport = transport;
            options.checking = KA_RAW;
        };
    }
};
IN_EVERY_WAY(Annex);

int32_t annex_offset(ka_host *host)
{
    return static_cast<int32_t>(static_cast<char *>(static_cast<void *>(host->segment.annex)) - host->segment.base);
}

int32_t blot(ka_host *host, int32_t pattern)
{
    ka_begin(host, "blot");
    for (int32_t number : {annex_offset(host), static_cast<int32_t>(sizeof(t_ANNEX)), pattern})
        ka_add_integer(host, number, KA_BY_VALUE);
    return call(host);
}

int32_t ask(ka_host *host, int32_t value)
{
    return call_with(host, "ask", value);
}

// A process that calls, traced; it stops itself before and after each of the calls that are counted.
constexpr int counted_calls = 50;
constexpr int32_t counted_argument = 1;

pid_t start_counted_caller(const std::function<void(ka_options &)> &adjust, const char *function)
{
    const pid_t caller = fork();
    if (caller != 0) return caller;
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    {
        Host host(adjust);
        for (int i = 0; i < 3; i++)
            call_with(host, function, counted_argument);
        raise(SIGSTOP);
        raise(SIGSTOP);
        for (int i = 0; i < counted_calls; i++) {
            call_with(host, function, counted_argument);
            raise(SIGSTOP);
        }
    }
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

// The caller has just sent its request, and does not go on before the reply is there.
bool hold_after_request(pid_t caller)
{
    struct __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, caller, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY || info.entry.nr != SYS_kill) return false;
    int status = 0;
    const pid_t host = static_cast<pid_t>(info.entry.args[0]);
    ptrace(PTRACE_SYSCALL, caller, nullptr, 0);
    EXPECT_EQ(waitpid(caller, &status, 0), caller);
    const auto pending = [&](const char *field) { return (signal_mask(caller, field) & signal_bit(SIGUSR2)) != 0; };
    EXPECT_TRUE(becomes_true([&] { return pending("ShdPnd") || pending("SigPnd"); }));
    EXPECT_TRUE(becomes_idle(host));
    return true;
}

// Lets it run to where it stops itself; how many system calls it has made until then, or -1 when it has ended.
int run_to_stop(pid_t caller, int *status, bool reply_first = false)
{
    int passages = 0; // into the kernel, or out of it
    for (int signal = 0;;) {
        ptrace(PTRACE_SYSCALL, caller, nullptr, signal);
        if (waitpid(caller, status, 0) != caller || !WIFSTOPPED(*status)) return -1;
        signal = WSTOPSIG(*status);
        if (signal == SIGSTOP) return passages / 2;
        const bool at_system_call = signal == (SIGTRAP | 0x80);
        passages += at_system_call ? 1 : 0;
        if (at_system_call && reply_first && hold_after_request(caller)) passages++;
        if (at_system_call || signal == SIGTRAP) signal = 0;
    }
}

// Of each call, the fewest first.
std::vector<int> system_calls(const std::function<void(ka_options &)> &adjust, const char *function,
                              bool reply_first = false)
{
    int status = 1;
    std::vector<int> seen;
    const pid_t caller = start_counted_caller(adjust, function);
    EXPECT_EQ(waitpid(caller, &status, 0), caller);
    ptrace(PTRACE_SETOPTIONS, caller, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    run_to_stop(caller, &status);
    const int of_the_stop = run_to_stop(caller, &status);
    for (int i = 0; i < counted_calls; i++)
        seen.push_back(run_to_stop(caller, &status, reply_first) - of_the_stop);
    EXPECT_EQ(run_to_stop(caller, &status), -1);
    EXPECT_EQ(status, 0);
    std::sort(seen.begin(), seen.end());
    return seen;
}

} // namespace

TEST_P(Annex, is_used_from_the_second_call_on)
{
    Host host(with(KA_TRANSPORT_SIGNALS), annex_module);
    EXPECT_EQ(ask(host, 7), 0);
    EXPECT_TRUE(host_uses_annex(host));
    EXPECT_EQ(ask(host, 7), 0);
    EXPECT_EQ(numbered_reply(host), REPLY_RETURNS);
}

// At most: none to wait for a reply that is there already.
TEST_P(Annex, a_call_costs_the_caller_two_system_calls)
{
    const std::vector<int> seen = system_calls(with(KA_TRANSPORT_SIGNALS), "give_code");
    EXPECT_GE(seen.front(), 1);
    EXPECT_LE(std::accumulate(seen.begin(), seen.end(), 0), 2 * counted_calls);
}

// In the safe way one of them looks whether the program has put another handler in the place of ours, which the reply
// would meet. More where the host is still on its way back to its wait, or a signal of the system comes in between.
TEST_P(Annex, a_call_without_it_costs_the_caller_four_system_calls_or_five)
{
    const std::vector<int> seen = system_calls(with(KA_TRANSPORT_PLAIN), "give_code");
    EXPECT_EQ(seen.front(), std::get<1>(GetParam()) == KA_WAIT_SAFE ? 5 : 4);
}

// In the safe way the handler gets it, and tells the thread, which then does not wait in vain.
TEST_P(Annex, a_reply_between_request_and_wait_costs_no_more)
{
    const std::vector<int> seen = system_calls(with(KA_TRANSPORT_PLAIN), "give_code", true);
    const int expected = std::get<1>(GetParam()) == KA_WAIT_SAFE ? 5 : 4;
    EXPECT_EQ(seen.front(), expected);
    EXPECT_EQ(seen[counted_calls / 2], expected);
}

TEST_P(Annex, is_not_there_for_plain_calls)
{
    Host host(with(KA_TRANSPORT_PLAIN), annex_module);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(ask(host, 7), 0);
    EXPECT_FALSE(host_uses_annex(host));
}

TEST_P(Annex, overwritten_once_costs_no_call)
{
    for (int32_t pattern : {0, 1, 2}) {
        Host host(with(KA_TRANSPORT_SIGNALS), annex_module);
        for (int i = 0; i < 20; i++) {
            ASSERT_EQ(ask(host, i), 0) << "pattern " << pattern;
            ASSERT_EQ(blot(host, pattern), 5) << "pattern " << pattern;
        }
    }
}

TEST_P(Annex, another_program_in_the_host_process_is_no_host)
{
    for (int32_t transport : {KA_TRANSPORT_SIGNALS, KA_TRANSPORT_PLAIN}) {
        Host host(with(transport), annex_module);
        EXPECT_EQ(ask(host, 1), 0);
        ka_set_deadline(host, 300);
        ka_begin(host, "become");
        EXPECT_EQ(call_fails(host), KA_DEADLINE) << error_text(host);
    }
}

// What the module writes there all the time may cost a call, but never the caller.
TEST_P(Annex, overwritten_all_the_time_leaves_every_call_an_end)
{
    Host host(with(KA_TRANSPORT_SIGNALS), annex_module);
    ka_set_deadline(host, 2000);
    ka_begin(host, "keep_blotting");
    ka_add_integer(host, annex_offset(host), KA_BY_VALUE);
    ka_add_integer(host, sizeof(t_ANNEX), KA_BY_VALUE);
    ASSERT_EQ(call(host), 0);
    for (int32_t i = 0; i < 30 && ka_pid(host) != 0; i++) {
        int32_t code = -1;
        ka_begin(host, "ask");
        ka_add_integer(host, i, KA_BY_VALUE);
        const int32_t status = ka_call(host, &code);
        EXPECT_TRUE(status != KA_DONE || code == 0) << code;
    }
}
