// SPDX-License-Identifier: MIT
//
// Rounding and cutting to places: every two-digit pattern at every position of a record, beside every kind of
// neighbour, at every place, and every exponent.
#include <algorithm>
#include <gtest/gtest.h>

#include "model/exact.h"
#include "model/notation.h"

using namespace model;

static void check(const t_DECIMAL &x, int places)
{
    t_DECIMAL rounded = x;
    Outcome expected = to_places(x, places);
    ASSERT_EQ(decround(&rounded, places), expected.code) << show(x) << " to " << places;
    ASSERT_TRUE(same(rounded, expected.record)) << show(x) << " to " << places << " rounds to " << show(rounded);
    t_DECIMAL cut = x;
    expected = cut_to_places(x, places);
    ASSERT_EQ(dectrunc(&cut, places), expected.code) << show(x) << " to " << places;
    ASSERT_TRUE(same(cut, expected.record)) << show(x) << " to " << places << " is cut to " << show(cut);
}

// Two digits of any value between neighbours of one kind before and one after, as many as the record holds.
static t_DECIMAL pattern(int position, int first, int second, int before, int after, int ndgts)
{
    t_DECIMAL x = filled(0, DEC_POSITIVE, ndgts, after);
    std::fill_n(x.dec_dgts, position, static_cast<uint8_t>(before));
    x.dec_dgts[position] = static_cast<uint8_t>(first);
    x.dec_dgts[position + 1] = static_cast<uint8_t>(second);
    return x;
}

// The places at which the pattern is cut, with exponent 1: before, through and after each of its digits.
static void check_around(const t_DECIMAL &x, int position)
{
    for (int places = std::max(2 * position - 2, 0); places <= 2 * position + 3; places++)
        check(x, places);
}

TEST(AllPlaces, every_two_digits_at_every_position)
{
    struct Neighbours {
        int before;
        int after;
    };
    for (const Neighbours &near : {Neighbours{99, 0}, {99, 49}, {99, 50}, {99, 99}, {12, 50}, {10, 99}, {0, 50}}) {
        for (int position = 0; position <= DEC_DIGITS - 2; position++) {
            for (int both = 0; both < base * base && !HasFatalFailure(); both++) {
                const int ndgts = both % 3 ? DEC_DIGITS : position + 2;
                t_DECIMAL x = pattern(position, both / base, both % base, near.before, near.after, ndgts);
                if (position > 0 && near.before == 0) x.dec_dgts[0] = 1;
                x.dec_exp = 1;
                x.dec_pos = both % 2 ? DEC_POSITIVE : DEC_NEGATIVE;
                check_around(x, position);
            }
        }
    }
}

// Exponents only move the point; every one of them with every count of digits, and all places that make a difference.
TEST(AllPlaces, every_exponent_and_count_at_every_place)
{
    for (int exp = DEC_EXP_MIN; exp <= DEC_EXP_MAX; exp++) {
        for (int ndgts = 0; ndgts <= DEC_DIGITS; ndgts++) {
            for (const int byte : {1, 5, 49, 50, 94, 95, 99}) {
                for (int places = -1; places <= 2 * (DEC_DIGITS + 1 - std::min(exp, 0)); places++) {
                    const int pos = (exp + ndgts) % 2 ? DEC_POSITIVE : DEC_NEGATIVE;
                    check(filled(exp, pos, ndgts, byte), places);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

// Every value of the digit that is cut, for every run of 99s in front of it.
TEST(AllPlaces, every_digit_behind_runs_of_99)
{
    for (int run = 0; run < DEC_DIGITS; run++) {
        for (const int first : {1, 98, 99}) {
            for (int digit = 0; digit < base; digit++) {
                for (int exp = -2; exp <= DEC_DIGITS; exp++) {
                    t_DECIMAL x = filled(exp, DEC_NEGATIVE, DEC_DIGITS, 99);
                    x.dec_dgts[0] = static_cast<uint8_t>(first);
                    x.dec_dgts[run] = static_cast<uint8_t>(digit);
                    for (int places = 0; places <= 2 * (DEC_DIGITS - exp); places++)
                        check(x, places);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}
