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
    if (options->segment_max != 0 &&
        (options->segment_max < options->segment_bytes || options->segment_max > SEGMENT_MAX))
        return fail(host, KA_ARGUMENT, "segment_max is %d; it must be 0, or segment_bytes (%d) to %d",
                    options->segment_max, options->segment_bytes, SEGMENT_MAX);
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

static size_t allocated_for(int32_t segment_bytes)
{
    const size_t needed = static_cast<size_t>(segment_bytes) + SLACK;
    return (needed + SIZE_STEP - 1) / SIZE_STEP * SIZE_STEP + SIZE_MARK;
}

static size_t allocated_bytes(const ka_host *host)
{
    return allocated_for(host->options.segment_bytes);
}

/* Whole pages. */
static size_t mapped_bytes(size_t allocated)
{
    return (allocated + SIZE_STEP - 1) / SIZE_STEP * SIZE_STEP;
}

/* The segment is marked for removal as soon as it is attached: from then on it vanishes with its last user. Linux
   lets the host, and one that is started after it, attach it by its identifier all the same. Before that it would
   outlive a caller that is killed; so it has a key and a size by which it is recognised and removed (abandoned.cpp):
   by the child that waits to become the host, or when both were killed, by the next program that opens one. In the
   place that is given, or anywhere. Null, and an errno, on failure. */
