// SPDX-License-Identifier: MIT
//
// Decoding and running of programs, and their listing when something is wrong.
#include "fuzz/machine.h"

#include <algorithm>

namespace fuzz {

static constexpr int most_steps = 100;

Bytes Machine::bytes(int count)
{
    Bytes taken(static_cast<size_t>(count));
    std::generate(taken.begin(), taken.end(), [this] { return byte(); });
    return taken;
}

static Step decode(Machine &m)
{
    const int operands = m.byte();
    const int result = m.byte();
    const int number = result >> 3;
    return {operands & 7, operands >> 3 & 7, result & 7, number < 31 ? number : m.byte() - 128};
}

static std::string name_of(int i)
{
    return "r" + std::to_string(i);
}

static std::string listing(const char *name, const Step &s, const Machine &before, const Machine &after)
{
    const auto value = [](const Machine &m, int i) {
        return name_of(i) + " = " + model::show_raw(m.registers[static_cast<size_t>(i)]);
    };
    return std::string(name) + "  a: " + value(before, s.a) + "  b: " + value(before, s.b) +
           "  n: " + std::to_string(s.n) + "\n    -> " + value(after, s.r) + "\n";
}

// No register but the result may change, not even its bytes past the digits.
static void expect_others_kept(Machine &m, const Machine &before, const Operation &operation, const Step &s)
{
    for (int i = 0; i < 8; i++) {
        const size_t index = static_cast<size_t>(i);
        if (operation.writes && i == s.r) continue;
        if (memcmp(&m.registers[index], &before.registers[index], sizeof(t_DECIMAL)) != 0)
            m.expect("a register that is no result", model::show_raw(m.registers[index]),
                     model::show_raw(before.registers[index]));
    }
}

// Carries the program out to its end or its first mistake, and reports each step to the follower.
template <typename Follower>
static Machine run(const Bytes &input, Follower follower)
{
    Machine m = {};
    m.registers.fill(c_dec_one);
    m.registers[0] = c_dec_zero;
    m.registers[1] = c_dec_huge;
    m.input = input;
    for (int i = 0; i < most_steps && m.at < m.input.size() && m.complaint.empty(); i++) {
        const Operation &operation = operations[m.byte() % operations.size()];
        const Step s = decode(m);
        const std::array<t_DECIMAL, 8> registers = m.registers;
        const bool carried_out = operation.run(m, s);
        Machine before = {};
        before.registers = registers;
        expect_others_kept(m, before, operation, s);
        if (carried_out) follower(operation.name, s, before, m);
    }
    return m;
}

std::string try_program(const Bytes &input)
{
    const auto ignore = [](auto &&...) {};
    if (run(input, ignore).complaint.empty()) return "";
    std::string program;
    const Machine m = run(input, [&](const char *name, const Step &s, const Machine &before, const Machine &after) {
        program += listing(name, s, before, after);
    });
    return program + "the last step: " + m.complaint;
}

std::set<std::string> all_operations()
{
    std::set<std::string> names;
    for (const Operation &operation : operations)
        names.insert(operation.name);
    return names;
}

std::set<std::string> operations_of(const Bytes &input)
{
    std::set<std::string> names;
    run(input, [&](const char *name, auto &&...) { names.insert(name); });
    return names;
}

} // namespace fuzz
