// SPDX-License-Identifier: MIT
//
// Nothing is left: no process, no segment, no descriptor, whichever side ends how.
#include "caller/hosts.h"

#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "caller/waiting.h"

TEST(Leftovers, many_hosts_in_a_row_leave_no_process_segment_or_descriptor)
{
    {
        Host warm_up;
    }
    const int before = open_descriptors();
    for (int32_t i = 0; i < 50; i++) {
        pid_t pid;
        int segment;
        {
            Host host;
            pid = ka_pid(host);
            segment = segment_of(pid);
            if (i % 2 == 0) {
                ASSERT_EQ(call_with(host, "give_code", i), i);
            }
        }
        ASSERT_EQ(kill(pid, 0), -1);
        ASSERT_TRUE(segment_vanishes(segment));
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Leftovers, failed_starts_leave_no_descriptor_and_no_child)
{
    start_library_thread();
    const int before = open_descriptors();
    for (const std::string &module : {no_loader_module, std::string("/no/such/file"), std::string("/tmp")}) {
        for (int i = 0; i < 10; i++) {
            ka_host *host;
            EXPECT_EQ(ka_open(&host, module.c_str(), nullptr), KA_START);
            EXPECT_EQ(open_descriptors(), before);
            ka_close(host);
        }
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Leftovers, segment_is_marked_for_removal_while_it_is_used)
{
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    struct shmid_ds status;
    ASSERT_EQ(shmctl(segment_of(ka_pid(host)), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_nattch, 2u);
    EXPECT_EQ(status.shm_perm.mode & 0777, 0600);
    EXPECT_NE(status.shm_perm.mode & SHM_DEST, 0);
}

TEST(Leftovers, forked_child_of_the_caller_does_not_hold_the_segment)
{
    int segment;
    pid_t child;
    {
        Host host;
        segment = segment_of(ka_pid(host));
        child = fork();
        if (child == 0) {
            pause();
            _exit(0);
        }
    }
    EXPECT_TRUE(segment_vanishes(segment));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

// ---- The caller is killed --------------------------------------------------------------------------------------

struct Started {
    pid_t caller;
    pid_t host;
    int segment;
};

// A caller in a process of its own, which writes its host's process id and then makes a call of function, or none.
// Orphans come to this process, so that their end can be waited for.
static Started start_caller(const char *function, bool in_callback)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int report[2];
    EXPECT_EQ(pipe(report), 0);
    const pid_t caller = fork();
    if (caller == 0) {
        signal(SIGINT, SIG_DFL); // ignored where a shell runs this in the background
        static int report_fd;
        report_fd = report[1];
        ka_options options = default_options();
        options.callback = [](ka_host *host, int32_t, void *) -> int32_t {
            const int32_t pid = ka_pid(host);
            if (write(report_fd, &pid, sizeof pid) != sizeof pid) _exit(1);
            for (;;)
                pause();
        };
        ka_host *host;
        if (ka_open(&host, tasks_module.c_str(), &options) != KA_DONE) _exit(1);
        const int32_t pid = ka_pid(host);
        if (!in_callback && write(report_fd, &pid, sizeof pid) != sizeof pid) _exit(1);
        int32_t code;
        ka_begin(host, function ? function : "");
        if (in_callback) ka_add_integer(host, 1, KA_BY_VALUE);
        if (function) ka_call(host, &code);
        for (;;)
            pause();
    }
    close(report[1]);
    Started started = {caller, 0, -1};
    EXPECT_EQ(read(report[0], &started.host, sizeof started.host), static_cast<ssize_t>(sizeof started.host));
    close(report[0]);
    started.segment = segment_of(started.host);
    return started;
}

static void expect_nothing_left(const Started &started)
{
    EXPECT_TRUE(ends(started.host));
    waitpid(started.host, nullptr, 0);
    EXPECT_TRUE(segment_vanishes(started.segment));
}

TEST(CallerDeath, by_any_signal_ends_the_host_and_frees_the_segment)
{
    const struct {
        const char *function;
        bool in_callback;
    } moments[] = {{nullptr, false}, {"hang", false}, {"ask", true}};
    for (const auto &[function, in_callback] : moments) {
        for (int signal : {SIGKILL, SIGTERM, SIGINT, SIGABRT}) {
            const Started started = start_caller(function, in_callback);
            kill(started.caller, signal);
            waitpid(started.caller, nullptr, 0);
            expect_nothing_left(started);
        }
    }
}

// Ends every child of this process, orphans that came to it included.
static void await_children()
{
    while (waitpid(-1, nullptr, 0) > 0)
        ;
    EXPECT_EQ(errno, ECHILD);
}

TEST(CallerDeath, at_random_moments_of_a_start_leaves_no_host_and_no_segment)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (int round = 0; round < 100; round++) {
        const pid_t caller = fork();
        if (caller == 0) {
            for (;;) {
                ka_host *host;
                ka_open(&host, tasks_module.c_str(), nullptr);
                ka_close(host);
            }
        }
        usleep(static_cast<useconds_t>(500 + round * 61));
        kill(caller, SIGKILL);
        EXPECT_EQ(waitpid(caller, nullptr, 0), caller);
        await_children();
        ASSERT_TRUE(segments_of_creator_vanish(caller));
    }
}

static bool no_child_is_left()
{
    while (waitpid(-1, nullptr, WNOHANG) > 0)
        ;
    return errno == ECHILD;
}

// Their children are born while others wait, and hold copies of what the others wait for.
TEST(CallerDeath, in_starts_of_many_threads_leaves_no_host)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (int round = 0; round < 100; round++) {
        const pid_t caller = fork();
        if (caller == 0) {
            std::vector<std::thread> threads;
            for (int i = 0; i < 8; i++)
                threads.emplace_back([] {
                    for (;;) {
                        ka_host *host;
                        ka_open(&host, tasks_module.c_str(), nullptr);
                        ka_close(host);
                    }
                });
            pause();
        }
        usleep(static_cast<useconds_t>(2000 + round * 211));
        kill(caller, SIGKILL);
        ASSERT_TRUE(becomes_true(no_child_is_left)) << "in round " << round;
        ASSERT_TRUE(segments_of_creator_vanish(caller));
    }
}

// Lets a traced process run to its next entry into or exit from a system call; false when it has ended.
static bool run_to_next_system_call(pid_t pid)
{
    constexpr int at_system_call = SIGTRAP | 0x80;
    int status = 0;
    int signal = 0;
    do {
        ptrace(PTRACE_SYSCALL, pid, nullptr, signal == SIGTRAP ? 0 : signal);
        if (waitpid(pid, &status, __WALL) != pid || !WIFSTOPPED(status)) return false;
        signal = WSTOPSIG(status);
    } while (signal != at_system_call);
    return true;
}

static pid_t start_traced_caller(int32_t waiting)
{
    const pid_t caller = fork();
    if (caller == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        ka_host *host;
        int32_t code;
        ka_options options = default_options();
        options.waiting = waiting;
        ka_open(&host, tasks_module.c_str(), &options);
        ka_begin(host, "count_call");
        ka_call(host, &code);
        ka_close(host);
        _exit(0);
    }
    EXPECT_EQ(waitpid(caller, nullptr, 0), caller);
    EXPECT_EQ(ptrace(PTRACE_SETOPTIONS, caller, nullptr, PTRACE_O_TRACESYSGOOD), 0);
    return caller;
}

// ---- Caller and child are killed together ----------------------------------------------------------------------

// A segment as it is before its mark, of a creator that has gone, but for the given differences.
static int abandon_segment(key_t key, size_t size, int mode)
{
    int report[2];
    EXPECT_EQ(pipe(report), 0);
    const pid_t creator = fork();
    if (creator == 0) {
        const int id = shmget(key, size, IPC_CREAT | IPC_EXCL | mode);
        _exit(write(report[1], &id, sizeof id) == sizeof id ? 0 : 1);
    }
    int id = -1;
    EXPECT_EQ(read(report[0], &id, sizeof id), static_cast<ssize_t>(sizeof id));
    close(report[0]);
    close(report[1]);
    EXPECT_EQ(waitpid(creator, nullptr, 0), creator);
    EXPECT_NE(id, -1);
    return id;
}

// The key and size of a segment that a caller has created and not marked yet.
static struct shmid_ds unmarked_segment()
{
    const pid_t caller = start_traced_caller(KA_WAIT_FAST); // one thread does it all
    struct shmid_ds found = {};
    while (found.shm_segsz == 0 && run_to_next_system_call(caller)) {
        const int last = shmctl(0, IPC_INFO, &found);
        found = {};
        for (int i = 0; i <= last && found.shm_segsz == 0; i++) {
            struct shmid_ds segment;
            const bool meant = shmctl(i, SHM_STAT, &segment) != -1 && segment.shm_cpid == caller;
            if (meant && segment.shm_perm.__key != IPC_PRIVATE) found = segment;
        }
    }
    kill(caller, SIGKILL);
    await_children();
    return found;
}

TEST(CallerDeath, with_its_child_leaves_a_segment_that_the_next_start_removes)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const struct shmid_ds pattern = unmarked_segment();
    ASSERT_NE(pattern.shm_segsz, 0u);
    const int id = abandon_segment(pattern.shm_perm.__key, pattern.shm_segsz, 0600);
    EXPECT_EQ(users_of(id), 0);
    Host host;
    EXPECT_EQ(users_of(id), -1);
}

