// SPDX-License-Identifier: MIT
//
// See decode.h.
#include "decode.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/text.h"
#include "ka/caller.h"
#include "ka/dll_block.h"
#include "values/results.h"
#include "wire/kinds.h"
#include "wire/layout.h"
#include "wire/real_fault.h"

namespace {

const t_LAYOUT &layout_of(int number)
{
    return number == 64 ? wire::layout_64 : wire::layout_32;
}

bool has_wide_addresses(const t_LAYOUT &layout)
{
    return layout.address_size == sizeof(uint64_t);
}

// Offsets are 64 bits wide, so that no sum wraps before it is tested.
bool is_inside(Bytes bytes, uint64_t offset, uint64_t length)
{
    return offset <= bytes.size && length <= bytes.size - offset;
}

// 0 for what is outside: those who call it have tested it, or show it as a fault.
int32_t word_at(Bytes bytes, uint64_t offset)
{
    int32_t value = 0;
    if (is_inside(bytes, offset, sizeof value)) std::memcpy(&value, bytes.data + offset, sizeof value);
    return value;
}

uint32_t unsigned_at(Bytes bytes, uint64_t offset)
{
    return static_cast<uint32_t>(word_at(bytes, offset));
}

// As the host does it: the distance from base, in 32 bits, within shmsz.
std::optional<uint32_t> translate(const Block &block, uint32_t address)
{
    const auto offset = static_cast<int32_t>(address - block.base);
    if (offset < 0 || offset >= block.shmsz) return std::nullopt;
    return static_cast<uint32_t>(offset);
}

// ---- Values ----------------------------------------------------------------------------------------------------

std::string fault_of(const t_DECIMAL &real)
{
    int32_t found;
    const t_REAL_FAULT fault = wire::real_fault(&real, &found);
    const std::string number = std::to_string(found);
    switch (fault) {
    case REAL_IS_NULL:
        return "null: a host ends when it is given one";
    case REAL_BAD_SIGN:
        return "not a REAL: its sign is " + number;
    case REAL_BAD_COUNT:
        return "not a REAL: it counts " + number + " digits";
    case REAL_BAD_EXPONENT:
        return "not a REAL: its exponent is " + number;
    case REAL_BAD_DIGIT:
        return "not a REAL: a digit is " + number;
    case REAL_LEADING_ZERO:
        return "not normal: its first digit is 0";
    case REAL_SOUND:
        break;
    }
    return "";
}

BlockElement outside()
{
    return {"", "", "reaches beyond the segment", true};
}

BlockElement read_real(Bytes bytes, uint64_t offset)
{
    t_DECIMAL real;
    if (!is_inside(bytes, offset, sizeof real)) return outside();
    std::memcpy(&real, bytes.data + offset, sizeof real);
    const std::string fault = fault_of(real);
    if (!fault.empty()) return {"", "", fault};
    return {real_text(real), "", ""};
}

BlockElement read_integer(Bytes bytes, uint64_t offset)
{
    if (!is_inside(bytes, offset, sizeof(int32_t))) return outside();
    return {std::to_string(word_at(bytes, offset)), "", ""};
}

constexpr size_t shown_characters = 4096; // of a string

// What there is of a string that says more than there can be is shown up to its room.
BlockElement read_string(Bytes bytes, uint64_t offset, int32_t room)
{
    if (!is_inside(bytes, offset, sizeof(int32_t))) return outside();
    const int32_t length = word_at(bytes, offset);
    const uint64_t begin = offset + sizeof length;
    if (length < 0) return {"", "", "its length is " + std::to_string(length)};
    BlockElement element;
    if (length > room)
        element.fault = "its length is " + std::to_string(length) + ", its room " + std::to_string(room);
    if (!is_inside(bytes, begin, static_cast<uint64_t>(length)))
        element.fault = "its length is " + std::to_string(length) + ", which reaches beyond the segment";
    const auto wanted = static_cast<size_t>(element.fault.empty() ? length : std::clamp(room, 0, length));
    const size_t count = std::min({wanted, bytes.size - static_cast<size_t>(begin), shown_characters});
    element.bytes.assign(bytes.data + begin, count);
    element.text = string_literal(element.bytes) + (count < wanted ? "..." : "");
    return element;
}

BlockElement read_element(Bytes bytes, const BlockDescriptor &descriptor, uint64_t offset)
{
    switch (descriptor.type) {
    case DLL_INTEGER:
        return read_integer(bytes, offset);
    case DLL_REAL:
        return read_real(bytes, offset);
    default:
        return read_string(bytes, offset, descriptor.maxlen);
    }
}

// ---- Descriptors -----------------------------------------------------------------------------------------------

void read_elements(Bytes bytes, BlockDescriptor &descriptor, int32_t count)
{
    for (int32_t k = 0; k < count; k++) {
        // It wraps at 32 bits, as in the host.
        const uint32_t distance = static_cast<uint32_t>(k) * static_cast<uint32_t>(descriptor.elsz) * uint32_t{4};
        descriptor.elements.push_back(read_element(bytes, descriptor, uint64_t{*descriptor.offset} + distance));
        if (descriptor.elements.back().is_outside) break;
    }
}

int32_t words_of_type(int32_t type)
{
    return type == DLL_REAL ? static_cast<int32_t>(sizeof(t_DECIMAL) / 4) : 1;
}

void judge(BlockDescriptor &descriptor, bool is_name)
{
    const auto fault = [&](const std::string &text) { descriptor.faults.push_back(text); };
    const bool known = wire::is_type(descriptor.type);
    if (!known) fault("there is no value type " + std::to_string(descriptor.type) + ": answered with 8");
    if (is_name && known && descriptor.type != DLL_STRING)
        fault("the function name is not a STRING: answered with 8");
    if (!descriptor.offset)
        fault("its address " + hex_number(descriptor.ptr) + " is outside the segment: the host aborts");
    if (descriptor.elcnt < 0) fault("it counts " + std::to_string(descriptor.elcnt) + " elements");
    if (known && descriptor.elcnt > 1 && descriptor.elsz < words_of_type(descriptor.type))
        fault("its elements overlap: they are " + std::to_string(descriptor.elsz) + " words apart");
    if (descriptor.type == DLL_STRING && descriptor.maxlen < 0)
        fault("its room is " + std::to_string(descriptor.maxlen));
}

BlockDescriptor read_descriptor(Bytes bytes, const Block &block, uint64_t at, const t_LAYOUT &layout)
{
    BlockDescriptor descriptor{};
    descriptor.type = word_at(bytes, at + wire::ARG_TYPE_AT);
    descriptor.ref = word_at(bytes, at + wire::ARG_REF_AT);
    descriptor.ptr = unsigned_at(bytes, at + wire::ARG_PTR_AT);
    descriptor.maxlen = word_at(bytes, at + layout.arg_counts);
    descriptor.elsz = word_at(bytes, at + layout.arg_counts + 4);
    descriptor.elcnt = word_at(bytes, at + layout.arg_counts + 8);
    descriptor.offset = translate(block, descriptor.ptr);
    return descriptor;
}

void read_descriptors(Bytes bytes, Block &block, const t_LAYOUT &layout, const Limits &limits)
{
    const int32_t wished = limits.descriptors.value_or(block.argc);
    for (int32_t i = 0; i < std::min<int32_t>(wished, DLL_MAX_ARGC); i++) {
        const uint64_t at = layout.args + static_cast<uint64_t>(i) * layout.arg_size;
        if (!is_inside(bytes, at, layout.arg_size)) {
            block.faults.push_back("descriptor " + std::to_string(i) + " does not fit the segment");
            return;
        }
        BlockDescriptor descriptor = read_descriptor(bytes, block, at, layout);
        judge(descriptor, i == 0);
        const bool known = wire::is_type(descriptor.type);
        // Of the function name one is read, whatever it counts: so do hosts.
        const int32_t count = i == 0 ? 1 : std::min(descriptor.elcnt, limits.elements);
        if (known && descriptor.offset) read_elements(bytes, descriptor, count);
        block.descriptors.push_back(descriptor);
    }
}

// ---- The header ------------------------------------------------------------------------------------------------

void judge(Block &block, Bytes bytes)
{
    const auto fault = [&](const std::string &text) { block.faults.push_back(text); };
    if (block.version != DLL_VERSION) {
        char text[80];
        std::snprintf(text, sizeof text, "its version is %x, hosts take %x", static_cast<unsigned>(block.version),
                      static_cast<unsigned>(DLL_VERSION));
        fault(text);
    }
    if (block.pid <= 0) fault("its pid is " + std::to_string(block.pid) + ": a host that answers it ends");
    if (block.shmsz <= 0 || static_cast<uint64_t>(block.shmsz) > bytes.size)
        fault("its shmsz is " + std::to_string(block.shmsz) + ", the segment has " + std::to_string(bytes.size) +
              " bytes");
    if (block.scratch != 0 && !block.scratch_offset)
        fault("its scratch address " + hex_number(block.scratch) +
              " is outside the segment: the host aborts when it is used");
    if (block.argc < 0) fault("its argc is " + std::to_string(block.argc) + ": answered with 9");
    if (block.argc > DLL_MAX_ARGC) fault("its argc is " + std::to_string(block.argc) + ": answered with 606");
}

Block read_header(Bytes bytes, const t_LAYOUT &layout)
{
    Block block{};
    block.version = word_at(bytes, wire::VERSION_AT);
    block.pid = word_at(bytes, wire::PID_AT);
    block.base = unsigned_at(bytes, layout.base);
    block.retcode = word_at(bytes, layout.retcode);
    block.shmsz = word_at(bytes, layout.shmsz);
    const uint64_t high = has_wide_addresses(layout) ? unsigned_at(bytes, layout.scratch + 4) : 0;
    block.scratch = high << 32 | unsigned_at(bytes, layout.scratch);
    block.cbval = word_at(bytes, layout.cbval);
    block.argc = word_at(bytes, layout.argc);
    if (block.scratch != 0) block.scratch_offset = translate(block, static_cast<uint32_t>(block.scratch));
    return block;
}

// How much speaks for a layout.
int plausibility(Bytes bytes, int number)
{
    const t_LAYOUT &layout = layout_of(number);
    const Block block = decode_block(bytes, number, {std::nullopt, 0});
    int points = 0;
    if (block.shmsz > 0 && static_cast<uint64_t>(block.shmsz) <= bytes.size) points += 4;
    // The size is mostly what was asked for: the system rounds nothing up in what it reports.
    if (bytes.size - static_cast<uint64_t>(std::max(block.shmsz, 0)) < 4096) points += 4;
    if (block.argc >= 0 && block.argc <= DLL_MAX_ARGC) points += 2;
    if (block.scratch == 0 || block.scratch_offset) points += 2;
    if (block.base != 0 && block.base % 4096 == 0) points += 1;
    if (has_wide_addresses(layout) && unsigned_at(bytes, layout.base + 4) >> 16 == 0) points += 1;
    for (const BlockDescriptor &descriptor : block.descriptors)
        points += descriptor.faults.empty() ? 1 : -1;
    return points;
}

} // namespace

