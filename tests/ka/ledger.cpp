// SPDX-License-Identifier: MIT
//
// The ledger of the examples keeps its promise: exact to the last cent.
#include <algorithm>

#include "ka/command.h"

namespace {

const std::string ledger = examples_folder(KA_EXAMPLES) + "/ledger";

// What comes back in the argument of that name; the return code where it is not 0.
std::string answer(const std::vector<std::string> &arguments, const std::string &name)
{
    std::vector<std::string> words = {"call", ledger};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.push_back("str:20");
    const Outcome outcome = ka(words);
    const std::string code = outcome.out.substr(std::min(outcome.out.rfind("return code "), outcome.out.size()));
    if (code != "return code 0\n") return code + outcome.err;
    const size_t begin = outcome.out.find(name + " = '") + name.size() + 4;
    return outcome.out.substr(begin, outcome.out.find('\'', begin) - begin);
}

std::string difference(const std::string &a, const std::string &b)
{
    return answer({"difference", a, b}, "result");
}

std::string sum(const std::string &amounts)
{
    return answer({"sum_texts", amounts}, "sum");
}

std::string balance_after(const std::string &balance, const std::string &percent)
{
    const std::string name = "balance = ";
    const std::string out = ka({"call", ledger, "interest", balance, percent}).out;
    return out.rfind(name, 0) == 0 ? out.substr(name.size(), out.find('\n') - name.size()) : out;
}

// The code and the reason.
std::string refusal(const std::string &function, const std::string &amount, int code = 23)
{
    const std::string reason = ": " + amount + " is not an amount\n";
    return "return code " + std::to_string(code) + reason + "ka: " + function + reason;
}

} // namespace

TEST(Ledger, difference_is_exact_to_the_last_cent)
{
    EXPECT_EQ(difference("1.1", "1"), "0.10");
    EXPECT_EQ(difference("9999999999999.99", "0"), "9999999999999.99");
    EXPECT_EQ(difference("99999999999999.99", "0.01"), "99999999999999.98");
    EXPECT_EQ(difference("-99999999999999.98", "0.01"), "-99999999999999.99");
    EXPECT_EQ(difference("12345678901234.56", "12345678901234.55"), "0.01");
    EXPECT_EQ(difference("5", "7"), "-2.00");
}

TEST(Ledger, sum_is_exact_to_the_last_cent)
{
    EXPECT_EQ(sum("[0.10,0.20,1e2]"), "100.30");
    EXPECT_EQ(sum("[99999999999999.98,0.01]"), "99999999999999.99");
    EXPECT_EQ(sum("[-99999999999999.99,99999999999999.99]"), "0.00");
}

TEST(Ledger, interest_loses_no_cent)
{
    EXPECT_EQ(balance_after("9999999999999.99", "0"), "9999999999999.99");
    EXPECT_EQ(balance_after("9523809523809.51", "5"), "9999999999999.99");
    EXPECT_EQ(balance_after("-9999999999999.98", "1e-15"), "-9999999999999.98");
    EXPECT_EQ(balance_after("0.20", "2.5"), "0.205");
    EXPECT_EQ(balance_after("1000", "2.5"), "1025.0");
}

TEST(Ledger, what_could_lose_a_cent_is_refused)
{
    EXPECT_EQ(difference("99999999999999.99", "-0.01"), refusal("difference", "100000000000000"));
    EXPECT_EQ(difference("1.001", "0"), refusal("difference", "1.001"));
    EXPECT_EQ(sum("[99999999999999.99,0.01]"), refusal("sum_texts", "100000000000000"));
    EXPECT_EQ(sum("[100000000000000]"), refusal("sum_texts", "100000000000000"));
    EXPECT_EQ(sum("[0.005]"), refusal("sum_texts", "0.005"));
    EXPECT_EQ(sum("[12345678901234.567]"), refusal("sum_texts", "12345678901234.567"));
    EXPECT_EQ(sum("[12345678901234567890]"), refusal("sum_texts", "12345678901234567890"));
    EXPECT_EQ(sum("[1,two]"), refusal("sum_texts", "two", 32));
}
