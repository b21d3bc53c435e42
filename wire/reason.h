/* SPDX-License-Identifier: MIT
 *
 * The reason of a return code: a function that fails in the middle writes it on standard error, in a line of its own,
 * "ka: FUNCTION: TEXT" (ka/module.hpp). The caller and the command ka look for it there. */
#ifndef KA_WIRE_REASON_H
#define KA_WIRE_REASON_H

#include <stddef.h>
#include <string.h>

namespace wire {

struct t_REASON {
    const char *text;
    size_t length; /* 0 for none */
};

/* The text of that line when the line is whole and the function is the one of this name. */
inline t_REASON reason_in_line(const char *line, size_t length, const char *name, size_t name_length)
{
    static constexpr char mark[] = {'k', 'a', ':', ' '};
    const size_t head = sizeof mark + name_length + 2;
    if (length <= head || memcmp(line, mark, sizeof mark) != 0) return {nullptr, 0};
    const char *after_name = line + sizeof mark + name_length;
    if (memcmp(line + sizeof mark, name, name_length) != 0 || memcmp(after_name, ": ", 2) != 0) return {nullptr, 0};
    return {line + head, length - head};
}

/* That of the last such line. */
inline t_REASON last_reason(const char *bytes, size_t length, const char *name, size_t name_length)
{
    t_REASON found = {nullptr, 0};
    const char *const end = bytes + length;
    while (const void *at = bytes < end ? memchr(bytes, '\n', static_cast<size_t>(end - bytes)) : nullptr) {
        const char *const stop = static_cast<const char *>(at);
        const t_REASON reason = reason_in_line(bytes, static_cast<size_t>(stop - bytes), name, name_length);
        if (reason.length > 0) found = reason;
        bytes = stop + 1;
    }
    return found;
}

} // namespace wire

#endif
