// SPDX-License-Identifier: MIT
//
// A module that lets an exception out of the place that THROWS names: setup, call or cleanup.
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "ka/dll_module.h"

namespace {

void throw_in(std::string_view place)
{
    const char *chosen = getenv("THROWS");
    if (chosen != nullptr && place == chosen) throw std::runtime_error("out of " + std::string(place));
}

} // namespace

t_DLL_FUNC KaFuncList[] = {
    {"noop", 0, 0, nullptr},
    {nullptr, 0, 0, nullptr},
};

t_DLL_PROTO KaArgList[] = {
    {nullptr, 0, 0},
};

int32_t KaCall(int32_t, void **)
{
    throw_in("call");
    return 11;
}

void dll_setup(void)
{
    throw_in("setup");
}

void dll_cleanup(void)
{
    throw_in("cleanup");
}
