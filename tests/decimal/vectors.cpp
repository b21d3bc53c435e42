// SPDX-License-Identifier: MIT
//
// The decimal operations as the vector files call them.
#include "model/vectors.h"

#include <cmath>
#include <cstring>

#include "dec_int.h"
#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

// The contents of a result record before the call, so that a byte left unwritten is seen as garbage.
static t_DECIMAL unwritten()
{
    t_DECIMAL x;
    memset(&x, 0xEE, sizeof x);
    return x;
}

static std::string answer(int code, const t_DECIMAL &result)
{
    return std::to_string(code) + " " + show(result);
}

static int number(const std::string &word)
{
    return std::stoi(word);
}

static std::string normalise(const Words &args)
{
    const Notation parts = read_notation(args[0]);
    t_DECACC acc = {};
    acc.dec_exp = static_cast<int16_t>(parts.exp);
    acc.dec_pos = static_cast<uint8_t>(parts.pos);
    acc.dec_ndgts = static_cast<int8_t>(parts.digits.size());
    std::copy(parts.digits.begin(), parts.digits.end(), acc.dec_dgts);
    const int code = dec_round(&acc, number(args[1]));
    t_DECIMAL result;
    memcpy(&result, &acc, sizeof result);
    return answer(code, result);
}

template <auto operation>
static std::string two_operands(const Words &args)
{
    const t_DECIMAL a = read_record(args[0]);
    const t_DECIMAL b = read_record(args[1]);
    t_DECIMAL result = unwritten();
    const int code = operation(&a, &b, &result);
    return answer(code, result);
}

template <auto operation>
static std::string in_place(const Words &args)
{
    t_DECIMAL x = read_record(args[0]);
    const int code = operation(&x, number(args[1]));
    return answer(code, x);
}

static std::string order(const Words &args)
{
    const t_DECIMAL a = read_record(args[0]);
    const t_DECIMAL b = read_record(args[1]);
    return std::to_string(deccmp(&a, &b));
}

static std::string change_sign(const Words &args)
{
    t_DECIMAL x = read_record(args[0]);
    const int code = decchs(&x);
    return answer(code, x);
}

static constexpr int not_written = 0x7A7A7A7A;

static std::string written(int value)
{
    return value == not_written ? "-" : std::to_string(value);
}

template <auto operation>
static std::string digit_string(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    int decpt = not_written;
    int sign = not_written;
    const std::string text = operation(&x, number(args[1]), &decpt, &sign);
    return quoted(text) + " " + written(decpt) + " " + written(sign);
}

static std::string digit_string_of_mode(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    int decpt = not_written;
    int sign = not_written;
    const std::string text = decefcvt(&x, number(args[1]), &decpt, &sign, number(args[2]));
    return quoted(text) + " " + written(decpt) + " " + written(sign);
}

static std::string lay_out(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    Guarded field(number(args[1]));
    const int code = dectoasc(&x, field.data(), number(args[1]), number(args[2]));
    return std::to_string(code) + " " + quoted(field.text()) + (field.intact() ? "" : " and overran the field");
}

// The field is followed by digits once and by other characters once: what comes after it must make no difference.
static std::string read_text(const Words &args)
{
    const std::string text = args[0].substr(1, args[0].size() - 2);
    std::string answers[2];
    for (const bool digits : {false, true}) {
        const std::string field = text + (digits ? "99999999" : " x.e+5-x");
        t_DECIMAL result = unwritten();
        const int code = deccvasc(field.data(), static_cast<int>(text.size()), &result);
        answers[digits] = answer(code, result);
    }
    return answers[0] == answers[1] ? answers[0] : answers[0] + " or, read past the field, " + answers[1];
}

static std::string store(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    Guarded field(number(args[1]));
    const int code = stdecimal(&x, field.data(), number(args[1]));
    return std::to_string(code) + " " + show(field.bytes()) + (field.intact() ? "" : " and overran the field");
}

static std::string load(const Words &args)
{
    const std::vector<uint8_t> field = read_bytes(args);
    t_DECIMAL result = unwritten();
    const int code = lddecimal(field.data(), static_cast<int>(field.size()), &result);
    return answer(code, result);
}

template <auto operation, typename Integer>
static std::string from_integer(const Words &args)
{
    t_DECIMAL result = unwritten();
    const int code = operation(static_cast<Integer>(std::stoll(args[0])), &result);
    return answer(code, result);
}

// Run over two different contents of the output, so that a value that was written is distinguished from one that was
// not.
template <auto operation, typename Integer>
static std::string to_integer(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    Integer first = 1;
    Integer second = 2;
    const int code = operation(&x, &first);
    operation(&x, &second);
    return std::to_string(code) + " " + (first == second ? std::to_string(first) : "-");
}

template <auto operation, typename Float>
static std::string from_floating(const Words &args)
{
    t_DECIMAL result = unwritten();
    const int code = operation(static_cast<Float>(std::stod(args[0])), &result);
    return answer(code, result);
}

template <auto operation, typename Float>
static std::string to_floating(const Words &args)
{
    const t_DECIMAL x = read_record(args[0]);
    Float result = NAN;
    const int code = operation(&x, &result);
    return std::to_string(code) + " " + show(static_cast<double>(result));
}

static const Operations &operations()
{
    // clang-format off
    static const Operations table = {
        {"dec_round",  normalise},
        {"decadd",     two_operands<decadd>},
        {"decsub",     two_operands<decsub>},
        {"decmul",     two_operands<decmul>},
        {"decdiv",     two_operands<decdiv>},
        {"decround",   in_place<decround>},
        {"dectrunc",   in_place<dectrunc>},
        {"deccmp",     order},
        {"decchs",     change_sign},
        {"dececvt",    digit_string<dececvt>},
        {"decfcvt",    digit_string<decfcvt>},
        {"decefcvt",   digit_string_of_mode},
        {"dectoasc",   lay_out},
        {"deccvasc",   read_text},
        {"stdecimal",  store},
        {"lddecimal",  load},
        {"deccvint16", from_integer<deccvint16, int16_t>},
        {"deccvint32", from_integer<deccvint32, int32_t>},
        {"dectoint16", to_integer<dectoint16, int16_t>},
        {"dectoint32", to_integer<dectoint32, int32_t>},
        {"deccvdbl",   from_floating<deccvdbl, double>},
        {"deccvflt",   from_floating<deccvflt, float>},
        {"dectodbl",   to_floating<dectodbl, double>},
        {"dectoflt",   to_floating<dectoflt, float>},
    };
    // clang-format on
    return table;
}

static const bool registered = register_vectors(
    {"packed", "add", "mul", "div", "places", "compare", "digits", "toasc", "cvasc", "binary"}, operations());
