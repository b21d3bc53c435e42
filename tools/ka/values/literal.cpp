// SPDX-License-Identifier: MIT
//
// See literal.h. An argument is read from left to right.
#include "literal.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

// The characters not yet read.
struct Scanner {
    std::string_view rest;
    Unquoted unquoted;

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
    std::string take(size_t length)
    {
        std::string text(rest.substr(0, length));
        rest.remove_prefix(text.size());
        return text;
    }
};

// ---- Strings ---------------------------------------------------------------------------------------------------

int hex_digit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

char read_hex(Scanner &scanner)
{
    const std::string digits = scanner.take(2);
    const int high = digits.size() == 2 ? hex_digit(digits[0]) : -1;
    const int low = digits.size() == 2 ? hex_digit(digits[1]) : -1;
    if (high < 0 || low < 0) throw Malformed("\\x needs two hexadecimal digits");
    return static_cast<char>(high * 16 + low);
}

char read_escape(Scanner &scanner)
{
    const std::string escape = scanner.take(1);
    if (escape.empty()) throw Malformed("a backslash at the end");
    switch (escape[0]) {
    case '\'':
    case '\\':
        return escape[0];
    case 'n':
        return '\n';
    case 't':
        return '\t';
    case 'r':
        return '\r';
    case 'x':
        return read_hex(scanner);
    default:
        throw Malformed("\\" + escape + " is not an escape; a backslash is written \\\\");
    }
}

// Behind the opening quote.
Element read_string(Scanner &scanner)
{
    Element element{Notation::string, {}};
    while (!scanner.accept('\'')) {
        if (scanner.rest.empty()) throw Malformed("the closing quote is missing");
        const char c = scanner.rest.front();
        scanner.rest.remove_prefix(1);
        element.text += c == '\\' ? read_escape(scanner) : c;
    }
    return element;
}

// ---- Elements --------------------------------------------------------------------------------------------------

Element read_number(Scanner &scanner)
{
    const std::string text = scanner.take(scanner.rest.find_first_of(", ]:"));
    if (text.empty()) throw Malformed("a value is missing");
    return {Notation::word, text};
}

Element read_text_in_array(Scanner &scanner)
{
    std::string text = scanner.take(scanner.rest.find_first_of(",]"));
    text.erase(text.find_last_not_of(' ') + 1);
    if (text.empty()) throw Malformed("a value is missing; an empty string is written ''");
    return {Notation::word, text};
}

Element read_element(Scanner &scanner)
{
    if (scanner.accept('\'')) return read_string(scanner);
    if (scanner.rest.starts_with('[')) throw Malformed("an array within an array");
    return scanner.unquoted == Unquoted::text ? read_text_in_array(scanner) : read_number(scanner);
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
    if (error != std::errc() || room < 0) throw Malformed("the room after the colon must be a number of characters");
    scanner.rest.remove_prefix(static_cast<size_t>(stop - begin));
    return room;
}

void read_elements(Scanner &scanner, Literal &literal)
{
    if (scanner.accept('[')) {
        literal.is_array = true;
        literal.elements = read_array(scanner);
    } else if (scanner.rest.starts_with("str:")) {
        scanner.take(3);
        literal.elements = {{Notation::string, {}}};
    } else if (scanner.unquoted == Unquoted::text && !scanner.rest.starts_with('\'')) {
        literal.elements = {{Notation::word, scanner.take(scanner.rest.size())}};
    } else {
        literal.elements = {read_element(scanner)};
    }
}

} // namespace

Literal read_literal(const std::string &text, Unquoted unquoted)
{
    Scanner scanner{text, unquoted};
    Literal literal;
    literal.written = text;
    literal.by_reference = scanner.accept('&');
    read_elements(scanner, literal);
    if (scanner.accept(':')) literal.room = read_room(scanner);
    if (!scanner.rest.empty()) throw Malformed("\"" + std::string(scanner.rest) + "\" follows the value");
    return literal;
}
