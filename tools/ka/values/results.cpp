// SPDX-License-Identifier: MIT
//
// See results.h.
#include "results.h"

#include <algorithm>

#include "base/text.h"
#include "ka/dll_block.h"
#include "ka/dll_codes.h"

namespace {

std::string read_string(ka_host *host, int32_t number, int32_t element)
{
    int32_t length = 0;
    ka_get_string(host, number, element, nullptr, 0, &length);
    std::string value(static_cast<size_t>(length), '\0');
    ka_get_string(host, number, element, value.data(), length, &length);
    value.resize(std::min(value.size(), static_cast<size_t>(length))); // the module may still be writing
    return value;
}

// What write makes of each element.
template <typename Shown, typename Write>
std::vector<Shown> elements_of(const Argument &argument, Write write)
{
    std::vector<Shown> shown;
    for (int32_t value : argument.integers)
        shown.push_back(write(value));
    for (const t_DECIMAL &value : argument.reals)
        shown.push_back(write(value));
    for (const std::string &value : argument.strings)
        shown.push_back(write(value));
    return shown;
}

struct AsText {
    std::string operator()(int32_t value) const { return std::to_string(value); }
    std::string operator()(const t_DECIMAL &value) const { return real_text(value); }
    std::string operator()(const std::string &value) const { return string_literal(value); }
};

struct AsJson {
    Json operator()(int32_t value) const { return value; }
    Json operator()(const t_DECIMAL &value) const { return Json::of_json(real_text(value)); }
    Json operator()(const std::string &value) const { return Json::of_bytes(value); }
};

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

std::string real_text(const t_DECIMAL &value)
{
    char buffer[KA_REAL_TEXT];
    const std::string text = ka_real_to_text(&value, buffer);
    return text.find_first_not_of("-0123456789") == std::string::npos ? text + ".0" : text;
}

std::string argument_text(const Argument &argument)
{
    std::string text;
    for (const std::string &element : elements_of<std::string>(argument, AsText()))
        text += (text.empty() ? "" : ", ") + element;
    return argument.is_array ? "[" + text + "]" : text;
}

Json argument_json(const Argument &argument)
{
    const std::vector<Json> elements = elements_of<Json>(argument, AsJson());
    return argument.is_array ? Json(elements) : elements[0];
}

std::string meaning_of_refusal(int32_t return_code)
{
    switch (return_code) {
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
