// SPDX-License-Identifier: MIT
//
// Arguments and results of a call as JSON.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "ka/command.h"

namespace {

using Json = nlohmann::json;

std::string arguments_file()
{
    return module_folder(CALLER_MODULES) + "/arguments." + std::to_string(getpid());
}

// ka call with these arguments in a file.
Outcome call_with(const std::string &arguments, std::vector<std::string> words)
{
    const std::string path = arguments_file();
    std::ofstream(path) << arguments;
    words.insert(words.begin(), {"--args", path});
    const Outcome outcome = call(std::move(words));
    std::filesystem::remove(path);
    return outcome;
}

std::string out_of(const std::string &arguments, std::vector<std::string> words)
{
    const Outcome outcome = call_with(arguments, std::move(words));
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
}

} // namespace

TEST(KaJsonArguments, are_resolved_by_the_prototypes)
{
    EXPECT_EQ(out_of("[2, 40, 0]", {"add"}), "sum = 42\nreturn code 0\n");
    EXPECT_EQ(out_of("[[1,2.5,3], 2]", {"scale"}), "values = [2.0, 5.0, 6.0]\nreturn code 0\n");
    EXPECT_EQ(out_of(R"(["four"])", {"measure"}), "return code 4\n");
    EXPECT_EQ(out_of(R"([["a","b\u00fc"]])", {"shout"}), "texts = ['a!', 'bü!']\nreturn code 0\n");
    EXPECT_EQ(out_of("[]", {"count_call"}), "return code 1\n");
}

TEST(KaJsonArguments, every_decimal_of_a_real_counts)
{
    const std::string numbers = R"(["12345678901234567890.5",100000000000000000000,-1234567890123456789.5])";
    const std::string typed = R"({"real":)" + numbers + R"(,"by_reference":true})";
    EXPECT_EQ(call_with("[" + typed + R"(,"x"])", {"--raw", "scale"}).out,
              "values = [1.234567890123457E+19, 1E+20, -1.23456789012346E+18]\nreturn code 8\n");
}

TEST(KaJsonArguments, come_from_standard_input_too)
{
    const std::string command = "echo '[2,40,0]' | " KA_COMMAND " call --args - " + tasks_module + " add";
    FILE *pipe = popen(command.c_str(), "r");
    char line[100] = "";
    EXPECT_NE(fgets(line, sizeof line, pipe), nullptr);
    EXPECT_STREQ(line, "sum = 42\n");
    EXPECT_EQ(pclose(pipe), 0);
}

// 16 decimals, as no double holds them apart. Nothing is computed: the function is refused at its second argument.
TEST(KaJsonArguments, numbers_do_not_pass_through_double)
{
    const std::string numbers = "[0.1,1e30,0.1234567890123457,1234567890123456.0]";
    const std::string typed = R"({"real":)" + numbers + R"(,"by_reference":true})";
    EXPECT_EQ(call_with("[" + typed + R"(,"x"])", {"--raw", "scale"}).out,
              "values = [0.1, 1E+30, 0.1234567890123457, 1234567890123456.0]\nreturn code 8\n");
}

TEST(KaJsonArguments, objects_say_type_room_and_passing)
{
    EXPECT_EQ(out_of(R"([{"string":"x","room":8}])", {"greet"}), "text = 'good day'\nreturn code 0\n");
    EXPECT_EQ(out_of(R"([{"string":"x","room":7}])", {"greet"}), "text = 'x'\nreturn code 18\n");
    EXPECT_EQ(out_of(R"([{"integer":3},{"real":"3"},{"real":3},{"string":"3"},3,3.0])", {"--raw", "describe"}),
              "return code 2706\n"); // 201 + 501 + 501 + 801 + 201 + 501
    EXPECT_EQ(out_of(R"([{"integer":3,"by_reference":true}])", {"--raw", "describe"}), "any = 3\nreturn code 201\n");
    EXPECT_EQ(out_of(R"([{"hex":"41007f","by_reference":true}])", {"--raw", "describe"}),
              "any = 'A\\x00\\x7f'\nreturn code 801\n");
    EXPECT_EQ(out_of(R"([["a",{"hex":"ff"}]])", {"shout"}), "texts = ['a!', '\\xff!']\nreturn code 0\n");
}

