// SPDX-License-Identifier: MIT
//
// What the REAL operations must give: the decimal results under the REAL layer's policy. Operands are not null, and
// nothing here ends the process: where the library must do that, the answer is nothing.
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
