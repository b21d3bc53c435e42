// SPDX-License-Identifier: MIT
//
// The words of KA_FN: names of arguments, and ka::doc and ka::result among them. ka/module.hpp includes this.
#ifndef KA_MODULE_WORDS_HPP
#define KA_MODULE_WORDS_HPP

#include <cstddef>

namespace ka {

// Text about the function, right behind it, or about the argument whose name is before it.
struct doc {
    const char *text;
    explicit constexpr doc(const char *written) noexcept : text(written) {}
};

// The name of what the function returns; without it that is "result".
struct result {
    const char *name;
    explicit constexpr result(const char *written) noexcept : name(written) {}
};

namespace module_detail {

constexpr bool is_same_text(const char *a, const char *b)
{
    for (; *a == *b; a++, b++)
        if (*a == '\0') return true;
    return false;
}

// The first word is the function itself, and means nothing here.
struct word {
    enum class role { name, doc, result, other };
    role is;
    const char *text;
    constexpr bool is_name() const { return is == role::name; }

    template <std::size_t Size>
    constexpr word(const char (&literal)[Size]) noexcept : is(role::name), text(literal)
    {
    }
    constexpr word(doc written) noexcept : is(role::doc), text(written.text) {}
    constexpr word(result written) noexcept : is(role::result), text(written.name) {}
    template <typename Other>
    constexpr word(const Other &) noexcept : is(role::other), text("")
    {
    }
};

// The words of one function, by what they are for.
template <std::size_t Count>
struct words {
    std::size_t count = 0;            // of names, without that of the result
    const char *names[Count] = {};    // of the arguments
    const char *docs[Count] = {};     // of the arguments
    const char *doc = nullptr;        // of the function
    const char *result = nullptr;     // its name, if it is given
    const char *result_doc = nullptr; // likewise
    bool all_are_words = true;

    constexpr explicit words(const word (&given)[Count])
    {
        const char **about = &doc;
        for (std::size_t i = 1; i < Count; i++) {
            const word &each = given[i];
            if (each.is == word::role::doc) *about = each.text;
            if (each.is == word::role::other) all_are_words = false;
            if (each.is == word::role::result) {
                result = each.text;
                about = &result_doc;
            }
            if (each.is == word::role::name) {
                about = &docs[count];
                names[count++] = each.text;
            }
        }
    }

    constexpr const char *name_of_result() const { return result != nullptr ? result : "result"; }

    constexpr bool has_a_name_twice(bool has_result) const
    {
        for (std::size_t i = 0; i < count; i++) {
            if (has_result && is_same_text(names[i], name_of_result())) return true;
            for (std::size_t k = 0; k < i; k++)
                if (is_same_text(names[i], names[k])) return true;
        }
        return false;
    }
};

} // namespace module_detail

} // namespace ka

#endif
