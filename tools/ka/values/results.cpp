// SPDX-License-Identifier: MIT
//
// See results.h.
#include "results.h"

#include <algorithm>

#include "base/json.h"
#include "base/text.h"
#include "ka/dll_block.h"
#include "ka/dll_codes.h"

namespace {

// A REAL of whole value shows a point, so that it is not taken for an INTEGER.
std::string show_real(const t_DECIMAL &value)
{
    char buffer[KA_REAL_TEXT];
    const std::string text = ka_real_to_text(&value, buffer);
    return text.find_first_not_of("-0123456789") == std::string::npos ? text + ".0" : text;
}

std::string read_string(ka_host *host, int32_t number, int32_t element)
{
    int32_t length = 0;
    ka_get_string(host, number, element, nullptr, 0, &length);
    std::string value(static_cast<size_t>(length), '\0');
    ka_get_string(host, number, element, value.data(), length, &length);
    value.resize(std::min(value.size(), static_cast<size_t>(length))); // the module may still be writing
    return value;
}

using Show = std::string (*)(const std::string &);

std::vector<std::string> element_texts(const Argument &argument, Show show)
{
    std::vector<std::string> texts;
    for (int32_t value : argument.integers)
        texts.push_back(std::to_string(value));
    for (const t_DECIMAL &value : argument.reals)
        texts.push_back(show_real(value));
    for (const std::string &value : argument.strings)
        texts.push_back(show(value));
    return texts;
}

std::string joined(const Argument &argument, Show show, const char *comma)
{
    std::string text;
    for (const std::string &element : element_texts(argument, show))
        text += (text.empty() ? "" : comma) + element;
    return argument.is_array ? "[" + text + "]" : text;
}

} // namespace

Argument read_back(ka_host *host, int32_t number, const Argument &sent)
{
    Argument argument = sent;
    if (argument.type == DLL_INTEGER)
        ka_get_integers(host, number, argument.integers.data(), static_cast<int32_t>(argument.integers.size()));
    if (argument.type == DLL_REAL)
        ka_get_reals(host, number, argument.reals.data(), static_cast<int32_t>(argument.reals.size()));
    for (size_t i = 0; i < argument.strings.size(); i++)
        argument.strings[i] = read_string(host, number, static_cast<int32_t>(i));
    return argument;
}

std::string argument_text(const Argument &argument)
{
    return joined(argument, string_literal, ", ");
}

std::string argument_json(const Argument &argument)
{
    return joined(argument, string_json, ",");
}

std::string meaning_of_refusal(int32_t code)
{
    switch (code) {
    case KA_NO_MEMORY:
        return "the module has not the memory for the arguments";
    case KA_NO_FUNCTION:
        return "the module has no function of that name";
    case KA_WRONG_TYPE:
        return "the type of an argument does not suit the function";
    case KA_WRONG_COUNT:
        return "too many or too few arguments";
    case KA_TOO_FEW_ELEMENTS:
        return "an array has fewer elements than the function asks for";
    case KA_BAD_PROTOTYPE:
        return "the module's own tables are wrong";
    default:
        return "";
    }
}
