// SPDX-License-Identifier: MIT
//
// Any further arguments; ka/module.hpp includes this.
#ifndef KA_MODULE_ARGS_HPP
#define KA_MODULE_ARGS_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/module/array.hpp"

namespace ka {

namespace module_detail {

inline std::ptrdiff_t step_of(const t_DLL_ARG &passed) noexcept
{
    return std::ptrdiff_t{passed.elsz} * 4;
}

__attribute__((noinline)) inline decimal exact_element(const t_DLL_ARG &passed, std::ptrdiff_t k) noexcept
{
    const char *const from = static_cast<const char *>(passed.ptr) + k * step_of(passed);
    if (passed.type == DLL_INTEGER) {
        std::int32_t number;
        std::memcpy(&number, from, sizeof number);
        return decimal(number);
    }
    t_DECIMAL record;
    std::memcpy(&record, from, sizeof record);
    return decimal(record);
}

} // namespace module_detail

// One argument among any. Asked for a value that it is not, or that it has no element of, it ends the function with
// the code with which the call host refuses such an argument, 8 or 17. Values that are changed come back if the
// caller passed the argument by reference.
class argument {
public:
    argument(void *data, std::int32_t position) noexcept : data_(data), passed_(u_get_arg(position + 1)) {}

    bool is_integer() const noexcept { return passed_.type == DLL_INTEGER; }
    bool is_real() const noexcept { return passed_.type == DLL_REAL; }
    bool is_string() const noexcept { return passed_.type == DLL_STRING; }
    std::int32_t kind() const noexcept // KA_INT_ARRAY, KA_REAL_ARRAY, KA_STRING_ARRAY if there are several elements
    {
        const std::int32_t one = is_integer() ? KA_INT_BY_REFERENCE : is_real() ? KA_REAL_BY_REFERENCE : KA_STRING;
        return one + (size() > 1 ? 1 : 0);
    }
    std::size_t size() const noexcept { return static_cast<std::size_t>(passed_.elcnt > 0 ? passed_.elcnt : 0); }

    // The first element; of a number either way, the integer of a REAL being truncated as m_to_int does it.
    std::int32_t integer() const
    {
        std::int32_t number = 0;
        if (has_number()) m_to_int(&first().record(), &number);
        return number;
    }
    double real() const
    {
        if (!has_number()) return 0;
        return is_real() ? reals()[0] : integers()[0].value;
    }
    decimal exact() const { return has_number() ? first() : decimal(); }
    std::string_view text() const
    {
        return is(DLL_STRING, 1, not_string) ? std::string_view(strings()[0]) : std::string_view();
    }

    // All elements.
    array<std::int32_t, 0> integers() const
    {
        return {{static_cast<char *>(data_), module_detail::step_of(passed_)},
                count_if(DLL_INTEGER, "an argument is not an INTEGER")};
    }
    array<double, 0> reals() const
    {
        return {{{static_cast<double *>(data_)}}, count_if(DLL_REAL, "an argument is not a REAL")};
    }
    array<string, 0> strings() const { return {{static_cast<KaStr *>(data_)}, count_if(DLL_STRING, not_string)}; }

private:
    static constexpr const char *not_string = "an argument is not a STRING";

    decimal first() const noexcept { return module_detail::exact_element(passed_, 0); }

    bool is(std::int32_t type, std::size_t least, const char *otherwise) const
    {
        if (passed_.type != type)
            module_detail::fail(KA_WRONG_TYPE, otherwise);
        else if (size() < least)
            module_detail::fail(KA_TOO_FEW_ELEMENTS, "an argument has no element");
        return passed_.type == type && size() >= least;
    }
    bool has_number() const { return is(is_real() ? DLL_REAL : DLL_INTEGER, 1, "an argument is not a number"); }
    std::size_t count_if(std::int32_t type, const char *otherwise) const
    {
        return is(type, 0, otherwise) ? size() : 0;
    }

    void *data_;
    t_DLL_ARG passed_;
};

// As the last parameter of a function: the arguments from there on, of any type and number.
class args {
public:
    class iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = argument;
        using difference_type = std::ptrdiff_t;
        using reference = argument;
        using pointer = void;

        iterator(void *const *argv, std::int32_t position) noexcept : argv_(argv), position_(position) {}
        argument operator*() const noexcept { return {argv_[position_], position_}; }
        iterator &operator++() noexcept { return ++position_, *this; }
        iterator operator++(int) noexcept { return {argv_, position_++}; }
        friend bool operator==(const iterator &a, const iterator &b) noexcept { return a.position_ == b.position_; }
        friend bool operator!=(const iterator &a, const iterator &b) noexcept { return a.position_ != b.position_; }

    private:
        void *const *argv_;
        std::int32_t position_;
    };

    args(void *const *argv, std::int32_t first) noexcept : argv_(argv), first_(first), end_(KaFuncInfo()->argc) {}

    std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - first_); }
    bool empty() const noexcept { return size() == 0; }
    argument operator[](std::size_t k) const noexcept
    {
        return *iterator(argv_, first_ + static_cast<std::int32_t>(k));
    }
    iterator begin() const noexcept { return {argv_, first_}; }
    iterator end() const noexcept { return {argv_, end_}; }

private:
    void *const *argv_;
    std::int32_t first_;
    std::int32_t end_;
};

} // namespace ka

#endif
