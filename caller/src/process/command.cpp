/* SPDX-License-Identifier: MIT
 *
 * See command.h. */
#include "command.h"

#include <errno.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "attached.h"
#include "base/clock.h"
#include "base/fd.h"
#include "base/pidfd.h"
#include "block/segment.h"
#include "guard.h"

static void wait_a_moment(void)
{
    constexpr struct timespec moment = {0, NS_PER_MS};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
}

static bool command_has_ended(const ka_host *host)
{
    siginfo_t info;
    return look_at_child(-1, host->process.command, &info, WNOWAIT) != 0 || info.si_pid != 0;
}

/* As the kernel has it, of which not every C library knows. Before Linux 6.15 it does not tell how a process ended.
 */
namespace {
struct t_PIDFD_INFO {
    uint64_t mask;
    uint64_t group;
    uint32_t ids[11];
    int32_t status; /* as wait has it */
};
} // namespace
static constexpr uint64_t PIDFD_EXIT = 1 << 3;
static constexpr unsigned long GET_PIDFD_INFO = _IOWR(0xFF, 11, t_PIDFD_INFO);
static_assert(sizeof(t_PIDFD_INFO) == 64);

static void fill_end(int32_t status, siginfo_t *info)
{
    info->si_code = WIFEXITED(status) ? CLD_EXITED : WCOREDUMP(status) ? CLD_DUMPED : CLD_KILLED;
    info->si_status = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

/* It is told once the parent has taken the zombie, which a moment brings. */
void look_how_it_ended(const ka_host *host, siginfo_t *info)
{
    *info = {};
    const int64_t until = deadline_after_ms(host->options.grace_ms);
    for (;;) {
        t_PIDFD_INFO seen = {};
        seen.mask = PIDFD_EXIT;
        const bool knows = ioctl(host->process.pid_fd, GET_PIDFD_INFO, &seen) == 0 || errno == ESRCH;
        if (knows && (seen.mask & PIDFD_EXIT) != 0 && seen.status != -1) return fill_end(seen.status, info);
        if (!knows || now_ns() >= until) return;
        wait_a_moment();
    }
}

static bool command_ends(const ka_host *host)
{
    const int64_t until = deadline_after_ms(host->options.grace_ms);
    while (!command_has_ended(host)) {
        if (now_ns() >= until) return false;
        wait_a_moment();
    }
    return true;
}

/* By its number, which is that of an unreaped child until this function takes it. A command may have more to do after
   the host's end: to write down what it has measured. */
void end_command(ka_host *host)
{
    siginfo_t info;
    const pid_t command = host->process.command;
    if (command == 0) return;
    constexpr int signals[] = {SIGTERM, SIGKILL};
    for (const int signal : signals) {
        if (command_ends(host)) break;
        kill(command, signal);
        kill(command, SIGCONT);
    }
    command_ends(host);
    const bool is_there = look_at_child(-1, command, &info, WNOWAIT) == 0;
    if (is_there || guard_holds_group(host)) kill(-command, SIGKILL); /* what it has left behind */
    look_at_child(-1, command, &info, 0);
    host->process.command = 0;
}

static void end_all_attached(const ka_host *host)
{
    pid_t pid = 0;
    int pid_fd;
    while ((pid_fd = open_attached(host, &pid)) != -1) {
        struct pollfd end = {pid_fd, POLLIN, 0};
        const bool signalled = signal_process(pid_fd, SIGKILL) == 0;
        const bool ended = signalled && poll(&end, 1, 5000) == 1;
        close_fd(&pid_fd);
        if (!ended) return;
    }
}

/* A host that was not found may attach the segment later. */
void end_strays(ka_host *host)
{
    if (!host->life.words || !host->segment.base) return;
    if (!host->process.attached) spoil_segment(host);
    end_all_attached(host);
    if (!host->process.attached) renew_segment(host);
}
