/* SPDX-License-Identifier: MIT
 *
 * See reason.h. */
#include "reason.h"

#include <stdlib.h>
#include <string.h>

#include "base/printable.h"
#include "block/results.h"
#include "host/owner.h"
#include "process/stderr_ring.h"
#include "wire/reason.h"

enum { NAME_BYTES = 1024 }; /* no function of a module has a longer one */

void begin_reason(ka_host *host)
{
    host->reason[0] = '\0';
    if (host->options.reasons == KA_REASONS_OFF || !host->process.stderr_ring) return;
    host->building.output_before = look_at_stderr_ring(host->process.stderr_ring);
}

/* Of bytes whose beginning may be missing the first line is not looked at. */
static void look_for_reason(ka_host *host, const char *bytes, int32_t length, bool is_cut)
{
    char name[NAME_BYTES];
    const char *const end = bytes + length;
    const int32_t name_length = read_string(host, &host->arguments[0], 0, name, sizeof name);
    if (name_length > NAME_BYTES) return;
    if (is_cut) {
        const void *line_end = memchr(bytes, '\n', static_cast<size_t>(length));
        bytes = line_end ? static_cast<const char *>(line_end) + 1 : end;
    }
    const wire::t_REASON found =
        wire::last_reason(bytes, static_cast<size_t>(end - bytes), name, static_cast<size_t>(name_length));
    if (found.length == 0) return;
    char *text = strndup(found.text, found.length);
    if (text) copy_printable(host->reason, sizeof host->reason, text);
    free(text);
}

static void look_in_ring(ka_host *host)
{
    const int64_t written = look_at_stderr_ring(host->process.stderr_ring) - host->building.output_before;
    const int32_t size =
        static_cast<int32_t>(written < host->options.ring_bytes ? written : host->options.ring_bytes);
    char *bytes = size > 0 ? static_cast<char *>(malloc(static_cast<size_t>(size))) : nullptr;
    if (!bytes) return;
    const int32_t length = read_stderr_ring(host->process.stderr_ring, bytes, size);
    look_for_reason(host, bytes, length, length < written);
    free(bytes);
}

/* The process has ended, and its output was kept. */
static void look_in_last_output(ka_host *host)
{
    const t_LAST_END *last_end = &host->last_end;
    const int64_t written = last_end->output_bytes - host->building.output_before;
    if (!last_end->of_error || !last_end->output || written <= 0) return;
    const int32_t length =
        static_cast<int32_t>(written < last_end->output_length ? written : last_end->output_length);
    look_for_reason(host, last_end->output + last_end->output_length - length, length, length < written);
}

void find_reason(ka_host *host, int32_t status, int32_t code)
{
    if (host->options.reasons == KA_REASONS_OFF) return;
    if (status != KA_DONE)
        look_in_last_output(host);
    else if (code != 0 && host->process.stderr_ring)
        look_in_ring(host);
}

const char *ka_reason(const ka_host *host)
{
    COME_IN(host, nullptr);
    return host->reason[0] != '\0' ? host->reason : nullptr;
}
