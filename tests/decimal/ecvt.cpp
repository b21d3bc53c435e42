// SPDX-License-Identifier: MIT
//
// The decimals of doubles: those of ecvt in the 32-bit C library.
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>

#include "dec_double.h"
#include "model/doubles.h"
#include "model/floating.h"
#include "model/notation.h"

using namespace model;

static std::string text_of(const t_DECIMALS &decimals)
{
    return std::to_string(decimals.digits) + " " + std::to_string(decimals.point);
}

static std::string text_of(const Decimals &decimals)
{
    return std::to_string(std::stoull(decimals.text)) + " " + std::to_string(decimals.point);
}

TEST(Deccvdbl, gives_the_decimals_of_ecvt_in_32_bit_programs)
{
    // What that ecvt gave; beside it what the exact value would be, or what ecvt gives in 64-bit programs.
    const std::vector<std::pair<double, std::string>> known = {
        {0x1p59, "9:+:57,64,60,75,23,3,42,40"},          // exact: ...423
        {0x1p72, "11:+:47,22,36,64,82,86,96,40"},        // exact: ...965
        {1.0 / 105, "-1:+:95,23,80,95,23,80,95,30"},     // exact: ...952
        {1.0 / 312, "-1:+:32,5,12,82,5,12,82"},          // exact: ...821
        {0x1p-125, "-18:+:2,35,9,88,70,16,44,57"},       // exact: ...458
        {1e100, "51:+:1"},                               // 64 bits: 9.99999999999999e99
        {0x1p-180, "-27:+:65,25,30,44,67,99,85,20"},     // 64 bits: ...853
        {std::nextafter(10.0, 0.0), "1:+:10"},           // exact: 9.999999999999998
        {1.000030517578125, "1:+:1,0,0,30,51,75,78,12"}, // halves go to the even decimal
        {1.000091552734375, "1:+:1,0,0,91,55,27,34,38"},
        {1e-307, "-64:+:10"},
        {5e-324, "-64:+:4,94,6,56,45,84,12,47"},
    };
    for (const auto &[value, expected] : known) {
        t_DECIMAL result;
        deccvdbl(value, &result);
        EXPECT_EQ(show(result), expected) << show(value);
    }
}

TEST(Decimals, of_every_kind_of_double_agree_with_the_model)
{
    Draw draw;
    for (Rounds rounds(20000); rounds.more();) {
        const DoubleKind &kind = double_kinds[draw.below(double_kind_count)];
        const double value = kind.draw(draw);
        for (const int count : {15, 6, draw.between(2, 15)}) {
            ASSERT_EQ(text_of(dec_find_decimals(value, count)), text_of(decimals_of(value, count)))
                << show(value) << " of kind " << kind.name << ", " << count << " decimals, in round "
                << rounds.number();
        }
    }
}

#if UINTPTR_MAX == UINT32_MAX
TEST(Decimals, of_every_kind_of_double_are_those_of_ecvt)
{
    Draw draw;
    for (Rounds rounds(300000); rounds.more();) {
        const DoubleKind &kind = double_kinds[draw.below(double_kind_count)];
        const double value = kind.draw(draw);
        const int count = draw.pick({6, 15, draw.between(2, 15)});
        int point = 0;
        int sign = 0;
        const std::string text = ecvt(value, count, &point, &sign);
        ASSERT_EQ(text_of(dec_find_decimals(value, count)),
                  text_of(Decimals{text.substr(0, static_cast<size_t>(count)), point}))
            << show(value) << " of kind " << kind.name << ", " << count << " decimals, in round " << rounds.number();
    }
}
#endif
