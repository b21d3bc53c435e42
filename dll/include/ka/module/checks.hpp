// SPDX-License-Identifier: MIT
//
// What KA_FN refuses, with a message that begins with the function. ka/module.hpp includes this.
#ifndef KA_MODULE_CHECKS_HPP
#define KA_MODULE_CHECKS_HPP

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "ka/dll_block.h"
#include "ka/dll_module.h"
#include "ka/module/invoke.hpp"
#include "ka/module/words.hpp"

namespace ka::module_detail {

// The name of a function without its namespaces.
constexpr word plain_name(const char *written)
{
    const char *name = written;
    for (const char *c = written; *c != '\0'; c++)
        if (*c == ':') name = c + 1;
    word found("");
    found.text = name;
    return found;
}

// A name that callers can write: not that of a template's function.
constexpr bool is_plain(const char *name)
{
    for (const char *c = name; *c != '\0'; c++)
        if (*c == '<' || *c == '(') return false;
    return *name != '\0';
}

// What is true of the words of one function; each is a bool by itself, since compilers take long for an expression
// that stands in every function of a module.
struct words_found {
    bool are_words, are_plain, are_enough, are_not_too_many, have_no_name_twice, have_their_result;
    constexpr bool is_sound() const
    {
        return are_words && are_plain && are_enough && are_not_too_many && have_no_name_twice && have_their_result;
    }
};

// What is true of a function of type F.
template <typename F, returns How>
struct checks {
    using S = signature_of<F>;
    using R = typename S::result_type;
    static constexpr std::size_t arity = S::arity;
    static constexpr bool has_result = How == returns::value && returned<R>::is_value;

    static constexpr bool is_function = S::is_function;
    static constexpr bool integers_are_int32 = S::wrong != instead::int32;
    static constexpr bool reals_are_double = S::wrong != instead::real;
    static constexpr bool texts_are_known = S::wrong != instead::text;
    static constexpr bool exact_ones_are_decimal = S::wrong != instead::exact;
    static constexpr bool has_no_pointers = S::wrong != instead::reference;
    static constexpr bool views_are_by_value = S::wrong != instead::by_value;
    static constexpr bool elements_are_known = S::wrong != instead::element;
    static constexpr bool others_are_known = S::wrong != instead::other;
    static constexpr bool returns_known = How == returns::status || returned<R>::known;
    static constexpr bool returns_status = How == returns::value || std::is_same_v<R, std::int32_t>;
    static constexpr bool is_callable = arity + (has_result ? 1 : 0) <= DLL_MAX_ARGS;
    static constexpr bool has_room_for_result = !has_result || arity == 0 || S::kinds[arity - 1] != KA_VARARG;

    static constexpr bool look_at_least()
    {
        for (const std::int32_t each : S::least)
            if (each < 0) return false;
        return true;
    }
    static constexpr bool has_sound_least = look_at_least();

    static constexpr bool look_at_args()
    {
        for (std::size_t i = 0; i + 1 < arity; i++)
            if (S::kinds[i] == KA_VARARG) return false;
        return true;
    }
    static constexpr bool has_args_last = look_at_args();

    static constexpr bool is_sound = is_function && S::wrong == instead::nothing && returns_known && returns_status &&
                                     is_callable && has_sound_least && has_args_last && has_room_for_result;

    template <std::size_t Count>
    static constexpr words_found look_at(const word &name, const words<Count> &given)
    {
        return {name.is_name() && given.all_are_words,
                is_plain(name.text),
                given.count >= arity,
                given.count <= arity,
                !given.has_a_name_twice(has_result),
                has_result || given.result == nullptr};
    }
};

} // namespace ka::module_detail

