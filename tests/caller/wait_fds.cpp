// SPDX-License-Identifier: MIT
//
// The descriptor of ka_wait_fd: readable when a call in steps has something, and not for anything else.
#include "caller/in_steps.h"

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <iomanip>
#include <map>
#include <memory>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "caller/many_calls.h"
#include "caller/waiting.h"
#include "host/host.h"

namespace {

class WaitFds : public LastingHosts {};
IN_EVERY_WAY(WaitFds);

int wait_fd_of(ka_host *host)
{
    const int fd = ka_wait_fd(host);
    EXPECT_NE(fd, -1) << error_text(host);
    return fd;
}

bool is_readable(int fd, int timeout_ms = 0)
{
    struct pollfd one = {fd, POLLIN, 0};
    int ready = 0;
    do
        ready = poll(&one, 1, timeout_ms); // SIGUSR2 interrupts it
    while (ready == -1 && errno == EINTR);
    return ready == 1;
}

constexpr int long_enough = 60000;

// A step when the descriptor says that there is one; how often it said so for nothing is counted.
Step step_by_fd(ka_host *host, int fd, int *for_nothing = nullptr)
{
    for (;;) {
        EXPECT_TRUE(is_readable(fd, long_enough));
        const Step step = step_of(host, 0);
        if (step.what != KA_WAITING) return step;
        if (for_nothing) ++*for_nothing;
    }
}

int32_t take_steps_by_fd(ka_host *host, int fd, int *for_nothing = nullptr)
{
    for (;;) {
        const Step step = step_by_fd(host, fd, for_nothing);
        if (step.what != KA_CALLBACK) return step.value;
        answer_step(host, step.value + 1);
    }
}

int32_t failure_by_fd(ka_host *host, int fd)
{
    int32_t error_class = KA_DONE;
    while (error_class == KA_DONE) {
        if (!is_readable(fd, long_enough)) return KA_DONE;
        error_class = step_fails(host, 0);
    }
    return error_class;
}

} // namespace

TEST_P(WaitFds, calls_and_callbacks_are_told)
{
    Host host(layout());
    const int fd = wait_fd_of(host);
    EXPECT_EQ(ka_wait_fd(host), fd);
    for (int32_t i = 0; i < 50; i++) {
        send_call_of(host, "ask", i);
        ASSERT_EQ(take_steps_by_fd(host, fd), i + 1);
        ASSERT_FALSE(is_readable(fd));
    }
}

TEST_P(WaitFds, wait_in_the_library_is_possible_too)
{
    Host host(lasting());
    const int fd = wait_fd_of(host);
    for (int32_t i = 0; i < 20; i++) {
        ASSERT_EQ(call_in_steps(host, "ask", i), i + 1);
        ASSERT_FALSE(is_readable(fd));
        ASSERT_EQ(call_with(host, "ask", i), i + 1);
        ASSERT_FALSE(is_readable(fd));
    }
}

TEST_P(WaitFds, nothing_is_told_of_a_call_that_waits)
{
    Host host(layout());
    const int fd = wait_fd_of(host);
    EXPECT_FALSE(is_readable(fd));
    int for_nothing = 0;
    for (int i = 0; i < 2; i++) {
        send_call_of(host, "nap", 300);
        EXPECT_EQ(step_of(host, 0).what, KA_WAITING);
        EXPECT_EQ(take_steps_by_fd(host, fd, &for_nothing), 0);
        EXPECT_FALSE(is_readable(fd));
    }
    // Without the annex it is looked at from time to time.
    EXPECT_LE(for_nothing, default_options().transport == KA_TRANSPORT_PLAIN ? 2 * (300 / 50 + 1) : 2);
}

TEST_P(WaitFds, nothing_is_told_of_a_callback_that_is_to_be_answered)
{
    Host host(layout());
    const int fd = wait_fd_of(host);
    ka_set_deadline(host, 60);
    send_call_of(host, "ask", 1);
    EXPECT_EQ(step_by_fd(host, fd).what, KA_CALLBACK);
    EXPECT_FALSE(is_readable(fd, 100));
    EXPECT_EQ(ka_answer(host, 1), KA_DEADLINE);
    EXPECT_FALSE(is_readable(fd, 100));
}

TEST_P(WaitFds, nothing_is_told_after_many_steps)
{
    Host host(lasting());
    const int fd = wait_fd_of(host);
    send_call_of(host, "nap", 60000);
    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(step_of(host, 0).what, KA_WAITING);
        ASSERT_GE(host.host->wait_fd.pause, 0); // before the next look
    }
    EXPECT_EQ(ka_cancel(host), 1);
    EXPECT_EQ(failure_by_fd(host, fd), KA_CANCELLED);
}

TEST_P(WaitFds, death_is_told)
{
    Host host(lasting());
    const int fd = wait_fd_of(host);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
        send_call_of(host, "die_by", SIGKILL);
        EXPECT_EQ(failure_by_fd(host, fd), KA_DIED);
        EXPECT_FALSE(is_readable(fd));
        EXPECT_EQ(ka_wait_fd(host), fd);
    }
    EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
    ASSERT_GT(ka_pid(host), 0);
    kill(ka_pid(host), SIGKILL);
    EXPECT_FALSE(is_readable(fd, 50)); // between calls there is nothing to take
    send_call_of(host, "ask", 3);
    EXPECT_EQ(take_steps_by_fd(host, fd), 4);
}

