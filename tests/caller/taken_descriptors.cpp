// SPDX-License-Identifier: MIT
//
// Programs that close descriptors which they do not know, as daemons do with closefrom(3), and open others under the
// same numbers. The library goes on, and leaves what the program has opened alone.
#include "caller/hosts.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "caller/waiting.h"

namespace {

constexpr int first_number = 3; // the standard descriptors stay
constexpr int last_number = 40; // more than the library ever has

// A process that dies of the first signal that is sent to it.
struct Bystander {
    Bystander() : pid(fork())
    {
        if (pid != 0) return;
        alarm(60);
        for (;;)
            pause();
    }
    ~Bystander()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    bool lives() const { return waitpid(pid, nullptr, WNOHANG) == 0; }
    pid_t pid;
};

int open_kind(int kind, pid_t bystander)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    switch (kind) {
    case 0:
        return memfd_create("file", 0);
    case 1:
        return eventfd(1, EFD_NONBLOCK);
    case 2:
        return epoll_create1(0);
    case 3:
        return signalfd(-1, &set, 0);
    default:
        return static_cast<int>(syscall(SYS_pidfd_open, bystander, 0));
    }
}
constexpr int kinds = 5;

std::string described(int fd)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0) return "closed";
    return std::to_string(status.st_dev) + " " + std::to_string(status.st_ino) + " " +
           std::to_string(status.st_size) + "\n" + read_file("/proc/self/fdinfo/" + std::to_string(fd));
}

// Files that a program has opened under all numbers that the library may have had before.
class OwnDescriptors {
public:
    OwnDescriptors(int turn, pid_t bystander)
    {
        closefrom(first_number);
        for (int fd = first_number; fd <= last_number; fd++) {
            if (open_kind((fd + turn) % kinds, bystander) != fd) _exit(20);
            before_.push_back(described(fd));
        }
    }
    bool are_untouched() const
    {
        for (int fd = first_number; fd <= last_number; fd++) {
            const std::string &before = before_[static_cast<size_t>(fd - first_number)];
            if (described(fd) == before) continue;
            fprintf(stderr, "descriptor %d was:\n%sand is:\n%s\n", fd, before.c_str(), described(fd).c_str());
            return false;
        }
        return true;
    }

private:
    std::vector<std::string> before_;
};

// Numbers that have been opened since before.
std::vector<int> opened_since(const std::vector<int> &before)
{
    std::vector<int> opened;
    for (int fd = first_number; fd <= last_number; fd++)
        if (fcntl(fd, F_GETFD) != -1 && std::find(before.begin(), before.end(), fd) == before.end())
            opened.push_back(fd);
    return opened;
}

// Descriptors that wait for SIGUSR2.
std::vector<int> doorbells()
{
    std::vector<int> found;
    for (int fd = first_number; fd <= last_number; fd++)
        if (described(fd).find("sigmask:\t0000000000000800") != std::string::npos) found.push_back(fd);
    return found;
}

enum Output { TO_FILE, TO_RING, INHERITED };

// In a process of its own, for each turn of the kinds.
class TakenDescriptors : public testing::TestWithParam<std::tuple<int32_t, Output>> {
protected:
    // Steps answer 0, or a number that names what went wrong.
    static void in_child(const std::function<int(int turn, pid_t bystander)> &steps)
    {
        const Bystander bystander;
        for (int turn = 0; turn < kinds; turn++) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(120);
                _exit(steps(turn, bystander.pid));
            }
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0) << "turn " << turn << ": step " << WEXITSTATUS(status);
            EXPECT_TRUE(bystander.lives());
        }
    }
    static ka_host *open_host(ka_callback *callback = nullptr, void *user = nullptr)
    {
        ka_options options = default_options();
        options.waiting = std::get<0>(GetParam());
        options.deadline_ms = 30000;
        options.callback = callback;
        options.user = user;
        options.error_fd = memfd_create("errors", 0);
        const Output output = std::get<1>(GetParam());
        if (output == TO_RING) options.error_output = KA_STDERR_RING;
        if (output == TO_FILE) options.error_output = KA_STDERR_FILE;
        ka_host *host = nullptr;
        const int32_t status = ka_open(&host, tasks_module.c_str(), &options);
        if (status != KA_DONE) fprintf(stderr, "%s\n", host ? ka_last_error(host)->message : "no host");
        close(options.error_fd);
        return host;
    }
    static bool answers(ka_host *host, int32_t number, const char *function = "give_code")
    {
        int32_t code = 0;
        ka_begin(host, function);
        ka_add_integer(host, number, KA_BY_VALUE);
        const int32_t status = ka_call(host, &code);
        if (status != KA_DONE) fprintf(stderr, "%s\n", ka_last_error(host)->message);
        return status == KA_DONE && code == number;
    }
};

