// SPDX-License-Identifier: MIT
//
// JSON as ka builds it, held against a reader and a writer of JSON that share nothing with it.
#include <gtest/gtest.h>

#include <cfloat>
#include <nlohmann/json.hpp>

#include "base/json.h"

namespace {

// What another writer makes of it, read back: bytes that are not UTF-8 are replaced.
std::string replaced(const std::string &text)
{
    return nlohmann::json::parse(nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void expect_text(const std::string &text)
{
    const std::string json = Json(text).text();
    ASSERT_TRUE(nlohmann::json::accept(json)) << json;
    EXPECT_EQ(nlohmann::json::parse(json).get<std::string>(), replaced(text)) << json;
}

} // namespace

TEST(KaJsonBuilder, text_of_any_bytes_reads_back)
{
    for (int first = 0; first < 256; first++)
        for (int second = 0; second < 256; second++)
            for (const char *rest : {"", "a", "\x80", "\x80\x80", "\xbf\xbf\xbf", "\xc3\xa9"})
                expect_text(std::string({static_cast<char>(first), static_cast<char>(second)}) + rest);
}

TEST(KaJsonBuilder, characters_that_are_obeyed_are_escaped)
{
    EXPECT_EQ(Json("\"\\\b\f\n\r\t/").text(), R"("\"\\\b\f\n\r\t/")");
    EXPECT_EQ(Json(std::string("\0\x1b\x7f", 3)).text(), R"("\u0000\u001b\u007f")");
    EXPECT_EQ(Json("\xc2\x85 \xe2\x80\xa8 \xe2\x80\xae \xc3\xa9").text(), "\"\\u0085 \\u2028 \\u202e \xc3\xa9\"");
}

TEST(KaJsonBuilder, numbers_are_written_in_the_fewest_digits_and_read_back)
{
    for (double value : {0.0, -0.0, 1.0, -2.5, 0.1, 100000.0, 1e14, 999999999999999.0, 1e15, 1e20, 1e-4, 1e-5,
                         12345.678, 1e-130, DBL_MAX, DBL_MIN})
        EXPECT_EQ(Json(value).text(), nlohmann::json(value).dump());
    EXPECT_EQ(Json(1e126).text(), "1e+126"); // of which the other writer needs 16 digits
    EXPECT_EQ(Json(INT32_MIN).text(), "-2147483648");
    EXPECT_EQ(Json(UINT64_MAX).text(), "18446744073709551615");
}

TEST(KaJsonBuilder, members_and_elements_are_in_the_order_in_which_they_were_added)
{
    const JsonObject object = JsonObject()
                                  .add("b", true)
                                  .add("a", std::vector<int>{1, 2})
                                  .add("none", std::optional<int>())
                                  .add("some", std::optional<int>(3))
                                  .add("inner", JsonObject().add("x", "y"))
                                  .add("empty", JsonArray());
    EXPECT_EQ(object.text(), R"({"b":true,"a":[1,2],"none":null,"some":3,"inner":{"x":"y"},"empty":[]})");
    EXPECT_EQ(Json::of_bytes("\xff\x01").text(), R"({"hex":"ff01"})");
}
