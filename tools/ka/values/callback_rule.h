// SPDX-License-Identifier: MIT
//
// What a call-back is answered, as it is written on the command line:
//
//   value+1  -(value % 7) * 3   arithmetic with + - * / % and parentheses; value is what the function asked
//   const:42 42                 always the same
//
// Every step is computed in 32 bits and wraps around; division cuts off towards zero.
#ifndef KA_TOOL_VALUES_CALLBACK_RULE_H
#define KA_TOOL_VALUES_CALLBACK_RULE_H

#include <cstdint>
#include <string>

struct Answer {
    int32_t value; // 0 when something is divided by zero
    bool divides_by_zero;
};

// Throws Malformed (literal.h) when rule is not arithmetic, whatever value is.
Answer answer_to(const std::string &rule, int32_t value);

#endif
