// SPDX-License-Identifier: MIT
//
// Unit tests of a function module, for C++17 and later: ka/module_test.h with the types of C++.
//
//     #include <ka/module_test.hpp>
//
//     int main()
//     {
//         std::vector<double> values{1, 2};
//         assert(ka::test::call("scale", ka::ref(values), 2.5) == 0 && values[1] == 5);
//         assert(ka::test::call("scale", 2.5) == KA_WRONG_COUNT);
//     }
//
//     c++ module.cpp module_test.cpp -lkahost_test -o module_test
//
// Arguments are those of ka/caller.hpp, by value and by reference: numbers, text, and vectors or arrays of them,
// ka::ref(values), ka::ref(text, room), ka::in(text, room), ka::Decimal("19.99"); and ka::decimal of ka/module.hpp.
// What is said in ka/module_test.h holds here, too: the code is the one that a caller gets, an abort aborts the test,
// and what no caller can send ends it. Nothing here throws, and an answer to a call-back must not: that would end the
// test.
#ifndef KA_MODULE_TEST_HPP
#define KA_MODULE_TEST_HPP

#if __cplusplus < 201703L
#error "ka/module_test.hpp is C++17: give the compiler -std=c++17 or a later standard"
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "ka/arguments.hpp"
#include "ka/module/decimal.hpp"
#include "ka/module_test.h"

namespace ka::test {

// ka_test_settings with the usual ones.
struct Settings : ka_test_settings {
    Settings() noexcept { ka_test_settings_init(this); }
};

// ---- Arguments ---------------------------------------------------------------------------------------------------

template <typename T>
struct Placed {
    const T &argument;
    std::int32_t elsz;
    std::int32_t shift;
};

// An argument, ka::ref(values) for instance, as an unusual caller places it in the block: its elements that many
// words of 4 bytes apart; its first one that many bytes behind an address that 8 divides.
template <typename T>
Placed<T> spaced(const T &argument, std::int32_t words)
{
    return {argument, words, 0};
}
template <typename T>
Placed<T> shifted(const T &argument, std::int32_t bytes)
{
    return {argument, 0, bytes};
}

namespace detail {

using namespace ka::detail;

static_assert(sizeof(decimal) == sizeof(t_DECIMAL) && std::is_standard_layout_v<decimal>,
              "a ka::decimal is its record");

// An argument of the test for the time of a call. T, below, is const if it is passed by value.
struct Argument {
    std::int32_t elsz = 0;
    std::int32_t shift = 0;

    ka_test_argument record(std::int32_t form, const void *values, std::int32_t count, bool by_value) const
    {
        ka_test_argument made = ka_test_in_(form, values, count);
        made.by_reference = by_value ? 0 : 1;
        made.elsz = elsz;
        made.shift = shift;
        return made;
    }
};

template <typename T>
class Numbers : public Argument {
    using E = Element<T>;
    static_assert(is_integer<E> || is_one_of<E, float, double, t_DECIMAL, decimal>,
                  "not an INTEGER, REAL or STRING: convert it, wide integers to std::int32_t");
    static_assert(!ElementOf<std::remove_const_t<T>>::in_array ||
                      is_one_of<E, std::int32_t, double, t_DECIMAL, decimal>,
                  "arrays of numbers are of std::int32_t, double, t_DECIMAL, ka::decimal or ka::Decimal");
    static constexpr bool is_real = is_one_of<E, t_DECIMAL, decimal>;
    static constexpr std::int32_t form = is_integer<E> ? KA_TEST_INT32 : is_real ? KA_TEST_REAL : KA_TEST_DOUBLE;

public:
    Numbers(T &variable, std::int32_t) : variable_(variable) {}

    ka_test_argument argument()
    {
        if constexpr (is_real || is_one_of<E, std::int32_t, double>) {
            const auto [first, count] = elements(variable_);
            return record(form, first, count, std::is_const_v<T>);
        } else {
            ka_test_argument made = record(form, nullptr, 1, std::is_const_v<T>);
            if constexpr (is_integer<E>)
                made.own.int32 = variable_;
            else
                made.own.real = static_cast<double>(variable_);
            return made;
        }
    }
    void take(const ka_test_argument &) {}

private:
    T &variable_;
};

template <typename T>
class TextsOfNumbers : public Argument {
public:
    TextsOfNumbers(T &variable, std::int32_t) : variable_(variable) {}