// Segments of living creators, and of others who happen to have chosen a similar key or size, are left alone.
TEST(CallerDeath, removes_no_segment_that_can_be_somebody_elses)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const struct shmid_ds pattern = unmarked_segment();
    const key_t key = pattern.shm_perm.__key;
    ASSERT_NE(pattern.shm_segsz, 0u);
    const int kept[] = {abandon_segment(key ^ 0x1000000, pattern.shm_segsz, 0600),
                        abandon_segment(key ^ 1, pattern.shm_segsz + 1, 0600),
                        abandon_segment(key ^ 2, pattern.shm_segsz, 0660),
                        shmget(key ^ 3, pattern.shm_segsz, IPC_CREAT | IPC_EXCL | 0600)};
    {
        Host host;
        for (int id : kept)
            EXPECT_EQ(users_of(id), 0);
    }
    for (int id : kept)
        shmctl(id, IPC_RMID, nullptr);
}

// ---- At every moment -------------------------------------------------------------------------------------------

// Start, call and end, killed before and after each of their system calls.
static void kill_caller_at_every_system_call(int32_t waiting)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int moments = 0;
    for (bool alive = true; alive; moments++) {
        const pid_t caller = start_traced_caller(waiting);
        for (int i = 0; i < moments && alive; i++)
            alive = run_to_next_system_call(caller);
        kill(caller, SIGKILL);
        await_children();
        ASSERT_TRUE(segments_of_creator_vanish(caller)) << "killed at stop " << moments;
    }
    EXPECT_GT(moments, 60);
}

