// SPDX-License-Identifier: MIT
//
// An element of an array of INTEGERs; ka/module.hpp includes this.
#ifndef KA_MODULE_INTEGER_HPP
#define KA_MODULE_INTEGER_HPP

#include <cstdint>

namespace ka {

// An INTEGER where the caller has placed it, at any address: the compiler must not expect the alignment of an
// std::int32_t. It converts to one, and computes as one.
struct __attribute__((packed)) integer {
    std::int32_t value;

    constexpr operator std::int32_t() const noexcept { return value; }
    constexpr integer &operator=(std::int32_t other) noexcept { return value = other, *this; }
    constexpr integer &operator+=(std::int32_t other) noexcept { return value += other, *this; }
    constexpr integer &operator-=(std::int32_t other) noexcept { return value -= other, *this; }
    constexpr integer &operator*=(std::int32_t other) noexcept { return value *= other, *this; }
    constexpr integer &operator/=(std::int32_t other) noexcept { return value /= other, *this; }
    constexpr integer &operator%=(std::int32_t other) noexcept { return value %= other, *this; }
    constexpr integer &operator&=(std::int32_t other) noexcept { return value &= other, *this; }
    constexpr integer &operator|=(std::int32_t other) noexcept { return value |= other, *this; }
    constexpr integer &operator^=(std::int32_t other) noexcept { return value ^= other, *this; }
    constexpr integer &operator<<=(std::int32_t bits) noexcept { return value <<= bits, *this; }
    constexpr integer &operator>>=(std::int32_t bits) noexcept { return value >>= bits, *this; }
    constexpr integer &operator++() noexcept { return *this += 1; }
    constexpr integer &operator--() noexcept { return *this -= 1; }
    constexpr std::int32_t operator++(int) noexcept { return value++; }
    constexpr std::int32_t operator--(int) noexcept { return value--; }
};

static_assert(alignof(integer) == 1 && sizeof(integer) == 4, "ka::integer lies in the block as an INTEGER does");

} // namespace ka

#endif