std::string way_name(const testing::TestParamInfo<std::tuple<int32_t, Output>> &way)
{
    static const char *const outputs[] = {"_file", "_ring", "_inherited"};
    return std::string(std::get<0>(way.param) == KA_WAIT_SAFE ? "safe" : "fast") + outputs[std::get<1>(way.param)];
}
INSTANTIATE_TEST_SUITE_P(Ways, TakenDescriptors,
                         testing::Combine(testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                                          testing::Values(TO_FILE, TO_RING, INHERITED)),
                         way_name);

} // namespace

TEST_P(TakenDescriptors, between_two_hosts_are_left_alone)
{
    in_child([](int turn, pid_t bystander) {
        ka_host *first = open_host();
        if (!answers(first, 1)) return 1;
        ka_close(first);
        const OwnDescriptors own(turn, bystander);
        ka_host *second = open_host();
        if (!answers(second, 2)) return 2;
        if (ka_close(second) != KA_DONE) return 3;
        return own.are_untouched() ? 0 : 4;
    });
}

TEST_P(TakenDescriptors, while_a_host_is_open_are_left_alone_and_it_answers_on)
{
    in_child([](int turn, pid_t bystander) {
        ka_host *host = open_host();
        const pid_t pid = ka_pid(host);
        if (!answers(host, 1)) return 1;
        const OwnDescriptors own(turn, bystander);
        for (int32_t i = 0; i < 10; i++)
            if (!answers(host, i)) return 2;
        if (ka_pid(host) != pid) return 3;
        if (ka_close(host) != KA_DONE) return 4;
        if (!own.are_untouched()) return 5;
        return kill(pid, 0) == 0 ? 6 : 0;
    });
}

TEST_P(TakenDescriptors, before_the_close_are_left_alone_and_the_host_ends)
{
    in_child([](int turn, pid_t bystander) {
        ka_host *host = open_host();
        const pid_t pid = ka_pid(host);
        if (!answers(host, 1)) return 1;
        const OwnDescriptors own(turn, bystander);
        if (ka_close(host) != KA_DONE) return 2;
        if (!own.are_untouched()) return 3;
        return kill(pid, 0) == 0 ? 4 : 0;
    });
}

TEST_P(TakenDescriptors, are_left_alone_by_what_is_asked_between_calls)
{
    for (const bool tables : {true, false}) {
        for (const bool called : {true, false}) {
            SCOPED_TRACE(testing::Message() << (tables ? "tables" : "trace") << (called ? ", called before" : ""));
            in_child([tables, called](int turn, pid_t bystander) {
                ka_host *host = open_host();
                const pid_t pid = ka_pid(host);
                if (called && !answers(host, 1)) return 1;
                const OwnDescriptors own(turn, bystander);
                if (tables && ka_host_tables(host) == nullptr) return 2;
                if (!tables && ka_set_trace(host, 1) != KA_DONE) return 3;
                if (!answers(host, 2) || ka_pid(host) != pid) return 4;
                if (ka_close(host) != KA_DONE) return 5;
                return own.are_untouched() ? 0 : 6;
            });
        }
    }
}

// A program that takes fixed numbers for its own, or closes from a number on that is between the library's.
TEST_P(TakenDescriptors, one_by_one_or_from_one_on_are_left_alone_and_the_host_answers_on)
{
    for (size_t taken = 0; taken < 5; taken++) {
        for (const bool others_too : {false, true}) {
            SCOPED_TRACE(testing::Message() << taken << (others_too ? " and the others" : ""));
            in_child([taken, others_too](int turn, pid_t bystander) {
                const std::vector<int> before = opened_since({});
                ka_host *host = open_host();
                const pid_t pid = ka_pid(host);
                if (!answers(host, 1)) return 1;
                const std::vector<int> opened = opened_since(before);
                if (taken >= opened.size()) return 0;
                const size_t end = others_too ? opened.size() : taken + 1;
                std::vector<std::string> own;
                for (size_t i = taken; i < end; i++) {
                    const int fd = open_kind(turn, bystander);
                    if (dup2(fd, opened[i]) != opened[i]) return 2;
                    close(fd);
                    own.push_back(described(opened[i]));
                }
                for (int32_t i = 0; i < 20; i++)
                    if (!answers(host, i)) return 3;
                if (ka_pid(host) != pid) return 4;
                if (ka_close(host) != KA_DONE) return 5;
                for (size_t i = taken; i < end; i++)
                    if (described(opened[i]) != own[i - taken]) return 6;
                return 0;
            });
        }
    }
}