    ka_test_argument argument()
    {
        const auto [first, count] = elements(variable_);
        for (std::int32_t i = 0; i < count; i++)
            reals_.push_back(ka_test_decimal(first[i].text.data(), length(first[i].text.size())));
        return record(KA_TEST_REAL, reals_.data(), count, std::is_const_v<T>);
    }
    void take(const ka_test_argument &done)
    {
        if constexpr (!std::is_const_v<T>) {
            const auto [first, count] = elements(variable_);
            for (std::int32_t i = 0; done.gives_back != 0 && i < count; i++)
                first[i] = Decimal(reals_[static_cast<std::size_t>(i)]);
        }
    }

private:
    T &variable_;
    std::vector<t_DECIMAL> reals_;
};

// Results have a room of their own until the call is over: the same variable may be another argument, too.
class Strings : public Argument {
public:
    explicit Strings(std::int32_t room) : room_(room), has_room_(room != 0) {}

protected:
    void add(std::string_view text)
    {
        strings_.push_back({0, length(text.size()), const_cast<char *>(text.data())});
        if (!has_room_) room_ = std::max(room_, length(text.size()));
    }
    ka_test_argument added(bool by_value)
    {
        const auto room = static_cast<std::size_t>(std::max(room_, std::int32_t{0}));
        if (!by_value) rooms_.resize(room * strings_.size());
        char *own = rooms_.data();
        for (KaStr &string : strings_) {
            string.maxlen = room_;
            if (by_value || string.len > room_) continue; // too long: the call is refused
            string.data = std::copy_n(string.data, string.len, own) - string.len;
            own += room;
        }
        return record(KA_TEST_STRING, strings_.data(), length(strings_.size()), by_value);
    }
    std::string_view result(std::int32_t i) const
    {
        const KaStr &string = strings_[static_cast<std::size_t>(i)];
        return {string.data, static_cast<std::size_t>(string.len)};
    }

private:
    std::int32_t room_;
    bool has_room_;
    std::vector<KaStr> strings_;
    std::string rooms_;
};

template <typename T>
class Texts : public Strings {
public:
    Texts(T &variable, std::int32_t room) : Strings(room), variable_(variable) {}

    ka_test_argument argument()
    {
        const auto [first, count] = elements(variable_);
        for (std::int32_t i = 0; i < count; i++)
            add(first[i]);
        return added(std::is_const_v<T>);
    }
    void take(const ka_test_argument &done)
    {
        if constexpr (!std::is_const_v<T>) {
            const auto [first, count] = elements(variable_);
            for (std::int32_t i = 0; done.gives_back != 0 && i < count; i++)
                first[i].assign(result(i));
        }
    }

private:
    T &variable_;
};

template <typename T>
using Passed =
    std::conditional_t<is_text<Element<T>>, Texts<T>,
                       std::conditional_t<std::is_same_v<Element<T>, Decimal>, TextsOfNumbers<T>, Numbers<T>>>;

template <typename T>
auto pass(const T &argument)
{
    return Passed<const T>(argument, 0);
}
template <typename T>
auto pass(const In<T> &in)
{
    return Passed<const T>(in.value, in.room);
}
template <typename T>
auto pass(const Ref<T> &ref)
{
    return Passed<T>(ref.value, ref.room);
}
template <typename T>
auto pass(const Placed<T> &placed)
{
    auto passed = pass(placed.argument);
    if (placed.elsz != 0) passed.elsz = placed.elsz;
    if (placed.shift != 0) passed.shift = placed.shift;
    return passed;
}

inline std::int32_t send(ka_test *test, std::string_view function, ka_test_argument *arguments)
{
    return ka_test_send(test, without_zeros(function).c_str(), arguments);
}

template <typename... Passes>
std::int32_t call(ka_test *test, std::string_view function, Passes &&...passed)
{
    ka_test_argument arguments[] = {passed.argument()..., ka_test_argument{}};
    const std::int32_t code = send(test, function, arguments);
    [[maybe_unused]] const ka_test_argument *done = arguments;
    (passed.take(*done++), ...);
    return code;
}

} // namespace detail

// ---- Callers -----------------------------------------------------------------------------------------------------

// A caller with settings of its own. It stays where it is, and outlives its calls.
class Caller {
public:
    using Callback = std::function<std::int32_t(std::int32_t value)>;

    explicit Caller(const ka_test_settings &settings = Settings()) : test_(ka_test_open(&settings)) {}
    ~Caller() { ka_test_close(test_); }
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;

    // Answers the call-backs from the next call on.
    void on_callback(Callback callback)
    {
        callback_ = std::move(callback);
        ka_test_settings &settings = *ka_test_settings_of(test_);
        settings.user = &callback_;
        settings.callback = [](std::int32_t value, void *user) noexcept {
            const Callback &answers = *static_cast<const Callback *>(user);
            return answers ? answers(value) : std::int32_t{0};
        };
    }

    // One call; the return code.
    template <typename... Arguments>
    std::int32_t call(std::string_view function, const Arguments &...arguments) noexcept
    {
        return detail::call(test_, function, detail::pass(arguments)...);
    }

    void *scratch() noexcept { return ka_test_scratch(test_); }

private:
    struct Usual {};
    explicit Caller(Usual) noexcept : test_(nullptr) {}
    friend Caller &usual_caller();

    ka_test *test_; // null: the one that is always there
    Callback callback_;
};

inline Caller &usual_caller()
{
    static Caller usual{Caller::Usual()};
    return usual;
}

// The same of the caller that is always there, with the usual settings.
template <typename... Arguments>
std::int32_t call(std::string_view function, const Arguments &...arguments) noexcept
{
    return detail::call(nullptr, function, detail::pass(arguments)...);
}

inline void on_callback(Caller::Callback callback)
{
    usual_caller().on_callback(std::move(callback));
}

inline void *scratch() noexcept
{
    return ka_test_scratch(nullptr);
}

// dll_cleanup runs now; see ka_test_end_module.
inline void end_module() noexcept
{
    ka_test_end_module();
}

} // namespace ka::test

#endif
