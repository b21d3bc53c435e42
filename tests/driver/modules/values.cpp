// SPDX-License-Identifier: MIT
//
// The value that a function finds in a slot of its vector, by the kind of the prototype and the caller's value type.
// Integers in the block need not be aligned.
#include <ctype.h>
#include <string.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"
#include "say.h"

namespace driver {
namespace {

enum Form { BLOCK_INTS, OWN_INTS, DOUBLES, TEXT, RECORDS };

Form form_of(int32_t kind, int32_t type)
{
    if (kind == KA_ZSTRING) return TEXT;
    if (type == DLL_STRING) return RECORDS;
    if (type == DLL_INTEGER && kind != KA_REAL_BY_VALUE) return BLOCK_INTS;
    return kind == KA_INT_BY_VALUE ? OWN_INTS : DOUBLES;
}

int in_block(const void *address)
{
    return static_cast<int>(static_cast<const char *>(address) - static_cast<const char *>(u_get_baseptr()));
}

int32_t step_of(Form form, const t_DLL_ARG &arg)
{
    return form == BLOCK_INTS ? 4 * arg.elsz : 4;
}

int32_t text_length(const t_DLL_ARG &arg)
{
    int32_t length;
    memcpy(&length, arg.ptr, sizeof length);
    return length;
}

void see_characters(const char *from, int32_t count)
{
    say("\"");
    for (int32_t i = 0; i < count; i++) {
        const unsigned char c = static_cast<unsigned char>(from[i]);
        if (isprint(c))
            say("%c", c);
        else
            say("\\%02x", c);
    }
    say("\"");
}

} // namespace

void see(int32_t kind, const t_DLL_ARG &arg, const void *slot)
{
    const Form form = form_of(kind, arg.type);
    const char *const at = static_cast<const char *>(slot);
    if (form == TEXT) {
        say("text ");
        see_characters(at, text_length(arg) + 1); // with the terminator
        say("\n");
        return;
    }
    if (form == BLOCK_INTS)
        say("block+%d", in_block(slot));
    else
        say(form == OWN_INTS ? "ints" : form == DOUBLES ? "doubles" : "records");
    for (int32_t k = 0; k < arg.elcnt; k++) {
        if (form == DOUBLES) {
            say(" %.17g", static_cast<const double *>(slot)[k]);
        } else if (form == RECORDS) {
            const KaStr &s = static_cast<const KaStr *>(slot)[k];
            say(" %d/%d+%d", s.len, s.maxlen, in_block(s.data));
            see_characters(s.data, s.len);
        } else {
            int32_t value;
            memcpy(&value, at + k * step_of(form, arg), sizeof value);
            say(" %d", value);
        }
    }
    say("\n");
}

// Integers become 2 x + 1, doubles 2 x. A string with room grows by '+', a full one loses its last character; its
// first character becomes 'E'. A private text becomes all 'X'.
void edit(int32_t kind, const t_DLL_ARG &arg, void *slot)
{
    const Form form = form_of(kind, arg.type);
    if (form == TEXT) memset(slot, 'X', static_cast<size_t>(text_length(arg)));
    for (int32_t k = 0; form != TEXT && k < arg.elcnt; k++) {
        if (form == DOUBLES) {
            static_cast<double *>(slot)[k] *= 2;
        } else if (form == RECORDS) {
            KaStr &s = static_cast<KaStr *>(slot)[k];
            if (s.len < s.maxlen)
                s.data[s.len++] = '+';
            else if (s.len > 0)
                s.len--;
            if (s.len > 0) s.data[0] = 'E';
        } else {
            char *const at = static_cast<char *>(slot) + k * step_of(form, arg);
            uint32_t value;
            memcpy(&value, at, sizeof value);
            value = 2 * value + 1;
            memcpy(at, &value, sizeof value);
        }
    }
}

} // namespace driver
