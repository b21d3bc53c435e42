// SPDX-License-Identifier: MIT
//
// A module whose tables are empty in its file: they are filled as it starts, in part by a constructor, in part by
// dll_setup, with names that are put together then.
#include <cstdint>
#include <string>

#include "ka/dll_module.h"

static std::string names[2];

t_DLL_FUNC KaFuncList[4];
t_DLL_PROTO KaArgList[3];

static const struct Filler {
    Filler()
    {
        names[0] = std::string("tw") + "ice";
        names[1] = std::string("half") + "_of_a_name_that_no_short_string_holds";
        KaArgList[1] = {"number", KA_INT_BY_REFERENCE, 0};
        KaFuncList[0] = {names[0].c_str(), 1, 1, nullptr};
    }
} filler;

void dll_setup(void)
{
    KaArgList[2] = {"numbers", KA_INT_ARRAY, 2};
    KaFuncList[1] = {names[1].c_str(), 2, 1, nullptr};
}

int32_t KaCall(int32_t index, void **argv)
{
    auto *number = static_cast<int32_t *>(argv[0]);
    *number = index == 0 ? *number * 2 : *number / 2;
    return 0;
}
