// SPDX-License-Identifier: MIT
//
// The prototypes of the function decide what an argument is, and what is wrong with it.
#include "ka/command.h"

static std::string out_of(std::vector<std::string> words)
{
    const Outcome outcome = call(std::move(words));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
    return outcome.out;
}

static void expect_refused(std::vector<std::string> words, const std::string &text)
{
    const std::string all = testing::PrintToString(words);
    const Outcome outcome = call(std::move(words));
    EXPECT_EQ(outcome.status, 3) << all;
    EXPECT_EQ(outcome.out, "") << all;
    EXPECT_EQ(outcome.err, "ka: " + text + "\n") << all;
}

TEST(KaPrototypes, whole_number_for_a_real_is_a_real)
{
    EXPECT_EQ(out_of({"scale", "[1,2]", "3"}), "values = [3.0, 6.0]\nreturn code 0\n");
    EXPECT_EQ(out_of({"scale_one", "3000000000", "1"}), "x = 3000000000.0\nreturn code 0\n");
}

TEST(KaPrototypes, what_can_change_goes_by_reference_and_a_mark_does_no_harm)
{
    EXPECT_EQ(out_of({"add", "2", "40", "0"}), "sum = 42\nreturn code 0\n");
    EXPECT_EQ(out_of({"add", "2", "40", "&0"}), "sum = 42\nreturn code 0\n");
    EXPECT_EQ(out_of({"add", "&2", "&40", "0"}), "sum = 42\nreturn code 0\n");
    EXPECT_EQ(out_of({"double", "[1,2]"}), "values = [2, 4]\nreturn code 0\n");
    EXPECT_EQ(out_of({"double", "21"}), "values = 42\nreturn code 0\n");
}

TEST(KaPrototypes, real_for_an_integer_by_value_is_sent_as_one)
{
    EXPECT_EQ(out_of({"add", "2.9", "40", "0"}), "sum = 42\nreturn code 0\n");
}

TEST(KaPrototypes, words_for_a_string_are_that_text)
{
    EXPECT_EQ(call({"measure", "four"}).out, "return code 4\n");
    EXPECT_EQ(call({"measure", "42"}).out, "return code 2\n");
    EXPECT_EQ(call({"measure", "-4.2e1"}).out, "return code 6\n");
    EXPECT_EQ(call({"measure", "'42'"}).out, "return code 2\n");
    EXPECT_EQ(call({"measure", R"(a\n, b: 'c' ])"}).out, "return code 13\n");
    EXPECT_EQ(call({"measure", "--", "--json"}).out, "return code 6\n");
    EXPECT_EQ(call({"measure", "--", "--"}).out, "return code 2\n");
    EXPECT_EQ(call({"--", "measure", "-h"}).out, "return code 2\n");
    EXPECT_EQ(call({"measure", "++"}).out, "return code 2\n");
    EXPECT_EQ(call({"measure", "\x01"}).out, "return code 1\n");
    EXPECT_EQ(call({"measure", "list"}).out, "return code 4\n");
    EXPECT_EQ(call({"measure", "-"}).out, "return code 1\n");
    EXPECT_EQ(call({"measure", ""}).out, "return code 0\n");
    EXPECT_EQ(out_of({"shout", "[ a b ,12,'c,d']"}), "texts = ['a b!', '12!', 'c,d!']\nreturn code 0\n");
}

TEST(KaPrototypes, string_by_reference_has_room_for_256_characters)
{
    EXPECT_EQ(out_of({"greet", "x"}), "text = 'good day'\nreturn code 0\n");
    const auto filled = [](const std::string &text) {
        return out_of({"lie_about_length", text, "1000000"}).size() -
               std::string("text = ''\nreturn code 0\n").size();
    };
    EXPECT_EQ(filled(""), 256u);
    EXPECT_EQ(filled(std::string(255, 'a')), 256u);
    EXPECT_EQ(filled(std::string(300, 'a')), 300u);
    EXPECT_EQ(filled("'a':7"), 7u);
    EXPECT_EQ(filled("str:0"), 0u);
}

