// SPDX-License-Identifier: MIT
//
// The machine that programs of bytes run on: eight registers, each a record, worked on by the library alone. Before
// each step the model says from the registers what must come; an operation that would end the process, or whose
// operands the model does not cover, is skipped.
//
// A step is three bytes: the operation; two operand registers; the result register and a number. Operands and result
// may be one register. Some operations read further bytes. A program that ends in the middle goes on with zeros.
#pragma once

#include <array>
#include <cstring>
#include <optional>
#include <type_traits>

#include "fuzz/targets.h"
#include "model/exact.h"
#include "model/notation.h"

namespace fuzz {

struct Machine {
    std::array<t_DECIMAL, 8> registers;
    Bytes input;
    size_t at = 0;
    std::string operation;
    std::string complaint;

    uint8_t byte() { return at < input.size() ? input[at++] : 0; }
    Bytes bytes(int count);
    template <typename Number>
    Number raw();

    // Whatever two texts, numbers or records the library and the model give for the same thing.
    template <typename Got, typename Expected>
    void expect(const char *what, const Got &got, const Expected &expected);

private:
    template <typename T>
    static std::string text(const T &value);
};

struct Step {
    int a;
    int b;
    int r;
    int n; // mostly 0 to 30, else -128 to 127
};

struct Operation {
    const char *name;
    bool writes; // the result register, and no other
    // False when the step was skipped.
    bool (*run)(Machine &, const Step &);
};

// ORDER OPERATION: a program's first byte of a step is the index, modulo their number. Append only, or the corpus
// means something else.
extern const std::vector<Operation> operations;

template <typename Number>
Number Machine::raw()
{
    Number number;
    memcpy(&number, bytes(sizeof number).data(), sizeof number);
    return number;
}

template <typename T>
std::string Machine::text(const T &value)
{
    if constexpr (std::is_same_v<T, t_DECIMAL> || std::is_same_v<T, Bytes> || std::is_floating_point_v<T>)
        return model::show(value);
    else if constexpr (std::is_arithmetic_v<T>)
        return std::to_string(value);
    else
        return '"' + std::string(value) + '"';
}

template <typename Got, typename Expected>
void Machine::expect(const char *what, const Got &got, const Expected &expected)
{
    bool right;
    if constexpr (std::is_same_v<Got, t_DECIMAL>)
        right = model::same(got, expected);
    else
        right = text(got) == text(expected);
    if (!right && complaint.empty())
        complaint = std::string(what) + "\n  expected: " + text(expected) + "\n  got:      " + text(got);
}

} // namespace fuzz
