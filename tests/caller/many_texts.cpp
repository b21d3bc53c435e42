// SPDX-License-Identifier: MIT
//
// REALs as decimal text and strings, many at once.
#include <algorithm>
#include <climits>
#include <numeric>

#include "caller/hosts.h"

class ManyTexts : public BothLayouts {};
IN_BOTH_LAYOUTS(ManyTexts);

namespace {

using Texts = std::vector<std::string>;

std::vector<ka_text> texts_of(const Texts &texts)
{
    std::vector<ka_text> made;
    for (const std::string &text : texts)
        made.push_back({text.data(), static_cast<int32_t>(text.size())});
    return made;
}

int32_t add(ka_host *host, const Texts &texts, int32_t *rounded = nullptr)
{
    return ka_add_real_texts(host, texts_of(texts).data(), static_cast<int32_t>(texts.size()), KA_BY_REFERENCE,
                             rounded);
}

using Get = decltype(ka_get_strings);

struct Got {
    int32_t status;
    std::string buffer;
    std::vector<int32_t> offsets;
    Texts texts() const
    {
        Texts found;
        for (size_t i = 0; i + 1 < offsets.size(); i++)
            found.push_back(
                buffer.substr(static_cast<size_t>(offsets[i]), static_cast<size_t>(offsets[i + 1] - offsets[i])));
        return found;
    }
};

Got got(Get &get, ka_host *host, int32_t argument, int32_t count, int32_t size)
{
    Got found = {0, std::string(static_cast<size_t>(size), '.'),
                 std::vector<int32_t>(static_cast<size_t>(count) + 1, -1)};
    found.status = get(host, argument, size > 0 ? found.buffer.data() : nullptr, size, found.offsets.data(), count);
    return found;
}

// Scaled by 1: the host makes doubles of them and gives them back.
void scale(ka_host *host, const Texts &texts)
{
    ka_begin(host, "scale");
    add(host, texts);
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call(host), 0);
}

void shout(ka_host *host, const Texts &texts)
{
    ka_begin(host, "shout");
    ka_add_strings(host, texts_of(texts).data(), static_cast<int32_t>(texts.size()), 10, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
}

} // namespace

TEST_P(ManyTexts, reals_go_as_text_and_come_back_as_text)
{
    Host host(layout());
    scale(host, {"0.1", "-1e20", "0", "12345678901234", "1e-130"});
    const Got sizes = got(ka_get_real_texts, host, 1, 5, 0);
    EXPECT_EQ(sizes.status, KA_DONE);
    EXPECT_EQ(sizes.offsets, std::vector<int32_t>({0, 3, 9, 10, 24, 30}));
    const Got all = got(ka_get_real_texts, host, 1, 5, sizes.offsets.back());
    EXPECT_EQ(all.status, KA_DONE);
    EXPECT_EQ(all.texts(), Texts({"0.1", "-1E+20", "0", "12345678901234", "1E-130"}));
    EXPECT_EQ(all.texts(), reals(host, 1, 5));
}

// A function that does not look at them gives back the very records.
TEST_P(ManyTexts, are_read_as_one_is)
{
    Host host(layout(), module_path("reals"));
    for (const std::string text : {"1234567890123456", "12345678901234567890", "-0.00", "+7.", ".5e-3"}) {
        t_DECIMAL expected;
        int32_t exact = -1;
        int32_t rounded = -2;
        ASSERT_EQ(ka_real_read(text.data(), static_cast<int32_t>(text.size()), &expected, &exact), KA_DONE);
        ka_begin(host, "show_record");
        EXPECT_EQ(add(host, {text}, &rounded), KA_DONE);
        EXPECT_EQ(rounded, exact ? -1 : 0) << text;
        ka_add_string(host, nullptr, 0, 40, KA_BY_REFERENCE);
        EXPECT_EQ(call(host), 0);
        char shown[KA_REAL_TEXT];
        EXPECT_EQ(string(host, 2, 0), ka_real_to_text(&expected, shown));
    }
}

TEST_P(ManyTexts, the_first_that_was_rounded_is_told)
{
    Host host(layout());
    const std::string long_number = "12345678901234567890";
    int32_t rounded = -2;
    ka_begin(host, "scale");
    EXPECT_EQ(add(host, {"1", "0.1", long_number, "2", long_number}, &rounded), KA_DONE);
    EXPECT_EQ(rounded, 2);
    ka_begin(host, "scale");
    EXPECT_EQ(add(host, {"1", "0.1"}, &rounded), KA_DONE);
    EXPECT_EQ(rounded, -1);
    rounded = -2;
    EXPECT_EQ(add(host, {}, &rounded), KA_DONE);
    EXPECT_EQ(rounded, -1);
}

TEST_P(ManyTexts, a_text_that_is_no_number_is_named)
{
    Host host(layout());
    int32_t rounded = -2;
    for (const std::string text : {"", "1_000", "nan", "1e127", "0x1", " 1", "1 "}) {
        ka_begin(host, "scale");
        EXPECT_EQ(add(host, {"1", "12345678901234567890", text}, &rounded), KA_ARGUMENT);
        EXPECT_EQ(error_text(host), "argument 1 of \"scale\", element 2: \"" + text + "\" is not a REAL");
        EXPECT_EQ(ka_last_error(host)->argument, 1);
        EXPECT_EQ(rounded, -1);
        EXPECT_EQ(call_fails(host), KA_ARGUMENT);
    }
    const ka_text odd[] = {{"12", -1}};
    ka_begin(host, "scale");
    EXPECT_EQ(ka_add_real_texts(host, odd, 1, KA_BY_VALUE, nullptr), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"scale\", element 0: length is -1; it must not be below 0");
    ka_begin(host, "scale");
    EXPECT_EQ(ka_add_real_texts(host, odd, -1, KA_BY_VALUE, nullptr), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"scale\": count is -1; it must not be below 0");
}