TEST(KaJsonArguments, do_not_suit_the_prototypes)
{
    const Outcome number = call_with("[42]", {"measure"});
    EXPECT_EQ(number.status, 3);
    EXPECT_EQ(number.err, "ka: measure: argument 1 (text) is zString: takes STRING by value, got INTEGER 42\n");
    EXPECT_EQ(call_with(R"(["2",3,0])", {"add"}).err,
              "ka: add: argument 1 (a) is IntByValue: takes INTEGER or REAL by value, got STRING \"2\"\n");
    EXPECT_EQ(call_with(R"([[1,"a"],1])", {"scale"}).err,
              "ka: scale: argument 1 (values) is RealArray: takes REAL by reference, got STRING 'a' as element 2\n");
    const std::string err = call_with("[[1,2,99999999999]]", {"double"}).err;
    EXPECT_NE(err.find("double: argument 1 (values) is IntArray: element 3: 99999999999 does not fit"),
              std::string::npos)
        << err;
}

TEST(KaJsonArguments, malformed_ones_are_named)
{
    const std::pair<std::string, std::string> cases[] = {
        {"{}", "the arguments are not one JSON array"},
        {"[[[1]]]", "argument 1 ([[1]]): an array within an array"},
        {"[1,[]]", "argument 2 ([]): an empty array"},
        {"[null]", "argument 1 (null): null is not a value"},
        {"[true]", "argument 1 (true): true is not a value"},
        {"[{}]", "argument 1 ({}): a value is missing: integer, real, string or hex"},
        {R"([{"room":3}])", R"(argument 1 ({"room":3}): a value is missing: integer, real, string or hex)"},
        {R"([{"text":"a"}])",
         R"(argument 1 ({"text":"a"}): "text" is none of integer, real, string, hex, room, by_reference)"},
        {R"([{"integer":1,"real":2}])", R"(argument 1 ({"integer":1,"real":2}): two values)"},
        {R"([{"string":3}])", R"(argument 1 ({"string":3}): "string" holds a string, or an array of them)"},
        {R"([{"string":"a","room":-1}])",
         R"(argument 1 ({"string":"a","room":-1}): "room" holds a number of characters)"},
        {R"([{"integer":1,"by_reference":1}])",
         R"(argument 1 ({"integer":1,"by_reference":1}): "by_reference" holds true or false)"},
        {R"([{"hex":"abc"}])", R"(argument 1 ({"hex":"abc"}): "hex" holds pairs of hexadecimal digits)"},
        {R"([{"integer":4.5}])", R"(argument 1 ({"integer":4.5}): 4.5 is not a whole number)"},
        {R"([{"real":"x"}])", R"(argument 1 ({"real":"x"}): x is not a number, or out of a REAL's range)"},
        {R"([{"string":"a","room":3,"room":40}])",
         R"(argument 1 ({"string":"a","room":3,"room":40}): "room" is given twice)"},
        {R"([1,{"by_reference":true,"integer":1,"by_reference":false}])",
         R"(argument 2 ({"by_reference":true,"integer":1,"by_reference":false}): "by_reference" is given twice)"},
        {R"([{"integer":1,"integer":2}])", R"(argument 1 ({"integer":1,"integer":2}): "integer" is given twice)"},
        {"[[[[[[1]]]]]]", "nested too deeply"},
        {"1e999", "1e999 is out of a REAL's range"},
        {"[1e999]", "argument 1: 1e999 is out of a REAL's range"},
        {"[1,[2,-1e999]]", "argument 2, element 2: -1e999 is out of a REAL's range"},
        {R"([1,2,{"real":1e999}])", "argument 3: 1e999 is out of a REAL's range"},
        {"[1e127]", "argument 1 (1e127): 1e127 is not a number, or out of a REAL's range"},
    };
    for (const auto &[arguments, reason] : cases) {
        const Outcome outcome = call_with(arguments, {"--raw", "describe"});
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.err, "ka: --args " + arguments_file() + ": " + reason + "\n");
    }
    for (const char *arguments : {"", "[1", "[1,]", "[1] 2", "\xff"}) {
        const Outcome outcome = call_with(arguments, {"describe"});
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err.find("ka: --args " + arguments_file() + ": parse error at line 1, column "), 0u)
            << outcome.err;
    }
}

