/* SPDX-License-Identifier: MIT
 *
 * The shared segment: created, laid out, written, removed. It holds the header and room for all descriptors, then the
 * values of a call from VALUES_START on, and ends with the scratch area. */
#include "segment.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include "abandoned.h"
#include "host/owner.h"

/* The scratch area can move up by this much; see place_scratch. */
enum { SLACK = 16 };

/* What is allocated is rounded up, and still an int32_t. */
enum : int32_t { SEGMENT_MAX = INT32_MAX - static_cast<int32_t>(2 * SIZE_STEP) };

/* ---- Fields ---------------------------------------------------------------------------------------------------- */

/* The fields accessed so are aligned: the segment begins on a page. */
static int32_t *word_at(const ka_host *host, int32_t offset)
{
    return static_cast<int32_t *>(static_cast<void *>(host->segment.base + offset));
}

int32_t load32(const ka_host *host, int32_t offset)
{
    int32_t value;
    __atomic_load(word_at(host, offset), &value, __ATOMIC_ACQUIRE);
    return value;
}

void store32(ka_host *host, int32_t offset, int32_t value)
{
    __atomic_store(word_at(host, offset), &value, __ATOMIC_RELEASE);
}

/* The module uses addresses by their distance from base alone, and of each the low 32 bits alone. */
static void store_address(ka_host *host, int32_t offset, const char *address)
{
    const uint64_t wide = reinterpret_cast<uintptr_t>(address);
    if (host->segment.layout->address_size == sizeof wide)
        memcpy(host->segment.base + offset, &wide, sizeof wide);
    else
        memcpy(host->segment.base + offset, &wide, sizeof(uint32_t));
}

int32_t descriptor_offset(const ka_host *host, int32_t index)
{
    return host->segment.layout->args + index * host->segment.layout->arg_size;
}

void write_descriptor(ka_host *host, int32_t index)
{
    const t_ARGUMENT *argument = &host->arguments[index];
    const int32_t at = descriptor_offset(host, index);
    store32(host, at + wire::ARG_TYPE_AT, argument->type);
    store32(host, at + wire::ARG_REF_AT, argument->passing);
    store_address(host, at + wire::ARG_PTR_AT, host->segment.base + argument->offset);
    const int32_t counts = at + host->segment.layout->arg_counts;
    store32(host, counts, argument->room);
    store32(host, counts + 4, argument->stride / 4);
    store32(host, counts + 8, argument->count);
}

bool still_by_reference(const ka_host *host, int32_t index)
{
    return load32(host, descriptor_offset(host, index) + wire::ARG_REF_AT) != 0;
}

void store_caller(ka_host *host, pid_t caller)
{
    store32(host, wire::PID_AT, caller);
}

static const char *scratch_address(const ka_host *host)
{
    return host->options.scratch_bytes > 0 ? host->segment.base + host->segment.scratch_offset : nullptr;
}

/* Written again for every call, since a module can have overwritten it. argc is 0 until a call is complete. */
void write_header(ka_host *host)
{
    const t_LAYOUT *layout = host->segment.layout;
    memcpy(host->segment.base, DLL_MAGIC, wire::MAGIC_SIZE);
    store32(host, wire::VERSION_AT, DLL_VERSION);
    store_caller(host, host->life.caller);
    store_address(host, layout->base, host->segment.base);
    store32(host, layout->shmsz, host->segment.size);
    store_address(host, layout->scratch, scratch_address(host));
    store32(host, layout->argc, 0);
}

static bool holds_address(const ka_host *host, int32_t offset, const char *address)
{
    const uint64_t wide = reinterpret_cast<uintptr_t>(address);
    return memcmp(host->segment.base + offset, &wide, static_cast<size_t>(host->segment.layout->address_size)) == 0;
}

/* Those that only the caller writes, in the order of their names. */
uint32_t overwritten_fields(const ka_host *host, pid_t caller)
{
    const t_LAYOUT *layout = host->segment.layout;
    const bool kept[] = {memcmp(host->segment.base, DLL_MAGIC, wire::MAGIC_SIZE) == 0,
                         load32(host, wire::VERSION_AT) == DLL_VERSION,
                         load32(host, wire::PID_AT) == caller,
                         holds_address(host, layout->base, host->segment.base),
                         load32(host, layout->shmsz) == host->segment.size,
                         holds_address(host, layout->scratch, scratch_address(host))};
    uint32_t fields = 0;
    for (size_t i = 0; i < sizeof kept / sizeof kept[0]; i++)
        if (!kept[i]) fields |= uint32_t{1} << i;
    return fields;
}

const char *header_field(int number)
{
    static constexpr const char *names[] = {"magic", "version", "pid", "base", "shmsz", "scratch", nullptr};
    return names[number];
}

void write_overwritten(uint32_t fields, char *text, size_t size)
{
    size_t length = 0;
    text[0] = '\0';
    for (int i = 0; header_field(i) && length < size; i++)
        if (fields >> i & 1)
            length += static_cast<size_t>(
                snprintf(text + length, size - length, "%s%s", length > 0 ? ", " : "", header_field(i)));
}

/* ---- The segment ----------------------------------------------------------------------------------------------- */