TEST_P(ManyTexts, that_are_too_many_are_too_big)
{
    Host host(layout());
    const Texts many(100000, "1.5");
    int32_t rounded = -2;
    ka_begin(host, "scale");
    EXPECT_EQ(add(host, many, &rounded), KA_TOO_BIG);
    EXPECT_EQ(rounded, -1);
    EXPECT_EQ(ka_last_error(host)->needed_bytes % 4, 0);
    EXPECT_GT(ka_last_error(host)->needed_bytes, 100000 * 12);
}

TEST_P(ManyTexts, a_buffer_that_is_too_small_has_what_fits_whole)
{
    Host host(layout());
    shout(host, {"one", "", "three"});
    for (int32_t size = 0; size <= 12; size++) {
        const Got found = got(ka_get_strings, host, 1, 3, size);
        EXPECT_EQ(found.status, KA_DONE);
        EXPECT_EQ(found.offsets, std::vector<int32_t>({0, 4, 5, 11}));
        const std::string all = "one!!three!.";
        for (int32_t offset : found.offsets)
            if (offset <= size) {
                const auto length = static_cast<size_t>(offset);
                EXPECT_EQ(found.buffer.substr(0, length), all.substr(0, length));
            }
        EXPECT_TRUE(size < 12 || found.buffer == all);
    }
    scale(host, {"10", "200", "3"});
    for (int32_t size = 0; size <= 7; size++) {
        const Got found = got(ka_get_real_texts, host, 1, 3, size);
        EXPECT_EQ(found.offsets, std::vector<int32_t>({0, 2, 5, 6}));
        const size_t whole = size < 2 ? 0 : size < 5 ? 2 : size < 6 ? 5 : 6;
        EXPECT_EQ(found.buffer.substr(0, whole), std::string("102003").substr(0, whole));
        EXPECT_EQ(found.buffer.find_first_not_of('.', whole), std::string::npos) << size;
    }
}

TEST_P(ManyTexts, strings_hold_any_byte_and_keep_to_their_room)
{
    Host host(layout());
    const std::string odd("a\0\xff", 3);
    shout(host, {odd, ""});
    EXPECT_EQ(got(ka_get_strings, host, 1, 2, 100).texts(), Texts({odd + "!", "!"}));
    for (int32_t length : {INT_MIN, -1, 21, INT_MAX}) {
        ka_begin(host, "lie_about_length");
        ka_add_string(host, nullptr, 0, 20, KA_BY_REFERENCE);
        ka_add_integer(host, length, KA_BY_VALUE);
        EXPECT_EQ(call(host), 0);
        EXPECT_EQ(got(ka_get_strings, host, 1, 1, 100).texts(), Texts({std::string(length < 0 ? 0 : 20, 'x')}));
    }
}

TEST_P(ManyTexts, a_null_real_is_an_empty_text)
{
    Host host(layout());
    ka_begin(host, "forge_real");
    ka_add_real(host, "1", KA_BY_REFERENCE);
    ka_add_real(host, "2", KA_BY_REFERENCE);
    ka_add_integer(host, offset_of_descriptors() + descriptor_size(), KA_BY_VALUE);
    ka_add_integer(host, descriptor_size(), KA_BY_VALUE);
    EXPECT_EQ(call(host), 0);
    const Got found = got(ka_get_real_texts, host, 1, 1, 10);
    EXPECT_EQ(found.status, KA_DONE);
    EXPECT_EQ(found.texts(), Texts({""}));
}

TEST_P(ManyTexts, fewer_than_were_passed_may_be_read)
{
    Host host(layout());
    shout(host, {"one", "two"});
    EXPECT_EQ(got(ka_get_strings, host, 1, 1, 10).texts(), Texts({"one!"}));
    EXPECT_EQ(got(ka_get_strings, host, 1, 0, 0).offsets, std::vector<int32_t>({0}));
    EXPECT_EQ(got(ka_get_strings, host, 1, 3, 10).status, KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"shout\" has 2 elements, not 3");
}

TEST_P(ManyTexts, what_is_not_there_is_refused)
{
    Host host(layout());
    int32_t offsets[2];
    EXPECT_EQ(ka_get_strings(host, 1, nullptr, 0, offsets, 1), KA_ARGUMENT);
    EXPECT_EQ(ka_get_real_texts(host, 1, nullptr, 0, offsets, 1), KA_ARGUMENT);
    shout(host, {"one", "two"});
    EXPECT_EQ(ka_get_real_texts(host, 1, nullptr, 0, offsets, 1), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "argument 1 of \"shout\" is STRING, not REAL");
    EXPECT_EQ(ka_get_strings(host, 1, nullptr, -1, offsets, 1), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "size is -1; it must not be below 0");
    scale(host, {"1"});
    EXPECT_EQ(ka_get_strings(host, 1, nullptr, 0, offsets, 1), KA_ARGUMENT);
    EXPECT_EQ(ka_get_real_texts(host, 1, nullptr, -1, offsets, 1), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "size is -1; it must not be below 0");
}
