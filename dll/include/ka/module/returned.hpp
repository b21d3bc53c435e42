// SPDX-License-Identifier: MIT
//
// The types that functions return: those that are a result have one prototype more, behind the parameters'.
// ka/module.hpp includes this.
#ifndef KA_MODULE_RETURNED_HPP
#define KA_MODULE_RETURNED_HPP

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "ka/dll_module.h"
#include "ka/module/decimal.hpp"
#include "ka/module/string.hpp"

namespace ka::module_detail {

template <typename R>
struct returned {
    static constexpr bool known = false, is_value = false;
    static constexpr std::int32_t kind = -1;
};

struct no_value {
    static constexpr bool known = true, is_value = false;
    static constexpr std::int32_t kind = -1;
};

template <>
struct returned<void> : no_value {
};

template <>
struct returned<code> : no_value {
};

// put() stores the result at argv's place for it and returns the call's code.
template <std::int32_t Kind>
struct value_of_kind {
    static constexpr bool known = true, is_value = true;
    static constexpr std::int32_t kind = Kind;
};

template <>
struct returned<std::int32_t> : value_of_kind<KA_INT_BY_REFERENCE> {
    static std::int32_t put(std::int32_t number, void *to) noexcept
    {
        std::memcpy(to, &number, sizeof number);
        return KA_OK;
    }
};

template <>
struct returned<double> : value_of_kind<KA_REAL_BY_REFERENCE> {
    static std::int32_t put(double number, void *to) noexcept
    {
        *static_cast<double *>(to) = number;
        return KA_OK;
    }
};

template <>
struct returned<decimal> : value_of_kind<KA_REAL_BY_REFERENCE> {
    static std::int32_t put(const decimal &number, void *to) noexcept
    {
        *static_cast<double *>(to) = nearest_double(number.record());
        return KA_OK;
    }
};

template <>
struct returned<std::string_view> : value_of_kind<KA_STRING> {
    // Not once for each function: that takes compilers longer than the function itself.
    __attribute__((noinline)) static std::int32_t put(std::string_view text, void *to) noexcept
    {
        return string(*static_cast<KaStr *>(to)).try_assign(text) ? KASTR_OK : KASTR_NO_ROOM;
    }
};

template <>
struct returned<std::string> : returned<std::string_view> {
};

// Null is the empty text.
template <>
struct returned<const char *> : value_of_kind<KA_STRING> {
    static std::int32_t put(const char *text, void *to) noexcept
    {
        return returned<std::string_view>::put(text != nullptr ? text : "", to);
    }
};

} // namespace ka::module_detail

#endif
