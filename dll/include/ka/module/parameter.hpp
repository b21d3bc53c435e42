// SPDX-License-Identifier: MIT
//
// The types of parameters: which kind each one is, and how it is made of the argument for the time of a call.
// ka/module.hpp includes this.
#ifndef KA_MODULE_PARAMETER_HPP
#define KA_MODULE_PARAMETER_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "ka/module/args.hpp"

namespace ka::module_detail {

// What a type that is no parameter was probably meant to be; each has its message in KA_FN.
enum class instead { nothing, int32, real, text, exact, reference, by_value, element, other };

template <typename T>
inline constexpr bool is_array = false;
template <typename T, std::int32_t Min>
inline constexpr bool is_array<array<T, Min>> = true;
template <typename T>
inline constexpr bool has_known_elements = false;
template <typename T, std::int32_t Min>
inline constexpr bool has_known_elements<array<T, Min>> = elements<T>::known;

template <typename T>
constexpr instead meant_by()
{
    using Plain = std::remove_cv_t<std::remove_reference_t<T>>;
    using Pointee = std::remove_cv_t<std::remove_pointer_t<Plain>>;
    if constexpr (std::is_same_v<Plain, std::string> || (std::is_pointer_v<Plain> && std::is_same_v<Pointee, char>) ||
                  std::is_same_v<Pointee, KaStr>)
        return instead::text;
    else if constexpr (std::is_same_v<Pointee, t_DECIMAL>)
        return instead::exact;
    else if constexpr (std::is_same_v<Pointee, std::int32_t> || std::is_same_v<Pointee, double> ||
                       std::is_same_v<Pointee, integer>)
        return instead::reference;
    else if constexpr (is_array<Plain>)
        return has_known_elements<Plain> ? instead::by_value : instead::element;
    else if constexpr (std::is_same_v<Plain, string> || std::is_same_v<Plain, std::string_view> ||
                       std::is_same_v<Plain, args>)
        return instead::by_value;
    else if constexpr (std::is_integral_v<Plain>)
        return instead::int32;
    else if constexpr (std::is_floating_point_v<Plain>)
        return instead::real;
    else
        return instead::other;
}

// A parameter is made of argv and its position, lives as long as the call, and gives the function what get() returns.
// is_ready() is false when memory for it is missing: the function is not called then.
template <typename T>
struct parameter {
    static constexpr instead wrong = meant_by<T>();
    static constexpr std::int32_t kind = -1, least = 0;
    static constexpr bool is_scalar = false;
};

template <std::int32_t Kind, bool IsScalar = true, std::int32_t Least = 0>
struct known_parameter {
    static constexpr instead wrong = instead::nothing;
    static constexpr std::int32_t kind = Kind, least = Least;
    static constexpr bool is_scalar = IsScalar; // it needs an element
    static constexpr bool is_ready() noexcept { return true; }
};

inline std::int32_t load_integer(const void *from) noexcept
{
    std::int32_t number;
    std::memcpy(&number, from, sizeof number);
    return number;
}

template <>
struct parameter<std::int32_t> : known_parameter<KA_INT_BY_VALUE> {
    parameter(void **argv, std::size_t i) noexcept : value(load_integer(argv[i])) {}
    std::int32_t get() const noexcept { return value; }
    const std::int32_t value;
};

// The INTEGER in the block need not be aligned: the function has a copy, which goes back on every way out.
template <>
struct parameter<std::int32_t &> : known_parameter<KA_INT_BY_REFERENCE> {
    parameter(void **argv, std::size_t i) noexcept : value(load_integer(argv[i])), in_block(argv[i]) {}
    parameter(const parameter &) = delete;
    ~parameter() { std::memcpy(in_block, &value, sizeof value); }
    std::int32_t &get() noexcept { return value; }
    std::int32_t value;
    void *const in_block;
};

template <>
struct parameter<double> : known_parameter<KA_REAL_BY_VALUE> {
    parameter(void **argv, std::size_t i) noexcept : value(*static_cast<const double *>(argv[i])) {}
    double get() const noexcept { return value; }
    const double value;
};

template <>
struct parameter<double &> : known_parameter<KA_REAL_BY_REFERENCE> {
    parameter(void **argv, std::size_t i) noexcept : at(static_cast<double *>(argv[i])) {}
    double &get() const noexcept { return *at; }
    double *const at;
};

template <>
struct parameter<decimal> : known_parameter<KA_REAL_BY_VALUE> {
    parameter(void **, std::size_t i) noexcept : value(exact_element(u_get_arg(static_cast<std::int32_t>(i) + 1), 0))
    {
    }
    const decimal &get() const noexcept { return value; }
    const decimal value;
};

// What goes back, the call host makes of the double.
template <>
struct parameter<decimal &> : known_parameter<KA_REAL_BY_REFERENCE> {
    parameter(void **argv, std::size_t i) noexcept
        : value(exact_element(u_get_arg(static_cast<std::int32_t>(i) + 1), 0)), back(static_cast<double *>(argv[i]))
    {
    }
    parameter(const parameter &) = delete;
    ~parameter() { *back = nearest_double(value.record()); }
    decimal &get() noexcept { return value; }
    decimal value;
    double *const back;
};

template <>
struct parameter<const char *> : known_parameter<KA_ZSTRING> {
    parameter(void **argv, std::size_t i) noexcept : text(static_cast<const char *>(argv[i])) {}
    const char *get() const noexcept { return text; }
    const char *const text;
};

template <>
struct parameter<string> : known_parameter<KA_STRING> {
    parameter(void **argv, std::size_t i) noexcept : record(static_cast<KaStr *>(argv[i])) {}
    string get() const noexcept { return string(*record); }
    KaStr *const record;
};

template <>
struct parameter<std::string_view> : known_parameter<KA_STRING> {
    parameter(void **argv, std::size_t i) noexcept : record(static_cast<const KaStr *>(argv[i])) {}
    std::string_view get() const noexcept { return view_of(*record); }
    const KaStr *const record;
};

template <>
struct parameter<args> : known_parameter<KA_VARARG, false> {
    parameter(void **values, std::size_t i) noexcept : argv(values), first(static_cast<std::int32_t>(i)) {}
    args get() const noexcept { return {argv, first}; }
    void **const argv;
    const std::int32_t first;
};

// ---- Arrays ------------------------------------------------------------------------------------------------------

template <std::int32_t Kind, std::int32_t Least>
struct array_parameter : known_parameter<Kind, false, Least> {
    array_parameter(void **argv, std::size_t i) noexcept
        : data(argv[i]), passed(u_get_arg(static_cast<std::int32_t>(i) + 1))
    {
    }
    std::size_t size() const noexcept { return static_cast<std::size_t>(passed.elcnt); }
    void *const data;
    const t_DLL_ARG passed;
};

template <std::int32_t Min>
struct parameter<array<std::int32_t, Min>> : array_parameter<KA_INT_ARRAY, Min> {
    using array_parameter<KA_INT_ARRAY, Min>::array_parameter;
    array<std::int32_t, Min> get() const noexcept
    {
        return {{static_cast<char *>(this->data), step_of(this->passed)}, this->size()};
    }
};

template <std::int32_t Min>
struct parameter<array<double, Min>> : array_parameter<KA_REAL_ARRAY, Min> {
    using array_parameter<KA_REAL_ARRAY, Min>::array_parameter;
    array<double, Min> get() const noexcept { return {{{static_cast<double *>(this->data)}}, this->size()}; }
};

template <std::int32_t Min>
struct parameter<array<string, Min>> : array_parameter<KA_STRING_ARRAY, Min> {
    using array_parameter<KA_STRING_ARRAY, Min>::array_parameter;
    array<string, Min> get() const noexcept { return {{static_cast<KaStr *>(this->data)}, this->size()}; }
};

template <std::int32_t Min>
struct parameter<array<std::string_view, Min>> : array_parameter<KA_STRING_ARRAY, Min> {
    using array_parameter<KA_STRING_ARRAY, Min>::array_parameter;
    array<std::string_view, Min> get() const noexcept
    {
        return {{static_cast<const KaStr *>(this->data)}, this->size()};
    }
};

// The exact REALs of the block in a buffer; their doubles go back.
template <std::int32_t Min>
struct parameter<array<decimal, Min>> : array_parameter<KA_REAL_ARRAY, Min> {
    parameter(void **argv, std::size_t i) noexcept
        : array_parameter<KA_REAL_ARRAY, Min>(argv, i),
          exact(static_cast<decimal *>(std::malloc(this->size() * sizeof(decimal))))
    {
        for (std::size_t k = 0; exact != nullptr && k < this->size(); k++)
            new (exact + k) decimal(exact_element(this->passed, static_cast<std::ptrdiff_t>(k)));
    }
    parameter(const parameter &) = delete;
    ~parameter()
    {
        double *const back = static_cast<double *>(this->data);
        for (std::size_t k = 0; exact != nullptr && k < this->size(); k++)
            back[k] = nearest_double(exact[k].record());
        std::free(exact);
    }
    bool is_ready() const noexcept { return exact != nullptr || this->size() == 0; }
    array<decimal, Min> get() const noexcept { return {{{exact}}, this->size()}; }
    decimal *const exact;
};

// A constant reference is an input, as the value is.
template <typename T>
struct parameter<const T &> : parameter<T> {
    using parameter<T>::parameter;
};

} // namespace ka::module_detail

#endif
