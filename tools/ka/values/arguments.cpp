// SPDX-License-Identifier: MIT
//
// See arguments.h. The elements of an argument have one type; it is decided by all of them together.
#include "arguments.h"

#include <algorithm>

#include "base/text.h"
#include "number_type.h"
#include "results.h"
#include "wire/kinds.h"

namespace {

// ---- By themselves ---------------------------------------------------------------------------------------------

// "element 3: ", counted from 1; empty where the argument is one value.
std::string place_in(const Literal &literal, size_t index)
{
    return literal.is_array ? "element " + std::to_string(index + 1) + ": " : "";
}

int32_t common_type(const Literal &literal, const TypedElements &elements)
{
    bool strings = false;
    bool reals = false;
    bool integers = false;
    for (size_t i = 0; i < elements.size(); i++) {
        const int32_t type = elements[i].type;
        const std::string &text = elements[i].element.text;
        if (type == 0) throw Malformed(place_in(literal, i) + text + " " + why_no_type(text));
        strings |= type == DLL_STRING;
        reals |= type == DLL_REAL;
        integers |= type == DLL_INTEGER;
    }
    if (strings && (reals || integers)) throw Malformed("an array holds numbers or strings, not both");
    return strings ? DLL_STRING : reals ? DLL_REAL : DLL_INTEGER;
}

void add_element(Argument &argument, const TypedElement &typed)
{
    const std::string &text = typed.element.text;
    if (argument.type == DLL_STRING) argument.strings.push_back(text);
    if (argument.type == DLL_REAL) argument.reals.push_back(typed.real ? *typed.real : to_real(text));
    if (argument.type == DLL_INTEGER) argument.integers.push_back(to_integer(text));
}

void set_elements(Argument &argument, const Literal &literal, const TypedElements &elements)
{
    for (size_t i = 0; i < elements.size(); i++) {
        try {
            add_element(argument, elements[i]);
        } catch (const Malformed &malformed) {
            throw Malformed(place_in(literal, i) + malformed.what());
        }
    }
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

Argument make_argument(const Literal &literal, const TypedElements &elements, int32_t type)
{
    Argument argument{};
    argument.type = type;
    argument.passing = literal.by_reference ? KA_BY_REFERENCE : KA_BY_VALUE;
    argument.is_array = literal.is_array;
    set_elements(argument, literal, elements);
    set_room(argument, literal);
    return argument;
}

// ---- By a prototype --------------------------------------------------------------------------------------------

// A word suits as a string, whatever it holds; an INTEGER suits as a REAL.
bool suits(int32_t kind, const TypedElement &typed)
{
    const Notation notation = typed.element.notation;
    if (takes(kind, DLL_STRING)) return notation == Notation::string || notation == Notation::word;
    return takes(kind, typed.type) || (typed.type == DLL_INTEGER && takes(kind, DLL_REAL));
}

// An element that does not suit: its type, or why it has none. One that is not in an array is shown as it was
// written.
std::string given(const Literal &literal, const TypedElement &typed, size_t index)
{
    const std::string &text = typed.element.text;
    const std::string place = literal.is_array ? " as element " + std::to_string(index + 1) : "";
    if (typed.type == 0) return shortened(text) + place + ", which " + why_no_type(text);
    const size_t mark = literal.written.starts_with('&') ? 1 : 0;
    const std::string name = wire::type_name(typed.type);
    if (!literal.is_array) return name + " " + shortened(literal.written.substr(mark));
    return name + " " + shortened(typed.type == DLL_STRING ? string_literal(text) : text) + place;
}

Argument argument_for(const Prototype &prototype, const Literal &literal)
{
    if (prototype.kind == KA_VARARG) return argument_of(literal);
    const TypedElements elements = typed(literal.elements);
    for (size_t i = 0; i < elements.size(); i++)
        if (!suits(prototype.kind, elements[i]))
            throw Refused("takes " + taken_by(prototype) + ", got " + given(literal, elements[i], i));
    const int32_t type = wanted_type(prototype.kind, elements);
    Argument argument = make_argument(literal, elements, type);
    if (!changes(prototype.kind)) return argument;
    argument.passing = KA_BY_REFERENCE;
    if (type == DLL_STRING && !literal.room) argument.room = std::max(usual_room, longest_string(argument));
    return argument;
}

void check_elements(const Prototype &prototype, const Literal &literal)
{
    if (!is_kind(prototype.kind))
        throw Refused("the module's own table is wrong: there is no kind " + std::to_string(prototype.kind));
    const auto count = static_cast<int64_t>(literal.elements.size());
    if (min_elements(prototype) <= count) return;
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

Element element_of(const t_DECIMAL &value)
{
    char text[KA_REAL_TEXT];
    return {Notation::real, ka_real_to_text(&value, text)};
}

} // namespace

int32_t longest_string(const Argument &argument)
{
    size_t length = 0;
    for (const std::string &text : argument.strings)
        length = std::max(length, text.size());
    return static_cast<int32_t>(std::min<size_t>(length, INT32_MAX));
}

Argument argument_of(const Literal &literal)
{
    const TypedElements elements = typed(literal.elements);
    return make_argument(literal, elements, common_type(literal, elements));
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
        literal.elements.push_back({Notation::integer, std::to_string(value)});
    for (const t_DECIMAL &value : argument.reals)
        literal.elements.push_back(element_of(value));
    for (const std::string &text : argument.strings)
        literal.elements.push_back({Notation::string, text});
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
