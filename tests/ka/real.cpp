// SPDX-License-Identifier: MIT
//
// ka real: every form of a number, every operation, every refusal.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "ka/command.h"

namespace {

Outcome real(const std::string &words)
{
    std::istringstream parts(words);
    std::vector<std::string> all = {"real"};
    for (std::string word; parts >> word;)
        all.push_back(word);
    return ka(all);
}

// What follows the name of a line, "" when there is no such line.
std::string line(const Outcome &outcome, const std::string &name)
{
    const std::string out = "\n" + outcome.out;
    const size_t at = out.find("\n" + name + std::string(8 - name.size(), ' '));
    return at == std::string::npos ? "" : out.substr(at + 9, out.find('\n', at + 1) - at - 9);
}

std::string text(const std::string &words)
{
    const Outcome outcome = real(words);
    EXPECT_EQ(outcome.status, 0) << words << ": " << outcome.err;
    return line(outcome, "text");
}

void expect_refusal(const std::string &words, const std::string &message)
{
    const Outcome outcome = real(words);
    EXPECT_EQ(outcome.status, 2) << words;
    EXPECT_EQ(outcome.out, "") << words;
    EXPECT_EQ(outcome.err, "ka: " + message + "\n") << words;
}

void expect_status(const std::string &words, const std::string &status, const std::string &stored)
{
    const Outcome outcome = real(words);
    EXPECT_EQ(outcome.status, 1) << words;
    EXPECT_EQ(line(outcome, "status"), status) << words;
    EXPECT_EQ(line(outcome, "text"), stored) << words;
}

} // namespace

// ---- Forms -----------------------------------------------------------------------------------------------------

TEST(KaReal, shows_every_form)
{
    const Outcome outcome = real("12.345");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "text    12.345\n"
                           "record  1:+:12,34,50\n"
                           "packed  C1 0C 22 32 00 00 00 00 00\n"
                           "double  12.345 = 0x1.8b0a3d70a3d71p+3\n"
                           "form    normal\n");
}

TEST(KaReal, negative_numbers_are_no_options)
{
    EXPECT_EQ(text("-5"), "-5");
    EXPECT_EQ(text("-- -5"), "-5");
    EXPECT_EQ(text("-.5"), "-0.5");
    EXPECT_EQ(text("-5 / 4"), "-1.25");
    EXPECT_EQ(text("5 - -4"), "9");
}

TEST(KaReal, words_in_quotes_count_as_several)
{
    const Outcome outcome = ka({"real", " 1 + 2 "});
    EXPECT_EQ(line(outcome, "text"), "3") << outcome.err;
}

TEST(KaReal, the_record_that_is_shown_is_read_back)
{
    for (const char *number : {"12.345", "-0.00012", "1e125", "-1e-128", "0", "1234567890123456"}) {
        const Outcome first = real(number);
        const Outcome again = real("record " + line(first, "record"));
        EXPECT_EQ(again.out, first.out);
        EXPECT_EQ(real(line(first, "record")).out, first.out) << "without the word";
    }
}

TEST(KaReal, the_packed_bytes_that_are_shown_are_read_back)
{
    for (const char *number : {"12.345", "-0.00012", "1e125", "-1e-128", "0", "-1234567890123456"}) {
        const Outcome first = real(number);
        EXPECT_EQ(real("bytes " + line(first, "packed")).out, first.out);
    }
}

TEST(KaReal, bytes_may_stand_together)
{
    EXPECT_EQ(text("bytes C10C23"), "12.35");
    EXPECT_EQ(text("bytes c1 0c 23"), "12.35");
    EXPECT_EQ(text("bytes 3A 4E 34 33 3F 34"), "-2147483648");
}

TEST(KaReal, reads_doubles)
{
    EXPECT_EQ(text("double 0.1"), "0.1");
    EXPECT_EQ(text("double 0x1.999999999999ap-4"), "0.1");
    EXPECT_EQ(text("double -2.5e3"), "-2500");
}

TEST(KaReal, length_is_that_of_the_packed_form)
{
    const Outcome outcome = real("--length 3 12.345");
    EXPECT_EQ(line(outcome, "packed"), "C1 0C 23");
    EXPECT_EQ(line(outcome, "note"), "the packed bytes load back as 12.35");
    EXPECT_EQ(line(real("12.345 --length 2"), "packed"), "C1 0C");
    EXPECT_EQ(line(real("--length 7 99999999999999e112"), "note"),
              "the packed bytes load back as null: the exponent byte wraps");
}

