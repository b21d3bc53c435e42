// SPDX-License-Identifier: MIT
//
// REALs that come out of the block four at a time, beside each by itself, its fields looked at one by one.
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "model/draw.h"
#include "model/notation.h"
#include "wire/sound_reals.h"

namespace {

using Records = std::vector<t_DECIMAL>;

// The bytes of the record, or of null, if it has a fault.
t_DECIMAL plainly(const t_DECIMAL &record)
{
    int32_t found;
    static constexpr t_DECIMAL null = {.dec_exp = 0, .dec_pos = DEC_NULL, .dec_ndgts = 0, .dec_dgts = {}};
    return wire::real_fault(&record, &found) == REAL_SOUND ? record : null;
}

void compare(const Records &from)
{
    // One record more, which must stay as it is.
    Records to(from.size() + 1);
    std::memset(to.data(), 0xEE, to.size() * sizeof to[0]);
    Records expected = to;
    for (size_t i = 0; i < from.size(); i++)
        expected[i] = plainly(from[i]);
    wire::copy_sound_reals(from.data(), to.data(), static_cast<int32_t>(from.size()));
    for (size_t i = 0; i < to.size(); i++)
        ASSERT_EQ(std::memcmp(&to[i], &expected[i], sizeof to[i]), 0)
            << "record " << i << " of " << from.size() << ": " << model::show_raw(to[i]) << ", expected "
            << model::show_raw(expected[i]);
}

Records records_of(int count, const t_DECIMAL &each)
{
    return Records(static_cast<size_t>(count), each);
}

unsigned char &byte_of(Records &records, size_t i)
{
    return reinterpret_cast<unsigned char *>(records.data())[i];
}

} // namespace

TEST(SoundReals, every_byte_of_four_with_every_value)
{
    const t_DECIMAL bases[] = {
        {.dec_exp = 0, .dec_pos = DEC_POSITIVE, .dec_ndgts = 8, .dec_dgts = {12, 34, 56, 78, 90, 12, 34, 99}},
        {.dec_exp = -64, .dec_pos = DEC_NEGATIVE, .dec_ndgts = 1, .dec_dgts = {1}},
        {.dec_exp = 63, .dec_pos = DEC_POSITIVE, .dec_ndgts = 3, .dec_dgts = {99, 0, 99}},
        {.dec_exp = 0, .dec_pos = DEC_POSITIVE, .dec_ndgts = 0, .dec_dgts = {}},
        {.dec_exp = -1, .dec_pos = DEC_NEGATIVE, .dec_ndgts = 0, .dec_dgts = {1, 2, 3}}};
    for (const t_DECIMAL &base : bases)
        for (size_t place = 0; place < 4 * sizeof base; place++)
            for (int value = 0; value < 256; value++) {
                Records records = records_of(4, base);
                byte_of(records, place) = static_cast<unsigned char>(value);
                ASSERT_NO_FATAL_FAILURE(compare(records)) << "byte " << place << " is " << value;
            }
}

TEST(SoundReals, every_exponent_and_every_sign_with_every_count)
{
    for (size_t first = 0; first < 4; first++)
        for (int value = 0; value < 0x10000; value++)
            for (const size_t field : {size_t{0}, size_t{wire::REAL_SIGN_AT}}) {
                Records records = records_of(4, {0, DEC_POSITIVE, 2, {5, 6, 0, 0, 0, 0, 0, 0}});
                byte_of(records, first * sizeof records[0] + field) = static_cast<unsigned char>(value);
                byte_of(records, first * sizeof records[0] + field + 1) = static_cast<unsigned char>(value >> 8);
                ASSERT_NO_FATAL_FAILURE(compare(records)) << value << " in field " << field << " of " << first;
            }
}

TEST(SoundReals, any_records_in_arrays_of_any_length)
{
    model::Draw draw;
    for (model::Rounds rounds(50000); rounds.more();) {
        Records records;
        for (int i = draw.below(14); i > 0; i--)
            records.push_back(draw.record());
        if (!records.empty())
            for (int i = draw.below(3); i > 0; i--)
                byte_of(records, static_cast<size_t>(draw.below(static_cast<int>(records.size() * 12)))) =
                    static_cast<unsigned char>(draw.bits());
        ASSERT_NO_FATAL_FAILURE(compare(records)) << "in round " << rounds.number();
    }
}
