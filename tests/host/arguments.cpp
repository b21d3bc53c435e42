// SPDX-License-Identifier: MIT
//
// Building, placing and reading of arguments. Everything about REAL values that needs the decimal library is in
// reals.cpp, so that a test without REAL values does not need it.
#include "host/arguments.h"

#include <algorithm>
#include <stdexcept>

#include "ka/dll_block.h"

namespace harness {
namespace {

template <class T>
std::string bytes_of(const T &value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

int32_t words_for(size_t size_bytes)
{
    return static_cast<int32_t>((size_bytes + 3) / 4);
}

int32_t data_size(const Argument &argument)
{
    if (argument.elements.empty()) return 0;
    const int32_t last = 4 * argument.elsz * static_cast<int32_t>(argument.elements.size() - 1);
    const int32_t room = argument.type == DLL_STRING ? 4 + argument.maxlen : 0;
    return last + std::max(room, static_cast<int32_t>(argument.elements.back().size()));
}

int32_t place_one(Block &block, int i, const Argument &argument, int32_t offset)
{
    offset += argument.shift;
    block.set(i, Arg::type, argument.type);
    block.set(i, Arg::ref, argument.ref);
    block.set(i, Arg::ptr, block.address(offset));
    block.set(i, Arg::maxlen, argument.maxlen);
    block.set(i, Arg::elsz, argument.elsz);
    block.set(i, Arg::elcnt, static_cast<int32_t>(argument.elements.size()));
    for (size_t k = 0; k < argument.elements.size(); k++) {
        const std::string &element = argument.elements[k];
        std::copy(element.begin(), element.end(), block.at(offset + 4 * argument.elsz * static_cast<int32_t>(k)));
    }
    const int32_t end = offset + data_size(argument) + 8; // 8: at least one word of filler after each value
    return (end + 7) / 8 * 8;
}

int32_t element_offset(const Block &block, int i, int64_t k)
{
    return block.offset_of(block.get(i, Arg::ptr)) + static_cast<int32_t>(4 * block.get(i, Arg::elsz) * k);
}

} // namespace

Argument Argument::by_ref(int32_t value) const
{
    Argument changed = *this;
    changed.ref = value;
    return changed;
}

Argument Argument::spaced(int32_t words) const
{
    Argument changed = *this;
    changed.elsz = words;
    return changed;
}

Argument Argument::unaligned(int32_t bytes) const
{
    Argument changed = *this;
    changed.shift = bytes;
    return changed;
}

Argument integer(int32_t value)
{
    return integers({value});
}

Argument integers(const std::vector<int32_t> &values)
{
    Argument argument = {.type = DLL_INTEGER, .elsz = 1};
    for (const int32_t value : values)
        argument.elements.push_back(bytes_of(value));
    return argument;
}

Argument real(const t_DECIMAL &value)
{
    return reals(std::vector{value});
}

Argument reals(const std::vector<t_DECIMAL> &values)
{
    Argument argument = {.type = DLL_REAL, .elsz = words_for(sizeof(t_DECIMAL))};
    for (const t_DECIMAL &value : values)
        argument.elements.push_back(bytes_of(value));
    return argument;
}

Argument string(std::string_view value, int32_t maxlen)
{
    return strings({std::string(value)}, maxlen);
}

Argument strings(const std::vector<std::string> &values, int32_t maxlen)
{
    size_t longest = 0;
    for (const std::string &value : values)
        longest = std::max(longest, value.size());
    if (maxlen < 0) maxlen = static_cast<int32_t>(longest);
    Argument argument = {.type = DLL_STRING, .maxlen = maxlen};
    argument.elsz = words_for(4 + std::max(longest, static_cast<size_t>(maxlen)));
    for (const std::string &value : values) {
        argument.elements.push_back(bytes_of(static_cast<int32_t>(value.size())) + value);
    }
    return argument;
}

int32_t place(Block &block, std::string_view function, const std::vector<Argument> &arguments, int32_t limit)
{
    if (limit == 0) limit = block.size();
    std::vector<Argument> all = {string(function)};
    all.insert(all.end(), arguments.begin(), arguments.end());
    int32_t needed = data_offset;
    for (const Argument &argument : all)
        needed += data_size(argument) + argument.shift + 16;
    if (needed > limit)
        throw std::runtime_error("the arguments need a segment of " + std::to_string(needed) + " bytes");

    std::fill(block.at(data_offset), block.at(limit), filler);
    int32_t offset = data_offset;
    for (size_t i = 0; i < all.size(); i++)
        offset = place_one(block, static_cast<int>(i), all[i], offset);
    block.set(Head::argc, static_cast<int64_t>(all.size()));
    return offset;
}

std::vector<int32_t> integers_of(const Block &block, int i)
{
    std::vector<int32_t> values;
    for (int64_t k = 0; k < block.get(i, Arg::elcnt); k++) {
        values.push_back(block.load<int32_t>(element_offset(block, i, k)));
    }
    return values;
}

std::vector<std::string> strings_of(const Block &block, int i)
{
    std::vector<std::string> values;
    for (int64_t k = 0; k < block.get(i, Arg::elcnt); k++) {
        const int32_t offset = element_offset(block, i, k);
        values.emplace_back(block.at(offset + 4), static_cast<size_t>(block.load<int32_t>(offset)));
    }
    return values;
}

std::vector<t_DECIMAL> decimals_of(const Block &block, int i)
{
    std::vector<t_DECIMAL> values;
    for (int64_t k = 0; k < block.get(i, Arg::elcnt); k++) {
        values.push_back(block.load<t_DECIMAL>(element_offset(block, i, k)));
    }
    return values;
}

} // namespace harness
