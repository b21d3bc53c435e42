// SPDX-License-Identifier: MIT
//
// System calls that older kernels do not have, and that the filter of a container refuses: the library does without
// them. Each test runs in a process of its own, which lives under such a filter from then on.
#include "caller/hosts.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

namespace {

// From here on the system call is answered so in all threads of this process, and in those that it starts.
bool refuse(long number, int error)
{
    struct sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(number), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const struct sock_fprog program = {sizeof code / sizeof code[0], code};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0;
}

class Filtered : public testing::TestWithParam<std::tuple<int32_t, int>> {
protected:
    // Steps answer 0, or a number that names what went wrong.
    static void in_child(const std::function<int()> &steps)
    {
        const pid_t child = fork();
        if (child == 0) {
            alarm(30);
            _exit(steps());
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "step " << WEXITSTATUS(status);
    }
    static int error() { return std::get<1>(GetParam()); }
    static ka_host *open_host(int32_t error_output, int cancel_fd = -1, const char *const *under = nullptr)
    {
        ka_options options = default_options();
        options.waiting = std::get<0>(GetParam());
        options.deadline_ms = 10000;
        options.error_output = error_output;
        options.cancel_fd = cancel_fd;
        options.under = under;
        ka_host *host = nullptr;
        if (ka_open(&host, tasks_module.c_str(), &options) != KA_DONE)
            fprintf(stderr, "%s\n", ka_last_error(host)->message);
        return host;
    }
};

INSTANTIATE_TEST_SUITE_P(Ways, Filtered,
                         testing::Combine(testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                                          testing::Values(ENOSYS, EPERM)),
                         [](const auto &way) {
                             return std::string(std::get<0>(way.param) == KA_WAIT_SAFE ? "safe" : "fast") +
                                    (std::get<1>(way.param) == ENOSYS ? "_ENOSYS" : "_EPERM");
                         });

// Many, so that they are listed in more than one piece.
std::vector<int> open_many()
{
    std::vector<int> many;
    for (int i = 0; i < 200; i++)
        many.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return many;
}

bool refuse_waits(int error)
{
#ifdef SYS_ppoll_time64
    if (!refuse(SYS_ppoll_time64, error)) return false;
#endif
    return refuse(SYS_ppoll, error);
}

bool is_at_end(int reading_end)
{
    struct pollfd end = {reading_end, POLLIN, 0};
    return poll(&end, 1, 0) == 1 && (end.revents & POLLHUP) != 0;
}

} // namespace

TEST_P(Filtered, close_range_leaves_the_ring_and_the_programs_descriptors)
{
    in_child([] {
        int ends[2];
        const std::vector<int> below = open_many();
        if (pipe2(ends, O_CLOEXEC) != 0 || !refuse(SYS_close_range, error())) return 1;
        for (int fd = below.front(); fd <= below.back(); fd += 2)
            close(fd);
        ka_host *host = open_host(KA_STDERR_RING);
        if (call_with(host, "write_errors", 16) != 0) return 2;
        char text[32];
        if (ka_error_output(host, text, sizeof text) != 16 || std::string(text, 16) != "0000000\n0000001\n") return 3;
        close(ends[1]);
        if (!is_at_end(ends[0])) return 4; // no process holds a copy of the other end
        if (fcntl(ends[0], F_GETFD) == -1) return 5;
        return ka_close(host) == KA_DONE ? 0 : 6;
    });
}

TEST_P(Filtered, close_range_holds_up_no_start_under_a_command)
{
    in_child([] {
        constexpr const char *words[] = {"sh", "-c", "\"$@\"; exit 7", "sh", nullptr};
        if (!refuse(SYS_close_range, error())) return 1;
        ka_host *host = open_host(KA_STDERR_INHERIT, -1, words);
        if (call_with(host, "give_code", 7) != 7) return 2;
        return ka_close(host) == KA_DONE ? 0 : 3;
    });
}

TEST_P(Filtered, pidfd_open_leaves_no_host_though_the_program_has_closed_its_descriptor)
{
    for (const bool is_dead : {false, true})
        in_child([is_dead] {
            ka_host *host = open_host(KA_STDERR_INHERIT);
            const pid_t pid = ka_pid(host);
            if (call_with(host, "give_code", 1) != 1 || !refuse(SYS_pidfd_open, error())) return 1;
            closefrom(STDERR_FILENO + 1);
            if (is_dead && (kill(pid, SIGKILL) != 0 || !ends(pid))) return 4;
            if (ka_close(host) != KA_DONE) return 2;
            return kill(pid, 0) == 0 ? 3 : 0;
        });
    in_child([] {
        ka_host *host = open_host(KA_STDERR_INHERIT, eventfd(0, 0)); // without that a call needs no descriptor
        const pid_t pid = ka_pid(host);
        if (call_with(host, "give_code", 1) != 1 || !refuse(SYS_pidfd_open, error())) return 1;
        closefrom(STDERR_FILENO + 1);
        ka_begin(host, "count_call");
        if (call_fails(host) != KA_SYSTEM || ka_last_error(host)->retry != KA_RETRY_YES) return 2;
        if (kill(pid, 0) == 0) return 3;
        return ka_close(host) == KA_DONE ? 0 : 4;
    });
    in_child([] {
        setenv("KA_TRANSPORT", "plain", 1); // it needs descriptors after the first moment
        ka_host *host = open_host(KA_STDERR_INHERIT);
        const pid_t pid = ka_pid(host);
        if (call_with(host, "give_code", 1) != 1 || !refuse(SYS_pidfd_open, error())) return 1;
        closefrom(STDERR_FILENO + 1);
        ka_begin(host, "hang");
        if (call_fails(host) != KA_SYSTEM) return 2;
        if (kill(pid, 0) == 0) return 3;
        return ka_close(host) == KA_DONE ? 0 : 4;
    });
}

// A host that is deaf to SIGTERM is looked at for the grace time, and then ended by force.
TEST_P(Filtered, ppoll_does_not_prolong_the_end)
{
    in_child([] {
        const int cancel = eventfd(0, EFD_CLOEXEC);
        ka_options options = default_options();
        options.waiting = std::get<0>(GetParam());
        options.grace_ms = 100;
        options.cancel_fd = cancel;
        ka_host *host = nullptr;
        if (ka_open(&host, tasks_module.c_str(), &options) != KA_DONE) return 1;
        const pid_t pid = ka_pid(host);
        bool refused = false;
        std::thread other([&] {
            refused = is_in_function(pid) && refuse_waits(error());
            eventfd_write(cancel, 1);
        });
        ka_begin(host, "hang_deaf");
        const int32_t failure = call_fails(host);
        other.join();
        if (!refused || (failure != KA_CANCELLED && failure != KA_SYSTEM)) return 2; // whichever it sees first
        if (kill(pid, 0) == 0) return 3;
        return ka_close(host) == KA_DONE ? 0 : 4;
    });
}
