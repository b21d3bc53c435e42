// SPDX-License-Identifier: MIT
//
// See json_arguments.h. The text is taken apart into a tree whose numbers are the very characters that were written:
// in a double they would lose decimals.
#include "json_arguments.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/json.h"
#include "base/text.h"
#include "results.h"

namespace {

using Parser = nlohmann::json;

constexpr size_t depth_max = 4; // the list, an argument, its array, an element that is an object

enum class Type { other, boolean, number, string, array, object };

struct Node {
    Type type;
    std::string text;        // null, true, false, a number, a string
    std::vector<Node> items; // of an array, of an object
    std::vector<std::string> keys;
};

// Builds the tree. Of the open nodes only the innermost gets children, so pointers to the others stay good.
class Builder : public nlohmann::json_sax<Parser> {
public:
    Node root{Type::other, {}, {}, {}};
    std::string fault;

    bool null() override { return add({Type::other, "null", {}, {}}); }
    bool boolean(bool value) override { return add({Type::boolean, value ? "true" : "false", {}, {}}); }
    bool number_integer(number_integer_t value) override { return add_number(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return add_number(std::to_string(value)); }
    bool number_float(number_float_t, const string_t &text) override { return add_number(text); }
    bool string(string_t &text) override { return add({Type::string, text, {}, {}}); }
    bool binary(binary_t &) override { return false; }
    bool start_array(std::size_t) override { return open(Type::array); }
    bool end_array() override { return close(); }
    bool start_object(std::size_t) override { return open(Type::object); }
    bool end_object() override { return close(); }
    bool key(string_t &name) override
    {
        open_.back()->keys.push_back(name);
        return true;
    }
    bool parse_error(std::size_t, const std::string &token, const nlohmann::detail::exception &error) override
    {
        const std::string text = error.what();
        fault = text.substr(std::min(text.find("] ") + 2, text.size())); // after the exception's own name
        // A number that the parser finds too large for a double.
        if (dynamic_cast<const Parser::out_of_range *>(&error) != nullptr) fault = number_fault(token);
        return false;
    }

private:
    std::string number_fault(const std::string &number) const
    {
        const bool is_argument = !open_.empty() && root.type == Type::array;
        const std::string place =
            is_argument ? "argument " + std::to_string(root.items.size() + (open_.size() > 1 ? 0 : 1)) : "";
        const bool is_element = open_.size() > 1 && open_.back()->type == Type::array;
        const std::string element = is_element ? ", element " + std::to_string(open_.back()->items.size() + 1) : "";
        return place + element + (is_argument ? ": " : "") + shortened(number) + " is out of a REAL's range";
    }
    bool add_number(const std::string &text) { return add({Type::number, text, {}, {}}); }
    bool add(Node node)
    {
        if (open_.empty())
            root = std::move(node);
        else
            open_.back()->items.push_back(std::move(node));
        return true;
    }
    bool open(Type type)
    {
        if (open_.size() == depth_max) {
            fault = "nested too deeply";
            return false;
        }
        add({type, {}, {}, {}});
        open_.push_back(open_.empty() ? &root : &open_.back()->items.back());
        return true;
    }
    bool close()
    {
        open_.pop_back();
        return true;
    }

    std::vector<Node *> open_;
};

Node parse(const std::string &text)
{
    Builder builder;
    if (!Parser::sax_parse(text, &builder)) throw Malformed(builder.fault);
    return std::move(builder.root);
}

// ---- From the tree to literals ---------------------------------------------------------------------------------

std::string from_hex(const std::string &digits)
{
    const auto is_hex = [](char c) {
        return std::string_view("0123456789abcdefABCDEF").find(c) != std::string_view::npos;
    };
    if (digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(), is_hex))
        throw Malformed("\"hex\" holds pairs of hexadecimal digits");
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

// One value after the key "integer", "real", "string" or "hex".
Element typed_element(const std::string &key, const Node &node)
{
    const bool is_text = key == "string" || key == "hex";
    if (node.type != Type::string && (is_text || node.type != Type::number))
        throw Malformed("\"" + key + "\" holds " + (is_text ? "a string" : "a number, or one as text") +
                        ", or an array of them");
    if (key == "hex") return {Notation::string, from_hex(node.text)};
    if (key == "string") return {Notation::string, node.text};
    return {key == "real" ? Notation::real : Notation::integer, node.text};
}

Element element_of(const Node &node)
{
    if (node.type == Type::number) return {Notation::number, node.text};
    if (node.type == Type::string) return {Notation::string, node.text};
    if (node.type == Type::array) throw Malformed("an array within an array");
    if (node.type == Type::object && node.keys.size() == 1) {
        const std::string &key = node.keys[0];
        if (key == "integer" || key == "real" || key == "string" || key == "hex")
            return typed_element(key, node.items[0]);
    }
    throw Malformed(node.type == Type::object ? "an element that is not a value" : node.text + " is not a value");
}

template <typename Read>
void set_elements(Literal &literal, const Node &node, Read read)
{
    literal.is_array = node.type == Type::array;
    if (!literal.is_array) {
        literal.elements.push_back(read(node));
        return;
    }
    if (node.items.empty()) throw Malformed("an empty array");
    for (const Node &item : node.items)
        literal.elements.push_back(read(item));
}

int32_t room_of(const Node &node)
{
    const bool is_count = node.type == Type::number && node.text.size() < 11 &&
                          node.text.find_first_not_of("0123456789") == std::string::npos;
    const int64_t room = is_count ? std::stoll(node.text) : -1;
    if (room < 0 || room > INT32_MAX) throw Malformed("\"room\" holds a number of characters");
    return static_cast<int32_t>(room);
}

void set_member(Literal &literal, const std::string &key, const Node &node)
{
    if (key == "room") {
        literal.room = room_of(node);
    } else if (key == "by_reference") {
        if (node.type != Type::boolean) throw Malformed("\"by_reference\" holds true or false");
        literal.by_reference = node.text == "true";
    } else if (key == "integer" || key == "real" || key == "string" || key == "hex") {
        if (!literal.elements.empty()) throw Malformed("two values");
        set_elements(literal, node, [&](const Node &item) { return typed_element(key, item); });
    } else {
        throw Malformed("\"" + key + "\" is none of integer, real, string, hex, room, by_reference");
    }
}

Json written(const Node &node)
{
    if (node.type == Type::string) return node.text;
    if (node.type != Type::array && node.type != Type::object) return Json::of_json(node.text);
    JsonArray array;
    JsonObject object;
    for (size_t i = 0; i < node.items.size(); i++) {
        if (node.type == Type::array)
            array.add(written(node.items[i]));
        else
            object.add(node.keys[i], written(node.items[i]));
    }
    return node.type == Type::array ? Json(array) : Json(object);
}

Literal literal_from(const Node &node)
{
    Literal literal;
    literal.written = written(node).text();
    if (node.type != Type::object) {
        set_elements(literal, node, element_of);
        return literal;
    }
    for (size_t i = 0; i < node.items.size(); i++) {
        const std::string &key = node.keys[i];
        const auto known = node.keys.begin() + static_cast<std::ptrdiff_t>(i);
        if (std::find(node.keys.begin(), known, key) != known) throw Malformed("\"" + key + "\" is given twice");
        set_member(literal, key, node.items[i]);
    }
    if (literal.elements.empty()) throw Malformed("a value is missing: integer, real, string or hex");
    return literal;
}

} // namespace

std::vector<Literal> read_json_arguments(const std::string &text)
{
    const Node root = parse(text);
    if (root.type != Type::array) throw Malformed("the arguments are not one JSON array");
    std::vector<Literal> literals;
    for (const Node &node : root.items) {
        try {
            literals.push_back(literal_from(node));
        } catch (const Malformed &malformed) {
            throw Malformed("argument " + std::to_string(literals.size() + 1) + " (" + written(node).text() +
                            "): " + malformed.what());
        }
    }
    return literals;
}
