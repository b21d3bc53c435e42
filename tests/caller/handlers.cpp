// SPDX-License-Identifier: MIT
//
// Programs that handle SIGUSR2 themselves: what is not a host's reaches their handler, what is a host's never does.
#include "caller/in_steps.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

namespace {

// Signals that the program's handler has seen; written in the handler.
struct Seen {
    std::atomic<int> count;
    std::atomic<int> last_value;
    std::atomic<int> last_sender;
    std::atomic<int> out_of_order;    // of values that should have come as 1, 2, 3..., with repetitions
    std::atomic<int> expected_sender; // 0 for any
    std::atomic<int> strangers;       // signals of another sender
    std::atomic<int> unanswered;
    std::atomic<int> mask_missing; // SIGHUP was not blocked although the handler asks for it
    std::atomic<int> answer_fd;    // each signal is acknowledged here, unless -1
};
Seen seen;

void (*chained)(int, siginfo_t *, void *);

void on_detailed(int, siginfo_t *info, void *context)
{
    seen.last_sender = info->si_pid;
    const int value = info->si_value.sival_int;
    if (seen.expected_sender != 0 && info->si_pid != seen.expected_sender) seen.strangers++;
    if (info->si_code == SI_QUEUE && value != seen.last_value && value != seen.last_value + 1) seen.out_of_order++;
    seen.last_value = value;
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    if (sigismember(&now, SIGHUP) == 0 || !context) seen.mask_missing++;
    seen.count++;
    if (seen.answer_fd != -1 && write(seen.answer_fd, &value, sizeof value) != sizeof value) seen.unanswered++;
}

void on_plain(int)
{
    seen.count++;
}

void on_chained(int number, siginfo_t *info, void *context)
{
    seen.count++;
    if (chained) chained(number, info, context);
}

struct sigaction detailed_action()
{
    struct sigaction action = {};
    action.sa_sigaction = on_detailed;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigaddset(&action.sa_mask, SIGHUP);
    return action;
}

struct sigaction plain_action(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    return action;
}

// The action for SIGUSR2 and the mask, as they were, come back with the end of the test.
class Handlers : public testing::Test {
protected:
    Handlers()
    {
        sigaction(SIGUSR2, nullptr, &before_);
        pthread_sigmask(SIG_SETMASK, nullptr, &mask_);
        seen.count = seen.last_value = seen.last_sender = seen.out_of_order = seen.mask_missing = 0;
        seen.answer_fd = -1;
        seen.expected_sender = seen.strangers = seen.unanswered = 0;
        chained = nullptr;
    }
    ~Handlers() override
    {
        sigaction(SIGUSR2, &before_, nullptr);
        pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    }
    static void set(const struct sigaction &action) { sigaction(SIGUSR2, &action, nullptr); }
    static struct sigaction present()
    {
        struct sigaction action;
        sigaction(SIGUSR2, nullptr, &action);
        return action;
    }

private:
    struct sigaction before_;
    sigset_t mask_;
};

// A process that sends 1, 2, 3... up to the count, each when the one before was acknowledged. One that is sent while
// a reply is pending is lost in the kernel, as standard signals are; it is sent again.
class Sender {
public:
    explicit Sender(int count)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        seen.answer_fd = ends[1];
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) send(parent, ends[0], count);
        close(ends[0]);
        seen.expected_sender = pid_;
    }
    ~Sender()
    {
        kill(pid_, SIGKILL);
        if (!over_) waitpid(pid_, nullptr, 0);
        seen.expected_sender = 0;
        close(seen.answer_fd.exchange(-1));
    }
    // True once everything was acknowledged.
    bool is_over()
    {
        over_ = over_ || waitpid(pid_, nullptr, WNOHANG) == pid_;
        return over_;
    }
    pid_t pid() const { return pid_; }

