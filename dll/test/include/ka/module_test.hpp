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
// and what no caller can send ends it. Nothing here throws, and an answer to a call-back must not.
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

// An argument of the test for the time of a call. T is const if it is passed by value.
template <typename T>
class Numbers {
    using E = Element<T>;
    static_assert(is_integer<E> || is_one_of<E, float, double, t_DECIMAL, decimal>,
                  "not an INTEGER, REAL or STRING: convert it, wide integers to std::int32_t");
    static_assert(!ElementOf<std::remove_const_t<T>>::in_array ||
                      is_one_of<E, std::int32_t, double, t_DECIMAL, decimal>,
                  "arrays of numbers are of std::int32_t, double, t_DECIMAL, ka::decimal or ka::Decimal");

public:
    Numbers(T &variable, std::int32_t) : variable_(variable) {}

    ka_test_argument argument()
    {
        ka_test_argument made{};
        made.form = is_integer<E> ? KA_TEST_INT32 : is_one_of<E, t_DECIMAL, decimal> ? KA_TEST_REAL : KA_TEST_DOUBLE;
        if constexpr (is_one_of<E, std::int32_t, double, t_DECIMAL, decimal>) {
            const auto [first, count] = elements(variable_);
            made.values = const_cast<E *>(first);
            made.count = count;
        } else {
            made.count = 1;
            if constexpr (is_integer<E>)
                made.own.int32 = variable_;
            else
                made.own.real = static_cast<double>(variable_);
        }
        return made;
    }
    void take(const ka_test_argument &) {}

private:
    T &variable_;
};

template <typename T>
class TextsOfNumbers {
public:
    TextsOfNumbers(T &variable, std::int32_t) : variable_(variable) {}

    ka_test_argument argument()
    {
        const auto [first, count] = elements(variable_);
        for (std::int32_t i = 0; i < count; i++)
            reals_.push_back(ka_test_decimal(first[i].text.data(), length(first[i].text.size())));
        ka_test_argument made{};
        made.form = KA_TEST_REAL;
        made.values = reals_.data();
        made.count = count;
        return made;
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

// A string that is passed by reference has the length of its room during the call, which works in its characters.
template <typename T>
class Texts {
    static constexpr bool is_array = !is_text<std::remove_const_t<T>>;

public:
    Texts(T &variable, std::int32_t room) : variable_(variable), room_(room) {}

    ka_test_argument argument()
    {
        ka_test_argument made{};
        made.form = KA_TEST_STRING;
        if constexpr (is_array) {
            for (const auto &text : variable_)
                longest_ = std::max(longest_, length(std::string_view(text).size()));
            for (auto &text : variable_)
                strings_.push_back(string_of(text));
            made.values = strings_.data();
            made.count = length(strings_.size());
        } else {
            longest_ = length(std::string_view(variable_).size());
            made.own.string = string_of(variable_);
            made.count = 1;
        }
        return made;
    }
    void take(const ka_test_argument &done)
    {
        if constexpr (!std::is_const_v<T> && is_array) {
            std::size_t i = 0;
            for (auto &text : variable_)
                text.resize(static_cast<std::size_t>(strings_[i++].len));
        } else if constexpr (!std::is_const_v<T>) {
            variable_.resize(static_cast<std::size_t>(done.own.string.len));
        }
    }

private:
    template <typename Text>
    KaStr string_of(Text &text)
    {
        const std::int32_t room = room_ != 0 ? room_ : longest_, before = length(std::string_view(text).size());
        if constexpr (!std::is_const_v<T>) {
            if (room > before) text.resize(static_cast<std::size_t>(room));
        }
        return {room, before, const_cast<char *>(std::string_view(text).data())};
    }

    T &variable_;
    const std::int32_t room_;
    std::int32_t longest_ = 0;
    std::vector<KaStr> strings_;
};

template <typename T>
using Passed =
    std::conditional_t<is_text<Element<T>>, Texts<T>,
                       std::conditional_t<std::is_same_v<Element<T>, Decimal>, TextsOfNumbers<T>, Numbers<T>>>;

// ---- As ka::in, ka::ref and the functions above have them --------------------------------------------------------

template <typename T>
class By {
public:
    explicit By(const T &argument) : passed_(argument, 0) {}
    ka_test_argument argument() { return passed_.argument(); }
    void take(const ka_test_argument &done) { passed_.take(done); }

private:
    Passed<const T> passed_;
};

template <typename T>
class By<In<T>> {
public:
    explicit By(const In<T> &in) : passed_(in.value, in.room) {}
    ka_test_argument argument() { return passed_.argument(); }
    void take(const ka_test_argument &done) { passed_.take(done); }

private:
    Passed<const T> passed_;
};

template <typename T>
class By<Ref<T>> {
public:
    explicit By(const Ref<T> &ref) : passed_(ref.value, ref.room) {}
    ka_test_argument argument()
    {
        ka_test_argument made = passed_.argument();
        made.by_reference = 1;
        return made;
    }
    void take(const ka_test_argument &done) { passed_.take(done); }

private:
    Passed<T> passed_;
};

template <typename T>
class By<Placed<T>> {
public:
    explicit By(const Placed<T> &placed) : by_(placed.argument), elsz_(placed.elsz), shift_(placed.shift) {}
    ka_test_argument argument()
    {
        ka_test_argument made = by_.argument();
        if (elsz_ != 0) made.elsz = elsz_;
        if (shift_ != 0) made.shift = shift_;
        return made;
    }
    void take(const ka_test_argument &done) { by_.take(done); }

private:
    By<T> by_;
    std::int32_t elsz_;
    std::int32_t shift_;
};

template <typename... Passes>
std::int32_t send(ka_test *test, std::string_view function, Passes &&...passes)
{
    ka_test_argument arguments[] = {passes.argument()..., ka_test_argument{}};
    const std::int32_t code = ka_test_send(test, without_zeros(function).c_str(), arguments);
    [[maybe_unused]] const ka_test_argument *done = arguments;
    (passes.take(*done++), ...);
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
        return detail::send(test_, function, detail::By<Arguments>(arguments)...);
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
    return detail::send(nullptr, function, detail::By<Arguments>(arguments)...);
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
