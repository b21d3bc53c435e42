// SPDX-License-Identifier: MIT
//
// See shell_history.h.
#include "shell_history.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A relative path would put a file wherever ka was called.
std::string absolute_path_in(const char *variable)
{
    const char *path = std::getenv(variable);
    return path != nullptr && path[0] == '/' ? path : "";
}

// Those that are missing, for their owner alone.
void make_folders(const std::filesystem::path &folder)
{
    std::filesystem::path made;
    for (const std::filesystem::path &name : folder) {
        made /= name;
        mkdir(made.c_str(), S_IRWXU);
    }
}

void append(const std::string &file, const std::string &text)
{
    const int fd = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd == -1) return;
    // One write, so that lines of several sessions do not mix. What cannot be written is no history.
    const ssize_t written = write(fd, text.data(), text.size());
    (void)written;
    close(fd);
}

// Written beside the file and moved over it, so that no reader finds a part of it.
void replace(const std::string &file, const std::vector<std::string> &lines)
{
    const std::string fresh = file + "." + std::to_string(getpid());
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    append(fresh, text);
    std::error_code error;
    std::filesystem::rename(fresh, file, error);
}

} // namespace

std::string history_file()
{
    const std::string state = absolute_path_in("XDG_STATE_HOME");
    if (!state.empty()) return state + "/ka/history";
    const std::string home = absolute_path_in("HOME");
    return home.empty() ? "" : home + "/.local/state/ka/history";
}

std::vector<std::string> read_history(const std::string &file)
{
    std::vector<std::string> lines;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    const bool is_long = lines.size() >= 2 * history_lines;
    if (lines.size() > history_lines) lines.erase(lines.begin(), lines.end() - history_lines);
    if (is_long) replace(file, lines);
    return lines;
}

void add_to_history(const std::string &file, const std::string &line)
{
    if (file.empty()) return;
    make_folders(std::filesystem::path(file).parent_path());
    append(file, line + "\n");
}
