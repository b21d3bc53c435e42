// SPDX-License-Identifier: MIT
//
// Doubles of the kinds whose decimals are hard to get right.
#pragma once

#include "model/draw.h"

namespace model {

struct DoubleKind {
    const char *name;
    double (*draw)(Draw &); // finite, not negative
};

inline constexpr int double_kind_count = 9;
extern const DoubleKind double_kinds[double_kind_count];

} // namespace model
