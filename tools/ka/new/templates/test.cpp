// Unit tests of @NAME@: each call runs in this process, and gives what a caller gets.
#include <ka/module_test.hpp>

#include <cstdio>
#include <string>
#include <vector>

static int failures = 0;

#define CHECK(condition)                                                        \
    do {                                                                        \
        if (!(condition)) {                                                     \
            std::printf("%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            failures++;                                                         \
        }                                                                       \
    } while (false)

int main()
{
    double quotient = 0;
    CHECK(ka::test::call("divide", 1.0, 4.0, ka::ref(quotient)) == 0);
    CHECK(quotient == 0.25);
    CHECK(ka::test::call("divide", 1.0, 0.0, ka::ref(quotient)) == 1001);
    CHECK(ka::test::call("divide", 1.0, 4.0) == KA_WRONG_COUNT);

    std::vector<double> values{1, 2};
    CHECK(ka::test::call("scale", ka::ref(values), 2.5) == 0);
    CHECK(values == (std::vector<double>{2.5, 5}));

    std::string text;
    CHECK(ka::test::call("greet", "world", ka::ref(text, 20)) == 0);
    CHECK(text == "Hello, world");
    // No room: a line on standard error says so, too.
    CHECK(ka::test::call("greet", "nobody who fits", ka::ref(text, 20)) == KASTR_NO_ROOM);
    CHECK(text == "Hello, world");

    std::printf("%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}