// F: a pointer to the function, or a lambda: some compilers take no pointer to what that stands for; the words begin
// with the function itself. The first check that fails says all: what comes after is quiet. Names begin with ka_: a
// function may have any other.
#define KA_DECLARE_(FUNCTION, F, HOW, NAME, ...)                                                                    \
    [] {                                                                                                            \
        constexpr auto ka_how = ::ka::module_detail::returns::HOW;                                                  \
        constexpr auto ka_function = F;                                                                             \
        using ka_type = ::ka::module_detail::checks<decltype(ka_function), ka_how>;                                 \
        KA_CHECK_(ka_type::is_function, FUNCTION, "not a function by itself; a member function is none")            \
        KA_CHECK_(ka_type::integers_are_int32, FUNCTION, "an integer parameter is an std::int32_t")                 \
        KA_CHECK_(ka_type::reals_are_double, FUNCTION, "a floating parameter is a double, or a ka::decimal")        \
        KA_CHECK_(ka_type::texts_are_known, FUNCTION,                                                               \
                  "a text parameter is an std::string_view or const char *, or a ka::string that is changed")       \
        KA_CHECK_(ka_type::exact_ones_are_decimal, FUNCTION, "instead of t_DECIMAL a parameter is a ka::decimal")   \
        KA_CHECK_(ka_type::has_no_pointers, FUNCTION,                                                               \
                  "instead of a pointer a parameter is an std::int32_t &, a double & or a ka::array")               \
        KA_CHECK_(ka_type::views_are_by_value, FUNCTION,                                                            \
                  "std::string_view, ka::string, ka::array and ka::args are parameters by value")                   \
        KA_CHECK_(ka_type::elements_are_known, FUNCTION,                                                            \
                  "elements of a ka::array are std::int32_t, double, ka::decimal, ka::string or std::string_view")  \
        KA_CHECK_(                                                                                                  \
            ka_type::others_are_known, FUNCTION,                                                                    \
            "a parameter is an std::int32_t, double, ka::decimal, const char *, std::string_view, ka::string, "     \
            "ka::array or ka::args")                                                                                \
        KA_CHECK_(ka_type::has_sound_least, FUNCTION, "the least number of elements of a ka::array is 0 or more")   \
        KA_CHECK_(ka_type::has_args_last, FUNCTION, "ka::args is the last parameter")                               \
        KA_CHECK_(ka_type::returns_known, FUNCTION,                                                                 \
                  "it returns void, ka::code, std::int32_t, double, ka::decimal, std::string, std::string_view or " \
                  "const char *")                                                                                   \
        KA_CHECK_(ka_type::returns_status, FUNCTION, "a status is an std::int32_t")                                 \
        KA_CHECK_(ka_type::has_room_for_result, FUNCTION, "no result can come after ka::args")                      \
        KA_CHECK_(ka_type::is_callable, FUNCTION, "no call has more than 50 arguments, of which a result is one")   \
        constexpr ::ka::module_detail::word ka_name = NAME;                                                         \
        constexpr ::ka::module_detail::word ka_given[] = {__VA_ARGS__};                                             \
        constexpr ::ka::module_detail::words ka_words(ka_given);                                                    \
        constexpr ::ka::module_detail::words_found ka_found = ka_type::look_at(ka_name, ka_words);                  \
        KA_CHECK_(ka_found.are_words, FUNCTION, "a name is a literal, \"name\"")                                    \
        KA_CHECK_(ka_found.are_plain, FUNCTION, "it needs a name: KA_FN_AS(\"name\", ...)")                         \
        KA_CHECK_(ka_found.are_enough, FUNCTION, "too few names: there is one for each parameter")                  \
        KA_CHECK_(ka_found.are_not_too_many, FUNCTION, "too many names: there is one for each parameter")           \
        KA_CHECK_(ka_found.have_no_name_twice, FUNCTION,                                                            \
                  "a name twice; that of the result is \"result\", or what ka::result says")                        \
        KA_CHECK_(ka_found.have_their_result, FUNCTION, "it has no result that ka::result names")                   \
        return ::ka::module_detail::declare < ka_function, ka_how,                                                  \
               ka_type::is_sound && ka_found.is_sound() > (ka_name.text, ka_words);                                 \
    }()

#define KA_CHECK_(CONDITION, FUNCTION, SAYS) static_assert(CONDITION, FUNCTION SAYS);

#endif
