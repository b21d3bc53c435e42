// SPDX-License-Identifier: MIT
//
// Numbers are read and written with a point whatever the locale of the program. The locale with a decimal comma is
// made here, from nothing but the localedef command, so that no installed locale is needed.
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "ka/real.h"
#include "model/notation.h"

using namespace model;

class MLocale : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "ka-comma-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        std::ofstream characters(folder_ / "characters");
        characters << "<code_set_name> ASCII\n<mb_cur_max> 1\nCHARMAP\n";
        for (int c = 0; c < 128; c++) {
            std::array<char, 32> line;
            snprintf(line.data(), line.size(), "<U%04X> /x%02x c\n", static_cast<unsigned>(c),
                     static_cast<unsigned>(c));
            characters << line.data();
        }
        characters << "END CHARMAP\n";
        characters.close();
        std::ofstream(folder_ / "source")
            << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n";
        // It warns of the categories that are not defined, and answers 1 for that.
        const std::string in = "cd '" + folder_.string() + "' && ";
        if (system((in + "localedef -c -f ./characters -i ./source ./comma >/dev/null 2>&1").c_str()) == -1) FAIL();
        setenv("LOCPATH", folder_.c_str(), 1);
    }

    void TearDown() override
    {
        setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
        std::filesystem::remove_all(folder_);
    }

    // False, with a failure, when the comma does not take effect: the tests would then prove nothing.
    static bool take_the_comma()
    {
        EXPECT_NE(setlocale(LC_NUMERIC, "comma"), nullptr) << "localedef could not make a locale";
        std::array<char, 16> text;
        snprintf(text.data(), text.size(), "%.1f", 1.5);
        EXPECT_STREQ(text.data(), "1,5");
        return text[1] == ',';
    }

private:
    std::filesystem::path folder_;
};

TEST_F(MLocale, decimal_comma_does_not_reach_m_to_dbl)
{
    ASSERT_TRUE(take_the_comma());
    for (const char *text :
         {"1:+:1,50", "1:-:12,34,56", "0:+:10", "-9:+:12,34", "20:-:1,23,45", "63:+:99,99,99,99,99,99,99"}) {
        const t_DECIMAL x = read_record(text);
        double d = 0;
        EXPECT_EQ(m_to_dbl(&x, &d), REAL_OK);
        double expected = 0;
        dectodbl(&x, &expected);
        EXPECT_EQ(show(d), show(expected)) << text;
    }
}

TEST_F(MLocale, decimal_comma_does_not_reach_m_gcvt_and_m_to_asc)
{
    ASSERT_TRUE(take_the_comma());
    char buffer[32];
    const t_DECIMAL x = read_record("3:-:12,34,56,78");
    EXPECT_STREQ(m_gcvt(&x, 14, buffer), "-123456.78");
    EXPECT_STREQ(m_gcvt(&x, 3, buffer), "-1.23E+05");
    EXPECT_STREQ(m_to_asc(&x, buffer, 20, -1), "-123456.78");
}

TEST_F(MLocale, decimal_comma_does_not_reach_m_cv_asc)
{
    ASSERT_TRUE(take_the_comma());
    t_DECIMAL r;
    EXPECT_EQ(m_cv_asc("1.5", 3, &r), REAL_OK);
    EXPECT_EQ(show(r), "1:+:1,50");
    EXPECT_EQ(m_cv_asc("1,5", 3, &r), REAL_NOT_NUMBER);
}

TEST_F(MLocale, decimal_comma_does_not_reach_m_cv_dbl)
{
    const double values[] = {1.5, -123.456, 1e-20, 6.02214076e23, 0.1, -0.0, 1e300};
    std::vector<std::string> expected;
    t_DECIMAL r;
    for (const double d : values) {
        const int status = m_cv_dbl(d, &r);
        expected.push_back(std::to_string(status) + " " + show(r));
    }
    ASSERT_TRUE(take_the_comma());
    for (size_t i = 0; i < expected.size(); i++) {
        const int status = m_cv_dbl(values[i], &r);
        EXPECT_EQ(std::to_string(status) + " " + show(r), expected[i]) << values[i];
    }
}
