// SPDX-License-Identifier: MIT
//
// Every cell of the conversion table: each kind with each value type, single values, arrays and none, passed by value
// and by reference, with room between the elements and unaligned, in both layouts: the return code, what the function
// receives, and every byte of the segment afterwards, against the model.
#include <gtest/gtest.h>

#include "driver/model.h"

namespace driver {
namespace {

// The values of elcnt elements, three at most; types without values get integers as data.
Argument values_of_type(int32_t type, int32_t elcnt)
{
    const size_t data = elcnt == 0 ? 1 : static_cast<size_t>(elcnt); // a value is there in any case
    const auto first = [data](auto all) {
        all.resize(data);
        return all;
    };
    if (type == DLL_REAL)
        return harness::reals(first(std::vector<std::string>{"-2147483648.75", "0", "1234567.89012"}));
    if (type == DLL_STRING) return harness::strings(first(std::vector<std::string>{{"a\0c", 3}, "full!!", ""}), 6);
    Argument argument = harness::integers(first(std::vector<int32_t>{INT32_MIN, 7, 1000000007}));
    argument.type = type;
    return argument;
}

const std::vector<Step> script = {step(SEE), step(EDIT), step(SEE), step(RETURN, 12345)};

class Cells : public testing::TestWithParam<std::tuple<int, Layout>> {
protected:
    Cells() : session_(std::get<Layout>(GetParam())), expected_(session_.block.layout()) {}

    std::string function() const { return functions[std::get<int>(GetParam())].name; }

    void check(const Argument &argument, int32_t elcnt)
    {
        session_.prepare(function(), {argument}, script);
        session_.block.set(1, Arg::elcnt, elcnt);
        std::copy_n(session_.block.at(0), session_.block.size(), expected_.at(0));
        const Outcome outcome = predict(expected_, script);
        EXPECT_EQ(session_.host.call(), outcome.code);
        EXPECT_EQ(session_.output(), outcome.said);
        EXPECT_EQ(difference(session_.block, expected_), "");
        (outcome.called ? called_ : refused_)++;
    }

    void check_all(int32_t elcnt)
    {
        for (const int32_t type : {0, 1, 2, 3, 4}) {
            for (const int32_t ref : {0, 1, -7}) {
                for (const int32_t gap : {0, 2}) {
                    for (const int32_t shift : {0, 1, 2}) {
                        SCOPED_TRACE(testing::Message() << function() << ", type " << type << ", ref " << ref
                                                        << ", gap " << gap << ", shift " << shift);
                        const Argument plain = values_of_type(type, elcnt);
                        check(plain.by_ref(ref).spaced(plain.elsz + gap).unaligned(shift), elcnt);
                    }
                }
            }
        }
        // Each kind takes one value type at least, and refuses two at least.
        EXPECT_GE(called_, 18);
        EXPECT_GE(refused_, 36);
        EXPECT_EQ(session_.host.terminate(), harness::exited(0));
        EXPECT_EQ(session_.output(), "");
    }

private:
    Session session_;
    Block expected_;
    int called_ = 0;
    int refused_ = 0;
};

TEST_P(Cells, single_value)
{
    check_all(1);
}

TEST_P(Cells, three_elements)
{
    check_all(3);
}

TEST_P(Cells, no_elements)
{
    check_all(0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Cells,
                         testing::Combine(testing::Range(0, 10), testing::Values(Layout::native, Layout::layout_64)),
                         [](const auto &cell) {
                             return std::string(functions[std::get<0>(cell.param)].name) + "_" +
                                    name_of(std::get<1>(cell.param));
                         });

// The table itself, typed once more: the return code of each kind for the value types 0 to 4.
TEST(ConversionTable, kinds_take_the_value_types_of_the_table)
{
    const char *const taken[] = {
        // 0 1 2 3 4
        "-+++-", "-++--", "-+---", "-+---", "-++--", "--+--", "--+--", "---+-", "---+-", "---+-",
    };
    Session session;
    for (int kind = 0; kind < 10; kind++) {
        for (int32_t type = 0; type <= 4; type++) {
            const int32_t expected = taken[kind][type] == '+' ? 77 : 8;
            EXPECT_EQ(session.call(functions[kind].name, {values_of_type(type, 1)}, {step(RETURN, 77)}), expected)
                << "kind " << kind << ", type " << type;
        }
    }
}

} // namespace
} // namespace driver