TEST(KaJsonArguments, cannot_be_read_or_are_given_twice)
{
    EXPECT_EQ(call({"--args", "/no/such/file", "add"}).err,
              "ka: --args /no/such/file: cannot be read: No such file or directory\n");
    EXPECT_EQ(call({"--args", "/tmp", "add"}).err, "ka: --args /tmp: cannot be read: Is a directory\n");
    EXPECT_EQ(call_with("[1]", {"add", "1"}).err,
              "ka: arguments are given twice: with --args, and after the function\n");
}

TEST(KaJsonResults, are_one_object)
{
    const Outcome outcome = call({"--json", "add", "2", "40", "0"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    const Json json = Json::parse(outcome.out);
    EXPECT_EQ(json["function"], "add");
    EXPECT_EQ(json["return_code"], 0);
    EXPECT_EQ(json["results"], Json::parse(R"({"sum":42})"));
    EXPECT_GE(json["milliseconds"], 0);
}

TEST(KaJsonResults, have_every_type)
{
    EXPECT_EQ(Json::parse(call({"--json", "double", "[1,-2]"}).out)["results"]["values"], Json({2, -4}));
    EXPECT_NE(call({"--json", "scale", "[1,2.5,1e100]", "2"}).out.find("\"values\":[2.0,5.0,2E+100]"),
              std::string::npos);
    EXPECT_EQ(Json::parse(call({"--json", "shout", "[a\"b,'\\x01']"}).out)["results"]["texts"],
              Json({"a\"b!", "\x01!"}));
    EXPECT_EQ(Json::parse(call({"--json", "shout", "['\\xff',b]"}).out)["results"]["texts"],
              Json({{{"hex", "ff21"}}, "b!"}));
    EXPECT_EQ(Json::parse(call({"--json", "forge_real", "1", "2", "0", "0"}).out)["return_code"], 0);
}

TEST(KaJsonResults, keep_apart_what_has_one_name)
{
    const Json json = Json::parse(call({"--json", "describe", "&1", "&2.5"}).out);
    EXPECT_EQ(json["results"], Json({{"any (argument 1)", 1}, {"any (argument 2)", 2.5}}));
}

TEST(KaJsonResults, death_is_reported_with_arguments_and_place)
{
    const Json json = Json::parse(call({"--json", "die_by", "8"}).out);
    EXPECT_EQ(json["error"], "died");
    EXPECT_EQ(json["process"]["signal"], 8);
    EXPECT_EQ(json["arguments"].size(), 1u);
    EXPECT_EQ(json["retry"], "unsure");
    EXPECT_NE(json["backtrace"].dump().find("die_by"), std::string::npos) << json["backtrace"];
}

TEST(KaJsonResults, errors_are_objects_too)
{
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{"add", "1"}, 3, "refused"},
        {{"fault"}, 5, "died"},
        {{"--deadline", "0.2", "hang"}, 6, "deadline passed"},
        {{"--segment", "70000", "measure", "str:100000"}, 3, "too big"},
    };
    for (auto [words, status, name] : cases) {
        const std::string function = words[name == "deadline passed" || name == "too big" ? 2 : 0];
        words.insert(words.begin(), "--json");
        const Outcome outcome = call(words);
        EXPECT_EQ(outcome.status, status);
        const Json json = Json::parse(outcome.out);
        EXPECT_EQ(json["function"], function);
        EXPECT_EQ(json["error"], name);
        EXPECT_NE(outcome.err.find("ka: " + json["message"].get<std::string>()), std::string::npos);
    }
    EXPECT_EQ(Json::parse(ka({"call", "--json", "/no/such", "f"}).out)["error"], "not started");
    const Json malformed = Json::parse(call({"--json", "measure", "'a"}).out);
    EXPECT_EQ(malformed["error"], "argument");
    EXPECT_EQ(malformed["message"],
              "measure: argument 1 (text) is zString: the closing quote is missing, got \"'a\"");
}
