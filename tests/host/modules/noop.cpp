// SPDX-License-Identifier: MIT
//
// The smallest module: a function that does nothing, one that calls back, no hooks.
#include "ka/dll_host.h"
#include "ka/dll_module.h"

t_DLL_FUNC KaFuncList[] = {
    {"noop", 0, 0, nullptr},
    {"call_back", 0, 0, nullptr},
    {nullptr, 0, 0, nullptr},
};

t_DLL_PROTO KaArgList[] = {
    {nullptr, 0, 0},
};

int32_t KaCall(int32_t index, void **)
{
    return index == 0 ? 11 : dll_callback(5);
}
