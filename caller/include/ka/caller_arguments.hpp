// SPDX-License-Identifier: MIT
//
// Arguments of ka/caller.hpp, which includes this: how they go into a call, and how they come back.
#ifndef KA_CALLER_ARGUMENTS_HPP
#define KA_CALLER_ARGUMENTS_HPP

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

template <typename Text>
std::vector<ka_text> texts_of(const Text *values, std::int32_t count)
{
    std::vector<ka_text> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (std::int32_t i = 0; i < count; i++) {
        std::string_view text;
        if constexpr (std::is_same_v<Text, Decimal>)
            text = values[i].text;
        else
            text = std::string_view(values[i]);
        texts.push_back({text.data(), length(text.size())});
    }
    return texts;
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
        if constexpr (std::is_same_v<T, Decimal>) ka_add_real(host, without_zeros(value.text).c_str(), passing);
        if constexpr (std::is_same_v<E, Decimal> && !std::is_same_v<T, Decimal>)
            ka_add_real_texts(host, texts_of(first, count).data(), count, passing, nullptr);
        if constexpr (is_text<E>) ka_add_strings(host, texts_of(first, count).data(), count, room, passing);
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

// The length may shrink between the two reads, if the module goes on writing.
inline std::int32_t take_text(ka_host *host, std::int32_t argument, std::string &text)
{
    std::int32_t found = 0;
    std::int32_t status = ka_get_string(host, argument, 0, nullptr, 0, &found);
    if (status != KA_DONE) return status;
    text.resize(static_cast<std::size_t>(found));
    status = ka_get_string(host, argument, 0, text.data(), detail::length(text.size()), &found);
    if (static_cast<std::size_t>(found) < text.size()) text.resize(static_cast<std::size_t>(found));
    return status;
}

using GetTexts = std::int32_t(ka_host *, std::int32_t, char *, std::int32_t, std::int32_t *, std::int32_t);

// All at once; once more where they have grown since their sizes were asked for.
template <typename Store>
std::int32_t take_texts(GetTexts &get, ka_host *host, std::int32_t argument, std::int32_t count, Store store)
{
    std::vector<std::int32_t> offsets(static_cast<std::size_t>(count) + 1);
    std::string buffer;
    std::int32_t status = get(host, argument, nullptr, 0, offsets.data(), count);
    do {
        buffer.resize(static_cast<std::size_t>(offsets.back()));
        if (status == KA_DONE)
            status = get(host, argument, buffer.data(), length(buffer.size()), offsets.data(), count);
    } while (status == KA_DONE && static_cast<std::size_t>(offsets.back()) > buffer.size());
    for (std::size_t i = 0; status == KA_DONE && i + 1 < offsets.size(); i++)
        store(i, std::string_view(buffer).substr(static_cast<std::size_t>(offsets[i]),
                                                 static_cast<std::size_t>(offsets[i + 1] - offsets[i])));
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
    [[maybe_unused]] auto *const to = first;
    if constexpr (std::is_same_v<T, std::string>) return take_text(host, argument, value);
    if constexpr (std::is_same_v<E, Decimal>)
        status = take_texts(ka_get_real_texts, host, argument, count, [to](std::size_t i, std::string_view text) {
            to[i] = Decimal(text.empty() ? "null" : text); // as ka_real_to_text writes it
        });
    if constexpr (std::is_same_v<E, std::string>)
        status = take_texts(ka_get_strings, host, argument, count,
                            [to](std::size_t i, std::string_view text) { to[i] = text; });
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
