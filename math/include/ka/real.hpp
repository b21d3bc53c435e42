// SPDX-License-Identifier: MIT
//
// Helpers around ka/real.h that C++ modules would otherwise write again and again: REALs from and to text, and their
// order for containers and algorithms. Operations stay those of ka/real.h, since an operator could not return their
// status.
#ifndef KA_REAL_HPP
#define KA_REAL_HPP

#include <climits>
#include <string>
#include <string_view>

#include "ka/number_text.hpp"
#include "ka/real.h"

namespace ka {

// m_cv_asc of any text: empty or blank text too gives REAL_NOT_NUMBER with zero stored, and every decimal before the
// point counts, however many there are. A number becomes the nearest REAL, half away from zero.
// *exact, unless exact is null, becomes true if the REAL is the very number, neither rounded nor a substitute.
inline int real_from_text(std::string_view text, t_DECIMAL *r, bool *exact = nullptr)
{
    const int length = static_cast<int>(text.size() <= INT_MAX ? text.size() : 0);
    const bool blank = text.substr(0, static_cast<size_t>(length)).find_first_not_of(' ') == std::string_view::npos;
    int status = REAL_NOT_NUMBER;
    if (blank) {
        m_zero(r);
    } else {
        char buffer[detail::short_number_room];
        const int shortened = detail::shorten_number(text.data(), length, buffer);
        status = shortened > 0 ? m_cv_asc(buffer, shortened, r) : m_cv_asc(text.data(), length, r);
    }
    if (exact != nullptr) *exact = status == REAL_OK && detail::is_exact(text.data(), length, *r);
    return status;
}

// All decimals of x, as m_gcvt writes them. A null x is fatal.
inline std::string real_to_text(const t_DECIMAL &x)
{
    char buffer[2 * DEC_DIGITS + 8];
    return m_gcvt(&x, 2 * DEC_DIGITS, buffer);
}

// The order of values, for std::sort, std::map and similar. A null operand is fatal.
struct RealLess {
    bool operator()(const t_DECIMAL &a, const t_DECIMAL &b) const { return m_cmp(&a, &b) < 0; }
};

} // namespace ka

#endif