private:
    // Within a while; one that was sent again may be acknowledged again, later.
    static bool is_acknowledged(int answers, int value)
    {
        struct pollfd answered = {answers, POLLIN, 0};
        int answer = 0;
        while (answer != value) {
            if (poll(&answered, 1, 20) == 0) return false;
            if (read(answers, &answer, sizeof answer) != sizeof answer) _exit(1);
        }
        return true;
    }
    [[noreturn]] static void send(pid_t target, int answers, int count)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (int i = 1; i <= count; i++) {
            sigval value = {};
            value.sival_int = i;
            do
                sigqueue(target, SIGUSR2, value);
            while (!is_acknowledged(answers, i));
        }
        _exit(0);
    }
    pid_t pid_;
    bool over_ = false;
};

void call_until_over(Sender &sender, ka_host *host)
{
    for (int i = 0; i < 100000 && !sender.is_over(); i++)
        call_many(host, 1);
    EXPECT_TRUE(sender.is_over());
}

} // namespace

TEST_F(Handlers, one_from_before_gets_every_foreign_signal_with_its_value)
{
    set(detailed_action());
    Host host(adding_one);
    Sender sender(300);
    call_until_over(sender, host);
    EXPECT_EQ(seen.last_value, 300);
    EXPECT_EQ(seen.out_of_order, 0);
    EXPECT_EQ(seen.strangers, 0);
    EXPECT_EQ(seen.unanswered, 0);
    EXPECT_EQ(seen.last_sender, sender.pid());
    EXPECT_EQ(seen.mask_missing, 0);
}

// In the signal of a timer, the number at the place of the sender's process id can be the number of a host.
TEST_F(Handlers, one_from_before_gets_signals_that_no_process_has_sent)
{
    set(detailed_action());
    Host host(adding_one);
    const int before = seen.count;
    siginfo_t info = {};
    info.si_code = SI_TIMER;
    info.si_pid = ka_pid(host);
    EXPECT_EQ(syscall(SYS_rt_sigqueueinfo, getpid(), SIGUSR2, &info), 0);
    EXPECT_EQ(seen.count, before + 1);
    call_many(host, 10);
}

TEST_F(Handlers, one_from_before_gets_them_while_threads_call)
{
    set(detailed_action());
    Sender sender(300);
    std::vector<std::thread> threads;
    std::atomic<bool> ended{false};
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&ended] {
            Host host(adding_one);
            while (!ended)
                call_many(host, 1);
        });
    EXPECT_TRUE(becomes_true([&] { return sender.is_over(); }));
    ended = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(seen.last_value, 300);
    EXPECT_EQ(seen.out_of_order, 0);
    EXPECT_EQ(seen.strangers, 0);
    EXPECT_EQ(seen.unanswered, 0);
}

// The handler changes hands twice for each host.
TEST_F(Handlers, foreign_signals_come_through_while_hosts_come_and_go)
{
    set(detailed_action());
    Sender sender(500);
    for (int i = 0; i < 20000 && !sender.is_over(); i++) {
        Host host(adding_one);
        call_many(host, 1);
    }
    EXPECT_TRUE(sender.is_over());
    EXPECT_EQ(seen.last_value, 500);
    EXPECT_EQ(seen.out_of_order, 0);
    EXPECT_EQ(seen.strangers, 0);
    EXPECT_EQ(seen.unanswered, 0);
}

TEST_F(Handlers, plain_one_from_before_gets_foreign_signals_only)
{
    set(plain_action(on_plain));
    Host host(adding_one);
    call_many(host, 500);
    EXPECT_EQ(seen.count, 0);
    raise(SIGUSR2);
    kill(getpid(), SIGUSR2);
    EXPECT_EQ(seen.count, 2);
}

TEST_F(Handlers, one_from_before_is_back_after_the_last_close)
{
    set(detailed_action());
    {
        Host first;
        Host second;
        EXPECT_NE(present().sa_sigaction, on_detailed);
        EXPECT_EQ(call_with(second, "give_code", 1), 1);
    }
    EXPECT_EQ(present().sa_sigaction, on_detailed);
    const sigset_t mask = present().sa_mask;
    EXPECT_EQ(sigismember(&mask, SIGHUP), 1);
    raise(SIGUSR2);
    EXPECT_EQ(seen.count, 1);
}