TEST_P(WaitFds, deadline_is_told)
{
    Host host(lasting());
    const int fd = wait_fd_of(host);
    EXPECT_EQ(call_in_steps(host, "ask", 1), 2);
    ka_set_deadline(host, 120);
    const auto began = std::chrono::steady_clock::now();
    ka_begin(host, "hang");
    send_begun(host);
    EXPECT_EQ(failure_by_fd(host, fd), KA_DEADLINE);
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(120));
    EXPECT_FALSE(is_readable(fd));
}

TEST_P(WaitFds, cancellation_is_told)
{
    for (bool by_fd : {false, true}) {
        const int event = eventfd(0, EFD_CLOEXEC);
        Host host([&](ka_options &options) {
            lasting()(options);
            if (by_fd) options.cancel_fd = event;
        });
        const int fd = wait_fd_of(host);
        ka_begin(host, "hang");
        send_begun(host);
        EXPECT_FALSE(is_readable(fd, 20));
        if (by_fd)
            eventfd_write(event, 1);
        else
            std::thread([&] { EXPECT_EQ(ka_cancel(host), 1); }).join();
        EXPECT_EQ(failure_by_fd(host, fd), KA_CANCELLED);
        EXPECT_FALSE(is_readable(fd));
        close(event);
    }
}

TEST_P(WaitFds, one_that_is_asked_for_during_a_call_tells_its_end)
{
    for (int32_t ms : {0, 1, 50}) {
        Host host(layout());
        EXPECT_EQ(call_in_steps(host, "nap", 0), 0);
        send_call_of(host, "nap", ms);
        EXPECT_EQ(take_steps_by_fd(host, wait_fd_of(host)), 0);
        send_call_of(host, "ask", 1);
        EXPECT_EQ(step_of(host).what, KA_CALLBACK);
        const int fd = wait_fd_of(host);
        answer_step(host, 2);
        EXPECT_EQ(take_steps_by_fd(host, fd), 2);
    }
}

TEST_P(WaitFds, one_that_is_asked_for_in_a_callback_is_for_later_calls)
{
    static int in_callback;
    Host host([this](ka_options &options) {
        layout()(options);
        options.callback = [](ka_host *own, int32_t value, void *) {
            in_callback = wait_fd_of(own);
            return value + 1;
        };
    });
    EXPECT_EQ(call_with(host, "ask", 1), 2);
    EXPECT_FALSE(is_readable(in_callback));
    send_call_of(host, "ask", 2);
    EXPECT_EQ(take_steps_by_fd(host, in_callback), 3);
}

