// SPDX-License-Identifier: MIT
//
// A module that leaves something to be done when the process exits.
#include <cstdlib>
#include <unistd.h>

#include "ka/dll_module.h"

void dll_setup(void)
{
    std::atexit([] { (void)!write(STDERR_FILENO, "at exit\n", 8); });
}

void dll_cleanup(void)
{
    (void)!write(STDERR_FILENO, "cleanup\n", 8);
}
