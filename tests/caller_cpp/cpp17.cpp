// SPDX-License-Identifier: MIT
//
// Compiled as C++17: the header is the first include, so it must compile alone, and every member is used.
#include "ka/caller.hpp"

#include <array>

#ifdef __clang__ // the tests compile this with clang as C++20, too
static_assert(__cplusplus >= 201703L, "this source is to be compiled as C++17 at least");
#else
static_assert(__cplusplus == 201703L, "this source is to be compiled as C++17");
#endif

std::int32_t every_member_in_cpp17(const std::string &module);

static std::int32_t look_around(ka::Host &host)
{
    std::int32_t level = 1;
    host.set_trace(level);
    host.set_deadline(1000);
    ka::trace_process(host.pid(), &level);
    host.restart();
    const ka::Tables tables = host.tables();
    const ka_function *const add = tables.find("add");
    std::int32_t count = static_cast<std::int32_t>(tables.size());
    for (const ka_function &function : ka::read_tables("module"))
        for (const ka_prototype &prototype : ka::Prototypes{function})
            count += prototype.kind;
    host.begin("add");
    host.add(1);
    host.set_descriptor(1, host.descriptor(1));
    host.set_argc(2);
    ka::Result result = host.try_send();
    result.return_code += host.send() + (host.gives_back(1) ? 1 : 0);
    host.take(1, level);
    const std::string texts = host.report() + host.report_json() + host.error_output() + host.error().message;
    const ka::Error error(host.error());
    return static_cast<std::int32_t>(texts.size()) + count + (add ? 1 : 0) + host.scratch().size +
           error.error_class() + error.retry() + error.class_name()[0] +
           static_cast<std::int32_t>(error.report().size()) + error.record().return_code +
           static_cast<std::int32_t>(error.report_json().size());
}

// The sum that "add" finds; every other member is compiled, and called when the sum is wrong.
std::int32_t every_member_in_cpp17(const std::string &module)
{
    ka::Options options;
    options.deadline_ms = 20000;
    ka::Host host = ka::Host::try_open(module, options);
    host.on_callback([](std::int32_t value) { return value; }, -1);
    std::int32_t sum = 0;
    host.call("add", 2, 40, ka::ref(sum));
    if (sum == 42) return sum;

    std::array<t_DECIMAL, 1> reals = {ka::Decimal("1.5").value()};
    std::vector<std::string> texts = {"a", "b"};
    double real = ka::Decimal(texts[0]).is_exact() ? 2 : 1;
    const ka::Result result =
        host.try_call("describe", true, short{1}, 1.5F, 2.5, reals, ka::ref(reals), texts, ka::ref(texts, 9), "text",
                      std::string_view("text"), ka::in("text", 9), ka::ref(real), std::vector<const char *>{"a"},
                      std::vector<ka::Decimal>{ka::Decimal(reals[0])});
    return result ? look_around(host) : result.return_code;
}