TEST_P(WaitFds, replies_that_change_nothing_in_the_block_are_told)
{
    Host host(layout());
    const int fd = wait_fd_of(host);
    for (int32_t code : {8, 9, 0, -1}) {
        send_call_of(host, "give_code", code);
        EXPECT_EQ(take_steps_by_fd(host, fd), code);
    }
    ka_begin(host, "ask_unseen");
    ka_add_integer(host, offset_of_cbval(), KA_BY_VALUE);
    ka_add_integer(host, offset_of_retcode(), KA_BY_VALUE);
    ka_add_integer(host, 3, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    send_begun(host);
    Step step = step_by_fd(host, fd);
    for (; step.what == KA_CALLBACK; step = step_by_fd(host, fd))
        answer_step(host, 11);
    EXPECT_EQ(step.value, 11);
    EXPECT_EQ(integers(host, 4, 1), std::vector<int32_t>{33});
}

TEST_P(WaitFds, one_lasts_until_the_host_is_closed)
{
    start_library_thread();
    const int before = open_descriptors();
    {
        Host host(lasting());
        const int fd = wait_fd_of(host);
        EXPECT_EQ(ka_restart(host), KA_DONE) << error_text(host);
        EXPECT_EQ(ka_wait_fd(host), fd);
        send_call_of(host, "ask", 3);
        EXPECT_EQ(take_steps_by_fd(host, fd), 4);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_P(WaitFds, one_that_the_program_has_closed_is_made_anew)
{
    Host host(layout());
    const int fd = wait_fd_of(host);
    close(fd);
    const int other = eventfd(0, EFD_CLOEXEC);
    EXPECT_EQ(other, fd);
    const int next = wait_fd_of(host);
    EXPECT_NE(next, other);
    send_call_of(host, "ask", 3);
    EXPECT_EQ(take_steps_by_fd(host, next), 4);
    EXPECT_EQ(fcntl(other, F_GETFD), FD_CLOEXEC);
    close(other);
}

// One of the three that belong to it, by mistake, or more; the program then has the numbers.
TEST(WaitFd, nothing_is_left_of_one_of_which_the_program_has_closed_a_part)
{
    start_library_thread();
    const int before = open_descriptors();
    for (const std::vector<size_t> &part : std::vector<std::vector<size_t>>{{0}, {1}, {2}, {0, 1}, {0, 2}, {0, 1, 2}})
        for (const bool asked_again : {true, false}) {
            Host host(adding_one);
            const std::array numbers = {wait_fd_of(host), host.host->wait_fd.timer_fd, host.host->wait_fd.bell_fd};
            for (const size_t i : part)
                ASSERT_EQ(dup2(0, numbers[i]), numbers[i]);
            if (asked_again) {
                send_call_of(host, "ask", 3);
                EXPECT_EQ(take_steps_by_fd(host, wait_fd_of(host)), 4);
            }
            ka_close(std::exchange(host.host, nullptr));
            for (const size_t i : part)
                EXPECT_EQ(close(numbers[i]), 0);
            ASSERT_EQ(open_descriptors(), before) << part[0] << asked_again;
        }
}

// The descriptor of its process, and its doorbell, where it has one.
TEST_P(WaitFds, what_the_library_has_opened_again_is_waited_for)
{
    Host host(lasting());
    const int fd = wait_fd_of(host);
    for (const int *number : {&host.host->process.pid_fd, &host.host->waiting.doorbell_fd}) {
        send_call_of(host, "nap", 60000);
        const int lost = *number;
        if (lost != -1) dup2(0, lost);
        EXPECT_TRUE(becomes_true([&] {
            EXPECT_EQ(step_of(host, 10).what, KA_WAITING);
            const std::string waited_for = read_file("/proc/self/fdinfo/" + std::to_string(fd));
            std::ostringstream source;
            source << "tfd: " << std::setw(8) << *number << ' ';
            return lost == -1 || (*number != lost && waited_for.find(source.str()) != std::string::npos);
        }));
        close(lost);
        EXPECT_EQ(ka_cancel(host), 1);
        EXPECT_EQ(failure_by_fd(host, fd), KA_CANCELLED);
    }
}

TEST_P(WaitFds, child_of_fork_leaves_that_of_its_parent_alone)
{
    Host host(layout());
    const int fd = wait_fd_of(host);
    send_call_of(host, "nap", 100);
    const pid_t child = fork();
    if (child == 0) {
        ka_close(host.host);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(take_steps_by_fd(host, fd), 0);
}

// A handler that takes the reply for itself: nothing but a look can find it.
TEST_P(WaitFds, reply_whose_signal_is_lost_is_found)
{
    struct sigaction before;
    sigaction(SIGUSR2, nullptr, &before);
    {
        Host host(layout());
        const int fd = wait_fd_of(host);
        for (auto *handler : {SIG_IGN, +[](int) {}}) {
            struct sigaction mine = {};
            mine.sa_handler = handler;
            sigaction(SIGUSR2, &mine, nullptr);
            for (int32_t ms : {0, 30}) {
                send_call_of(host, "nap", ms);
                EXPECT_EQ(take_steps_by_fd(host, fd), 0);
            }
        }
    }
    sigaction(SIGUSR2, &before, nullptr);
}

// ---- Many hosts ------------------------------------------------------------------------------------------------

namespace {

// One of the hosts, with the calls that it still makes.
struct Entry {
    std::unique_ptr<Host> host;
    int32_t left;
    int32_t number;
};

} // namespace

static void call_in_one_loop(int32_t hosts, const std::function<void(ka_options &)> &adjust)
{
    constexpr int32_t calls_each = 5;
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    std::map<int, Entry> entries;
    for (int32_t i = 0; i < hosts; i++) {
        auto host = std::make_unique<Host>(adjust);
        const int fd = wait_fd_of(*host);
        struct epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        ASSERT_EQ(epoll_ctl(loop, EPOLL_CTL_ADD, fd, &event), 0);
        send_call_of(*host, "ask", i);
        entries.emplace(fd, Entry{std::move(host), calls_each, i});
    }
    size_t busy = entries.size();
    while (busy > 0) {
        struct epoll_event events[16];
        const int count = epoll_wait(loop, events, 16, long_enough);
        if (count == -1 && errno == EINTR) continue;
        ASSERT_GT(count, 0);
        for (int i = 0; i < count; i++) {
            Entry &entry = entries.at(events[i].data.fd);
            ASSERT_GT(entry.left, 0) << "readable without a call";
            const Step step = step_of(*entry.host, 0);
            if (step.what == KA_CALLBACK) answer_step(*entry.host, step.value + 1);
            if (step.what != KA_RETURNED) continue;
            ASSERT_EQ(step.value, entry.number + 1);
            entry.number += 1000;
            if (--entry.left > 0)
                send_call_of(*entry.host, "ask", entry.number);
            else
                busy--;
        }
    }
    close(loop);
}

// One signal can make the descriptors of all hosts readable that wait fast, until it is taken.
TEST(WaitFd, hundred_hosts_are_called_in_one_loop)
{
    call_in_one_loop(100, [](ka_options &) {});
    call_in_one_loop(20, [](ka_options &options) { options.waiting = KA_WAIT_FAST; });
}
