// SPDX-License-Identifier: MIT
//
// Compilers and binary tools, run as a user would run them, and a folder for what they make.
#ifndef TESTS_HOST_LINKING_TOOLCHAIN_H
#define TESTS_HOST_LINKING_TOOLCHAIN_H

#include <set>
#include <string>

namespace linking {

// A folder that is removed with everything in it.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    std::string path(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// The folder of a host: "built" is the build's own library, "archive" the same to be linked in; the others are built
// like their name says.
std::string host_folder(const std::string &host);

// Runs a shell command; returns what it printed. Throws with that text when the command fails.
std::string run(const std::string &command);

// Builds module.c with the compiler, flags for compiling and linking, and -lkahost of that host alone.
void build_module(const std::string &compiler, const std::string &flags, const std::string &host,
                  const std::string &output);

// The entries of one tag in the dynamic section of a file, e.g. "NEEDED" or "SONAME".
std::set<std::string> dynamic_entries(const std::string &file, const std::string &tag);

} // namespace linking

#endif
