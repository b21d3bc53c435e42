// SPDX-License-Identifier: MIT
//
// See history.h.
#include "history.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
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

// -1 unless it is a regular file that is not too long. A FIFO without anybody at its other end is not waited for.
int open_history(const std::string &file, int flags)
{
    const int fd = open(file.c_str(), flags | O_NONBLOCK | O_CLOEXEC, S_IRUSR | S_IWUSR);
    struct stat status;
    if (fd == -1 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= history_bytes))
        return fd;
    close(fd);
    return -1;
}

std::string content_of(const std::string &file)
{
    std::string content;
    const int fd = open_history(file, O_RDONLY);
    if (fd == -1) return content;
    content.resize(history_bytes);
    const ssize_t size = read(fd, content.data(), content.size());
    content.resize(size > 0 ? static_cast<size_t>(size) : 0);
    close(fd);
    return content;
}

void append(const std::string &file, const std::string &text)
{
    const int fd = open_history(file, O_WRONLY | O_APPEND | O_CREAT);
    if (fd == -1) return;
    // One write, so that lines of several sessions do not mix. A history that cannot be written is left out.
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
    const std::string content = content_of(file);
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    const bool is_long = lines.size() >= 2 * history_lines || content.size() >= history_bytes / 2;
    // Of few long lines a quarter of the bytes is kept, so that there is room for others.
    size_t kept = 0;
    size_t bytes = 0;
    while (kept < std::min<size_t>(lines.size(), history_lines)) {
        bytes += lines[lines.size() - kept - 1].size() + 1;
        if (is_long && bytes > history_bytes / 4) break;
        kept++;
    }
    lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kept));
    if (is_long) replace(file, lines);
    return lines;
}

void add_to_history(const std::string &file, const std::string &line)
{
    if (file.empty()) return;
    make_folders(std::filesystem::path(file).parent_path());
    append(file, line + "\n");
}
