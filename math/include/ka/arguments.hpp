// SPDX-License-Identifier: MIT
//
// How arguments of a call are written in C++, the same for callers and for unit tests of modules: ka/caller.hpp and
// ka/module_test.hpp include this. Programs use Decimal, in and ref.
#ifndef KA_ARGUMENTS_HPP
#define KA_ARGUMENTS_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ka/real_text.h"

namespace ka {

class decimal; // of ka/module.hpp

namespace detail {

// Greater lengths become INT32_MAX: too big for any segment, so the call is refused.
inline std::int32_t length(std::size_t size)
{
    return static_cast<std::int32_t>(std::min(size, std::size_t{INT32_MAX}));
}

// For functions that take a zero-terminated text: a text with a zero inside must not be taken for its first half.
inline std::string without_zeros(std::string_view text)
{
    std::string copy(text);
    std::replace(copy.begin(), copy.end(), '\0', '?');
    return copy;
}

} // namespace detail

// A REAL as decimal text, exactly, without a binary fraction in between, for programs that call modules. "null" is
// the text of a null REAL. (ka::decimal of ka/module.hpp is the REAL itself, with operators, for functions of modules
// and their tests.)
struct Decimal {
    std::string text = "0";

    Decimal() = default;
    explicit Decimal(std::string_view number) : text(number) {}
    explicit Decimal(const t_DECIMAL &value)
    {
        char buffer[KA_REAL_TEXT];
        text = ka_real_to_text(&value, buffer);
    }
    // Throws KA_ARGUMENT when the text is not a REAL. With ka/caller.hpp.
    inline t_DECIMAL value() const;
    // The same without an exception: false, and a null REAL.
    bool read(t_DECIMAL &value) const
    {
        return ka_real_from_text(text.data(), detail::length(text.size()), &value) == 0;
    }
    // Whether value() is the very number of the text: false when it is rounded, or the text is not a REAL.
    bool is_exact() const
    {
        t_DECIMAL real;
        std::int32_t exact = 0;
        ka_real_read(text.data(), detail::length(text.size()), &real, &exact);
        return exact != 0;
    }
};

// ---- How arguments are passed ------------------------------------------------------------------------------------

template <typename T>
struct In {
    const T &value;
    std::int32_t room;
};

template <typename T>
struct Ref {
    T &value;
    std::int32_t room;
};

namespace detail {

template <typename T, typename... Others>
inline constexpr bool is_one_of = (std::is_same_v<T, Others> || ...);
template <typename T>
inline constexpr bool is_integer = is_one_of<T, bool, signed char, unsigned char, short, unsigned short, int>;
template <typename T>
inline constexpr bool is_text = std::is_convertible_v<const T &, std::string_view>;

template <typename T, typename = void>
struct ElementOf {
    using type = std::remove_const_t<T>;
    static constexpr bool in_array = false;
};
template <typename T>
struct ElementOf<T, std::enable_if_t<!is_text<T>, std::void_t<decltype(std::data(std::declval<T &>())),
                                                              decltype(std::size(std::declval<T &>()))>>> {
    using type = std::remove_cv_t<std::remove_pointer_t<decltype(std::data(std::declval<T &>()))>>;
    static constexpr bool in_array = true;
};
template <typename T>
using Element = typename ElementOf<T>::type;

// The elements of an array, or the value itself, which is an array of one.
template <typename T>
auto elements(T &value)
{
    if constexpr (ElementOf<std::remove_const_t<T>>::in_array)
        return std::pair(std::data(value), length(std::size(value)));
    else
        return std::pair(&value, std::int32_t{1});
}

} // namespace detail

// By value, with room for room characters in each string, so that the function can lengthen its own copy.
template <typename T>
In<T> in(const T &text, std::int32_t room)
{
    static_assert(detail::is_text<detail::Element<const T>>, "only strings have room");
    return {text, room};
}

// By reference. The variable must live until the call is over.
template <typename T>
Ref<T> ref(T &variable)
{
    using E = detail::Element<T>;
    static_assert(!detail::is_text<E>, "say how long a string may become: ka::ref(text, 80); 0: as long as it is");
    static_assert(detail::is_one_of<E, std::int32_t, double, t_DECIMAL, Decimal, decimal>,
                  "results are stored in std::int32_t, double, t_DECIMAL, ka::Decimal or std::string");
    static_assert(std::is_same_v<decltype(detail::elements(variable).first), E *>, "results are stored in variables");
    return {variable, 0};
}

template <typename T>
Ref<T> ref(T &text, std::int32_t room)
{
    static_assert(std::is_same_v<decltype(detail::elements(text).first), std::string *>,
                  "text is given back in std::string");
    return {text, room};
}

} // namespace ka

#endif
