// SPDX-License-Identifier: MIT
//
// The smallest module: one function, no hooks.
#include "ka/dll_module.h"

t_DLL_FUNC KaFuncList[] = {
    {"noop", 0, 0, nullptr},
    {nullptr, 0, 0, nullptr},
};

t_DLL_PROTO KaArgList[] = {
    {nullptr, 0, 0},
};

int32_t KaCall(int32_t, void **)
{
    return 11;
}
