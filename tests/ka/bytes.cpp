// SPDX-License-Identifier: MIT
//
// Strings of any bytes: what is printed of them harms no terminal, and typed as an argument it is the same bytes
// again. KA_SEED repeats a run.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <random>

#include "ka/command.h"
#include "ka/input.h"
#include "ka/terminal_text.h"

namespace {

using Json = nlohmann::json;

std::string hex_of(const std::string &bytes)
{
    std::string text;
    for (const char c : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

// The lines of a session in which the module gives back what it was sent.
std::vector<std::string> session(const std::string &script, std::vector<std::string> options)
{
    options.insert(options.begin(), "shell");
    options.insert(options.end(), {"--raw", tasks_module});
    const Input input(script);
    const Outcome outcome = await_ka(start_ka(options, input.fd()));
    EXPECT_EQ(outcome.err, "");
    std::vector<std::string> lines;
    for (size_t at = 0; at < outcome.out.size();) {
        const size_t end = outcome.out.find('\n', at);
        lines.push_back(outcome.out.substr(at, end - at));
        at = end == std::string::npos ? outcome.out.size() : end + 1;
    }
    return lines;
}

// How ka call prints a string that the module gives back.
std::string printed(const std::string &bytes)
{
    const Input input(R"([{"by_reference":true,"hex":")" + hex_of(bytes) + "\"}]");
    const Outcome outcome =
        await_ka(start_ka({"call", "--raw", "--args", "-", tasks_module, "describe"}, input.fd()));
    const std::string before = "any = ";
    const std::string behind = "\nreturn code 801\n";
    EXPECT_TRUE(outcome.out.starts_with(before) && outcome.out.ends_with(behind)) << outcome.out << outcome.err;
    return outcome.out.substr(before.size(), outcome.out.size() - before.size() - behind.size());
}

// The bytes of a string in the JSON object of a call.
std::string bytes_in(const std::string &json)
{
    const Json value = Json::parse(json)["results"]["any"];
    if (value.is_string()) return value;
    std::string bytes;
    const std::string digits = value["hex"];
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

// What means something to a reader of arguments, or to a terminal, in between bytes of all kinds.
std::string random_bytes(std::mt19937 &random)
{
    static const std::vector<std::string> pieces = {"'",
                                                    "\\",
                                                    "\\x4",
                                                    "\\n",
                                                    "$x",
                                                    "#",
                                                    "[",
                                                    "]",
                                                    ",",
                                                    ":4",
                                                    "&",
                                                    "\"",
                                                    " ",
                                                    "\n",
                                                    "\t",
                                                    "\r",
                                                    "\x1b[31m",
                                                    "\x7f",
                                                    "\x9b",
                                                    "\xc2\x9b",
                                                    "é",
                                                    "€",
                                                    "😀",
                                                    "\xc0\xaf",
                                                    "\xe0\x80",
                                                    "\xed\xa0\x80",
                                                    "\xe2\x80\xae",
                                                    "\xf4\x90\x80\x80",
                                                    std::string(1, '\0')};
    std::string bytes;
    for (auto n = random() % 30; n > 0; n--)
        bytes += random() % 2 == 0 ? pieces[random() % pieces.size()] : std::string(1, static_cast<char>(random()));
    return bytes;
}

unsigned seed_of_run()
{
    const char *given = std::getenv("KA_SEED");
    return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
}

} // namespace

TEST(KaBytes, what_no_terminal_should_get_is_printed_as_hexadecimal_bytes)
{
    const std::pair<std::string, std::string> cases[] = {
        {"\x9b"
         "31m",
         R"('\x9b31m')"},                                              // a control introducer by itself
        {"caf\xe9", R"('caf\xe9')"},                                   // of another character set
        {"\xc3", R"('\xc3')"},                                         // cut off
        {"\xe2\x82x", R"('\xe2\x82x')"},                               //
        {"\xc0\xaf \xe0\x80\xaf", R"('\xc0\xaf \xe0\x80\xaf')"},       // longer than needed
        {"\xed\xa0\x80", R"('\xed\xa0\x80')"},                         // half of a pair
        {"\xf4\x90\x80\x80\xff", R"('\xf4\x90\x80\x80\xff')"},         // beyond the last character
        {"\xc2\x80\xc2\x9b\xc2\x9f", R"('\xc2\x80\xc2\x9b\xc2\x9f')"}, // controls in good UTF-8
        {"a\xe2\x80\xae"
         "b\xe2\x81\xa6"
         "c",
         R"('a\xe2\x80\xaeb\xe2\x81\xa6c')"}, // turns the writing direction
        {"a\xe2\x80\xa8"
         "b\xe2\x80\xa9",
         R"('a\xe2\x80\xa8b\xe2\x80\xa9')"}, // ends a line
        {"\x1b\x7f", R"('\x1b\x7f')"},
        {"\xc2\xa0é€😀\xef\xbf\xbd\xf4\x8f\xbf\xbf", "'\xc2\xa0é€😀\xef\xbf\xbd\xf4\x8f\xbf\xbf'"}, // as it is
        {"it's \\ \n\t\r", R"('it\'s \\ \n\t\r')"},
    };
    for (const auto &[bytes, expected] : cases)
        EXPECT_EQ(printed(bytes), expected);
}

TEST(KaBytes, what_is_printed_is_read_back_as_an_argument)
{
    const unsigned seed = seed_of_run();
    std::mt19937 random(seed);
    for (int round = 0; round < 40 && !HasFailure(); round++) {
        const std::string bytes = random_bytes(random);
        const std::string word = printed(bytes);
        EXPECT_EQ(fault_on_terminal(word), "") << word;
        const Outcome again = ka({"call", "--raw", "--json", tasks_module, "describe", "&" + word});
        EXPECT_EQ(bytes_in(again.out), bytes) << word;
        EXPECT_EQ(fault_on_terminal(again.out), "") << again.out;
        EXPECT_FALSE(HasFailure()) << "KA_SEED=" << seed << ", round " << round;
    }
}

// Typed, as a variable, and as what a call gave back.
TEST(KaBytes, what_a_session_prints_is_read_back_by_a_session)
{
    const unsigned seed = seed_of_run();
    std::mt19937 random(seed);
    std::vector<std::string> all;
    std::string words;
    for (int i = 0; i < 500; i++) {
        std::string bytes = random_bytes(random);
        words += "describe &'";
        for (const char c : bytes)
            words += "\\x" + hex_of({c});
        words += "'\n";
        all.push_back(std::move(bytes));
    }
    const std::vector<std::string> shown = session(words, {});
    ASSERT_EQ(shown.size(), 2 * all.size());
    std::string again;
    for (size_t i = 0; i < all.size(); i++) {
        const std::string word = shown[2 * i].substr(std::string("any = ").size());
        EXPECT_EQ(fault_on_terminal(word), "") << word << ", KA_SEED=" << seed;
        again += "describe &" + word + "\nx = " + word + "\ndescribe &$x\ndescribe &$any\n";
    }
    const std::vector<std::string> results = session(again, {"--json"});
    ASSERT_EQ(results.size(), 3 * all.size());
    for (size_t i = 0; i < results.size(); i++)
        EXPECT_EQ(bytes_in(results[i]), all[i / 3]) << shown[2 * (i / 3)] << ", KA_SEED=" << seed;
}

TEST(KaBytes, arrays_of_strings_are_read_back)
{
    const std::string list = R"(['\xff\'', '', 'é\\', ', ]'])";
    const Outcome outcome = ka({"call", "--raw", tasks_module, "describe", "&" + list});
    EXPECT_EQ(outcome.out, "any = " + list + "\nreturn code 904\n");
}

TEST(KaBytes, json_is_read_back_whatever_the_bytes_are)
{
    const unsigned seed = seed_of_run();
    std::mt19937 random(seed);
    for (int round = 0; round < 20 && !HasFailure(); round++) {
        const std::string given =
            Json::array({{{"hex", hex_of(random_bytes(random))}, {"by_reference", true}}}).dump();
        const auto call = [](const std::string &arguments) {
            const Input input(arguments);
            const Outcome outcome =
                await_ka(start_ka({"call", "--raw", "--json", "--args", "-", tasks_module, "describe"}, input.fd()));
            EXPECT_EQ(fault_on_terminal(outcome.out), "") << outcome.out;
            return Json::parse(outcome.out)["results"]["any"];
        };
        const Json first = call(given);
        Json argument = first.is_string() ? Json{{"string", first}} : first;
        argument["by_reference"] = true;
        EXPECT_EQ(call(Json::array({argument}).dump()), first) << "KA_SEED=" << seed;
    }
}

// As it has always been: without quotes a backslash is one.
TEST(KaBytes, backslash_without_quotes_is_a_character)
{
    EXPECT_EQ(call({"measure", R"(a\x41\)"}).out, "return code 6\n");
    EXPECT_EQ(call({"measure", R"('a\x41\\')"}).out, "return code 3\n");
}

// Names in the object of a call that cannot be made.
TEST(KaBytes, json_shows_no_control_characters_of_names)
{
    const Outcome outcome = ka({"call", "--json", tasks_module, "\x7f\xc2\x9b\xe2\x80\xae", "1"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(fault_on_terminal(outcome.out), "") << outcome.out;
    EXPECT_EQ(Json::parse(outcome.out)["function"], "\x7f\xc2\x9b\xe2\x80\xae");
}