TEST(KaReal, null_has_a_record_and_bytes_but_no_value)
{
    const Outcome outcome = real("record 0:null:");
    EXPECT_EQ(outcome.out, "text    null\n"
                           "record  0:null:\n"
                           "packed  00 00 00 00 00 00 00 00 00\n"
                           "form    null: no value\n");
    expect_status("bytes 00 00 00", "204: the field holds null; m_load stores zero", "null");
}

TEST(KaReal, tells_what_is_not_in_normal_form)
{
    EXPECT_EQ(line(real("1:+:2,0"), "form"), "not normal: the last digit is 0; the value is the same");
    EXPECT_EQ(line(real("1:+:0,2"), "form"), "not normal: the first digit is 0, which the operations do not expect");
    EXPECT_EQ(line(real("0:-:"), "form"), "a zero with the sign -");
    EXPECT_EQ(line(real("record 0:+:0,0"), "text"), "0");
}

// ---- What is lost ----------------------------------------------------------------------------------------------

TEST(KaReal, tells_that_text_was_rounded)
{
    EXPECT_EQ(line(real("0.12345678901234565"), "note"),
              "rounded: the text has 17 significant decimals, a REAL holds 15 or 16");
    EXPECT_EQ(line(real("9.9999999999999999"), "note").substr(0, 7), "rounded");
    EXPECT_EQ(line(real("0.1250000000000000000000"), "note"), "") << "zeros are no loss";
}

TEST(KaReal, every_decimal_before_the_point_counts)
{
    const Outcome outcome = real("1234567890123456789");
    EXPECT_EQ(line(outcome, "text"), "1.23456789012346E+18");
    EXPECT_EQ(line(outcome, "note"), "rounded: the text has 19 significant decimals, a REAL holds 15 or 16");
    EXPECT_EQ(text("100000000000000000000 - 1e20"), "0");
    EXPECT_EQ(real("100000000000000000000").out.find("rounded"), std::string::npos);
}

TEST(KaReal, tells_what_a_double_loses)
{
    EXPECT_EQ(line(real("double 1.0000000000000002"), "note"),
              "the first 15 decimals of the double 1.0000000000000002 "
              "count: the double nearest to the REAL is another one");
    EXPECT_EQ(line(real("1234567890123456"), "note"),
              "m_to_dbl, and a function that takes a double, gives 1234567890123500 = 0x1.18b54f22aebbp+50: 14 "
              "decimals count");
}

// ---- Operations ------------------------------------------------------------------------------------------------

TEST(KaReal, adds_subtracts_multiplies_divides)
{
    EXPECT_EQ(text("0.1 + 0.2"), "0.3");
    EXPECT_EQ(text("1 - 1.25"), "-0.25");
    EXPECT_EQ(text("1.1 x 1.1"), "1.21");
    EXPECT_EQ(text("1.1 * 1.1"), "1.21");
    EXPECT_EQ(text("1 / 8"), "0.125");
    EXPECT_EQ(text("1:+:2,0 + 1"), "3") << "a record as operand";
}

TEST(KaReal, tells_why_a_quotient_ends_in_6)
{
    const Outcome cut = real("2 / 3");
    EXPECT_EQ(line(cut, "text"), "0.6666666666666666");
    EXPECT_EQ(line(cut, "note"), "cut off, not rounded: this quotient has no digit past the last");
    const Outcome rounded = real("5 / 3");
    EXPECT_EQ(line(rounded, "text"), "1.66666666666667");
    EXPECT_EQ(rounded.out.find("cut off"), std::string::npos);
    EXPECT_EQ(real("1 / 8").out.find("cut off"), std::string::npos);
}

TEST(KaReal, rounds_truncates_and_limits_precision)
{
    EXPECT_EQ(text("round 2.345 2"), "2.35");
    EXPECT_EQ(text("round -2.5 0"), "-3");
    EXPECT_EQ(text("trunc -2.349 2"), "-2.34");
    EXPECT_EQ(text("precision 123456 2"), "120000");
    EXPECT_EQ(text("precision 5 0"), "10");
    EXPECT_EQ(line(real("round 199.99995 4"), "record"), "2:+:2,0,0");
    const Outcome small = real("trunc 0.00012 2");
    EXPECT_EQ(line(small, "text"), "0.0001");
    EXPECT_EQ(line(small, "note"),
              "below 0.01 m_trunc keeps two more decimals for every pair of zeros after the point");
}