TEST(CallerDeath, at_every_system_call_leaves_no_host_and_no_segment)
{
    kill_caller_at_every_system_call(KA_WAIT_SAFE);
}

TEST(CallerDeath, at_every_system_call_leaves_nothing_of_a_host_that_waits_fast)
{
    kill_caller_at_every_system_call(KA_WAIT_FAST);
}

// Lets the traced caller run until it has a child, and both are stopped: the child is traced from its birth on.
static pid_t trace_child_of(pid_t caller)
{
    int status = 0;
    unsigned long child = 0;
    ptrace(PTRACE_SETOPTIONS, caller, nullptr, PTRACE_O_TRACEFORK | PTRACE_O_TRACESYSGOOD);
    ptrace(PTRACE_CONT, caller, nullptr, nullptr);
    EXPECT_EQ(waitpid(caller, &status, 0), caller);
    EXPECT_EQ(status >> 8, SIGTRAP | (PTRACE_EVENT_FORK << 8));
    ptrace(PTRACE_GETEVENTMSG, caller, nullptr, &child);
    const auto pid = static_cast<pid_t>(child);
    EXPECT_EQ(waitpid(pid, &status, __WALL), pid);
    return pid;
}

static bool is_about_to_wait(pid_t pid)
{
    struct __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return false;
#ifdef SYS_ppoll_time64
    if (info.entry.nr == SYS_ppoll_time64) return true;
#endif
    return info.entry.nr == SYS_ppoll;
}

// The child has not run at all, so it has not asked for a signal at its parent's death, and must find out by itself.
TEST(CallerDeath, before_its_child_runs_leaves_no_host_and_no_segment)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int moments = 0;
    for (bool waits = false; !waits; moments++) {
        const pid_t caller = start_traced_caller(KA_WAIT_FAST); // one thread does it all
        const pid_t child = trace_child_of(caller);
        for (int i = 0; i < moments && !waits; i++) {
            ASSERT_TRUE(run_to_next_system_call(caller));
            waits = is_about_to_wait(caller);
        }
        kill(caller, SIGKILL);
        EXPECT_EQ(waitpid(caller, nullptr, 0), caller);
        ptrace(PTRACE_DETACH, child, nullptr, nullptr);
        await_children();
        ASSERT_TRUE(segments_of_creator_vanish(caller)) << "killed at stop " << moments;
    }
    EXPECT_GT(moments, 10);
}

// From its birth over its start and its call to its end, the host is killed before and after each of its system
// calls.
TEST(HostKilled, at_every_system_call_leaves_no_host_and_no_segment)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int moments = 0;
    for (bool alive = true; alive; moments++) {
        const pid_t caller = start_traced_caller(KA_WAIT_FAST); // one thread does it all
        const pid_t host = trace_child_of(caller);
        ptrace(PTRACE_DETACH, caller, nullptr, nullptr);
        for (int i = 0; i < moments && alive; i++)
            alive = run_to_next_system_call(host);
        kill(host, SIGKILL);
        await_children();
        ASSERT_TRUE(segments_of_creator_vanish(caller)) << "killed at stop " << moments;
    }
    EXPECT_GT(moments, 100);
}

TEST(CallerDeath, host_that_waits_fast_ends_with_the_thread_that_opened_it)
{
    ka_options options = default_options();
    options.waiting = KA_WAIT_FAST;
    pid_t pid = 0;
    ka_host *host = nullptr;
    sigset_t set;
    sigset_t before;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    sigprocmask(SIG_BLOCK, &set, &before);
    std::thread([&] {
        ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE);
        pid = ka_pid(host);
        EXPECT_EQ(call_with(host, "give_code", 1), 1);
    }).join();
    EXPECT_TRUE(ends(pid));
    EXPECT_EQ(kill(pid, 0), 0) << "a zombie until it is closed";
    EXPECT_EQ(ka_close(host), KA_DONE);
    EXPECT_EQ(kill(pid, 0), -1);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}
