// SPDX-License-Identifier: MIT
//
// See arguments.h. An argument is read from left to right into elements; the type is decided by all of them together.
#include "arguments.h"

#include <charconv>
#include <string_view>

#include "ka/dll_block.h"

namespace {

enum class Kind { integer, real, string };

// One element: its characters, without quotes and escapes when it is a string.
struct Element {
    Kind kind;
    std::string text;
};

// The characters not yet read.
struct Scanner {
    std::string_view rest;

    bool accept(char wanted)
    {
        if (rest.empty() || rest.front() != wanted) return false;
        rest.remove_prefix(1);
        return true;
    }
    void skip_blanks()
    {
        while (accept(' '))
            ;
    }
};

int hex_digit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

char read_hex(Scanner &scanner)
{
    if (scanner.rest.size() < 2) throw Malformed("\\x needs two hexadecimal digits");
    const int high = hex_digit(scanner.rest[0]);
    const int low = hex_digit(scanner.rest[1]);
    if (high < 0 || low < 0) throw Malformed("\\x needs two hexadecimal digits");
    scanner.rest.remove_prefix(2);
    return static_cast<char>(high * 16 + low);
}

char read_escape(Scanner &scanner)
{
    if (scanner.rest.empty()) throw Malformed("a backslash at the end");
    const char c = scanner.rest.front();
    scanner.rest.remove_prefix(1);
    switch (c) {
    case '\'':
    case '\\':
        return c;
    case 'n':
        return '\n';
    case 't':
        return '\t';
    case 'r':
        return '\r';
    case 'x':
        return read_hex(scanner);
    default:
        throw Malformed(std::string("\\") + c + " is no escape; a backslash is written \\\\");
    }
}

// Behind the opening quote.
Element read_string(Scanner &scanner)
{
    Element element{Kind::string, {}};
    while (!scanner.accept('\'')) {
        if (scanner.rest.empty()) throw Malformed("the closing quote is missing");
        const char c = scanner.rest.front();
        scanner.rest.remove_prefix(1);
        element.text += c == '\\' ? read_escape(scanner) : c;
    }
    return element;
}

// A number reaches to the next character that can end an element.
Element read_number(Scanner &scanner)
{
    const size_t length = std::min(scanner.rest.find_first_of(", ]:"), scanner.rest.size());
    const std::string text(scanner.rest.substr(0, length));
    scanner.rest.remove_prefix(length);
    if (text.empty()) throw Malformed("a value is missing");
    t_DECIMAL value;
    const bool is_integer =
        text.find_first_not_of("0123456789", text[0] == '-' || text[0] == '+') == std::string::npos;
    if (is_integer && text.size() > size_t(text[0] == '-' || text[0] == '+')) return {Kind::integer, text};
    if (ka_real_from_text(text.data(), static_cast<int32_t>(text.size()), &value) == KA_DONE)
        return {Kind::real, text};
    if (text.find_first_not_of("+-.0123456789eE") == std::string::npos)
        throw Malformed(text + " is no number, or out of a REAL's range");
    throw Malformed(text + " is neither a number nor a quoted 'text'");
}

Element read_element(Scanner &scanner)
{
    return scanner.accept('\'') ? read_string(scanner) : read_number(scanner);
}

// Behind the opening bracket.
std::vector<Element> read_array(Scanner &scanner)
{
    std::vector<Element> elements;
    do {
        scanner.skip_blanks();
        if (scanner.rest.starts_with(']'))
            throw Malformed(elements.empty() ? "an empty array" : "a value is missing");
        elements.push_back(read_element(scanner));
        scanner.skip_blanks();
    } while (scanner.accept(','));
    if (!scanner.accept(']')) throw Malformed("the closing bracket is missing");
    return elements;
}

int32_t read_room(Scanner &scanner)
{
    int32_t room = 0;
    const char *begin = scanner.rest.data();
    const char *end = begin + scanner.rest.size();
    const auto [stop, error] = std::from_chars(begin, end, room);
    if (error != std::errc() || room < 0) throw Malformed("the room behind the colon must be a number of characters");
    scanner.rest.remove_prefix(static_cast<size_t>(stop - begin));
    return room;
}

int32_t to_integer(const std::string &text)
{
    int32_t value = 0;
    const char *begin = text.data() + (text[0] == '+');
    const auto result = std::from_chars(begin, text.data() + text.size(), value);
    if (result.ec != std::errc())
        throw Malformed(text + " does not fit an INTEGER; a REAL is written " + text + ".0");
    return value;
}

t_DECIMAL to_real(const std::string &text)
{
    t_DECIMAL value;
    if (ka_real_from_text(text.data(), static_cast<int32_t>(text.size()), &value) != KA_DONE)
        throw Malformed(text + " is out of a REAL's range");
    return value;
}

bool any(const std::vector<Element> &elements, Kind kind)
{
    for (const Element &element : elements)
        if (element.kind == kind) return true;
    return false;
}

void set_elements(Argument &argument, const std::vector<Element> &elements)
{
    const bool strings = any(elements, Kind::string);
    const bool reals = any(elements, Kind::real);
    if (strings && (reals || any(elements, Kind::integer)))
        throw Malformed("an array holds numbers or strings, not both");
    argument.type = strings ? DLL_STRING : reals ? DLL_REAL : DLL_INTEGER;
    for (const Element &element : elements) {
        if (strings) argument.strings.push_back(element.text);
        if (argument.type == DLL_REAL) argument.reals.push_back(to_real(element.text));
        if (argument.type == DLL_INTEGER) argument.integers.push_back(to_integer(element.text));
    }
}

void set_room(Argument &argument, int32_t room)
{
    if (argument.type != DLL_STRING) throw Malformed("only strings have room");
    for (const std::string &text : argument.strings)
        if (text.size() > static_cast<size_t>(room))
            throw Malformed("room for " + std::to_string(room) + " characters, but a string of " +
                            std::to_string(text.size()));
    argument.room = room;
}

std::vector<Element> read_elements(Scanner &scanner, Argument &argument)
{
    if (scanner.accept('[')) {
        argument.is_array = true;
        return read_array(scanner);
    }
    if (scanner.rest.starts_with("str:")) {
        scanner.rest.remove_prefix(3);
        return {{Kind::string, {}}};
    }
    return {read_element(scanner)};
}

} // namespace

Argument read_argument(const std::string &text)
{
    Scanner scanner{text};
    Argument argument{};
    argument.passing = scanner.accept('&') ? KA_BY_REFERENCE : KA_BY_VALUE;
    set_elements(argument, read_elements(scanner, argument));
    if (scanner.accept(':')) set_room(argument, read_room(scanner));
    if (!scanner.rest.empty()) throw Malformed("\"" + std::string(scanner.rest) + "\" stands behind the value");
    return argument;
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
