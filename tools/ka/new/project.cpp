// SPDX-License-Identifier: MIT
//
// See project.h.
#include "project.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "templates.h"

namespace {

constexpr size_t longest_name = 100;

// Targets of Make and CMake, words of ka_add_module, and what lies where a module is built: its program takes their
// place.
constexpr std::string_view taken_names[] = {
    "ALL_BUILD",  "BITS",       "CMakeFiles",     "GNUmakefile", "INSTALL",
    "MODULE",     "Makefile",   "PACKAGE",        "RUN_TESTS",   "Testing",
    "ZERO_CHECK", "all",        "build",          "clean",       "cmake_check_build_system",
    "depend",     "edit_cache", "help",           "install",     "list_install_components",
    "makefile",   "package",    "package_source", "preinstall",  "rebuild_cache",
    "test",
};

bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_part_of_a_name(char c)
{
    return is_letter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

// ---- Templates -------------------------------------------------------------------------------------------------

struct Words {
    std::string_view mark;
    std::string text;
};

std::string filled(std::string text, const std::vector<Words> &words)
{
    for (const Words &each : words)
        for (size_t at = 0; (at = text.find(each.mark, at)) != std::string::npos; at += each.text.size())
            text.replace(at, each.mark.size(), each.text);
    return text;
}

std::string text_of(std::string_view name)
{
    const auto is_meant = [name](const Template &each) { return each.name == name; };
    return std::string(std::find_if(templates.begin(), templates.end(), is_meant)->text);
}

// ---- Writing ---------------------------------------------------------------------------------------------------

std::string write_file(const std::string &path, const std::string &text)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    int error = fd == -1 ? errno : 0;
    for (size_t done = 0; error == 0 && done < text.size();) {
        const ssize_t length = write(fd, text.data() + done, text.size() - done);
        if (length == -1) error = errno;
        if (length > 0) done += static_cast<size_t>(length);
    }
    if (fd != -1 && close(fd) != 0 && error == 0) error = errno;
    return error == 0 ? "" : path + " cannot be written: " + strerror(error);
}

} // namespace

std::string fault_of_name(const std::string &name)
{
    const auto found = std::find(std::begin(taken_names), std::end(taken_names), name);
    if (name.empty()) return "is empty";
    if (name == "." || name == "..") return "is " + name + ", which is a folder that is there";
    if (name.find('/') != std::string::npos)
        return "has a / in it: the new folder is made in the one where ka is called";
    if (name[0] == '-') return "begins with -, and commands would take it for an option";
    if (name.size() > longest_name) return "is longer than " + std::to_string(longest_name) + " characters";
    if (!is_letter(name[0]) || !std::all_of(name.begin(), name.end(), is_part_of_a_name))
        return "must be a letter with letters, digits, _ and - behind it, for it names files and targets of builds";
    if (found != std::end(taken_names)) return "is " + name + ", which make or CMake use themselves";
    return "";
}

std::vector<ProjectFile> project_files(const std::string &name, Writing writing)
{
    const bool is_cpp = writing == Writing::cpp;
    const std::string suffix = is_cpp ? "cpp" : "c";
    const std::vector<Words> words = {
        {"@NAME@", name},
        {"@SUFFIX@", suffix},
        {"@LANGUAGE@", is_cpp ? "CXX" : "C"},
        {"@STANDARD@", is_cpp ? "c++17" : "c17"},
        {"@COMPILER@", is_cpp ? "$(CXX)" : "$(CC)"},
        {"@FLAGS@", is_cpp ? "CXXFLAGS" : "CFLAGS"},
    };
    std::vector<ProjectFile> files = {
        {name + "." + suffix, writing == Writing::tables ? "tables.c" : "module." + suffix},
        {name + "_test." + suffix, "test." + suffix},
        {"session.txt", "session.txt"},
        {"session.expected", "session.expected"},
        {"Makefile", "Makefile"},
        {"CMakeLists.txt", "CMakeLists.txt"},
        {".gitignore", "gitignore"},
        {"README.md", "README.md"},
    };
    for (ProjectFile &file : files)
        file.text = filled(text_of(file.text), words);
    return files;
}

std::string write_project(const std::string &folder, const std::vector<ProjectFile> &files)
{
    if (mkdir(folder.c_str(), 0777) != 0)
        return errno == EEXIST ? folder + " is there already, and stays as it is"
                               : folder + " cannot be made: " + strerror(errno);
    std::string fault;
    for (const ProjectFile &file : files)
        if (fault.empty()) fault = write_file(folder + "/" + file.name, file.text);
    if (fault.empty()) return "";
    for (const ProjectFile &file : files)
        unlink((folder + "/" + file.name).c_str());
    rmdir(folder.c_str());
    return fault;
}