// Without it each reply that comes after the first moment would be found late.
TEST(TakenDescriptorRules, a_doorbell_that_is_taken_is_opened_again)
{
    Host host([](ka_options &options) {
        options.waiting = KA_WAIT_FAST;
        options.transport = KA_TRANSPORT_PLAIN; // the other does without
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    for (const unsigned readable : {0U, 1U}) {
        ASSERT_EQ(doorbells().size(), 1U);
        const int taken = doorbells()[0];
        const int other = eventfd(readable, 0);
        EXPECT_EQ(dup2(other, taken), taken);
        EXPECT_EQ(call_with(host, "nap", 200), 0);
        EXPECT_EQ(doorbells().size(), 1U) << readable;
        EXPECT_EQ(call_with(host, "give_code", 3), 3);
        close(other);
        close(taken);
    }
}

// The program's own epoll descriptor, and that of another host, look like the one that was there.
TEST(TakenDescriptorRules, what_an_event_loop_waits_for_is_left_alone_under_the_number_of_a_wait_descriptor)
{
    Host one;
    Host other;
    const int silent = eventfd(0, 0);
    const int loop = epoll_create1(0);
    struct epoll_event event = {};
    EXPECT_EQ(epoll_ctl(loop, EPOLL_CTL_ADD, silent, &event), 0);
    for (const int taker : {loop, ka_wait_fd(other)}) {
        const int taken = ka_wait_fd(one);
        ASSERT_NE(taken, -1);
        EXPECT_EQ(dup2(taker, taken), taken);
        const std::string before = described(taken);
        const int next = ka_wait_fd(one);
        EXPECT_NE(next, taken);
        EXPECT_EQ(ka_wait_fd(one), next);
        EXPECT_EQ(call_with(one, "give_code", 2), 2);
        EXPECT_EQ(described(taken), before);
        close(taken);
    }
    EXPECT_EQ(call_with(other, "give_code", 3), 3);
    close(loop);
    close(silent);
}

TEST_P(TakenDescriptors, in_a_callback_are_left_alone_and_its_answer_arrives)
{
    in_child([](int turn, pid_t bystander) {
        struct Wish {
            int turn;
            pid_t bystander;
            std::unique_ptr<OwnDescriptors> own;
        } wish{turn, bystander, nullptr};
        ka_callback *const take = [](ka_host *, int32_t value, void *user) {
            auto *self = static_cast<Wish *>(user);
            self->own = std::make_unique<OwnDescriptors>(self->turn, self->bystander);
            return value;
        };
        ka_host *host = open_host(take, &wish);
        if (!answers(host, 7, "ask")) return 1;
        if (ka_close(host) != KA_DONE) return 2;
        return wish.own->are_untouched() ? 0 : 3;
    });
}

// A program that then asks for the descriptor of ka_wait_fd. The host is still the only one, and its death is seen.
TEST_P(TakenDescriptors, between_steps_are_left_alone_and_the_host_stays)
{
    in_child([](int turn, pid_t bystander) {
        const auto step = [](ka_host *host, int32_t *what) {
            int32_t value = 0;
            struct pollfd one = {ka_wait_fd(host), POLLIN, 0};
            while (poll(&one, 1, 30000) == -1)
                ; // SIGUSR2 interrupts it
            return one.revents == 0 ? -1 : ka_wait(host, 0, what, &value);
        };
        ka_host *host = open_host();
        const pid_t pid = ka_pid(host);
        if (!answers(host, 1) || ka_wait_fd(host) == -1) return 1;
        if (ka_begin(host, "nap") != KA_DONE || ka_add_integer(host, 20, KA_BY_VALUE) != KA_DONE) return 2;
        if (ka_send(host) != KA_DONE) return 3;
        const OwnDescriptors own(turn, bystander);
        int32_t what = KA_WAITING;
        int32_t status = KA_DONE;
        while (status == KA_DONE && what != KA_RETURNED)
            status = step(host, &what);
        if (status != KA_DONE) return 4;
        if (!answers(host, 2) || ka_pid(host) != pid) return 5;
        if (ka_begin(host, "nap") != KA_DONE || ka_add_integer(host, 60000, KA_BY_VALUE) != KA_DONE) return 6;
        if (ka_send(host) != KA_DONE) return 7;
        kill(pid, SIGKILL);
        while (status == KA_DONE)
            status = step(host, &what);
        if (status != KA_DIED) return 8;
        if (ka_close(host) != KA_DONE) return 9;
        return own.are_untouched() ? 0 : 10;
    });
}

// The one descriptor that cannot be opened again.
TEST_P(TakenDescriptors, before_a_restart_are_never_the_hosts_standard_error)
{
    in_child([](int turn, pid_t bystander) {
        ka_host *host = open_host();
        const OwnDescriptors own(turn, bystander);
        const int32_t expected = std::get<1>(GetParam()) == TO_FILE ? KA_SYSTEM : KA_DONE;
        if (ka_restart(host) != expected) return 1;
        if (expected == KA_DONE && !answers(host, 1)) return 2;
        if (ka_close(host) != KA_DONE) return 3;
        return own.are_untouched() ? 0 : 4;
    });
}
