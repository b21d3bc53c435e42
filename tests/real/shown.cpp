// SPDX-License-Identifier: MIT
//
// All decimals of a REAL at once, as the caller's library writes its text: whatever is taken so has the text that
// m_gcvt gives, and a room of 16 characters is enough.
#include <cstring>
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/draw.h"
#include "model/guarded.h"
#include "model/notation.h"
#include "wire/general_text.h"

using namespace model;

TEST(ShowAll, is_what_the_number_library_gives)
{
    Draw draw;
    long taken = 0;
    for (Rounds rounds(100000); rounds.more();) {
        t_DECIMAL x = draw.record({.null = false});
        if (draw.one_in(2)) x.dec_exp = static_cast<int16_t>(draw.between(-8, 9));
        if (draw.one_in(10))
            reinterpret_cast<unsigned char *>(&x)[draw.below(sizeof x)] = static_cast<unsigned char>(draw.bits());
        Guarded room(16);
        wire::t_SHOWN shown;
        if (x.dec_pos == DEC_NULL || !wire::show_all(&x, room.data(), &shown)) continue;
        taken++;
        Guarded got(40), expected(40);
        wire::put_general(&shown, 16, got.data());
        m_gcvt(&x, 16, expected.data());
        ASSERT_EQ(got.bytes(), expected.bytes()) << show(x);
        ASSERT_TRUE(room.intact() && got.intact()) << show(x);
    }
#ifdef __SSE2__
    EXPECT_GT(taken, 0);
#endif
}