TEST(KaReal, negates_and_compares)
{
    EXPECT_EQ(text("negate 5"), "-5");
    EXPECT_EQ(text("negate -5"), "5");
    EXPECT_EQ(text("negate 0"), "0");
    EXPECT_EQ(real("compare 1.5 1.50").out, "0: 1.5 equals 1.5\n");
    EXPECT_EQ(real("compare -2 1").out, "-1: -2 is below 1\n");
    EXPECT_EQ(real("compare 2 1").out, "1: 2 is above 1\n");
}

TEST(KaReal, what_an_operand_lost_is_told)
{
    EXPECT_EQ(line(real("0 + 0.12345678901234565"), "note"),
              "operand: rounded: the text has 17 significant decimals, a REAL holds 15 or 16");
}

TEST(KaReal, a_status_is_shown_and_gives_exit_status_1)
{
    const std::string huge = "9.9999999999999E+125";
    const std::string range = "23: out of range, the largest REAL stored";
    expect_status("1e200", range, huge);
    expect_status("-1e200", range, "-" + huge);
    expect_status("1e-200", "23: out of range, zero stored", "0");
    expect_status("1e125 x -10", range, "-" + huge);
    expect_status("1e-100 x 1e-100", "23: out of range, zero stored", "0");
    expect_status("5 / 0", "31: division by zero, the largest REAL stored", huge);
    expect_status("-5 / 0", "31: division by zero, the largest REAL stored", "-" + huge);
    expect_status("double inf", range, huge);
    expect_status("double nan", "23: out of range, zero stored", "0");
    expect_status("precision 99999999999999e112 4", range, "9.999E+125");
    EXPECT_EQ(line(real("precision 99999999999999e112 4"), "note"), "cut to the decimals asked for");
}

// ---- JSON ------------------------------------------------------------------------------------------------------

TEST(KaReal, json_says_the_same)
{
    for (const char *words : {"12.345", "-5 / 3", "2 / 3", "1 / 0", "bytes 3F32", "--length 3 12.345", "0"}) {
        const Outcome plain = real(words);
        const Outcome outcome = real(std::string("--json ") + words);
        EXPECT_EQ(outcome.status, plain.status) << words;
        const nlohmann::json json = nlohmann::json::parse(outcome.out);
        EXPECT_EQ(json["text"], line(plain, "text"));
        EXPECT_EQ(json["packed"], line(plain, "packed"));
        EXPECT_EQ(json["form"], line(plain, "form"));
        const std::string both = line(plain, "double");
        EXPECT_EQ(json["double"].get<double>(), std::stod(both)) << words;
        EXPECT_EQ(json["hex"], both.substr(both.find("= ") + 2));
        std::string record = json["record"]["dec_exp"].dump() + (json["record"]["dec_pos"] == 1 ? ":+:" : ":-:");
        for (const auto &digit : json["record"]["digits"])
            record += (record.back() == ':' ? "" : ",") + digit.dump();
        EXPECT_EQ(record, line(plain, "record"));
        const std::string status = line(plain, "status");
        EXPECT_EQ(status,
                  json["status"] == 0 ? "" : json["status"].dump() + ": " + json["status_text"].get<std::string>());
        std::string notes;
        for (const auto &note : json["notes"])
            notes += "note    " + note.get<std::string>() + "\n";
        EXPECT_TRUE(plain.out.ends_with(notes)) << plain.out;
        EXPECT_EQ(notes.empty(), plain.out.find("\nnote ") == std::string::npos);
    }
}

TEST(KaReal, json_of_null_and_of_an_order)
{
    const nlohmann::json null = nlohmann::json::parse(real("--json 0:null:").out);
    EXPECT_TRUE(null["text"].is_null());
    EXPECT_TRUE(null["double"].is_null());
    EXPECT_EQ(null["record"]["dec_pos"], 255);
    EXPECT_EQ(nlohmann::json::parse(real("compare 1 2 --json").out)["order"], -1);
}

// ---- Refusals --------------------------------------------------------------------------------------------------

