/* SPDX-License-Identifier: MIT
 *
 * Descriptors as they are in the block, for those who test modules and hosts: every field can be set to anything.
 * The library goes by its own record of the arguments, so a forged descriptor misleads the host alone. */
#include <string.h>

#include "host/host.h"
#include "host/owner.h"
#include "segment.h"

static int32_t check_raw_turn(ka_host *host)
{
    if (take_turn(host, TURN_DESCRIPTOR) != KA_DONE) return host->error.error_class;
    if (host->options.checking != KA_RAW)
        return fail(host, KA_ARGUMENT,
                    "checking is KA_CHECKED (0); descriptors can be seen and changed with KA_RAW (1) only");
    return host->building.error;
}

static int32_t check_descriptor(ka_host *host, int32_t argument)
{
    if (check_raw_turn(host) != KA_DONE) return host->error.error_class;
    if (argument >= 0 && argument < host->building.argc) return KA_DONE;
    fail(host, KA_ARGUMENT, "\"%s\" has no argument %d yet", host->function, argument);
    host->error.argument = argument;
    return KA_ARGUMENT;
}

/* Addresses of 32 bits wrap around, so the offset is that of the same width. */
static int64_t load_offset(const ka_host *host, int32_t at)
{
    uint64_t address = 0;
    memcpy(&address, host->segment.base + at, static_cast<size_t>(host->segment.layout->address_size));
    const uint64_t offset = address - reinterpret_cast<uintptr_t>(host->segment.base);
    return host->segment.layout->address_size == 4 ? static_cast<int32_t>(offset) : static_cast<int64_t>(offset);
}

static void store_offset(ka_host *host, int32_t at, int64_t offset)
{
    const uint64_t address = reinterpret_cast<uintptr_t>(host->segment.base) + static_cast<uint64_t>(offset);
    memcpy(host->segment.base + at, &address, static_cast<size_t>(host->segment.layout->address_size));
}

int32_t ka_get_descriptor(ka_host *host, int32_t argument, ka_descriptor *descriptor)
{
    COME_IN(host, visit.refusal);
    if (check_descriptor(host, argument) != KA_DONE) return host->error.error_class;
    const int32_t at = descriptor_offset(host, argument);
    const int32_t counts = at + host->segment.layout->arg_counts;
    *descriptor = {load32(host, at + wire::ARG_TYPE_AT),
                   load32(host, at + wire::ARG_REF_AT),
                   load_offset(host, at + wire::ARG_PTR_AT),
                   load32(host, counts),
                   load32(host, counts + 4),
                   load32(host, counts + 8)};
    return KA_DONE;
}

int32_t ka_set_descriptor(ka_host *host, int32_t argument, const ka_descriptor *descriptor)
{
    COME_IN(host, visit.refusal);
    if (check_descriptor(host, argument) != KA_DONE) return host->error.error_class;
    const int32_t at = descriptor_offset(host, argument);
    const int32_t counts = at + host->segment.layout->arg_counts;
    store32(host, at + wire::ARG_TYPE_AT, descriptor->type);
    store32(host, at + wire::ARG_REF_AT, descriptor->ref);
    store_offset(host, at + wire::ARG_PTR_AT, descriptor->offset);
    store32(host, counts, descriptor->maxlen);
    store32(host, counts + 4, descriptor->elsz);
    store32(host, counts + 8, descriptor->elcnt);
    return KA_DONE;
}

/* Not written yet: a signal of anyone would make the host perform the call. */
int32_t ka_set_argc(ka_host *host, int32_t argc)
{
    COME_IN(host, visit.refusal);
    if (check_raw_turn(host) != KA_DONE) return host->error.error_class;
    host->building.given_argc = argc;
    host->building.argc_is_given = true;
    return KA_DONE;
}
