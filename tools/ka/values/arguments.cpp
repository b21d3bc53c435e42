// SPDX-License-Identifier: MIT
//
// See arguments.h. The elements of an argument have one type; it is decided by all of them together.
#include "arguments.h"

#include <algorithm>
#include <charconv>

#include "base/text.h"
#include "results.h"
#include "wire/kinds.h"

namespace {

// ---- Numbers ---------------------------------------------------------------------------------------------------

bool is_whole(const std::string &text)
{
    const size_t sign = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
    return text.size() > sign && text.find_first_not_of("0123456789", sign) == std::string::npos;
}

bool read_real(const std::string &text, t_DECIMAL &value)
{
    return ka_real_from_text(text.data(), static_cast<int32_t>(text.size()), &value) == KA_DONE;
}

int32_t to_integer(const std::string &text)
{
    if (!is_whole(text)) throw Malformed(text + " is no whole number");
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
    if (!read_real(text, value)) throw Malformed(text + " is no number, or out of a REAL's range");
    return value;
}

// The block's value type of an element by itself; 0 for a word that is no number.
int32_t own_type(const Element &element)
{
    if (element.kind == Kind::string) return DLL_STRING;
    if (element.kind == Kind::integer) return DLL_INTEGER;
    if (element.kind == Kind::real) return DLL_REAL;
    t_DECIMAL value;
    if (is_whole(element.text)) return DLL_INTEGER;
    return read_real(element.text, value) ? DLL_REAL : 0;
}

// What a word of no type is.
std::string why_no_type(const std::string &text)
{
    if (!text.empty() && text.find_first_not_of("+-.0123456789eE") == std::string::npos)
        return "is no number, or out of a REAL's range";
    return "is neither a number nor a quoted 'text'";
}

// ---- By themselves ---------------------------------------------------------------------------------------------

int32_t common_type(const Literal &literal)
{
    bool strings = false;
    bool reals = false;
    bool integers = false;
    for (const Element &element : literal.elements) {
        const int32_t type = own_type(element);
        const std::string number = std::to_string(&element - literal.elements.data() + 1);
        const std::string place = literal.is_array ? "element " + number + ": " : "";
        if (type == 0) throw Malformed(place + element.text + " " + why_no_type(element.text));
        strings |= type == DLL_STRING;
        reals |= type == DLL_REAL;
        integers |= type == DLL_INTEGER;
    }
    if (strings && (reals || integers)) throw Malformed("an array holds numbers or strings, not both");
    return strings ? DLL_STRING : reals ? DLL_REAL : DLL_INTEGER;
}

void add_element(Argument &argument, const Element &element)
{
    if (argument.type == DLL_STRING) argument.strings.push_back(element.text);
    if (argument.type == DLL_REAL) argument.reals.push_back(to_real(element.text));
    if (argument.type == DLL_INTEGER) argument.integers.push_back(to_integer(element.text));
}

void set_elements(Argument &argument, const std::vector<Element> &elements)
{
    for (size_t i = 0; i < elements.size(); i++) {
        try {
            add_element(argument, elements[i]);
        } catch (const Malformed &malformed) {
            if (!argument.is_array) throw;
            throw Malformed("element " + std::to_string(i + 1) + ": " + malformed.what());
        }
    }
}

int32_t longest(const Argument &argument)
{
    size_t length = 0;
    for (const std::string &text : argument.strings)
        length = std::max(length, text.size());
    return static_cast<int32_t>(std::min<size_t>(length, INT32_MAX));
}

void set_room(Argument &argument, const Literal &literal)
{
    if (!literal.room) return;
    if (argument.type != DLL_STRING) throw Malformed("only strings have room");
    const auto room = static_cast<size_t>(*literal.room);
    const auto is_longer = [room](const std::string &text) { return text.size() > room; };
    const auto found = std::find_if(argument.strings.begin(), argument.strings.end(), is_longer);
    if (found != argument.strings.end()) {
        const std::string number = std::to_string(found - argument.strings.begin() + 1);
        throw Malformed("room for " + std::to_string(room) + " characters, but " +
                        (argument.is_array ? "element " + number + " has " : "a string of ") +
                        std::to_string(found->size()));
    }
    argument.room = *literal.room;
}

Argument make_argument(const Literal &literal, int32_t type)
{
    Argument argument{};
    argument.type = type;
    argument.passing = literal.by_reference ? KA_BY_REFERENCE : KA_BY_VALUE;
    argument.is_array = literal.is_array;
    set_elements(argument, literal.elements);
    set_room(argument, literal);
    return argument;
}

// ---- By a prototype --------------------------------------------------------------------------------------------

// A word suits as a string, whatever it holds; an INTEGER suits as a REAL.
bool suits(int32_t kind, const Element &element)
{
    if (takes(kind, DLL_STRING)) return element.kind == Kind::string || element.kind == Kind::word;
    const int32_t type = own_type(element);
    return takes(kind, type) || (type == DLL_INTEGER && takes(kind, DLL_REAL));
}

// The type in which a function gets elements that suit it.
int32_t wanted_type(int32_t kind, const std::vector<Element> &elements)
{
    if (takes(kind, DLL_STRING)) return DLL_STRING;
    const auto is_integer = [](const Element &element) { return own_type(element) == DLL_INTEGER; };
    const bool whole = std::all_of(elements.begin(), elements.end(), is_integer);
    return whole && takes(kind, DLL_INTEGER) && kind != KA_REAL_BY_VALUE ? DLL_INTEGER : DLL_REAL;
}

// An element that does not suit: its type, or why it has none. What is no array is shown as it was written.
std::string given(const Literal &literal, const Element &element)
{
    const int32_t type = own_type(element);
    const std::string number = std::to_string(&element - literal.elements.data() + 1);
    const std::string place = literal.is_array ? " as element " + number : "";
    if (type == 0) return shortened(element.text) + place + ", which " + why_no_type(element.text);
    const size_t mark = literal.written.starts_with('&') ? 1 : 0;
    const std::string name = wire::type_name(type);
    if (!literal.is_array) return name + " " + shortened(literal.written.substr(mark));
    return name + " " + shortened(type == DLL_STRING ? string_literal(element.text) : element.text) + place;
}

Argument argument_for(const Prototype &prototype, const Literal &literal)
{
    if (prototype.kind == KA_VARARG) return argument_of(literal);
    for (const Element &element : literal.elements)
        if (!suits(prototype.kind, element))
            throw Refused("takes " + taken_by(prototype) + ", got " + given(literal, element));
    const int32_t type = wanted_type(prototype.kind, literal.elements);
    Argument argument = make_argument(literal, type);
    if (!changes(prototype.kind)) return argument;
    argument.passing = KA_BY_REFERENCE;
    if (type == DLL_STRING && !literal.room) argument.room = std::max(usual_room, longest(argument));
    return argument;
}

void check_elements(const Prototype &prototype, const Literal &literal)
{
    if (!is_kind(prototype.kind))
        throw Refused("the module's own table is wrong: there is no kind " + std::to_string(prototype.kind));
    const auto count = static_cast<int64_t>(literal.elements.size());
    if (least_elements(prototype) <= count) return;
    throw Refused("takes at least " + std::to_string(prototype.min_elements) + " elements, got " +
                  std::to_string(count));
}

// prototype is null when the function has none for it.
std::string label(const Function &function, size_t position, const Prototype *prototype)
{
    const std::string number = function.name + ": argument " + std::to_string(position);
    if (prototype == nullptr) return number + ": ";
    return number + " (" + prototype->name + ") is " + kind_name(prototype->kind) + ": ";
}

Argument argument_at(const Function &function, size_t position, const Literal &literal)
{
    const Prototype &prototype = *prototype_at(function, position);
    try {
        check_elements(prototype, literal);
        return argument_for(prototype, literal);
    } catch (const Refused &refused) {
        throw Refused(label(function, position, &prototype) + refused.what());
    } catch (const Malformed &malformed) {
        throw Malformed(label(function, position, &prototype) + malformed.what());
    }
}

int64_t element_bytes(const Argument &argument)
{
    if (argument.type == DLL_INTEGER) return 4;
    if (argument.type == DLL_REAL) return int64_t{sizeof(t_DECIMAL)};
    return 8 + std::max<int64_t>(argument.room, longest(argument));
}

Element element_of(const t_DECIMAL &value)
{
    char text[KA_REAL_TEXT];
    return {Kind::real, ka_real_to_text(&value, text)};
}

} // namespace