TEST(KaPrototypes, vararg_takes_the_type_that_is_written)
{
    EXPECT_EQ(call({"describe", "1"}).out, "return code 201\n");
    EXPECT_EQ(call({"describe", "1.0"}).out, "return code 501\n");
    EXPECT_EQ(call({"describe", "'1'"}).out, "return code 801\n");
    EXPECT_EQ(call({"describe"}).out, "return code 0\n");
    const Outcome outcome = call({"describe", "1", "word"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err,
              "ka: describe: argument 2 (any) is VarArg: word is neither a number nor a quoted 'text'\n");
}

TEST(KaPrototypes, refusals_name_function_argument_wanted_and_given)
{
    const std::string a = "add: argument 1 (a) is IntByValue: takes INTEGER or REAL by value, got ";
    expect_refused({"add", "'2'", "3", "0"}, a + "STRING '2'");
    expect_refused({"add", "two", "3", "0"}, a + "two, which is neither a number nor a quoted 'text'");
    expect_refused({"add", "1e200", "3", "0"}, a + "1e200, which is not a number, or out of a REAL's range");
    expect_refused({"add", "[1,'a']", "3", "0"}, a + "STRING 'a' as element 2");
    expect_refused({"add", "2", "3", "&0.5"},
                   "add: argument 3 (sum) is IntByReference: takes INTEGER by reference, got REAL 0.5");
    expect_refused({"scale", "['a']", "1"},
                   "scale: argument 1 (values) is RealArray: takes REAL by reference, got STRING 'a' as element 1");
    expect_refused({"scale", "[1,'a']", "1"},
                   "scale: argument 1 (values) is RealArray: takes REAL by reference, got STRING 'a' as element 2");
    expect_refused({"double", "[1,2.5]"},
                   "double: argument 1 (values) is IntArray: takes INTEGER by reference, got REAL 2.5 as element 2");
    expect_refused({"shout", "['a']"}, "shout: argument 1 (texts) is StringArray: takes at least 2 elements, got 1");
    expect_refused({"add", "'" + std::string(100, 'x') + "'", "3", "0"},
                   a + "STRING '" + std::string(59, 'x') + "...");
}

TEST(KaPrototypes, number_of_arguments_is_checked)
{
    expect_refused({"add"}, "add: takes 3 arguments (a, b, sum), got 0");
    expect_refused({"add", "1", "2", "3", "4"}, "add: takes 3 arguments (a, b, sum), got 4");
    expect_refused({"count_call", "1"}, "count_call: takes no arguments, got 1");
    expect_refused({"measure"}, "measure: takes 1 argument (text), got 0");
    std::vector<std::string> words(52, "1");
    words[0] = "describe";
    expect_refused(words, "describe: no call has more than 50 arguments, got 51");
}

TEST(KaPrototypes, unusable_values_are_named)
{
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"add", "3000000000", "1", "0"},
         "add: argument 1 (a) is IntByValue: 3000000000 does not fit an INTEGER (-2147483648 to "
         "2147483647); a REAL is written 3000000000.0"},
        {{"double", "[1,2,99999999999]"},
         "double: argument 1 (values) is IntArray: element 3: 99999999999 does not fit an INTEGER (-2147483648 to "
         "2147483647); a REAL is written 99999999999.0"},
        {{"add", "5:3", "1", "0"}, "add: argument 1 (a) is IntByValue: only strings have room"},
        {{"greet", "'abc':2"}, "greet: argument 1 (text) is String: room for 2 characters, but a string of 3"},
        {{"greet", "'abc"}, "greet: argument 1 (text) is String: the closing quote is missing, got \"'abc\""},
        {{"shout", "[a,,b]"},
         "shout: argument 1 (texts) is StringArray: a value is missing; an empty string is written '', got "
         "\"[a,,b]\""},
    };
    for (const auto &[words, text] : cases) {
        const Outcome outcome = call(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err, "ka: " + text + "\n");
    }
}

// The file does not tell them, so the host is asked.
TEST(KaPrototypes, count_when_the_module_fills_its_tables_at_start)
{
    const std::string module = module_folder(CALLER_MODULES) + "/ka_module_late";
    EXPECT_EQ(ka({"call", module, "twice", "[1,2,3]", "4"}).out,
              "same (argument 1) = [1, 2, 3]\nsame (argument 2) = 4\nreturn code 0\n");
    EXPECT_EQ(ka({"call", module, "red\x1b[31m", std::string(100000, 'x')}).status, 0);
    EXPECT_EQ(ka({"call", module, "red\x1b[31m", "str:2000000"}).status, 0);
    const Outcome refused = ka({"call", module, "twice", "[1,2]", "4"});
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(refused.err, "ka: twice: argument 1 (same) is IntArray: takes at least 3 elements, got 2\n");
    EXPECT_EQ(ka({"call", module, "no_kind", "1"}).err,
              "ka: no_kind: argument 1 (first) is kind 12: the module's own table is wrong: there is no kind 12\n");
}

TEST(KaPrototypes, misspelt_function_is_told_the_nearest)
{
    const std::pair<std::string, std::string> cases[] = {
        {"ad", "add"},
        {"ADD", "add"},
        {"addd", "add"},
        {"dad", "add"},
        {"Scale_on", "scale_one"},
        {"mesaure", "measure"},
        {"hang_daef", "hang_deaf"},
        {"scal", "scale"},
    };
    for (const auto &[name, nearest] : cases)
        expect_refused({name}, "the module has no function \"" + name + "\"; did you mean \"" + nearest + "\"?");
    expect_refused({"nothing_like_it"}, "the module has no function \"nothing_like_it\"; ka list shows what it has");
    expect_refused({""}, "the module has no function \"\"; ka list shows what it has");
}

TEST(KaPrototypes, misspelt_option_is_no_argument)
{
    const std::pair<std::string, std::string> cases[] = {
        {"--jsn", " (did you mean --json?)"},
        {"-x", ""},
        {"--trase=3", " (did you mean --trace?)"},
        {"--colour", ""},
    };
    for (const auto &[word, nearest] : cases) {
        const Outcome outcome = call({"measure", word});
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err,
                  "ka: unknown option " + word + nearest + "; put -- before an argument that begins like one\n");
    }
}

// The host's own standard error is that of ka.
TEST(KaTraceOption, shows_the_call_on_standard_error)
{
    const Outcome one = call({"--trace", "1", "add", "2", "40", "0"});
    EXPECT_EQ(one.err, "\ncalling add, argc = 3\nreturn code is 0\n");
    EXPECT_EQ(one.out, "sum = 42\nreturn code 0\n");
    const Outcome three = call({"--trace=3", "--raw", "add", "2"});
    EXPECT_NE(three.err.find("add: wrong number of arguments\n"), std::string::npos) << three.err;
    EXPECT_EQ(three.out, "return code 9\n");
    EXPECT_EQ(call({"--trace", "0", "add", "2", "40", "0"}).err, "");
}
