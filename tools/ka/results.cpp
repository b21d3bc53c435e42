// SPDX-License-Identifier: MIT
//
// See results.h.
#include "results.h"

#include "ka/dll_block.h"
#include "ka/dll_codes.h"

namespace {

std::string show_integer(int32_t value)
{
    return std::to_string(value);
}

// A REAL of whole value shows a point, so that it is not taken for an INTEGER.
std::string show_real(const t_DECIMAL &value)
{
    char buffer[KA_REAL_TEXT];
    const std::string text = ka_real_to_text(&value, buffer);
    return text.find_first_not_of("-0123456789") == std::string::npos ? text + ".0" : text;
}

// Bytes above 127 stay as they are: they are parts of characters.
std::string show_character(char c)
{
    static constexpr char hex[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
    case '\'':
        return "\\'";
    case '\\':
        return "\\\\";
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '\r':
        return "\\r";
    default:
        break;
    }
    if (byte >= ' ' && byte != 0x7f) return {c};
    return {'\\', 'x', hex[byte / 16], hex[byte % 16]};
}

std::string show_string(const std::string &value)
{
    std::string text = "'";
    for (char c : value)
        text += show_character(c);
    return text + "'";
}

std::vector<std::string> read_integers(ka_host *host, int32_t number, size_t count)
{
    std::vector<int32_t> values(count);
    std::vector<std::string> texts;
    texts.reserve(count);
    ka_get_integers(host, number, values.data(), static_cast<int32_t>(count));
    for (int32_t value : values)
        texts.push_back(show_integer(value));
    return texts;
}

std::vector<std::string> read_reals(ka_host *host, int32_t number, size_t count)
{
    std::vector<t_DECIMAL> values(count);
    std::vector<std::string> texts;
    texts.reserve(count);
    ka_get_reals(host, number, values.data(), static_cast<int32_t>(count));
    for (const t_DECIMAL &value : values)
        texts.push_back(show_real(value));
    return texts;
}

std::vector<std::string> read_strings(ka_host *host, int32_t number, size_t count)
{
    std::vector<std::string> texts;
    for (int32_t i = 0; i < static_cast<int32_t>(count); i++) {
        int32_t length = 0;
        ka_get_string(host, number, i, nullptr, 0, &length);
        std::string value(static_cast<size_t>(length), '\0');
        ka_get_string(host, number, i, value.data(), length, &length);
        value.resize(std::min(value.size(), static_cast<size_t>(length)));
        texts.push_back(show_string(value));
    }
    return texts;
}

std::vector<std::string> read_result(ka_host *host, int32_t number, const Argument &argument)
{
    switch (argument.type) {
    case DLL_INTEGER:
        return read_integers(host, number, argument.integers.size());
    case DLL_REAL:
        return read_reals(host, number, argument.reals.size());
    default:
        return read_strings(host, number, argument.strings.size());
    }
}

} // namespace

std::string show_result(ka_host *host, int32_t number, const Argument &argument)
{
    std::string text;
    for (const std::string &element : read_result(host, number, argument))
        text += (text.empty() ? "" : ", ") + element;
    return argument.is_array ? "[" + text + "]" : text;
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
