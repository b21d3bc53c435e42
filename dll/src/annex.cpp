/* SPDX-License-Identifier: MIT
 *
 * See annex.h. */
#include "annex.h"

#include <linux/futex.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "wire/annex.h"
#include "wire/spin.h"

namespace {

t_ANNEX *found; /* null without one */
t_ANNEX *annex; /* the same once it is offered */
uint32_t own_thread;
int32_t caller; /* process */

/* Kept here, and only shown there. */
uint32_t taken; /* the number of the request that was taken last */
uint32_t started;
uint32_t done;
uint32_t waits; /* what was said last */

/* As the request that was taken last says. */
bool quiet;
uint32_t spin_us;
uint32_t caller_cpu;

t_SPIN spin = wire::new_spin;

t_ANNEX *annex_behind(void *block, int32_t block_bytes, size_t segment_bytes)
{
    if (segment_bytes % wire::ANNEX_STEP != wire::ANNEX_MARK) return nullptr;
    const size_t offset = segment_bytes - wire::ANNEX_MARK;
    if (block_bytes < 0 || static_cast<size_t>(block_bytes) > offset) return nullptr;
    t_ANNEX *there = static_cast<t_ANNEX *>(static_cast<void *>(static_cast<char *>(block) + offset));
    return memcmp(there->magic, wire::ANNEX_MAGIC, sizeof there->magic) == 0 ? there : nullptr;
}

pthread_mutex_t *mutex_of(t_ANNEX *there)
{
    static_assert(sizeof(pthread_mutex_t) <= sizeof there->mutex && alignof(pthread_mutex_t) <= 64);
    return static_cast<pthread_mutex_t *>(static_cast<void *>(there->mutex));
}

void wake(const void *word)
{
    syscall(SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

bool hold(t_ANNEX *there)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    return pthread_mutex_init(mutex_of(there), &attributes) == 0 && pthread_mutex_lock(mutex_of(there)) == 0;
}

} // namespace

/* With a C library whose mutex begins with another word the host does without. */
void host::find_annex(void *block, int32_t block_bytes, size_t segment_bytes)
{
    t_ANNEX *there = annex_behind(block, block_bytes, segment_bytes);
    if (there == nullptr || !hold(there)) return;
    found = there;
    own_thread = static_cast<uint32_t>(getpid());
    if (found->life != own_thread) leave_annex();
}

void host::offer_annex(void)
{
    if (found == nullptr) return;
    annex = found;
    caller = annex->caller;
    taken = 0;
    __atomic_store_n(&annex->host, static_cast<int32_t>(own_thread), __ATOMIC_SEQ_CST);
    wake(&annex->host);
}

void host::leave_annex(void)
{
    if (found != nullptr) pthread_mutex_unlock(mutex_of(found));
    found = nullptr;
    annex = nullptr;
}

bool host::has_annex(void)
{
    return annex != nullptr;
}

/* Written only where another value is there: the caller may be looking at the words beside it. */
static void show(uint32_t *word, uint32_t value)
{
    if (__atomic_load_n(word, __ATOMIC_RELAXED) != value) __atomic_store_n(word, value, __ATOMIC_SEQ_CST);
}

/* Both each time, since the module can have overwritten them. */
static void show_counts(void)
{
    show(&annex->done, done);
    show(&annex->started, started);
}

void host::begin_call(void)
{
    if (annex == nullptr) return;
    take_request();
    started++;
    show_counts();
}

/* A call that a function has let in while it ran ends before its own. */
void host::end_call(void)
{
    if (annex == nullptr) return;
    done++;
    show_counts();
}

bool host::has_request(void)
{
    return annex == nullptr || __atomic_load_n(&annex->request, __ATOMIC_SEQ_CST) != taken;
}

/* Said before it is counted. The caller counts the next number only when it has seen a reply to this one, or the host
   at rest after it; so what is said here and what is then taken belong together. */
bool host::is_answer(void)
{
    return annex == nullptr || __atomic_load_n(&annex->answers, __ATOMIC_RELAXED) != 0;
}

void host::take_request(void)
{
    if (annex == nullptr) return;
    taken = __atomic_load_n(&annex->request, __ATOMIC_SEQ_CST);
    quiet = annex->without_signal != 0;
    spin_us = annex->spin_us;
    caller_cpu = annex->caller_cpu;
}

bool host::is_leftover(int32_t sender)
{
    return annex != nullptr && sender == caller && !has_request();
}

bool host::is_stranger(int32_t pid)
{
    return annex != nullptr && pid != caller;
}

/* The caller puts the mark that it waits into life and looks at the reply once more before it sleeps; so it either
   sees the reply, or is woken. */
bool host::tell_reply(bool callback)
{
    if (annex == nullptr) return false;
    __atomic_store_n(&annex->reply, wire::reply_to(taken, callback), __ATOMIC_SEQ_CST);
    const uint32_t before = __atomic_exchange_n(&annex->life, own_thread, __ATOMIC_SEQ_CST);
    if ((before & wire::LIFE_WAITED_FOR) != 0) wake(&annex->life);
    return annex->wants_signal == 0;
}

/* ---- Without a signal ------------------------------------------------------------------------------------------ */

bool host::may_come_quietly(void)
{
    return annex != nullptr && quiet;
}

static void say(uint32_t how)
{
    waits = how;
    show(&annex->waits, how);
}

/* A caller that does without has never been told anything else than what the wiped annex says. */
void host::before_reply(bool waits_quietly)
{
    if (annex == nullptr || (!quiet && waits == wire::HOST_IN_SIGSUSPEND)) return;
    show(&annex->host_cpu, wire::cpu_number());
    say(quiet && waits_quietly ? wire::HOST_AWAKE : wire::HOST_IN_SIGSUSPEND);
}

/* A signal may bring any number; without one only the very next is one. So a module that overwrites the word makes no
   function run twice. */
static bool has_quiet_request(void)
{
    return __atomic_load_n(&annex->request, __ATOMIC_SEQ_CST) == taken + 1;
}

/* For 2 ms at most. Whatever ends the sleep before that without a request, a handler of the module's or a word that
   was overwritten: the wait for signals follows. */
static bool sleep_until_quiet_request(void)
{
    constexpr struct timespec longest = {0, 2 * wire::NS_PER_MS};
    say(wire::HOST_SLEEPS_ON_REQUEST);
    const uint32_t now = __atomic_load_n(&annex->request, __ATOMIC_SEQ_CST);
    if (now != taken + 1) syscall(SYS_futex, &annex->request, FUTEX_WAIT, now, &longest, nullptr, 0);
    return has_quiet_request();
}

/* Of the word that says so; false where the caller has seen it, and sends the signal. */
static bool take_back_wait_for_signal(void)
{
    uint32_t said = wire::HOST_IN_SIGSUSPEND;
    if (!__atomic_compare_exchange_n(&annex->waits, &said, uint32_t{wire::HOST_AWAKE}, false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_SEQ_CST))
        return false;
    waits = wire::HOST_AWAKE;
    return true;
}

static bool comes_at_last(void)
{
    say(wire::HOST_IN_SIGSUSPEND);
    return has_quiet_request() && take_back_wait_for_signal();
}

static bool comes_quietly(void)
{
    if (waits == wire::HOST_IN_SIGSUSPEND && !take_back_wait_for_signal()) return false;
    if (has_quiet_request()) return true;
    const bool spins = spin_us > 0 && wire::spinning_pays(&spin, caller_cpu);
    if (spins && wire::spin_until(&spin, spin_us, has_quiet_request)) return true;
    return sleep_until_quiet_request() || comes_at_last();
}

bool host::await_quietly(void)
{
    quiet = may_come_quietly() && comes_quietly();
    return quiet;
}

/* The kernel lets a process say of a signal to itself what it likes. */
void host::turn_into_signal(void)
{
    siginfo_t info = {};
    info.si_signo = SIGUSR2;
    info.si_code = SI_USER;
    info.si_pid = caller;
    info.si_uid = getuid();
    say(wire::HOST_IN_SIGSUSPEND);
    quiet = false;
    syscall(SYS_rt_sigqueueinfo, getpid(), SIGUSR2, &info);
}
