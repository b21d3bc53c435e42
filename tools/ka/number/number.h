// SPDX-License-Identifier: MIT
//
// A REAL as people write it down, and how it is read:
//
//   12.345 -1e9      decimal text
//   1:+:12,34,50     the record: dec_exp, the sign (+, - or null), the digits
//   C1 0C 23         the bytes of a packed field
//   0x1.8p+1 0.1     a double
//
// Every conversion is the library's; what it would answer with the end of the process is refused before.
#ifndef KA_TOOL_NUMBER_NUMBER_H
#define KA_TOOL_NUMBER_NUMBER_H

#include <string>
#include <vector>

#include "ka/real.h"

struct Number {
    t_DECIMAL value;
    int status;                     // of the library: REAL_OK, REAL_RANGE ...
    std::vector<std::string> notes; // what was lost, and why
};

// These throw Malformed (values/literal.h).
Number read_text(const std::string &text);
Number read_record(const std::string &text);
Number read_bytes(const std::string &hex);
Number read_double(const std::string &text);

// A number to compute with, as text or as a record: neither null nor out of range.
Number read_operand(const std::string &text);

// A whole number from low to high; what names it in the message.
int read_count(const std::string &text, const char *what, int low, int high);

// "1:+:12,34,50"
std::string record_text(const t_DECIMAL &value);

// All decimals of a value that is not null.
std::string exact_text(const t_DECIMAL &value);

// The double in the fewest decimals that read back.
std::string double_text(double value);

#endif
