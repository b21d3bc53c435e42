// SPDX-License-Identifier: MIT
//
// The results of a REAL of 14, 15 and 16 decimals in every kind of argument: the table in docs/numbers.md, measured.
#include "caller/hosts.h"

#include <fstream>
#include <map>
#include <sstream>

namespace {

using Row = std::vector<std::string>;

// The cells of a line, without the blanks around them.
Row cells_of(const std::string &line)
{
    Row cells;
    std::istringstream parts(line.substr(1));
    for (std::string cell; std::getline(parts, cell, '|');) {
        const size_t begin = cell.find_first_not_of(' ');
        if (begin != std::string::npos) cells.push_back(cell.substr(begin, cell.find_last_not_of(' ') + 1 - begin));
    }
    return cells;
}

// The table that begins with that cell; its second line is the rule below the headings.
std::vector<Row> table(const std::string &first_cell)
{
    std::ifstream page(NUMBERS_PAGE);
    std::string line;
    while (std::getline(page, line) && !line.starts_with("| " + first_cell + " |"))
        ;
    std::vector<Row> rows;
    for (; line.starts_with("|"); std::getline(page, line))
        rows.push_back(cells_of(line));
    return rows;
}

class RealKinds : public BothLayouts {
protected:
    // The number as the function writes it.
    std::string shown(const char *function, const std::string &number)
    {
        ka_begin(host_, function);
        ka_add_real(host_, number.c_str(), KA_BY_VALUE);
        ka_add_string(host_, nullptr, 0, 40, KA_BY_REFERENCE);
        EXPECT_EQ(call(host_), 0);
        return string(host_, 2, 0);
    }

    // The number as it comes back; a function that stores gets it as text too.
    std::string given_back(const char *function, const std::string &number, bool with_text)
    {
        ka_begin(host_, function);
        ka_add_real(host_, number.c_str(), KA_BY_REFERENCE);
        if (with_text) ka_add_string(host_, number.c_str(), static_cast<int32_t>(number.size()), 0, KA_BY_VALUE);
        EXPECT_EQ(call(host_), 0);
        return reals(host_, 1, 1)[0];
    }

    // One answer of several functions; when they differ, all of them.
    std::string unchanged(const std::string &number)
    {
        const std::string answer = given_back("leave_reference", number, false);
        const std::string array = given_back("leave_array", number, false);
        const std::string vararg = given_back("leave_vararg", number, false);
        return answer == array && answer == vararg ? answer : answer + " " + array + " " + vararg;
    }

    std::string stored(const std::string &number)
    {
        const std::string answer = given_back("store_reference", number, true);
        const std::string array = given_back("store_array", number, true);
        return answer == array ? answer : answer + " " + array;
    }

    Host host_{layout(), module_path("reals")};
};
IN_BOTH_LAYOUTS(RealKinds);

} // namespace

TEST_P(RealKinds, give_what_the_page_on_numbers_says)
{
    const std::map<std::string, std::function<std::string(const std::string &)>> measures = {
        {"received by `KA_INT_BY_VALUE`", [&](const std::string &x) { return shown("show_integer", x); }},
        {"received by `KA_REAL_BY_VALUE`", [&](const std::string &x) { return shown("show_double", x); }},
        {"given back unchanged: `KA_REAL_BY_REFERENCE`, `KA_REAL_ARRAY`, `KA_VARARG`",
         [&](const std::string &x) { return unchanged(x); }},
        {"given back by them, after the function has stored the nearest double",
         [&](const std::string &x) { return stored(x); }},
        {"the record, from `u_get_arg`", [&](const std::string &x) { return shown("show_record", x); }},
    };
    const std::vector<Row> rows = table("A REAL of 14, 15, 16 decimals");
    ASSERT_EQ(rows.size(), 2 + measures.size());
    const Row &numbers = rows[0];
    ASSERT_EQ(numbers.size(), 4u);
    for (size_t row = 2; row < rows.size(); row++) {
        ASSERT_EQ(rows[row].size(), numbers.size());
        const auto measure = measures.find(rows[row][0]);
        ASSERT_NE(measure, measures.end()) << rows[row][0];
        for (size_t i = 1; i < numbers.size(); i++)
            EXPECT_EQ(measure->second(numbers[i]), rows[row][i]) << rows[row][0] << ": " << numbers[i];
    }
}
