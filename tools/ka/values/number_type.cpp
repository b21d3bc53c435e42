// SPDX-License-Identifier: MIT
//
// See number_type.h.
#include "number_type.h"

#include <algorithm>
#include <charconv>

#include "ka/dll_block.h"
#include "ka/dll_module.h"
#include "module/signatures.h"

namespace {

bool is_whole(const std::string &text)
{
    const size_t sign = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
    return text.size() > sign && text.find_first_not_of("0123456789", sign) == std::string::npos;
}

bool read_real(const std::string &text, t_DECIMAL &value)
{
    return ka_real_from_text(text.data(), static_cast<int32_t>(text.size()), &value) == KA_DONE;
}

TypedElement typed(const Element &element)
{
    if (element.notation == Notation::string) return {element, DLL_STRING, {}};
    if (element.notation == Notation::integer) return {element, DLL_INTEGER, {}};
    if (element.notation == Notation::real) return {element, DLL_REAL, {}};
    if (is_whole(element.text)) return {element, DLL_INTEGER, {}};
    t_DECIMAL value;
    if (!read_real(element.text, value)) return {element, 0, {}};
    return {element, DLL_REAL, value};
}

} // namespace

int32_t wanted_type(int32_t kind, const TypedElements &elements)
{
    if (takes(kind, DLL_STRING)) return DLL_STRING;
    const auto is_integer = [](const TypedElement &typed) { return typed.type == DLL_INTEGER; };
    const bool whole = std::all_of(elements.begin(), elements.end(), is_integer);
    return whole && takes(kind, DLL_INTEGER) && kind != KA_REAL_BY_VALUE ? DLL_INTEGER : DLL_REAL;
}

TypedElements typed(const std::vector<Element> &elements)
{
    TypedElements all;
    for (const Element &element : elements)
        all.push_back(typed(element));
    return all;
}

std::string why_no_type(const std::string &text)
{
    if (!text.empty() && text.find_first_not_of("+-.0123456789eE") == std::string::npos)
        return "is not a number, or out of a REAL's range";
    return "is neither a number nor a quoted 'text'";
}

int32_t to_integer(const std::string &text)
{
    if (!is_whole(text)) throw Malformed(text + " is not a whole number");
    int32_t value = 0;
    const char *begin = text.data() + (text.starts_with('+') ? 1 : 0);
    const auto result = std::from_chars(begin, text.data() + text.size(), value);
    if (result.ec != std::errc())
        throw Malformed(text + " does not fit an INTEGER (-2147483648 to 2147483647); a REAL is written " + text +
                        ".0");
    return value;
}

t_DECIMAL to_real(const std::string &text)
{
    t_DECIMAL value;
    if (!read_real(text, value)) throw Malformed(text + " is not a number, or out of a REAL's range");
    return value;
}
