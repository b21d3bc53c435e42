// SPDX-License-Identifier: MIT
//
// Hooks that do nothing but one system call each, to be seen in their place among the host's own.
#include <unistd.h>

#include "ka/dll_module.h"

void dll_setup(void)
{
    (void)!write(STDERR_FILENO, "setup\n", 6);
}

void dll_cleanup(void)
{
    (void)!write(STDERR_FILENO, "cleanup\n", 8);
}
