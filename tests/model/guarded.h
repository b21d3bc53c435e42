// SPDX-License-Identifier: MIT
//
// A field of characters or bytes on the heap, between guard bytes that must stay as they are. It ends flush with its
// guard, so an overrun of one byte is seen here, and one past the guard by the address sanitizer.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace model {

class Guarded {
public:
    explicit Guarded(int length, char fill = '?')
        : length_(static_cast<size_t>(length)), bytes_(length_ + 2 * guard_size, guard)
    {
        std::fill_n(data(), length, fill);
    }
    char *data() { return bytes_.data() + guard_size; }
    std::string text() const { return std::string(bytes_.data() + guard_size, length_); }
    std::vector<uint8_t> bytes() const { return {bytes_.begin() + guard_size, bytes_.end() - guard_size}; }
    bool intact() const
    {
        const auto untouched = [](char c) { return c == guard; };
        return std::all_of(bytes_.begin(), bytes_.begin() + guard_size, untouched) &&
               std::all_of(bytes_.end() - guard_size, bytes_.end(), untouched);
    }

private:
    static constexpr size_t guard_size = 16;
    static constexpr char guard = '\x5A';
    size_t length_;
    std::vector<char> bytes_;
};

} // namespace model
