// SPDX-License-Identifier: MIT
//
// A module without functions: the first record ends the table.
#include <unistd.h>

#include "ka/dll_module.h"

t_DLL_FUNC KaFuncList[] = {
    {nullptr, 0, 0, nullptr}, {"beyond", 0, 0, nullptr}, // after the end, never read
};

t_DLL_PROTO KaArgList[] = {
    {nullptr, 0, 0},
};

int32_t KaCall(int32_t, void **)
{
    (void)!write(2, "called\n", 7);
    return 0;
}
