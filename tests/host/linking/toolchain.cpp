// SPDX-License-Identifier: MIT
#include "toolchain.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "module_bits.h"

namespace linking {

Folder::Folder() : path_(std::filesystem::temp_directory_path() / "linking.XXXXXX")
{
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder " + path_);
}

Folder::~Folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string host_folder(const std::string &host)
{
    return host == "built" || host == "archive" ? library_folder(LINKING_BUILD)
                                                : module_folder(LINKING_HOSTS) + "/" + host;
}

std::string run(const std::string &command)
{
    FILE *const pipe = popen(("LC_ALL=C; export LC_ALL; exec 2>&1; " + command).c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("popen: " + command);
    std::string output;
    char buffer[4096];
    size_t count;
    while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, count);
    if (pclose(pipe) != 0) throw std::runtime_error(command + "\n" + output);
    return output;
}

void build_module(const std::string &compiler, const std::string &flags, const std::string &host,
                  const std::string &output)
{
    const std::string root = LINKING_ROOT;
    const std::string includes =
        " -I" + root + "/dll/include -I" + root + "/math/include -I" + root + "/math/decimal/include";
    const std::string folder = host_folder(host);
    const std::string library =
        host == "archive" ? " -rdynamic -l:libkahost.a" : " -Wl,-rpath," + folder + " -lkahost";
    run(compiler + module_flag() + "-O2 -Wall -Wextra -Werror " + flags + includes + " " + LINKING_SOURCE +
        " -x none -o " + output + " -L" + folder + library);
}

std::set<std::string> dynamic_entries(const std::string &file, const std::string &tag)
{
    std::istringstream lines(run("readelf -d " + file));
    std::set<std::string> found;
    std::string line;
    while (std::getline(lines, line)) {
        if (line.find("(" + tag + ")") == std::string::npos) continue;
        const size_t open = line.find('[');
        found.insert(open == std::string::npos ? line : line.substr(open + 1, line.find(']') - open - 1));
    }
    return found;
}

} // namespace linking