std::string why_no_block(Bytes bytes)
{
    const std::string magic(DLL_MAGIC, wire::MAGIC_SIZE);
    if (bytes.size < wire::layout_32.args)
        return "it has " + std::to_string(bytes.size) + " bytes, less than a header";
    const std::string found(bytes.data, magic.size());
    if (found == magic) return "";
    const size_t letters = std::strlen(DLL_MAGIC);
    if (found.compare(0, letters, magic, 0, letters) == 0)
        return "it begins with KA.DLL, but bytes 6 and 7 are " + hex_number(static_cast<unsigned char>(found[6])) +
               " and " + hex_number(static_cast<unsigned char>(found[7])) + ", not 0";
    return "it begins with " + string_literal(found) + ", not with KA.DLL and two zero bytes";
}

int likely_layout(Bytes bytes)
{
    return plausibility(bytes, 64) > plausibility(bytes, 0) ? 64 : 0;
}

Block decode_block(Bytes bytes, int layout, const Limits &limits)
{
    const t_LAYOUT &row = layout_of(layout);
    Block block = read_header(bytes, row);
    block.layout = layout;
    judge(block, bytes);
    read_descriptors(bytes, block, row, limits);
    return block;
}

std::string type_name(int32_t type)
{
    return wire::is_type(type) ? wire::type_name(type) : "type " + std::to_string(type);
}
