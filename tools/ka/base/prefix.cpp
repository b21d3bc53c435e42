// SPDX-License-Identifier: MIT
//
// See prefix.h.
#include "prefix.h"

#include <filesystem>

std::string installation_prefix()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
}
