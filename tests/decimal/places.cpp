// SPDX-License-Identifier: MIT
//
// Rounding and cutting to places: what is written, byte by byte.
#include <climits>
#include <gtest/gtest.h>

#include "model/exact.h"
#include "model/notation.h"

using namespace model;

static const char null_header_over_77[] = "exp 0 pos 255 ndgts 0 bytes 77,77,77,77,77,77,77,77";

template <auto operation>
static void null_gets_a_clean_header()
{
    for (const int places : {0, 1, 8, INT_MAX}) {
        t_DECIMAL null = filled(9, DEC_NULL, 3, 77);
        EXPECT_EQ(operation(&null, places), DEC_OK);
        EXPECT_EQ(show_raw(null), null_header_over_77) << places;
    }
}

TEST(Decround, null_becomes_0_255_0_over_untouched_digit_bytes)
{
    null_gets_a_clean_header<decround>();
}

TEST(Dectrunc, null_becomes_0_255_0_over_untouched_digit_bytes)
{
    null_gets_a_clean_header<dectrunc>();
}

// The refusal comes before anything is looked at: even a null keeps its other fields.
template <auto operation>
static void refuses_without_a_change()
{
    for (const int pos : {DEC_NEGATIVE, DEC_POSITIVE, DEC_NULL}) {
        for (const int ndgts : {0, 3, 8}) {
            for (const int places : {-1, -2, INT_MIN}) {
                t_DECIMAL x = filled(2, pos, ndgts, 77);
                EXPECT_EQ(operation(&x, places), DEC_NEGATIVE_PLACES);
                EXPECT_EQ(show_raw(x), show_raw(filled(2, pos, ndgts, 77))) << places;
            }
        }
    }
}

TEST(Decround, record_stays_as_it_is_when_negative_places_are_refused)
{
    refuses_without_a_change<decround>();
}

TEST(Dectrunc, record_stays_as_it_is_when_negative_places_are_refused)
{
    refuses_without_a_change<dectrunc>();
}

// From the first number of places that shows all digits on, up to the largest there is.
template <auto operation>
static void leaves_all_twelve_bytes()
{
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        for (int ndgts = 0; ndgts <= DEC_DIGITS; ndgts++) {
            const int enough = std::max(2 * (ndgts - exp), 0);
            for (const int places : {enough, enough + 1, enough + 50, INT_MAX - 1, INT_MAX}) {
                const t_DECIMAL x = filled(exp, DEC_NEGATIVE, ndgts, 95);
                t_DECIMAL same = x;
                EXPECT_EQ(operation(&same, places), DEC_OK);
                ASSERT_EQ(show_raw(same), show_raw(x)) << "to " << places << " places";
            }
        }
    }
}

TEST(Decround, places_beyond_the_digits_leave_all_twelve_bytes)
{
    leaves_all_twelve_bytes<decround>();
}

TEST(Dectrunc, places_beyond_the_digits_leave_all_twelve_bytes)
{
    leaves_all_twelve_bytes<dectrunc>();
}

TEST(Decround, digit_bytes_past_the_digits_are_not_read)
{
    t_DECIMAL x = filled(1, DEC_POSITIVE, 1, 99);
    EXPECT_EQ(decround(&x, 0), DEC_OK);
    EXPECT_EQ(show(x), "1:+:99");
    x = filled(0, DEC_POSITIVE, 1, 99);
    EXPECT_EQ(decround(&x, 2), DEC_OK);
    EXPECT_EQ(show(x), "0:+:99");
}
