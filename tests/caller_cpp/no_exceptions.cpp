// SPDX-License-Identifier: MIT
//
// Compiled without exceptions and RTTI, in a namespace of its own, so that no function of the header is shared with
// the sources that have them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "ka/caller.h"

#define ka ka_without_exceptions
#include "ka/caller.hpp"
#undef ka

#ifdef __cpp_exceptions
#error "this source is to be compiled with -fno-exceptions"
#endif

std::string refusal_without_exceptions(const std::string &module, std::int32_t &sum);
void end_without_exceptions();

// The text of a call that cannot be made, after one that can.
std::string refusal_without_exceptions(const std::string &module, std::int32_t &sum)
{
    using namespace ka_without_exceptions;
    Host host = Host::try_open(module);
    host.on_callback([](std::int32_t value) { return value; });
    if (!host.try_call("add", 2, 40, ref(sum))) return host.error().message;
    const Result result = host.try_call("add", 2, Decimal("two"));
    return result ? "" : host.error().message;
}

void end_without_exceptions()
{
    ka_without_exceptions::Host host("/no/such/file");
}
