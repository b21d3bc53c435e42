// SPDX-License-Identifier: MIT
//
// Return codes of functions; ka/module.hpp includes this.
#ifndef KA_MODULE_CODE_HPP
#define KA_MODULE_CODE_HPP

#include <cstdint>

#include "ka/dll_codes.h"

namespace ka {

// What a function returns to answer with a code instead of a result. ka::code(n) is for a number that is known at run
// time only; a number that is known before is ka::own<n>, which is checked.
enum class code : std::int32_t {};

inline constexpr code ok{KA_OK};

namespace module_detail {

constexpr bool is_of_the_host(std::int32_t number)
{
    return number == KA_NO_MEMORY || number == KA_NO_FUNCTION || number == KA_WRONG_TYPE ||
           number == KA_WRONG_COUNT || number == KA_TOO_FEW_ELEMENTS || number == KA_TOO_MANY_ARGS ||
           number == KA_BAD_PROTOTYPE;
}

template <std::int32_t Number>
constexpr code own_code()
{
    static_assert(!is_of_the_host(Number),
                  "ka::own: the call host answers with this code itself: choose another than "
                  "2, 7, 8, 9, 17, 606 and -1");
    return code{Number};
}

} // namespace module_detail

// A code of the module's own, which no caller takes for a refusal of the call host.
template <std::int32_t Number>
inline constexpr code own = module_detail::own_code<Number>();

} // namespace ka

#endif
