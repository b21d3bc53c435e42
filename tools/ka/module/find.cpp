// SPDX-License-Identifier: MIT
//
// See find.h. An empty folder in KA_PATH is the current one, as in PATH.
#include "find.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

bool is_program(const fs::path &path)
{
    std::error_code error;
    return fs::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

std::string search_path()
{
    const char *path = std::getenv("KA_PATH");
    return path != nullptr ? path : "";
}

std::vector<std::string> folders()
{
    std::vector<std::string> found;
    std::istringstream path(search_path());
    for (std::string folder; std::getline(path, folder, ':');)
        found.push_back(folder.empty() ? "." : folder);
    return found;
}

} // namespace

std::string find_module(std::string &module)
{
    if (module.find('/') != std::string::npos || is_program(module)) return "";
    for (const std::string &folder : folders()) {
        const fs::path path = fs::path(folder) / module;
        if (!is_program(path)) continue;
        module = path;
        return "";
    }
    std::error_code error;
    if (fs::exists(module, error)) return ""; // what is wrong with it is found out when it is used
    const std::string path = search_path();
    return std::string("no such file in this folder") +
           (path.empty() ? ", and KA_PATH is not set" : ", and no such program in KA_PATH (" + path + ")");
}

std::vector<std::string> modules_in_path()
{
    std::vector<std::string> names;
    for (const std::string &folder : folders()) {
        std::error_code error;
        for (fs::directory_iterator each(folder, error), end; !error && each != end; each.increment(error))
            if (is_program(each->path())) names.push_back(each->path().filename());
    }
    return names;
}
