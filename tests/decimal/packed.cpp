// SPDX-License-Identifier: MIT
//
// Packed storage beside its vectors: what is written and what is left alone.
#include <cstring>
#include <gtest/gtest.h>

#include "model/guarded.h"
#include "model/notation.h"

using namespace model;

TEST(Stdecimal, null_decides_by_its_sign_byte_alone)
{
    t_DECIMAL null = read_record("9:+:12,34,56");
    null.dec_pos = DEC_NULL;
    Guarded field(4);
    EXPECT_EQ(stdecimal(&null, field.data(), 4), DEC_OK);
    EXPECT_EQ(show(field.bytes()), "00 00 00 00");
}

TEST(Stdecimal, value_stays_as_it_is)
{
    const t_DECIMAL x = read_record("1:-:99,99,50");
    const std::string before = show_raw(x);
    Guarded field(3);
    stdecimal(&x, field.data(), 3);
    EXPECT_EQ(show_raw(x), before);
}

TEST(Stdecimal, lengths_below_2_stay_within_the_field)
{
    const t_DECIMAL x = read_record("1:-:99,99,99,99,99,99,99,99");
    for (const int length : {1, 0, -1}) {
        Guarded field(1);
        EXPECT_EQ(stdecimal(&x, field.data(), length), DEC_OK);
        EXPECT_TRUE(field.intact()) << length;
        EXPECT_TRUE(length == 1 || field.text() == "?") << length;
    }
}

TEST(Stdecimal, long_field_is_zero_behind_the_digits)
{
    const t_DECIMAL x = read_record("1:-:1,2,3,4,5,6,7,8");
    Guarded field(300);
    stdecimal(&x, field.data(), 300);
    EXPECT_TRUE(field.intact());
    EXPECT_EQ(field.text().substr(9), std::string(291, '\0'));
}

TEST(Lddecimal, null_leaves_the_digit_bytes_alone)
{
    t_DECIMAL result = read_record("9:-:7,7,7,7,7,7,7,7");
    const uint8_t field[] = {0, 1, 2};
    EXPECT_EQ(lddecimal(field, sizeof field, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), "exp 0 pos 255 ndgts 0 bytes 7,7,7,7,7,7,7,7");
}

TEST(Lddecimal, writes_only_the_digits_it_counts)
{
    t_DECIMAL result = read_record("9:-:7,7,7,7,7,7,7,7");
    const uint8_t field[] = {0xC1, 1, 2, 0};
    EXPECT_EQ(lddecimal(field, sizeof field, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), "exp 1 pos 1 ndgts 2 bytes 1,2,7,7,7,7,7,7");
}

TEST(Lddecimal, length_below_1_reads_nothing_and_gives_null)
{
    const uint8_t field[1] = {0xC1};
    for (const int length : {0, -1}) {
        t_DECIMAL result = c_dec_one;
        EXPECT_EQ(lddecimal(field, length, &result), DEC_OK);
        EXPECT_EQ(result.dec_pos, DEC_NULL) << length;
    }
}

TEST(Lddecimal, length_1_copies_no_digits)
{
    t_DECIMAL result = read_record("9:+:7,7,7,7,7,7,7,7");
    const uint8_t field[] = {0x3E};
    EXPECT_EQ(lddecimal(field, 1, &result), DEC_OK);
    EXPECT_EQ(show_raw(result), "exp 1 pos 0 ndgts 0 bytes 7,7,7,7,7,7,7,7");
}

TEST(Lddecimal, library_zero_comes_back_as_itself)
{
    uint8_t field[5];
    t_DECIMAL result = read_record("9:-:7");
    stdecimal(&c_dec_zero, field, sizeof field);
    EXPECT_EQ(lddecimal(field, sizeof field, &result), DEC_OK);
    EXPECT_EQ(show(result), "0:+:");
}
