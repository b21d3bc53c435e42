// SPDX-License-Identifier: MIT
//
// A module and its unit test with mistakes that AddressSanitizer finds, each in the line that is marked with the name
// of its function. usage: overflow FUNCTION
#include <ka/module.hpp>
#include <ka/module_test.hpp>

#include <cstdlib>

namespace {

std::int32_t numbers_beyond(ka::array<std::int32_t> values)
{
    return values[values.size()]; // numbers_beyond
}
void numbers_before(ka::array<std::int32_t> values)
{
    values.begin()[-1] = 1; // numbers_before
}
void reals_beyond(ka::array<double> values)
{
    values[values.size()] = 1; // reals_beyond
}
void text_beyond(ka::string text)
{
    text.data()[text.room()] = 'x'; // text_beyond
}
char *kept;
std::int32_t late(ka::string text)
{
    if (kept != nullptr) return *kept; // late
    kept = text.data() + text.room() - 1;
    return 0;
}

} // namespace

KA_MODULE(KA_FN(numbers_beyond, "values"), KA_FN(numbers_before, "values"), KA_FN(reals_beyond, "values"),
          KA_FN(text_beyond, "text"), KA_FN(late, "text"))

int main(int, char **argv)
{
    const std::string function = argv[1];
    std::int32_t result = 0;
    std::string text = "a text";
    std::vector<std::int32_t> numbers{1, 2, 3};
    const std::vector<double> reals{1, 2, 3};
    if (function == "numbers_beyond") return ka::test::call(function, ka::ref(numbers), ka::ref(result));
    if (function == "numbers_before") return ka::test::call(function, ka::ref(numbers));
    if (function == "reals_beyond") return ka::test::call(function, reals);
    if (function == "text_beyond") return ka::test::call(function, ka::ref(text, 9));
    text.resize(1000);
    if (ka::test::call("late", text, ka::ref(result)) != 0) return 2;
    return ka::test::call("late", "short", ka::ref(result));
}
