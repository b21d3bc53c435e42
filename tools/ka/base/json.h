// SPDX-License-Identifier: MIT
//
// JSON as ka shows it: built in the order in which it is read, on one line. A character of a text that is not shown
// as it is becomes \uHHHH, and what is not UTF-8 becomes U+FFFD.
#ifndef KA_TOOL_BASE_JSON_H
#define KA_TOOL_BASE_JSON_H

#include <concepts>
#include <optional>
#include <string>
#include <vector>

// A value.
class Json {
public:
    Json() : text_("null") {}
    Json(bool value) : text_(value ? "true" : "false") {}
    Json(std::integral auto value) : text_(std::to_string(value)) {}
    Json(double value);
    Json(const char *text) : Json(std::string(text)) {}
    Json(const std::string &text);
    template <typename Value>
    Json(const std::vector<Value> &values); // an array
    template <typename Value>
    Json(const std::optional<Value> &value) : Json(value ? Json(*value) : Json())
    {
    }

    // What is JSON already: a number with all its decimals, a report of the library.
    static Json of_json(const std::string &json);

    // Bytes: a text where they are UTF-8, else {"hex":"..."}.
    static Json of_bytes(const std::string &bytes);

    const std::string &text() const { return text_; }

private:
    std::string text_;
};

class JsonObject {
public:
    JsonObject &add(const std::string &name, const Json &value);
    operator Json() const { return Json::of_json(text()); }
    std::string text() const { return "{" + members_ + "}"; }

private:
    std::string members_;
};

class JsonArray {
public:
    JsonArray &add(const Json &value);
    operator Json() const { return Json::of_json(text()); }
    std::string text() const { return "[" + elements_ + "]"; }

private:
    std::string elements_;
};

template <typename Value>
Json::Json(const std::vector<Value> &values)
{
    JsonArray array;
    for (const Value &value : values)
        array.add(value);
    text_ = array.text();
}

#endif
