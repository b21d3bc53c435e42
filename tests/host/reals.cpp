// SPDX-License-Identifier: MIT
//
// REAL arguments from text and back, by the decimal library: no value passes through a double on its way.
#include <stdexcept>

#include "host/arguments.h"

namespace harness {

t_DECIMAL decimal(std::string_view text)
{
    t_DECIMAL value = {};
    const int code = deccvasc(text.data(), static_cast<int>(text.size()), &value);
    if (code != DEC_OK) throw std::runtime_error("not a REAL: " + std::string(text));
    return value;
}

std::string text_of(const t_DECIMAL &value)
{
    char field[40];
    dectoasc(&value, field, sizeof field, -1);
    const std::string text(field, sizeof field);
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

Argument real(std::string_view text)
{
    return real(decimal(text));
}

Argument reals(const std::vector<std::string> &texts)
{
    std::vector<t_DECIMAL> values;
    for (const std::string &text : texts)
        values.push_back(decimal(text));
    return reals(values);
}

Argument reals(std::initializer_list<const char *> texts)
{
    return reals(std::vector<std::string>(texts.begin(), texts.end()));
}

std::vector<std::string> reals_of(const Block &block, int i)
{
    std::vector<std::string> texts;
    for (const t_DECIMAL &value : decimals_of(block, i))
        texts.push_back(text_of(value));
    return texts;
}

} // namespace harness