static void *attach_segment(ka_host *host, const char *place, int *error)
{
    do {
        host->segment.id = shmget(new_segment_key(&host->random), allocated_bytes(host), IPC_CREAT | IPC_EXCL | 0600);
    } while (host->segment.id == -1 && errno == EEXIST);
    if (host->segment.id == -1) {
        *error = errno;
        return nullptr;
    }
    void *base = shmat(host->segment.id, place, place ? SHM_REMAP : 0);
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

/* Room for it to grow, at the end of which it lies: so neither the scratch area nor the annex ever moves. 0 or an
   errno. */
static int reserve_addresses(ka_host *host)
{
    if (host->segment.reserved || host->options.segment_max <= host->options.segment_bytes) return 0;
    const size_t bytes = mapped_bytes(allocated_for(host->options.segment_max)) + SIZE_STEP;
    void *reserved = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (reserved == MAP_FAILED) return errno;
    madvise(reserved, bytes, MADV_DONTFORK); /* nor must it have what else comes to lie there */
    host->segment.reserved = static_cast<char *>(reserved);
    host->segment.reserved_bytes = bytes;
    return 0;
}

/* Of the segment, whose place and size are known. */
static void find_parts(ka_host *host)
{
    host->segment.layout = host->options.layout == KA_LAYOUT_64 ? &wire::layout_64 : &wire::layout_32;
    place_scratch(host);
    host->segment.annex = annex_at(host->segment.base + allocated_bytes(host) - SIZE_MARK);
    /* A child that the program forks must not keep the segment alive. */
    madvise(host->segment.base, allocated_bytes(host), MADV_DONTFORK);
}

static int32_t fail_segment(ka_host *host, int error)
{
    char what[64];
    snprintf(what, sizeof what, "cannot create a shared segment of %d bytes", host->options.segment_bytes);
    return fail_system(host, error, what);
}

int32_t create_segment(ka_host *host)
{
    int error = reserve_addresses(host);
    if (error != 0) return fail_system(host, error, "cannot reserve addresses for segment_max");
    char *place = host->segment.reserved;
    if (place) place += host->segment.reserved_bytes - mapped_bytes(allocated_bytes(host));
    host->segment.base = static_cast<char *>(attach_segment(host, place, &error));
    if (!host->segment.base) return fail_segment(host, error);
    find_parts(host);
    return KA_DONE;
}

void spoil_segment(ka_host *host)
{
    memset(host->segment.base, 0, wire::MAGIC_SIZE);
}

/* As far as they were written; of an argument that does not fit yet, what would be in its place. */
static void copy_values(const ka_host *host, char *to)
{
    const int64_t used =
        host->building.cursor < host->segment.scratch_offset ? host->building.cursor : host->segment.scratch_offset;
    memcpy(to, host->segment.base, static_cast<size_t>(used > VALUES_START ? used : int64_t{VALUES_START}));
}

/* What a call and the scratch area have in it. The rest of a segment that has grown was never touched. */
static void copy_content(const ka_host *host, char *to)
{
    if (!host->segment.is_private) {
        memcpy(to, host->segment.base, allocated_bytes(host));
        return;
    }
    const int32_t scratch = host->segment.scratch_offset;
    copy_values(host, to);
    memcpy(to + scratch, host->segment.base + scratch, static_cast<size_t>(host->segment.size - scratch));
}

/* The last process that could attach it has ended. */
static void forget_old_segment(ka_host *host)
{
    if (host->segment.old) shmdt(host->segment.old);
    host->segment.old = nullptr;
}

/* A new one in the same place. 0 or an errno. */
static int replace_segment(ka_host *host)
{
    int error = 0;
    const int32_t old_id = host->segment.id;
    void *copy = attach_segment(host, nullptr, &error);
    const int32_t new_id = host->segment.id;
    host->segment.id = old_id;
    if (!copy) return error;
    copy_content(host, static_cast<char *>(copy));
    const void *moved = shmat(new_id, host->segment.base, SHM_REMAP);
    error = errno;
    shmdt(copy);
    if (moved != host->segment.base) return error;
    madvise(host->segment.base, allocated_bytes(host), MADV_DONTFORK);
    host->segment.id = new_id;
    host->segment.is_private = false;
    forget_old_segment(host);
    return 0;
}

void renew_segment(ka_host *host)
{
    replace_segment(host);
}

int32_t share_segment(ka_host *host)
{
    const int error = host->segment.is_private ? replace_segment(host) : 0;
    return error == 0 ? int32_t{KA_DONE} : fail_segment(host, error);
}

void remove_segment(ka_host *host)
{
    forget_old_segment(host);
    if (host->segment.reserved) /* all at once: others may map what is free */
        munmap(host->segment.reserved, host->segment.reserved_bytes);
    else if (host->segment.base)
        shmdt(host->segment.base);
    host->segment = no_segment;
}

/* ---- Growth ---------------------------------------------------------------------------------------------------- */

/* Addresses in the block, which is now elsewhere: only their distance from it counts. */
static void move_address(const ka_host *host, int32_t offset, uint64_t distance)
{
    uint64_t address = 0;
    const size_t size = static_cast<size_t>(host->segment.layout->address_size);
    memcpy(&address, host->segment.base + offset, size);
    address += distance;
    memcpy(host->segment.base + offset, &address, size);
}

/* Twice as large at least, so that many arguments cost few copies; by whole steps, so that its end stays a place
   where it can end. */
static int32_t grown_bytes(const ka_host *host, int64_t needed)
{
    const int64_t now = host->options.segment_bytes;
    const int64_t wanted = needed > 2 * now ? needed : 2 * now;
    const int64_t most = wanted < host->options.segment_max ? wanted : host->options.segment_max;
    return static_cast<int32_t>(now +
                                (most - now + int64_t{SIZE_STEP} - 1) / int64_t{SIZE_STEP} * int64_t{SIZE_STEP});
}

/* It vanishes with its last user, and a process that starts may not have attached it yet. */
static void keep_old_segment(ka_host *host)
{
    if (host->segment.is_private || host->process.pid == 0) return;
    void *kept = shmat(host->segment.id, nullptr, 0);
    if (kept == reinterpret_cast<void *>(-1)) return;
    madvise(kept, allocated_bytes(host), MADV_DONTFORK);
    host->segment.old = kept;
}

bool grow_segment(ka_host *host, int64_t needed)
{
    if (!host->segment.reserved || needed > host->options.segment_max) return false;
    const int32_t bytes = grown_bytes(host, needed);
    const size_t mapped = mapped_bytes(allocated_for(bytes));
    void *larger = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (larger == MAP_FAILED) return false;
    const size_t more = static_cast<size_t>(bytes - host->options.segment_bytes);
    char *old_end = host->segment.base + host->segment.scratch_offset;
    char *place = host->segment.base - more;
    copy_values(host, static_cast<char *>(larger));
    memcpy(static_cast<char *>(larger) + more + host->segment.scratch_offset, old_end,
           static_cast<size_t>(host->segment.size - host->segment.scratch_offset));
    keep_old_segment(host);
    if (mremap(larger, mapped, mapped, MREMAP_MAYMOVE | MREMAP_FIXED, place) == MAP_FAILED) {
        munmap(larger, mapped);
        if (!host->segment.is_private) forget_old_segment(host);
        return false;
    }
    host->segment.base = place;
    host->segment.is_private = true;
    host->options.segment_bytes = bytes;
    find_parts(host);
    for (int32_t i = 0; i < host->building.argc; i++)
        move_address(host, descriptor_offset(host, i) + wire::ARG_PTR_AT, 0 - uint64_t{more});
    write_header(host);
    return true;
}

void *ka_scratch(ka_host *host, int32_t *size)
{
    COME_IN(host, nullptr);
    const bool there = host->segment.base && host->options.scratch_bytes > 0;
    if (size) *size = there ? host->options.scratch_bytes : 0;
    return there ? host->segment.base + host->segment.scratch_offset : nullptr;
}
