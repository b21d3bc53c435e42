// SPDX-License-Identifier: MIT
//
// Calls of a module's functions in the process of a unit test, as many in a second as the last column says. Built
// plainly, and with AddressSanitizer. usage: bench_in_process_BITS
#include <ka/module_test.hpp>

#include "timing.h"

namespace {

template <typename Call>
void row(const char *name, Call call)
{
    const double ns = bench::nanoseconds([&](long) {
        if (call() != 0) std::abort();
    });
    std::printf("%-44s %12.1f %12.0f\n", name, ns, 1e9 / ns);
}

} // namespace

int main()
{
    std::vector<double> values{1, 2}, many(1000, 1.5);
    std::string greeting;
    std::int32_t sum = 0;
    double largest = 0;
    std::printf("%-44s %12s %12s\n", "call in a unit test", "ns", "calls/s");
    row("total([1, 2, 3], &sum)", [&] {
        const std::int32_t numbers[] = {1, 2, 3};
        return ka::test::call("total", numbers, ka::ref(sum));
    });
    row("scale(-1, &[1.0, 2.0], &largest)",
        [&] { return ka::test::call("scale", -1, ka::ref(values), ka::ref(largest)); });
    row("greet(\"world\", &greeting)", [&] { return ka::test::call("greet", "world", ka::ref(greeting, 80)); });
    row("the same with a caller of its own", [&] {
        ka::test::Caller caller;
        return caller.call("greet", "world", ka::ref(greeting, 80));
    });
    row("scale(1, &1000 REALs, &largest)",
        [&] { return ka::test::call("scale", 1, ka::ref(many), ka::ref(largest)); });
}
