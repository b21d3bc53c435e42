// SPDX-License-Identifier: MIT
//
// Strings of the caller's; ka/module.hpp includes this.
#ifndef KA_MODULE_STRING_HPP
#define KA_MODULE_STRING_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "ka/kastring.h"
#include "ka/module/failure.hpp"

namespace ka {

namespace module_detail {

// A negative length is a caller's mistake, and reads as empty.
inline std::string_view view_of(const KaStr &s) noexcept
{
    return {s.data, static_cast<std::size_t>(s.len > 0 ? s.len : 0)};
}

} // namespace module_detail

// A string of the caller's, edited where it lies: its characters are never copied out, and zero bytes are characters
// as others. It has room for room() of them. What does not fit leaves it as it was, and ends the function with
// ka::no_room, which is code 18. What is assigned or appended may be a part of the string itself.
//
// It is a reference: a copy names the same string, and an assignment copies characters.
class string {
public:
    explicit string(KaStr &record) noexcept : record_(&record) {}
    string(const string &) noexcept = default;

    std::string_view view() const noexcept { return module_detail::view_of(*record_); }
    operator std::string_view() const noexcept { return view(); }
    operator std::string() const { return std::string(view()); }
    char *data() const noexcept { return record_->data; }
    std::size_t size() const noexcept { return view().size(); }
    bool empty() const noexcept { return size() == 0; }
    std::size_t room() const noexcept { return static_cast<std::size_t>(record_->maxlen > 0 ? record_->maxlen : 0); }

    // False when the text does not fit.
    bool try_assign(std::string_view text) const noexcept { return try_put(0, text); }

    const string &operator=(std::string_view text) const { return put(0, text); }
    // NOLINTBEGIN(bugprone-unhandled-self-assignment): the characters may overlap
    const string &operator=(const string &other) const { return put(0, other.view()); }
    string &operator=(const string &other) { return put(0, other.view()), *this; }
    // NOLINTEND(bugprone-unhandled-self-assignment)
    const string &append(std::string_view text) const { return put(size(), text); }
    const string &operator+=(std::string_view text) const { return append(text); }
    const string &operator+=(char c) const { return append({&c, 1}); }
    void clear() const noexcept { record_->len = 0; }

    // Longer by zero bytes, or shorter.
    void resize(std::size_t wanted) const
    {
        const std::size_t before = size();
        if (wanted > room()) return module_detail::fail_for_room();
        if (wanted > before) std::memset(data() + before, 0, wanted - before);
        record_->len = static_cast<std::int32_t>(wanted);
    }

    // As views; one of the two may be any text.
    friend bool operator==(std::string_view a, std::string_view b) noexcept { return a.compare(b) == 0; }
    friend bool operator!=(std::string_view a, std::string_view b) noexcept { return a.compare(b) != 0; }
    friend bool operator<(std::string_view a, std::string_view b) noexcept { return a.compare(b) < 0; }
    friend bool operator>(std::string_view a, std::string_view b) noexcept { return a.compare(b) > 0; }
    friend bool operator<=(std::string_view a, std::string_view b) noexcept { return a.compare(b) <= 0; }
    friend bool operator>=(std::string_view a, std::string_view b) noexcept { return a.compare(b) >= 0; }

    // Exchanges the characters: for std::sort and others that reorder the strings of an array.
    friend void swap(string a, string b) // NOLINT(bugprone-exception-escape): it may not fit
    {
        const std::size_t of_a = a.size(), of_b = b.size();
        if (of_a > b.room() || of_b > a.room()) return module_detail::fail_for_room();
        std::swap_ranges(a.data(), a.data() + std::max(of_a, of_b), b.data());
        std::swap(a.record_->len, b.record_->len);
    }

private:
    bool try_put(std::size_t at, std::string_view text) const noexcept
    {
        if (at > room() || text.size() > room() - at) return false;
        if (!text.empty()) std::memmove(data() + at, text.data(), text.size());
        record_->len = static_cast<std::int32_t>(at + text.size());
        return true;
    }

    const string &put(std::size_t at, std::string_view text) const
    {
        if (!try_put(at, text)) module_detail::fail_for_room();
        return *this;
    }

    KaStr *record_;
};

} // namespace ka

#endif
