// SPDX-License-Identifier: MIT
//
// Programs that fork: what the child has of its parent's hosts, and what it must not keep from them.
#include "caller/hosts.h"

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// The exit status of a child that does the work: 0 when it returned true.
static int in_child(const std::function<bool()> &work)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        _exit(work() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST(Fork, child_may_close_a_host_of_its_parent)
{
    for (int32_t waiting : {KA_WAIT_SAFE, KA_WAIT_FAST}) {
        Host host([&](ka_options &options) {
            options.waiting = waiting;
            options.error_output = KA_STDERR_RING;
            options.inspector = [](int32_t, int32_t, char *, int32_t, void *) {};
        });
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        EXPECT_EQ(in_child([&] { return ka_close(host) == KA_DONE; }), 0);
        EXPECT_EQ(call_with(host, "give_code", 2), 2);
    }
}

TEST(Fork, child_of_a_program_with_two_hosts_has_none_of_them)
{
    for (int32_t waiting : {KA_WAIT_SAFE, KA_WAIT_FAST}) {
        const auto adjust = [&](ka_options &options) { options.waiting = waiting; };
        Host first(adjust);
        Host second(adjust);
        const int status = in_child([&] {
            const bool ended = ka_pid(first) == 0 && ka_pid(second) == 0 && ka_begin(first, "add") == KA_CLOSED &&
                               ka_begin(second, "add") == KA_CLOSED;
            return ended && ka_close(first) == KA_DONE && ka_close(second) == KA_DONE;
        });
        EXPECT_EQ(status, 0);
        EXPECT_EQ(call_with(first, "give_code", 1), 1);
        EXPECT_EQ(call_with(second, "give_code", 2), 2);
    }
}

TEST(Fork, hosts_of_its_parent_have_ended_for_a_child)
{
    Host host([](ka_options &options) { options.restart = KA_RESTART_NEXT_CALL; });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    ka_begin(host, "add");
    const int status = in_child([&] {
        int32_t value = 0;
        return ka_add_integer(host, 1, KA_BY_VALUE) == KA_CLOSED && ka_call(host, &value) == KA_CLOSED &&
               ka_begin(host, "add") == KA_CLOSED && ka_get_integers(host, 1, &value, 1) == KA_CLOSED &&
               !ka_scratch(host, nullptr) && ka_pid(host) == 0 && ka_report_text(host);
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(call_with(host, "give_code", 2), 2);
}

// A host that has died keeps its segment for the next one, which the child does not have.
TEST(Fork, child_does_not_restart_a_host_of_its_parent_unless_told)
{
    Host host([](ka_options &options) { options.restart = KA_RESTART_NEXT_CALL; });
    ka_begin(host, "fault");
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(in_child([&] { return ka_begin(host, "add") == KA_CLOSED; }), 0);
    const int status = in_child([&] {
        return ka_restart(host) == KA_DONE && call_with(host, "give_code", 3) == 3 && ka_close(host) == KA_DONE;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(call_with(host, "give_code", 4), 4);
}

TEST(Fork, in_a_callback_ends_the_call_in_the_child)
{
    Host host([](ka_options &options) {
        options.callback = [](ka_host *, int32_t, void *user) -> int32_t {
            return *static_cast<pid_t *>(user) = fork();
        };
        static pid_t child;
        options.user = &child;
    });
    const pid_t parent = getpid();
    int32_t code = 0;
    ka_begin(host, "ask");
    ka_add_integer(host, 1, KA_BY_VALUE);
    const int32_t result = ka_call(host, &code);
    if (getpid() != parent) _exit(result == KA_CLOSED ? 0 : 1);
    EXPECT_EQ(result, KA_DONE);
    int status = -1;
    EXPECT_EQ(waitpid(code, &status, 0), code);
    EXPECT_EQ(status, 0);
}

// Such a call is not the one that called back: the child must not take it for done.
TEST(Fork, in_a_callback_ends_the_call_also_where_the_child_begins_another)
{
    Host host([](ka_options &options) {
        options.callback = [](ka_host *own, int32_t, void *) -> int32_t {
            const pid_t child = fork();
            if (child == 0 && (ka_restart(own) != KA_DONE || ka_begin(own, "give_code") != KA_DONE)) _exit(2);
            return child;
        };
    });
    const pid_t parent = getpid();
    int32_t code = 0;
    ka_begin(host, "ask");
    ka_add_integer(host, 1, KA_BY_VALUE);
    const int32_t result = ka_call(host, &code);
    if (getpid() != parent) {
        ka_close(host);
        _exit(result == KA_ARGUMENT ? 0 : 1);
    }
    EXPECT_EQ(result, KA_DONE);
    int status = -1;
    EXPECT_EQ(waitpid(code, &status, 0), code);
    EXPECT_EQ(status, 0);
}

// Children that live on, without a new program, and are born at every moment of the starts.
TEST(Fork, children_that_stay_hold_no_start_back)
{
    std::atomic<bool> ended{false};
    std::vector<pid_t> children;
    std::thread forking([&] {
        while (!ended && children.size() < 500) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(60);
                for (;;)
                    pause();
            }
            children.push_back(child);
        }
    });
    for (int32_t i = 0; i < 50; i++) {
        Host host([](ka_options &options) { options.deadline_ms = 10000; });
        if (testing::Test::HasFailure()) break;
        EXPECT_EQ(call_with(host, "give_code", i), i);
    }
    ended = true;
    forking.join();
    for (pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

// The library's first work in a process falls into a fork that has begun in another thread. It is the first only
// where this case runs alone, as ctest does it (ALONE in CMakeLists.txt). The fork is held up by a handler of the
// test's own, which it runs first.
TEST(Fork, first_host_opened_beside_a_fork_leaves_the_child_usable)
{
    static std::atomic<bool> holds_up;
    static std::atomic<bool> in_fork;
    pthread_atfork(
        [] {
            if (!holds_up) return;
            in_fork = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        },
        nullptr, nullptr);
    holds_up = true;
    std::thread opening([] {
        while (!in_fork)
            std::this_thread::yield();
        Host host;
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
    });
    const int status = in_child([] {
        Host own;
        return call_with(own, "give_code", 2) == 2;
    });
    EXPECT_EQ(status, 0);
    holds_up = false;
    opening.join();
}