TEST_F(Handlers, without_one_foreign_signals_are_dropped)
{
    for (auto none : {SIG_DFL, SIG_IGN}) {
        set(plain_action(none));
        {
            Host host(adding_one);
            raise(SIGUSR2);
            call_many(host, 10);
        }
        EXPECT_EQ(present().sa_handler, none);
    }
}

TEST_F(Handlers, foreign_signal_that_is_pending_at_the_last_close_stays_pending)
{
    set(detailed_action());
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    {
        Host host(adding_one);
        call_many(host, 10);
        sigval value = {};
        value.sival_int = 1;
        sigqueue(getpid(), SIGUSR2, value);
    }
    EXPECT_EQ(seen.count, 0);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    EXPECT_EQ(seen.count, 1);
    EXPECT_EQ(seen.last_value, 1);
    EXPECT_EQ(seen.last_sender, getpid());
}

// The kernel lets a thread put back what a process sent by that thread's id only.
TEST_F(Handlers, foreign_signal_that_is_pending_at_the_last_close_in_another_thread_stays_pending)
{
    set(detailed_action());
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([] {
        Host host(adding_one);
        call_many(host, 10);
        kill(getpid(), SIGUSR2);
    }).join();
    EXPECT_EQ(seen.count, 0);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    EXPECT_EQ(seen.count, 1);
    EXPECT_EQ(seen.last_sender, getpid());
}

// The host dies in the end, and what it sent last is still pending.
TEST_F(Handlers, reply_that_is_pending_at_the_last_close_does_not_reach_the_program)
{
    set(detailed_action());
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    for (int i = 0; i < 50; i++) {
        Host host;
        ka_begin(host, "ring_and_die");
        EXPECT_EQ(call_fails(host), KA_DIED);
    }
    for (int i = 0; i < 50; i++) {
        Host host;
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
        kill(ka_pid(host), SIGUSR2); // answered by a refusal, if it comes to that
    }
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    EXPECT_EQ(seen.count, 0);
}

// Replies are signals: none of them may reach another handler, or end the program.
TEST_F(Handlers, one_that_is_installed_later_gets_every_foreign_signal_and_no_reply)
{
    for (const bool with_cancel_fd : {false, true}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        {
            Host host([&](ka_options &options) {
                adding_one(options);
                options.transport = with_cancel_fd ? KA_TRANSPORT_SIGNALS : KA_TRANSPORT_PLAIN;
                options.cancel_fd = with_cancel_fd ? ends[0] : -1;
            });
            call_many(host, 5);
            seen.count = 0;
            set(plain_action(on_plain));
            for (int32_t i = 0; i < 100; i++) {
                ASSERT_EQ(call_with(host, "give_code", i), i);
                kill(getpid(), SIGUSR2);
                EXPECT_EQ(seen.count, i + 1);
            }
        }
        EXPECT_EQ(present().sa_handler, on_plain);
        close(ends[0]);
        close(ends[1]);
    }
}

