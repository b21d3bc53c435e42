// SPDX-License-Identifier: MIT
//
// Looks for inputs that ledger.cpp does not expect, with libFuzzer:
// clang++ -g -fsanitize=fuzzer,address ledger.cpp ledger_fuzz.cpp -lkahost_test -o ledger_fuzz
// ./ledger_fuzz -close_fd_mask=2
#include <ka/module_test.hpp>

#include <cstdlib>

namespace {

void expect(bool condition)
{
    if (!condition) std::abort();
}

} // namespace

// The amounts are the lines of the input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size > 1000) return 0; // amounts have the room of the longest: more might not fit into the segment
    std::vector<std::string> amounts(1);
    for (std::size_t i = 0; i < size; i++) {
        if (data[i] == '\n')
            amounts.emplace_back();
        else
            amounts.back() += static_cast<char>(data[i]);
    }
    std::string sum, again, difference;
    const std::int32_t code = ka::test::call("sum_texts", amounts, ka::ref(sum, 20));
    expect(code == 0 || code == REAL_RANGE || code == REAL_NOT_NUMBER);
    if (code != 0) return 0;
    // What comes out is an amount.
    expect(ka::test::call("sum_texts", sum, ka::ref(again, 20)) == 0 && ka::decimal(again) == ka::decimal(sum));
    expect(ka::test::call("difference", ka::Decimal(sum), ka::Decimal(again), ka::ref(difference, 20)) == 0);
    expect(ka::decimal(difference) == 0);
    return 0;
}