int32_t check_sizes(ka_host *host)
{
    const ka_options *options = &host->options;
    if (options->layout != KA_LAYOUT_NATIVE && options->layout != KA_LAYOUT_64)
        return fail(host, KA_ARGUMENT, "layout is %d; it is KA_LAYOUT_NATIVE (%d) or KA_LAYOUT_64 (%d)",
                    options->layout, KA_LAYOUT_NATIVE, KA_LAYOUT_64);
    if (options->scratch_bytes < 0)
        return fail(host, KA_ARGUMENT, "scratch_bytes is %d; it must not be below 0", options->scratch_bytes);
    if (options->segment_bytes < VALUES_START || options->segment_bytes - VALUES_START < options->scratch_bytes)
        return fail(host, KA_ARGUMENT, "segment_bytes is %d; it must be at least scratch_bytes (%d) + %d",
                    options->segment_bytes, options->scratch_bytes, VALUES_START);
    if (options->segment_bytes > SEGMENT_MAX)
        return fail(host, KA_ARGUMENT, "segment_bytes is %d; it must not be above %d", options->segment_bytes,
                    SEGMENT_MAX);
    return KA_DONE;
}

/* Where only 32 bits of an address are stored, a scratch area whose low bits are all zero would count as none. */
static void place_scratch(ka_host *host)
{
    host->segment.size = host->options.segment_bytes;
    host->segment.scratch_offset = host->segment.size - host->options.scratch_bytes;
    if (static_cast<uint32_t>(reinterpret_cast<uintptr_t>(host->segment.base + host->segment.scratch_offset)) == 0) {
        host->segment.size += SLACK;
        host->segment.scratch_offset += SLACK;
    }
}

static size_t allocated_bytes(const ka_host *host)
{
    const size_t needed = static_cast<size_t>(host->options.segment_bytes) + SLACK;
    return (needed + SIZE_STEP - 1) / SIZE_STEP * SIZE_STEP + SIZE_MARK;
}

/* The segment is marked for removal as soon as it is attached: from then on it vanishes with its last user. Linux
   lets the host, and one that is started after it, attach it by its identifier all the same. Before that it would
   outlive a caller that is killed; so it has a key and a size by which it is recognised and removed (abandoned.cpp):
   by the child that waits to become the host, or when both were killed, by the next program that opens one. Null, and
   an errno, on failure. */
static void *attach_segment(ka_host *host, int *error)
{
    do {
        host->segment.id = shmget(new_segment_key(&host->random), allocated_bytes(host), IPC_CREAT | IPC_EXCL | 0600);
    } while (host->segment.id == -1 && errno == EEXIST);
    if (host->segment.id == -1) {
        *error = errno;
        return nullptr;
    }
    void *base = shmat(host->segment.id, nullptr, 0);
    const bool attached = base != reinterpret_cast<void *>(-1);
    if (!attached) *error = errno;
    if (shmctl(host->segment.id, IPC_RMID, nullptr) == 0) return attached ? base : nullptr;
    *error = errno;
    shmctl(host->segment.id, IPC_RMID, nullptr); /* one that is not marked outlives its users */
    if (attached) shmdt(base);
    return nullptr;
}

static t_ANNEX *annex_at(char *place)
{
    return static_cast<t_ANNEX *>(static_cast<void *>(place));
}

int32_t create_segment(ka_host *host)
{
    int error = 0;
    host->segment.base = static_cast<char *>(attach_segment(host, &error));
    if (!host->segment.base) {
        char what[64];
        snprintf(what, sizeof what, "cannot create a shared segment of %d bytes", host->options.segment_bytes);
        return fail_system(host, error, what);
    }
    /* A child that the program forks must not keep the segment alive. */
    madvise(host->segment.base, allocated_bytes(host), MADV_DONTFORK);
    host->segment.layout = host->options.layout == KA_LAYOUT_64 ? &wire::layout_64 : &wire::layout_32;
    place_scratch(host);
    host->segment.annex = annex_at(host->segment.base + allocated_bytes(host) - SIZE_MARK);
    return KA_DONE;
}

void spoil_segment(ka_host *host)
{
    memset(host->segment.base, 0, wire::MAGIC_SIZE);
}

void renew_segment(ka_host *host)
{
    int error = 0;
    const int32_t old_id = host->segment.id;
    void *copy = attach_segment(host, &error);
    const int32_t new_id = host->segment.id;
    host->segment.id = old_id;
    if (!copy) return;
    memcpy(copy, host->segment.base, allocated_bytes(host));
    const void *moved = shmat(new_id, host->segment.base, SHM_REMAP);
    shmdt(copy);
    if (moved != host->segment.base) return;
    madvise(host->segment.base, allocated_bytes(host), MADV_DONTFORK);
    host->segment.id = new_id;
}

void remove_segment(ka_host *host)
{
    if (host->segment.base) shmdt(host->segment.base);
    host->segment = no_segment;
}

void *ka_scratch(ka_host *host, int32_t *size)
{
    COME_IN(host, nullptr);
    const bool there = host->segment.base && host->options.scratch_bytes > 0;
    if (size) *size = there ? host->options.scratch_bytes : 0;
    return there ? host->segment.base + host->segment.scratch_offset : nullptr;
}
