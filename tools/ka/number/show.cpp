// SPDX-License-Identifier: MIT
//
// See show.h.
#include "show.h"

#include <cstdio>
#include <cstdlib>

#include "base/json.h"

namespace {

struct View {
    bool is_null;
    std::string text;
    std::string packed;
    double nearest;   // to the value
    std::string form; // "normal", or why it is not
    std::string status_text;
    std::vector<std::string> notes;
};

std::string packed_text(const std::vector<uint8_t> &bytes)
{
    std::string text;
    for (uint8_t byte : bytes) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%02X ", byte);
        text += hex;
    }
    text.pop_back();
    return text;
}

std::string hex_text(double value)
{
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%a", value);
    return buffer;
}

std::string form_of(const t_DECIMAL &value)
{
    if (value.dec_pos == DEC_NULL) return "null: no value";
    if (value.dec_ndgts == 0) return value.dec_pos == DEC_NEGATIVE ? "a zero with the sign -" : "normal";
    if (value.dec_dgts[0] == 0) return "not normal: the first digit is 0, which the operations do not expect";
    if (value.dec_dgts[value.dec_ndgts - 1] == 0) return "not normal: the last digit is 0; the value is the same";
    return "normal";
}

std::string status_text(const Number &number)
{
    const char *stored = number.value.dec_ndgts == 0 ? "zero stored" : "the largest REAL stored";
    switch (number.status) {
    case REAL_OK:
        return "";
    case REAL_RANGE:
        return std::string("out of range, ") + stored;
    case REAL_DIVISION_BY_ZERO:
        return std::string("division by zero, ") + stored;
    case REAL_NULL_FIELD:
        return "the field holds null; m_load stores zero";
    default:
        return "unknown";
    }
}

std::string packed_form(const t_DECIMAL &value, int length, std::vector<std::string> &notes)
{
    std::vector<uint8_t> bytes(static_cast<size_t>(length));
    stdecimal(&value, bytes.data(), length);
    t_DECIMAL back = value;
    lddecimal(bytes.data(), length, &back);
    if (value.dec_pos != DEC_NULL && back.dec_pos == DEC_NULL)
        notes.push_back("the packed bytes load back as null: the exponent byte wraps");
    else if (value.dec_pos != DEC_NULL && value.dec_ndgts != 0 && m_cmp(&value, &back) != 0)
        notes.push_back("the packed bytes load back as " + exact_text(back));
    return packed_text(bytes);
}

void note_double(const t_DECIMAL &value, double nearest, std::vector<std::string> &notes)
{
    double given = 0;
    m_to_dbl(&value, &given);
    if (given != nearest)
        notes.push_back("m_to_dbl, and a function that takes a double, gives " + double_text(given) + " = " +
                        hex_text(given) + ": 14 decimals count");
}

View view_of(const Number &number, int packed_length)
{
    View view{};
    view.notes = number.notes;
    view.is_null = number.value.dec_pos == DEC_NULL;
    view.text = view.is_null ? "null" : exact_text(number.value);
    view.packed = packed_form(number.value, packed_length, view.notes);
    view.form = form_of(number.value);
    view.status_text = status_text(number);
    if (view.is_null) return view;
    view.nearest = std::strtod(view.text.c_str(), nullptr);
    note_double(number.value, view.nearest, view.notes);
    return view;
}

} // namespace

std::string show_number(const Number &number, int packed_length)
{
    const View view = view_of(number, packed_length);
    std::string out = "text    " + view.text + "\n";
    out += "record  " + record_text(number.value) + "\n";
    out += "packed  " + view.packed + "\n";
    if (!view.is_null) out += "double  " + double_text(view.nearest) + " = " + hex_text(view.nearest) + "\n";
    out += "form    " + view.form + "\n";
    if (number.status != REAL_OK) out += "status  " + std::to_string(number.status) + ": " + view.status_text + "\n";
    for (const std::string &note : view.notes)
        out += "note    " + note + "\n";
    return out;
}

std::string number_json(const Number &number, int packed_length)
{
    const View view = view_of(number, packed_length);
    const t_DECIMAL &value = number.value;
    const Json record = JsonObject()
                            .add("dec_exp", value.dec_exp)
                            .add("dec_pos", value.dec_pos)
                            .add("digits", std::vector<int>(value.dec_dgts, value.dec_dgts + value.dec_ndgts));
    const JsonObject json = JsonObject()
                                .add("text", view.is_null ? Json() : view.text)
                                .add("record", record)
                                .add("packed", view.packed)
                                .add("double", view.is_null ? Json() : view.nearest)
                                .add("hex", view.is_null ? Json() : hex_text(view.nearest))
                                .add("form", view.form)
                                .add("status", number.status)
                                .add("status_text", view.status_text)
                                .add("notes", view.notes);
    return json.text() + "\n";
}

std::string show_order(int order, const std::string &a, const std::string &b)
{
    const char *relation = order < 0 ? " is below " : order > 0 ? " is above " : " equals ";
    return std::to_string(order) + ": " + a + relation + b + "\n";
}

std::string order_json(int order)
{
    return JsonObject().add("order", order).text() + "\n";
}
