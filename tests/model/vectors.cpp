// SPDX-License-Identifier: MIT
//
// Reading vector files and turning their cases into tests.
#include "model/vectors.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

namespace model {

struct Line {
    int number;
    Words words;
    std::string text;
};

class VectorTest : public testing::Test {
public:
    VectorTest(std::string file, std::vector<Line> lines, const Operations &operations)
        : file_(std::move(file)), lines_(std::move(lines)), operations_(operations)
    {
    }

    void TestBody() override
    {
        if (lines_.empty()) ADD_FAILURE_AT(file_.c_str(), 1) << "no vector could be read here";
        for (const Line &line : lines_)
            check(line);
    }

private:
    void check(const Line &line) const
    {
        const auto arrow = std::find(line.words.begin(), line.words.end(), "->");
        const auto operation = operations_.find(line.words.front());
        if (arrow == line.words.end() || operation == operations_.end()) {
            ADD_FAILURE_AT(file_.c_str(), line.number) << "neither an operation nor '->' in: " << line.text;
            return;
        }
        std::string expected;
        for (auto word = arrow + 1; word != line.words.end(); ++word)
            expected += (expected.empty() ? "" : " ") + *word;
        std::string got;
        try {
            got = operation->second(Words(line.words.begin() + 1, arrow));
        } catch (const std::exception &error) {
            got = std::string("cannot be read: ") + error.what();
        }
        if (got != expected)
            ADD_FAILURE_AT(file_.c_str(), line.number)
                << line.text << "\n  expected: " << expected << "\n  got:      " << got;
    }

    std::string file_;
    std::vector<Line> lines_;
    const Operations &operations_;
};

std::string quoted(const std::string &text)
{
    return '"' + text + '"';
}

static Words split(const std::string &text)
{
    Words words;
    for (size_t at = text.find_first_not_of(' '); at != std::string::npos && text[at] != '#';) {
        const size_t end = text[at] == '"' ? text.find('"', at + 1) + 1 : std::min(text.find(' ', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = text.find_first_not_of(' ', end);
    }
    return words;
}

static void register_case(const std::string &title, const std::string &file, int number,
                          const std::vector<Line> &lines, const Operations &operations)
{
    const size_t dot = std::min(title.find('.'), title.size());
    const std::string name = dot < title.size() ? title.substr(dot + 1) : "is_not_a_suite_and_a_case";
    // testing::Test as the fixture, so that the cases join the suites of the sources.
    testing::RegisterTest(title.substr(0, dot).c_str(), name.c_str(), nullptr, nullptr, file.c_str(), number,
                          [=, &operations]() -> testing::Test * { return new VectorTest(file, lines, operations); });
}

static void register_file(const std::string &name, const Operations &operations)
{
    const std::string file = KA_VECTORS "/" + name + ".vec";
    std::ifstream input(file);
    std::string title;
    int title_number = 0;
    std::vector<Line> lines;
    int number = 0;
    for (std::string text; std::getline(input, text);) {
        number++;
        const Words words = split(text);
        if (words.empty()) continue;
        if (text[0] != '[') {
            lines.push_back({number, words, text});
            continue;
        }
        if (!title.empty()) register_case(title, file, title_number, lines, operations);
        title = text.substr(1, text.find(']') - 1);
        title_number = number;
        lines.clear();
    }
    if (title.empty()) title = "Vectors." + name + "_can_be_read";
    register_case(title, file, title_number, lines, operations);
}

bool register_vectors(const std::vector<std::string> &names, const Operations &operations)
{
    for (const std::string &name : names)
        register_file(name, operations);
    return true;
}

} // namespace model
