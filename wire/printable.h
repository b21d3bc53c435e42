/* SPDX-License-Identifier: MIT
 *
 * What may be shown of text that comes from outside: of a module's file or process, of a user. Everything else is
 * shown byte by byte as \xHH. The caller and the command ka go by this one rule. */
#ifndef KA_WIRE_PRINTABLE_H
#define KA_WIRE_PRINTABLE_H

#include <stddef.h>

namespace wire {

/* Length of the UTF-8 character at the start of bytes, of which there is one at least; 0 when there is none. */
inline size_t character_length(const unsigned char *bytes, size_t length)
{
    const unsigned char first = bytes[0];
    if (first < 0x80) return 1;
    const size_t wanted = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || wanted > length) return 0;
    for (size_t i = 1; i < wanted; i++)
        if ((bytes[i] & 0xc0) != 0x80) return 0;
    /* Longer than needed, halves of a pair, beyond the last character: the second byte shows it. */
    const unsigned char second = bytes[1];
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
    if ((first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
    return wanted;
}

/* A character of this length that a terminal would not show but obey: a control character; and one that deceives the
   reader: the separators of lines and paragraphs (U+2028, 2029), what turns the writing direction (U+202A to 202E,
   U+2066 to 2069). */
inline bool is_obeyed(const unsigned char *character, size_t length)
{
    if (length == 1) return *character < ' ' || *character == 0x7f;
    if (length == 2) return character[0] == 0xc2 && character[1] < 0xa0;
    if (length != 3 || character[0] != 0xe2) return false;
    const unsigned char last = character[2];
    if (character[1] == 0x80) return last >= 0xa8 && last <= 0xae;
    return character[1] == 0x81 && last >= 0xa6 && last <= 0xa9;
}

/* The number of a character of this length, which is that of character_length and not 0. */
inline unsigned code_of(const unsigned char *character, size_t length)
{
    if (length == 1) return *character;
    unsigned code = *character & (0xffU >> (length + 1));
    for (size_t i = 1; i < length; i++)
        code = code << 6 | (character[i] & 0x3fU);
    return code;
}

/* Length of the character at the start of bytes when it may be shown as it is; 0 when it may not, nor the first byte.
 */
inline size_t printable_length(const char *text, size_t length)
{
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(text);
    const size_t character = character_length(bytes, length);
    return is_obeyed(bytes, character) ? 0 : character;
}

} // namespace wire

#endif
