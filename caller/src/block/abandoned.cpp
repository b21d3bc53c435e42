/* SPDX-License-Identifier: MIT
 *
 * See abandoned.h. Segments that were not removed: their creator was killed between their creation and their mark for
 * removal, a few microseconds, and so was the child that guards it. Every ka_open removes them, and the child whose
 * caller dies while it waits; a marked segment is removed by the system when its last process ends. They are known by
 * the upper half of their key, which a segment loses with the mark, and by their size, their mode and their owner. */
#include "abandoned.h"

#include <errno.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "base/random.h"

enum : uint32_t { KEY_MARK = 0x6b610000, KEY_MARK_BITS = 0xffff0000 };

key_t new_segment_key(uint64_t *random)
{
    return static_cast<key_t>(KEY_MARK | (static_cast<uint32_t>(random_word(random)) & ~KEY_MARK_BITS));
}

/* Seen from another pid namespace a creator has the number 0, and is left alone. */
static bool is_abandoned(const struct shmid_ds *segment, pid_t dead_creator)
{
    if ((static_cast<uint32_t>(segment->shm_perm.__key) & KEY_MARK_BITS) != KEY_MARK) return false;
    if (segment->shm_segsz % SIZE_STEP != SIZE_MARK || (segment->shm_perm.mode & 0777) != 0600) return false;
    if (segment->shm_perm.cuid != geteuid() || segment->shm_cpid <= 0) return false;
    if (dead_creator != 0) return segment->shm_cpid == dead_creator;
    return kill(segment->shm_cpid, 0) == -1 && errno == ESRCH;
}

void remove_abandoned_segments(pid_t dead_creator)
{
    struct shm_info summary;
    const int last = shmctl(0, SHM_INFO, reinterpret_cast<struct shmid_ds *>(&summary));
    for (int i = 0; i <= last; i++) {
        struct shmid_ds segment;
        const int id = shmctl(i, SHM_STAT, &segment);
        if (id != -1 && is_abandoned(&segment, dead_creator)) shmctl(id, IPC_RMID, nullptr);
    }
}
