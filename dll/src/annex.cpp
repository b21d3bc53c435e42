/* SPDX-License-Identifier: MIT
 *
 * See annex.h. */
#include "annex.h"

#include <linux/futex.h>
#include <pthread.h>
#include <string.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "wire/annex.h"

namespace {

t_ANNEX *found; /* null without one */
t_ANNEX *annex; /* the same once it is offered */
uint32_t own_thread;
int32_t caller; /* process */

/* Kept here, and only shown there. */
uint32_t taken; /* the number of the request that was taken last */
uint32_t started;
uint32_t done;

t_ANNEX *annex_behind(void *block, int32_t block_bytes, int32_t id)
{
    struct shmid_ds segment;
    if (shmctl(id, IPC_STAT, &segment) != 0 || segment.shm_segsz % wire::ANNEX_STEP != wire::ANNEX_MARK)
        return nullptr;
    const size_t offset = segment.shm_segsz - wire::ANNEX_MARK;
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
void host::find_annex(void *block, int32_t block_bytes, int32_t id)
{
    t_ANNEX *there = annex_behind(block, block_bytes, id);
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

/* Both are shown each time, since the module can have overwritten them. */
static void show_counts(void)
{
    __atomic_store_n(&annex->done, done, __ATOMIC_SEQ_CST);
    __atomic_store_n(&annex->started, started, __ATOMIC_SEQ_CST);
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

void host::take_request(void)
{
    if (annex != nullptr) taken = __atomic_load_n(&annex->request, __ATOMIC_SEQ_CST);
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
