// SPDX-License-Identifier: MIT
//
// The right results of the REAL operations: the decimal results under the REAL layer's policy. Operands are not null,
// and nothing here ends the process: where the library must do that, the answer is nothing. Places are 0 or more.
#pragma once

#include <optional>
#include <string>

#include "model/binary.h"
#include "model/text.h"

namespace model {

struct Real {
    int status;
    t_DECIMAL value;
};

t_DECIMAL huge(bool negative);
int sign(const t_DECIMAL &x);

Real real_add(const t_DECIMAL &a, const t_DECIMAL &b);
Real real_subtract(const t_DECIMAL &a, const t_DECIMAL &b);
Real real_multiply(const t_DECIMAL &a, const t_DECIMAL &b);
Real real_divide(const t_DECIMAL &a, const t_DECIMAL &b);

Real real_to_places(const t_DECIMAL &x, int places); // m_round
Real real_cut(const t_DECIMAL &x, int places);       // m_trunc

// x rounded to ndigits significant decimals, 0 or more (mkprec). A null operand is rounded like a number.
Real with_precision(const t_DECIMAL &x, int ndigits);

Real real_from_double(double value);
Real real_from_integer(int32_t value);
std::optional<Real> real_from_text(std::string_view text);
Real real_from_field(const std::vector<uint8_t> &field);

struct Integer {
    int status;
    int32_t value;
};
Integer real_to_integer(const t_DECIMAL &x);

// Nothing for a value outside normal form whose digits cannot be rounded, as they fall below the smallest record.
std::optional<std::string> real_general(const t_DECIMAL &x, int ndigit);
std::optional<double> real_to_double(const t_DECIMAL &x);

std::string real_layout(const t_DECIMAL &x, int length, int places);

} // namespace model
