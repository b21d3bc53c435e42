// SPDX-License-Identifier: MIT
//
// A module that leaves something to be done when the process exits; with AT_EXIT_EARLY set, a static constructor
// does.
#include <cstdlib>
#include <unistd.h>

#include "ka/dll_module.h"

namespace {

void tell_at_exit()
{
    std::atexit([] { (void)!write(STDERR_FILENO, "at exit\n", 8); });
}

__attribute__((constructor)) void begin()
{
    if (getenv("AT_EXIT_EARLY") != nullptr) tell_at_exit();
}

} // namespace

void dll_setup(void)
{
    tell_at_exit();
}

void dll_cleanup(void)
{
    (void)!write(STDERR_FILENO, "cleanup\n", 8);
}