// Where the reply is a signal, one that came after its call would merge with the program's.
TEST_F(Handlers, call_is_not_over_before_the_signal_of_its_host)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    sigset_t doorbell;
    sigemptyset(&doorbell);
    sigaddset(&doorbell, SIGUSR2);
    set(plain_action(on_plain));
    {
        Host host(
            [&](ka_options &options) {
                options.transport = KA_TRANSPORT_SIGNALS;
                options.cancel_fd = ends[0];
            },
            module_path("late_signal"));
        for (int32_t i = 0; i < 5; i++) {
            send_call_of(host, "give_code", i);
            usleep(5000); // mostly the host is at its signal by then
            EXPECT_EQ(take_steps(host), i);
            pthread_sigmask(SIG_BLOCK, &doorbell, nullptr);
            usleep(20000);
            kill(getpid(), SIGUSR2);
            pthread_sigmask(SIG_UNBLOCK, &doorbell, nullptr);
            EXPECT_EQ(seen.count, i + 1);
        }
    }
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Handlers, default_action_that_is_set_later_does_not_end_the_program)
{
    for (auto none : {SIG_DFL, SIG_IGN}) {
        for (const int32_t transport : {KA_TRANSPORT_PLAIN, KA_TRANSPORT_SIGNALS, KA_TRANSPORT_FAST}) {
            {
                Host host([&](ka_options &options) {
                    adding_one(options);
                    options.transport = transport;
                });
                for (int32_t i = 0; i < 20; i++) {
                    set(plain_action(none));
                    call_many(host, 1, i);
                }
                EXPECT_GE(ka_wait_fd(host), 0);
                set(plain_action(none));
                call_many(host, 1, 5);
            }
            EXPECT_EQ(present().sa_handler, none);
        }
    }
}

// In steps with a descriptor replies are signals.
TEST_F(Handlers, default_action_that_is_set_later_does_not_end_the_program_in_steps)
{
    Host host(adding_one);
    EXPECT_GE(ka_wait_fd(host), 0);
    for (int32_t i = 0; i < 20; i++) {
        set(plain_action(SIG_DFL));
        ka_begin(host, "give_code");
        ka_add_integer(host, i, KA_BY_VALUE);
        EXPECT_EQ(ka_send(host), KA_DONE);
        int32_t what = KA_WAITING;
        int32_t value = -1;
        while (what == KA_WAITING && ka_wait(host, -1, &what, &value) == KA_DONE)
            ;
        EXPECT_EQ(value, i);
    }
}

// The library looks before each answer, too.
TEST_F(Handlers, default_action_that_is_set_in_a_callback_does_not_end_the_program)
{
    Host host([](ka_options &options) {
        options.transport = KA_TRANSPORT_PLAIN;
        options.callback = [](ka_host *, int32_t value, void *) {
            signal(SIGUSR2, SIG_DFL);
            return value + 1;
        };
    });
    for (int32_t i = 0; i < 20; i++)
        EXPECT_EQ(call_with(host, "ask", i), i + 1);
}

TEST_F(Handlers, default_action_that_is_set_before_another_start_does_not_end_the_program)
{
    Host first;
    set(plain_action(SIG_DFL));
    Host second([](ka_options &options) { options.transport = KA_TRANSPORT_PLAIN; });
    EXPECT_NE(present().sa_handler, SIG_DFL);
    EXPECT_EQ(call_with(second, "give_code", 1), 1);
}

namespace {

// Another copy of the library in this process.
struct Copy {
    Copy() : file(read_file(CALLER_LIBRARY), 0700), library(dlopen(file.path.c_str(), RTLD_NOW | RTLD_LOCAL))
    {
        EXPECT_NE(library, nullptr) << dlerror();
    }
    template <typename Function>
    Function *find(Function *, const char *name) const
    {
        return reinterpret_cast<Function *>(dlsym(library, name));
    }
    File file;
    void *library;
};

} // namespace

#ifndef __SANITIZE_ADDRESS__ // of which one copy can be in a process
// What a library that is loaded later can have of the threads' blocks is little, and for all of them.
TEST_F(Handlers, many_copies_of_the_library_can_be_loaded)
{
    for (int i = 0; i < 10; i++) {
        const Copy copy;
        const auto version = copy.find(ka_version, "ka_version");
        ASSERT_TRUE(version);
        EXPECT_STREQ(version(), ka_version());
    }
}

// Of one test alone: no test before it can have made it known.
void on_two_copies(int)
{
    seen.count++;
}