Argument argument_of(const Literal &literal)
{
    return make_argument(literal, common_type(literal));
}

Literal read_literal_for(const Function &function, size_t position, const std::string &text)
{
    const Prototype *prototype = prototype_at(function, position);
    const bool is_text = prototype != nullptr && prototype->kind != KA_VARARG && takes(prototype->kind, DLL_STRING);
    try {
        return read_literal(text, is_text ? Unquoted::text : Unquoted::number);
    } catch (const Malformed &malformed) {
        throw Malformed(label(function, position, prototype) + malformed.what() + ", got \"" + shortened(text) +
                        "\"");
    }
}

std::vector<Argument> arguments_for(const Function &function, const std::vector<Literal> &literals)
{
    check_count(function, literals.size());
    std::vector<Argument> arguments;
    arguments.reserve(literals.size());
    for (const Literal &literal : literals)
        arguments.push_back(argument_at(function, arguments.size() + 1, literal));
    return arguments;
}

Literal literal_of(const Argument &argument)
{
    Literal literal;
    literal.written = argument_text(argument);
    literal.is_array = argument.is_array;
    for (int32_t value : argument.integers)
        literal.elements.push_back({Kind::integer, std::to_string(value)});
    for (const t_DECIMAL &value : argument.reals)
        literal.elements.push_back(element_of(value));
    for (const std::string &text : argument.strings)
        literal.elements.push_back({Kind::string, text});
    return literal;
}

int32_t add_argument(ka_host *host, const Argument &argument)
{
    if (argument.type == DLL_INTEGER) {
        return ka_add_integers(host, argument.integers.data(), static_cast<int32_t>(argument.integers.size()),
                               argument.passing);
    }
    if (argument.type == DLL_REAL) {
        return ka_add_reals(host, argument.reals.data(), static_cast<int32_t>(argument.reals.size()),
                            argument.passing);
    }
    std::vector<ka_text> texts;
    for (const std::string &text : argument.strings)
        texts.push_back({text.data(), static_cast<int32_t>(text.size())});
    return ka_add_strings(host, texts.data(), static_cast<int32_t>(texts.size()), argument.room, argument.passing);
}

// The header and 51 descriptors have a page.
int64_t segment_bytes_for(const std::string &function, const std::vector<Argument> &arguments, int32_t scratch_bytes)
{
    int64_t sum = 4096 + static_cast<int64_t>(function.size()) + int64_t{scratch_bytes};
    for (const Argument &argument : arguments) {
        const size_t count = argument.integers.size() + argument.reals.size() + argument.strings.size();
        sum += 16 + static_cast<int64_t>(count) * element_bytes(argument);
    }
    return sum;
}
