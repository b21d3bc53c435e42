// SPDX-License-Identifier: MIT
//
// Arguments as values, placed in a block of any layout and read back from it after the call. The output of place()
// can be changed by hand before the call: descriptors through Block::set, data through Block::store.
#ifndef TESTS_HOST_ARGUMENTS_H
#define TESTS_HOST_ARGUMENTS_H

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "host/block.h"
#include "ka/decimal.h"

namespace harness {

struct Argument {
    int32_t type = 0;
    int32_t ref = 0;
    int32_t maxlen = 0;
    int32_t elsz = 0;                       // distance between elements, 4-byte words
    std::vector<std::string> elements = {}; // the bytes of each; a string's with its length word
    int32_t shift = 0;                      // bytes by which the data is moved off its 8-byte alignment

    Argument by_ref(int32_t value = 1) const; // passed by reference
    Argument spaced(int32_t words) const;     // elements further apart than they need
    Argument unaligned(int32_t bytes) const;  // data at an odd address
};

Argument integer(int32_t value);
Argument integers(const std::vector<int32_t> &values);
Argument real(std::string_view text); // by the decimal library, never through double; throws on bad text
Argument real(const t_DECIMAL &value);
Argument reals(const std::vector<std::string> &texts);
Argument reals(std::initializer_list<const char *> texts);
Argument reals(const std::vector<t_DECIMAL> &values);
// maxlen -1: just the room that the longest needs. A shorter maxlen than a value is written as given.
Argument string(std::string_view value, int32_t maxlen = -1);
Argument strings(const std::vector<std::string> &values, int32_t maxlen = -1);

t_DECIMAL decimal(std::string_view text);
std::string text_of(const t_DECIMAL &value); // as many places as the value needs

// Data of arguments begins here; the room before it holds 125 descriptors in either layout.
inline constexpr int32_t data_offset = 4096;
// The bytes of the data area that belong to no value, so that a stray write is seen.
inline constexpr char filler = '\xA5';

// Writes argc, the descriptors and the data of a call: the name (descriptor 0) and the arguments. Throws when the
// data does not fit below limit (0: the end of the segment). Returns the offset of the first byte after the data.
int32_t place(Block &block, std::string_view function, const std::vector<Argument> &arguments = {},
              int32_t limit = 0);

// The values that descriptor i describes now.
std::vector<int32_t> integers_of(const Block &block, int i);
std::vector<std::string> strings_of(const Block &block, int i);
std::vector<t_DECIMAL> decimals_of(const Block &block, int i);
std::vector<std::string> reals_of(const Block &block, int i); // as text_of

} // namespace harness

#endif
