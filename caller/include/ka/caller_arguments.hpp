// SPDX-License-Identifier: MIT
//
// Arguments of ka/caller.hpp, which includes this: how they go into a call, and how they come back.
#ifndef KA_CALLER_ARGUMENTS_HPP
#define KA_CALLER_ARGUMENTS_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "ka/arguments.hpp"
#include "ka/caller_error.hpp"

namespace ka {

// Throws KA_ARGUMENT when the text is not a REAL; see ka_real_read.
inline t_DECIMAL Decimal::value() const
{
    t_DECIMAL real;
    if (!read(real)) detail::raise(KA_ARGUMENT, ('"' + text + "\" is not a REAL").c_str());
    return real;
}

namespace detail {

// ---- Into the call; errors are kept by the host until ka_call ----------------------------------------------------

inline void add_decimals(ka_host *host, const Decimal *values, std::int32_t count, std::int32_t passing)
{
    std::vector<t_DECIMAL> reals(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < reals.size(); i++) {
        if (values[i].read(reals[i])) continue;
        ka_add_real(host, without_zeros(values[i].text).c_str(), passing); // refuses it, with a message that names it
        return;
    }
    ka_add_reals(host, reals.data(), count, passing);
}

template <typename Text>
void add_texts(ka_host *host, const Text *values, std::int32_t count, std::int32_t room, std::int32_t passing)
{
    std::vector<ka_text> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (std::int32_t i = 0; i < count; i++) {
        const std::string_view text(values[i]);
        texts.push_back({text.data(), length(text.size())});
    }
    ka_add_strings(host, texts.data(), count, room, passing);
}

template <typename T>
void add(ka_host *host, const T &value, std::int32_t room, std::int32_t passing)
{
    using E = Element<const T>;
    static_assert(
        is_integer<E> || is_one_of<E, float, double, t_DECIMAL, Decimal> || is_text<E>,
        "not an INTEGER, REAL or STRING: convert it, wide integers to std::int32_t, ka::decimal to ka::Decimal");
    static_assert(!ElementOf<const T>::in_array || !(is_integer<E> || std::is_same_v<E, float>) ||
                      std::is_same_v<E, std::int32_t>,
                  "arrays of numbers are of std::int32_t, double, t_DECIMAL or ka::Decimal");
    if constexpr (is_text<T>) {
        const std::string_view text(value);
        ka_add_string(host, text.data(), length(text.size()), room, passing);
    } else if constexpr (is_integer<E> && !std::is_same_v<E, std::int32_t>) {
        ka_add_integer(host, value, passing);
    } else if constexpr (std::is_same_v<E, float>) {
        ka_add_double(host, static_cast<double>(value), passing);
    } else {
        const auto [first, count] = elements(value);
        if constexpr (is_integer<E>) ka_add_integers(host, first, count, passing);
        if constexpr (std::is_same_v<E, double>) ka_add_doubles(host, first, count, passing);
        if constexpr (std::is_same_v<E, t_DECIMAL>) ka_add_reals(host, first, count, passing);
        if constexpr (std::is_same_v<E, Decimal>) add_decimals(host, first, count, passing);
        if constexpr (is_text<E>) add_texts(host, first, count, room, passing);
    }
}

template <typename T>
void add(ka_host *host, const In<T> &argument, std::int32_t, std::int32_t)
{
    add(host, argument.value, argument.room, KA_BY_VALUE);
}

template <typename T>
void add(ka_host *host, const Ref<T> &argument, std::int32_t, std::int32_t)
{
    add(host, std::as_const(argument.value), argument.room, KA_BY_REFERENCE);
}

// ---- Out of it; fails only if a variable changed its size during the call -----------------------------------------

inline std::int32_t take_decimals(ka_host *host, std::int32_t argument, Decimal *values, std::int32_t count)
{
    std::vector<t_DECIMAL> reals(static_cast<std::size_t>(count));
    const std::int32_t status = ka_get_reals(host, argument, reals.data(), count);
    if (status == KA_DONE)
        std::transform(reals.begin(), reals.end(), values, [](auto &real) { return Decimal(real); });
    return status;
}

// The length may shrink between the two reads, if the module goes on writing.
inline std::int32_t take_text(ka_host *host, std::int32_t argument, std::int32_t element, std::string &text)
{
    std::int32_t found = 0;
    std::int32_t status = ka_get_string(host, argument, element, nullptr, 0, &found);
    if (status != KA_DONE) return status;
    text.resize(static_cast<std::size_t>(found));
    status = ka_get_string(host, argument, element, text.data(), detail::length(text.size()), &found);
    if (static_cast<std::size_t>(found) < text.size()) text.resize(static_cast<std::size_t>(found));
    return status;
}

template <typename T>
std::int32_t take(ka_host *host, std::int32_t argument, T &value)
{
    using E = Element<T>;
    const auto [first, count] = elements(value);
    std::int32_t status = KA_DONE;
    if constexpr (std::is_same_v<E, std::int32_t>) status = ka_get_integers(host, argument, first, count);
    if constexpr (std::is_same_v<E, double>) status = ka_get_doubles(host, argument, first, count);
    if constexpr (std::is_same_v<E, t_DECIMAL>) status = ka_get_reals(host, argument, first, count);
    if constexpr (std::is_same_v<E, Decimal>) status = take_decimals(host, argument, first, count);
    if constexpr (std::is_same_v<E, std::string>) {
        for (std::int32_t i = 0; i < count && status == KA_DONE; i++)
            status = take_text(host, argument, i, first[i]);
    }
    return status;
}

template <typename T>
std::int32_t take_if_referred(ka_host *, std::int32_t, const T &)
{
    return KA_DONE;
}

template <typename T>
std::int32_t take_if_referred(ka_host *host, std::int32_t argument, const Ref<T> &referred)
{
    return ka_gives_back(host, argument) ? take(host, argument, referred.value) : KA_DONE;
}

} // namespace detail

} // namespace ka

#endif
