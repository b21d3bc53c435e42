// SPDX-License-Identifier: MIT
//
// Callers in a pid namespace of their own.
#include "caller/hosts.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

enum { NO_NAMESPACE = 77 };

// Runs work as the first process of a new pid namespace; its exit status: 0 when no expectation failed.
int alone(const std::function<void()> &work)
{
    const pid_t outer = fork();
    if (outer == 0) {
        alarm(60);
        if (unshare(geteuid() == 0 ? CLONE_NEWPID : CLONE_NEWPID | CLONE_NEWUSER) != 0) _exit(NO_NAMESPACE);
        const pid_t inner = fork();
        if (inner == 0) {
            work();
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        int status = 1;
        waitpid(inner, &status, 0);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
    }
    int status = 1;
    EXPECT_EQ(waitpid(outer, &status, 0), outer);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

} // namespace

// As in a container that was given the /proc of the system around it, where every process has another number.
TEST(PidNamespace, with_a_foreign_proc_is_like_any)
{
    const int status = alone([] {
        EXPECT_EQ(getpid(), 1);
        for (int32_t layout : {KA_LAYOUT_NATIVE, KA_LAYOUT_64}) {
            Host host([layout](ka_options &options) {
                options.layout = layout;
                options.deadline_ms = 30000;
                options.callback = [](ka_host *, int32_t value, void *) { return value; };
            });
            EXPECT_EQ(call_with(host, "give_code", 4), 4);
            EXPECT_EQ(call_with(host, "ask", 4), 4);
            EXPECT_TRUE(ka_host_tables(host));
            EXPECT_EQ(ka_set_trace(host, 0), KA_DONE);
        }
    });
    if (status == NO_NAMESPACE) GTEST_SKIP() << "this system gives this user no pid namespace";
    EXPECT_EQ(status, 0);
}
