// SPDX-License-Identifier: MIT
//
// The bytes that program and module share, looked at from outside as the module sees them, and changed at moments of
// its choice: a module can do so from a thread of its own.
#include "caller/hosts.h"

#include <cmath>
#include <cstring>
#include <sys/shm.h>

namespace {

class SharedBytes : public BothLayouts {
protected:
    SharedBytes()
        : host([this](ka_options &options) {
              layout()(options);
              options.checking = KA_RAW;
          }),
          base(static_cast<char *>(shmat(segment_of(ka_pid(host)), nullptr, 0)))
    {
    }
    ~SharedBytes() override { shmdt(base); }
    // The address of element 0 of an argument of the call that is being built.
    char *bytes_of(int32_t argument) const
    {
        ka_descriptor descriptor = {};
        EXPECT_EQ(ka_get_descriptor(host, argument, &descriptor), KA_DONE) << error_text(host);
        return base + descriptor.offset;
    }
    // The REAL that the program gets when the module has left this one.
    t_DECIMAL given_back(const t_DECIMAL &left)
    {
        ka_begin(host, "scale_one");
        ka_add_real(host, "1", KA_BY_REFERENCE);
        ka_add_real(host, "1", KA_BY_VALUE);
        char *bytes = bytes_of(1);
        EXPECT_EQ(call(host), 0);
        std::memcpy(bytes, &left, sizeof left);
        t_DECIMAL got = {};
        double as_double = 0;
        EXPECT_EQ(ka_get_reals(host, 1, &got, 1), KA_DONE);
        EXPECT_EQ(ka_get_doubles(host, 1, &as_double, 1), KA_DONE);
        EXPECT_EQ(got.dec_pos == DEC_NULL, std::isnan(as_double));
        return got;
    }
    Host host;
    char *base;
};
IN_BOTH_LAYOUTS(SharedBytes);

constexpr t_DECIMAL fullest = {DEC_EXP_MAX, DEC_NEGATIVE, DEC_DIGITS, {1, 99, 0, 99, 98, 97, 96, 99}};

} // namespace

TEST_P(SharedBytes, of_a_real_at_the_bounds_are_given_back_as_they_are)
{
    for (int exponent : {+DEC_EXP_MIN, 0, +DEC_EXP_MAX}) {
        t_DECIMAL left = fullest;
        left.dec_exp = static_cast<int16_t>(exponent);
        const t_DECIMAL got = given_back(left);
        EXPECT_EQ(std::memcmp(&got, &left, sizeof got), 0);
    }
    const t_DECIMAL zero = {0, DEC_POSITIVE, 0, {}};
    EXPECT_EQ(given_back(zero).dec_pos, DEC_POSITIVE);
}

TEST_P(SharedBytes, of_a_real_beyond_a_bound_are_given_back_as_null)
{
    std::vector<t_DECIMAL> unsound(8 + DEC_DIGITS, fullest);
    unsound[0].dec_ndgts = DEC_DIGITS + 1;
    unsound[1].dec_ndgts = -1;
    unsound[2].dec_ndgts = INT8_MIN;
    unsound[3].dec_exp = DEC_EXP_MAX + 1;
    unsound[4].dec_exp = DEC_EXP_MIN - 1;
    unsound[5].dec_dgts[0] = 0;
    unsound[6].dec_pos = 2;
    unsound[7].dec_pos = DEC_NULL;
    for (size_t i = 0; i < DEC_DIGITS; i++)
        unsound[8 + i].dec_dgts[i] = DEC_BASE;
    for (size_t i = 0; i < unsound.size(); i++)
        EXPECT_EQ(given_back(unsound[i]).dec_pos, DEC_NULL) << i;
}

TEST_P(SharedBytes, behind_a_string_hold_nothing_of_an_earlier_call)
{
    constexpr int32_t room = 41;
    const std::string secret(room, 'x');
    const ka_text before[] = {{secret.data(), room}, {secret.data(), room}};
    const ka_text after[] = {{"ab", 2}, {"", 0}};
    ka_begin(host, "describe");
    ka_add_strings(host, before, 2, room, KA_BY_VALUE);
    EXPECT_EQ(call(host), 902);
    ka_begin(host, "describe");
    ka_add_strings(host, after, 2, room, KA_BY_VALUE);
    const std::string seen(bytes_of(1), 2 * 48);
    EXPECT_EQ(seen.find('x'), std::string::npos);
    EXPECT_EQ(seen.substr(4, 3), std::string("ab\0", 3));
}

// A function that takes a zero-terminated string reads a length there.
TEST_P(SharedBytes, of_an_array_without_elements_hold_nothing_of_an_earlier_call)
{
    ka_begin(host, "describe");
    ka_add_integer(host, 0x78787878, KA_BY_VALUE);
    EXPECT_EQ(call(host), 201);
    ka_begin(host, "describe");
    ka_add_strings(host, nullptr, 0, 9, KA_BY_VALUE);
    EXPECT_EQ(std::string(bytes_of(1), 4), std::string(4, '\0'));
}
