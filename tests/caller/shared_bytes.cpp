// SPDX-License-Identifier: MIT
//
// The bytes that program and module share, looked at from outside as the module sees them, and changed at moments of
// its choice: a module can do so from a thread of its own.
#include "caller/hosts.h"
#include "model/draw.h"
#include "wire/real_fault.h"

#include <bit>
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

// ---- Many at once, beside one by one ---------------------------------------------------------------------------

namespace {

double any_double(model::Draw &draw)
{
    if (draw.one_in(200)) return std::bit_cast<double>(draw.bits());
    if (draw.one_in(3)) return std::bit_cast<double>((draw.bits() >> 12) | (draw.bits() % 60 + 1000) << 52);
    const auto decimals = static_cast<double>(draw.bits() % 100000000000000000);
    return std::round(decimals * std::pow(10, draw.between(-17, 0))) / std::pow(10, draw.between(0, 12));
}

// Mostly sound; then with a byte that can be anything.
t_DECIMAL any_real(model::Draw &draw)
{
    t_DECIMAL real = {};
    real.dec_exp = static_cast<int16_t>(draw.between(draw.one_in(4) ? -66 : -3, draw.one_in(4) ? 65 : 8));
    real.dec_pos = static_cast<uint8_t>(draw.one_in(20) ? DEC_NULL : draw.below(2));
    real.dec_ndgts = static_cast<int8_t>(draw.between(0, DEC_DIGITS));
    for (uint8_t &digit : real.dec_dgts)
        digit = static_cast<uint8_t>(draw.below(DEC_BASE));
    if (draw.one_in(4)) reinterpret_cast<char *>(&real)[draw.below(sizeof real)] = static_cast<char>(draw.bits());
    return real;
}

// Of what the module left, what the program gets.
t_DECIMAL plain_real(const t_DECIMAL &left)
{
    int32_t found;
    const t_DECIMAL null = {0, DEC_NULL, 0, {}};
    return wire::real_fault(&left, &found) == REAL_SOUND ? left : null;
}

double plain_double(const t_DECIMAL &left)
{
    const t_DECIMAL real = plain_real(left);
    double value = std::nan("");
    if (real.dec_pos != DEC_NULL) dectodbl(&real, &value);
    return value;
}

} // namespace

TEST_P(SharedBytes, of_doubles_are_those_of_each_alone)
{
    model::Draw draw;
    for (model::Rounds rounds(2000); rounds.more();) {
        std::vector<double> values(static_cast<size_t>(draw.between(1, 40)));
        for (double &value : values)
            value = any_double(draw);
        std::vector<t_DECIMAL> expected(values.size());
        size_t sound = 0;
        while (sound < values.size() && deccvdbl(values[sound], &expected[sound]) == DEC_OK)
            sound++;
        ka_begin(host, "describe");
        const int32_t status = ka_add_doubles(host, values.data(), static_cast<int32_t>(values.size()), KA_BY_VALUE);
        ASSERT_EQ(status, sound == values.size() ? KA_DONE : KA_ARGUMENT);
        if (status == KA_DONE)
            ASSERT_EQ(std::memcmp(bytes_of(1), expected.data(), expected.size() * sizeof expected[0]), 0)
                << "in round " << rounds.number();
        else
            ASSERT_NE(error_text(host).find("element " + std::to_string(sound) + ":"), std::string::npos)
                << error_text(host);
    }
}

TEST_P(SharedBytes, of_many_reals_are_given_back_as_those_of_each_alone)
{
    constexpr int32_t count = 300;
    ka_begin(host, "scale_one");
    ka_add_doubles(host, std::vector<double>(count, 1).data(), count, KA_BY_REFERENCE);
    ka_add_double(host, 1, KA_BY_VALUE);
    char *bytes = bytes_of(1);
    ASSERT_EQ(call(host), 0);
    model::Draw draw;
    for (model::Rounds rounds(500); rounds.more();) {
        std::vector<t_DECIMAL> left(count);
        for (t_DECIMAL &real : left)
            real = any_real(draw);
        std::memcpy(bytes, left.data(), left.size() * sizeof left[0]);
        std::vector<t_DECIMAL> got(count);
        std::vector<double> as_doubles(count);
        ASSERT_EQ(ka_get_reals(host, 1, got.data(), count), KA_DONE);
        ASSERT_EQ(ka_get_doubles(host, 1, as_doubles.data(), count), KA_DONE);
        for (size_t i = 0; i < count; i++) {
            const t_DECIMAL expected = plain_real(left[i]);
            const double as_double = plain_double(left[i]);
            ASSERT_EQ(std::memcmp(&got[i], &expected, sizeof expected), 0) << i << " in round " << rounds.number();
            ASSERT_EQ(std::memcmp(&as_doubles[i], &as_double, sizeof as_double), 0)
                << i << " in round " << rounds.number();
        }
    }
}

TEST_P(SharedBytes, of_strings_of_any_length_are_theirs_and_zeros)
{
    std::string characters;
    for (int i = 0; i < 80; i++)
        characters += static_cast<char>('!' + i);
    for (int32_t room = 1; room < 75; room++) {
        std::vector<ka_text> texts;
        std::string expected;
        for (int32_t length = 0; length <= room; length++) {
            texts.push_back({characters.data(), length});
            expected.append(reinterpret_cast<const char *>(&length), sizeof length);
            expected += characters.substr(0, static_cast<size_t>(length));
            expected.append(static_cast<size_t>((room + 3) / 4 * 4 - length), '\0');
        }
        ka_begin(host, "describe");
        ka_add_strings(host, texts.data(), static_cast<int32_t>(texts.size()), room, KA_BY_VALUE);
        ASSERT_EQ(std::string(bytes_of(1), expected.size()), expected) << room;
    }
}
