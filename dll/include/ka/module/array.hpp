// SPDX-License-Identifier: MIT
//
// Arrays of the caller's; ka/module.hpp includes this.
#ifndef KA_MODULE_ARRAY_HPP
#define KA_MODULE_ARRAY_HPP

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "ka/module/decimal.hpp"
#include "ka/module/integer.hpp"
#include "ka/module/string.hpp"

namespace ka {

namespace module_detail {

// How each type of element is reached: at(k) is element k. Of other types there is nothing but the names, so that
// KA_FN can say what is wrong.
template <typename T>
struct elements {
    static constexpr bool known = false;
    using value_type = T;
    using reference = const T &;
    reference at(std::ptrdiff_t k) const noexcept;
};

template <>
struct elements<std::int32_t> {
    static constexpr bool known = true;
    using value_type = std::int32_t;
    using reference = integer &;
    char *first;
    std::ptrdiff_t step; // bytes
    reference at(std::ptrdiff_t k) const noexcept { return *reinterpret_cast<integer *>(first + k * step); }
};

template <typename T>
struct elements_in_a_row {
    static constexpr bool known = true;
    using value_type = T;
    using reference = T &;
    T *first;
    reference at(std::ptrdiff_t k) const noexcept { return first[k]; }
};

template <>
struct elements<double> : elements_in_a_row<double> {
};

template <>
struct elements<decimal> : elements_in_a_row<decimal> {
};

template <>
struct elements<string> {
    static constexpr bool known = true;
    using value_type = std::string; // what an algorithm keeps while it moves others
    using reference = string;
    KaStr *first;
    reference at(std::ptrdiff_t k) const noexcept { return string(first[k]); }
};

template <>
struct elements<std::string_view> {
    static constexpr bool known = true;
    using value_type = std::string_view;
    using reference = const std::string_view; // which nothing can be assigned to
    const KaStr *first;
    reference at(std::ptrdiff_t k) const noexcept { return view_of(first[k]); }
};

// By position, so that it needs nothing of how far elements lie from each other.
template <typename Elements>
class iterator {
    struct arrow {
        typename Elements::reference element;
        auto *operator->() noexcept { return &element; }
    };

public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = typename Elements::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = typename Elements::reference;
    using pointer = arrow;

    iterator() noexcept = default;
    iterator(const Elements &elements, difference_type k) noexcept : elements_(elements), k_(k) {}

    reference operator*() const noexcept { return elements_.at(k_); }
    reference operator[](difference_type n) const noexcept { return elements_.at(k_ + n); }
    pointer operator->() const noexcept { return {elements_.at(k_)}; }
    iterator &operator+=(difference_type n) noexcept { return k_ += n, *this; }
    iterator &operator-=(difference_type n) noexcept { return k_ -= n, *this; }
    iterator &operator++() noexcept { return *this += 1; }
    iterator &operator--() noexcept { return *this -= 1; }
    iterator operator++(int) noexcept { return iterator(elements_, k_++); }
    iterator operator--(int) noexcept { return iterator(elements_, k_--); }
    friend iterator operator+(iterator i, difference_type n) noexcept { return i += n; }
    friend iterator operator+(difference_type n, iterator i) noexcept { return i += n; }
    friend iterator operator-(iterator i, difference_type n) noexcept { return i -= n; }
    friend difference_type operator-(const iterator &a, const iterator &b) noexcept { return a.k_ - b.k_; }
    friend bool operator==(const iterator &a, const iterator &b) noexcept { return a.k_ == b.k_; }
    friend bool operator!=(const iterator &a, const iterator &b) noexcept { return a.k_ != b.k_; }
    friend bool operator<(const iterator &a, const iterator &b) noexcept { return a.k_ < b.k_; }
    friend bool operator>(const iterator &a, const iterator &b) noexcept { return a.k_ > b.k_; }
    friend bool operator<=(const iterator &a, const iterator &b) noexcept { return a.k_ <= b.k_; }
    friend bool operator>=(const iterator &a, const iterator &b) noexcept { return a.k_ >= b.k_; }

private:
    Elements elements_{};
    difference_type k_ = 0;
};

} // namespace module_detail

// The elements of an argument, where the caller, or the call host, keeps them: what is written to one comes back if
// the caller passed the array by reference. T is std::int32_t (elements are ka::integer &), double, ka::decimal,
// ka::string, or std::string_view for strings that are only read. With fewer than Min elements the call is refused.
template <typename T, std::int32_t Min = 1>
class array {
    using elements = module_detail::elements<T>;

public:
    using value_type = typename elements::value_type;
    using reference = typename elements::reference;
    using iterator = module_detail::iterator<elements>;

    array(const elements &of_argument, std::size_t size) noexcept : elements_(of_argument), size_(size) {}

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    reference operator[](std::size_t k) const noexcept { return elements_.at(static_cast<std::ptrdiff_t>(k)); }
    iterator begin() const noexcept { return {elements_, 0}; }
    iterator end() const noexcept { return {elements_, static_cast<std::ptrdiff_t>(size_)}; }

private:
    elements elements_;
    std::size_t size_;
};

} // namespace ka

#endif