// Both hear their own hosts, and the program's handler everything else.
TEST_F(Handlers, two_copies_of_the_library_work_in_one_program)
{
    const Copy copy;
    const auto open = copy.find(ka_open, "ka_open");
    const auto close = copy.find(ka_close, "ka_close");
    const auto begin = copy.find(ka_begin, "ka_begin");
    const auto add = copy.find(ka_add_integer, "ka_add_integer");
    const auto call = copy.find(ka_call, "ka_call");
    ASSERT_TRUE(open && close && begin && add && call);
    ka_options options = default_options();
    options.transport = KA_TRANSPORT_PLAIN;
    for (const bool in_order : {true, false}) {
        set(plain_action(on_two_copies));
        seen.count = 0;
        ka_host *one;
        ka_host *other;
        ASSERT_EQ(ka_open(&one, tasks_module.c_str(), &options), KA_DONE);
        ASSERT_EQ(open(&other, tasks_module.c_str(), &options), KA_DONE);
        const auto call_other = [&](int32_t value) {
            int32_t code = -1;
            begin(other, "give_code");
            add(other, value, KA_BY_VALUE);
            EXPECT_EQ(call(other, &code), KA_DONE);
            EXPECT_EQ(code, value);
        };
        for (int32_t i = 0; i < 50; i++) {
            EXPECT_EQ(call_with(one, "give_code", i), i);
            raise(SIGUSR2);
            call_other(i);
            raise(SIGUSR2);
        }
        EXPECT_EQ(seen.count, 100);
        if (in_order) {
            EXPECT_EQ(ka_close(one), KA_DONE);
            call_other(7);
            EXPECT_EQ(close(other), KA_DONE);
        } else {
            EXPECT_EQ(close(other), KA_DONE);
            EXPECT_EQ(call_with(one, "give_code", 7), 7);
            EXPECT_EQ(ka_close(one), KA_DONE);
        }
        // A handler of the one may be left behind. It hands on.
        raise(SIGUSR2);
        EXPECT_EQ(seen.count, 101);
    }
}
#endif

TEST_F(Handlers, one_that_replaces_ours_harms_no_call_and_stays)
{
    {
        Host host(adding_one);
        call_many(host, 1);
        set(plain_action(on_plain));
        call_many(host, 200);
    }
    EXPECT_EQ(present().sa_handler, on_plain);
}

// Then no signal arrives at all.
TEST_F(Handlers, program_that_ignores_the_signal_gets_its_answers)
{
    Host host(adding_one);
    set(plain_action(SIG_IGN));
    call_many(host, 50);
    ka_begin(host, "ask_many");
    ka_add_integer(host, 50, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(integers(host, 2, 1), std::vector<int32_t>({50 * 51 / 2}));
    EXPECT_EQ(call_with(host, "nap", 300), 0);
}

TEST_F(Handlers, one_that_calls_the_one_it_replaced_makes_no_circle)
{
    for (int round = 1; round <= 3; round++) {
        Host host(adding_one);
        const struct sigaction ours = present();
        chained = ours.sa_sigaction;
        struct sigaction action = {};
        action.sa_sigaction = on_chained;
        action.sa_flags = SA_SIGINFO;
        if (round == 1) set(action);
        call_many(host, 10);
    }
    Host host(adding_one);
    seen.count = 0;
    raise(SIGUSR2);
    EXPECT_EQ(seen.count, 1);
    call_many(host, 10);
}

// The last of the signals can reach the thread when no host is open any more.
TEST_F(Handlers, system_calls_of_other_threads_go_on)
{
    struct sigaction action = plain_action(on_plain);
    action.sa_flags = SA_RESTART;
    set(action);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread reader([&] {
        char byte = 0;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
        EXPECT_EQ(byte, 'x');
    });
    {
        Host host(adding_one);
        call_many(host, 500);
        for (int i = 0; i < 100; i++)
            pthread_kill(reader.native_handle(), SIGUSR2);
    }
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    reader.join();
    EXPECT_GT(seen.count, 0);
    close(ends[0]);
    close(ends[1]);
}