TEST(KaReal, refuses_what_is_no_number)
{
    expect_refusal("", "a number is missing; see ka real --help");
    EXPECT_EQ(ka({"real", "  "}).err, "ka: a number is missing; see ka real --help\n");
    for (const std::string bad : {"abc", "1.5x", ".", "-", "e5", "1e", "1e+", "1.2.3", "--5", "0x10"})
        expect_refusal(bad, "'" + bad + "' is not a number, such as 12.5, -1e9 or 1:+:12,50");
    expect_refusal("1e1000", "the exponent of '1e1000' is above 999");
    expect_refusal("double 1.5x", "'1.5x' is not a double, such as 0.1, 0x1.8p+1, inf or nan");
}

TEST(KaReal, refuses_broken_records)
{
    expect_refusal("1:+", "'1:+' is not a record, such as 1:+:12,34,50");
    expect_refusal("64:+:1", "the exponent of a record is a whole number from -64 to 63, not '64'");
    expect_refusal("-65:+:1", "the exponent of a record is a whole number from -64 to 63, not '-65'");
    expect_refusal("1:*:1", "the sign of a record is +, - or null, not '*'");
    expect_refusal("1:+:100", "a digit of a record is a whole number from 0 to 99, not '100'");
    expect_refusal("1:+:1,,2", "a digit of a record is a whole number from 0 to 99, not ''");
    expect_refusal("1:+:1,2,3,4,5,6,7,8,9", "a record has at most 8 digits, '1:+:1,2,3,4,5,6,7,8,9' has 9");
}

TEST(KaReal, refuses_broken_bytes)
{
    expect_refusal("bytes C1 0G", "bytes are hexadecimal, such as C1 0C 23, not 'C1 0G'");
    expect_refusal("bytes C10", "every byte has two hexadecimal digits: 'C10' has an odd number");
    expect_refusal("bytes C1 64", "byte 2 is 100: a packed digit is at most 99 (63 in hexadecimal)");
    expect_refusal("bytes C1", "a packed field has 2 bytes or more");
    expect_refusal("bytes", "a packed field has 2 bytes or more");
    EXPECT_EQ(line(real("bytes C1 01 00 00 00 00 00 00 00 FF"), "note"), "bytes past the ninth are not read");
}

TEST(KaReal, refuses_operations_that_would_end_the_process)
{
    expect_refusal("0:null: + 1", "'0:null:' is null: an operation on null ends the process");
    expect_refusal("negate 0:null:", "'0:null:' is null: an operation on null ends the process");
    expect_refusal("compare 1 0:null:", "'0:null:' is null: an operation on null ends the process");
    expect_refusal("round 2.5 -1", "the number of decimals is a whole number from 0 to 1000, not '-1'");
    expect_refusal("trunc 2.5 -1", "the number of decimals is a whole number from 0 to 1000, not '-1'");
    expect_refusal("precision 2.5 -1",
                   "the number of significant decimals is a whole number from 0 to 1000, not '-1'");
}

TEST(KaReal, refuses_incomplete_and_unknown_operations)
{
    expect_refusal("1 /", "a NUMBER, or A OPERATION B, is expected; see ka real --help");
    expect_refusal("1 2 3 4", "a NUMBER, or A OPERATION B, is expected; see ka real --help");
    expect_refusal("1 % 2", "'%' is not an operation; these are: + - x * /");
    expect_refusal("1e200 + 1", "'1e200' is out of a REAL's range");
    expect_refusal("round 2.5", "usage: ka real round NUMBER N");
    expect_refusal("negate 1 2", "usage: ka real negate NUMBER");
    expect_refusal("compare 1", "usage: ka real compare A B");
    expect_refusal("round 2.5 1x", "the number of decimals is a whole number from 0 to 1000, not '1x'");
    EXPECT_EQ(real("--length 1 5").status, 2);
    EXPECT_NE(real("--length 1 5").err.find("--length"), std::string::npos);
}

TEST(KaReal, output_that_cannot_be_written_is_an_error)
{
    const std::string command = std::string(KA_COMMAND) + " real 1 > /dev/full 2> /dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 2);
}

TEST(KaReal, help_has_examples_and_exit_statuses)
{
    const Outcome outcome = real("--help");
    EXPECT_EQ(outcome.status, 0);
    for (const char *part : {"ka real 2 / 3", "--length", "--json", "precision", "bytes", "Exit status:"})
        EXPECT_NE(outcome.out.find(part), std::string::npos) << part;
    EXPECT_NE(ka({"--help"}).out.find("Shows a REAL in every form"), std::string::npos);
}
