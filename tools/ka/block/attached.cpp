// SPDX-License-Identifier: MIT
//
// See attached.h. The kernel shows an attached segment among the mappings of a process: the inode is its identifier,
// also when it is marked for removal and can no longer be found by its key.
#include "attached.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/shm.h>

namespace {

std::string proc(pid_t pid, const char *file)
{
    return "/proc/" + std::to_string(pid) + "/" + file;
}

// Identifiers are those of a namespace: in another one the same number is another segment. False also where that
// cannot be known.
bool is_in_another_namespace(pid_t pid)
{
    std::error_code own_error;
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/ns/ipc", own_error);
    const auto other = std::filesystem::read_symlink(proc(pid, "ns/ipc"), error);
    return !own_error && !error && own != other;
}

std::vector<std::string> command_line(pid_t pid)
{
    std::ifstream file(proc(pid, "cmdline"));
    std::vector<std::string> words;
    for (std::string word; std::getline(file, word, '\0');)
        words.push_back(word);
    return words;
}

// A host has one argument: the segment, and its layout after a colon. It reads both as strtol does.
std::optional<int> host_layout(const std::vector<std::string> &words, int id)
{
    if (words.size() != 2) return std::nullopt;
    char *end = nullptr;
    if (std::strtol(words[1].c_str(), &end, 10) != id || end == words[1].c_str()) return std::nullopt;
    const size_t colon = words[1].find(':');
    const long suffix = colon == std::string::npos ? 0 : std::strtol(words[1].c_str() + colon + 1, nullptr, 10);
    return suffix == 64 ? 64 : 0;
}

std::vector<int> mapped_segments(std::istream &maps)
{
    std::vector<int> ids;
    for (std::string line; std::getline(maps, line);) {
        if (line.find(" /SYSV") == std::string::npos) continue;
        std::istringstream fields(line);
        std::string range, rights, offset, device;
        long long inode = -1;
        fields >> range >> rights >> offset >> device >> inode;
        const int id = static_cast<int>(inode);
        if (id == inode && std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
    }
    return ids;
}

std::vector<Attached> attached_processes(int id)
{
    std::vector<Attached> found;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator("/proc", ignored)) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        const auto pid = static_cast<pid_t>(std::stol(name));
        std::ifstream maps(proc(pid, "maps"));
        const std::vector<int> ids = mapped_segments(maps);
        if (std::find(ids.begin(), ids.end(), id) == ids.end() || is_in_another_namespace(pid)) continue;
        const std::vector<std::string> words = command_line(pid);
        found.push_back({pid, words.empty() ? "" : words[0], host_layout(words, id)});
    }
    std::sort(found.begin(), found.end(), [](const Attached &a, const Attached &b) { return a.pid < b.pid; });
    return found;
}

} // namespace

std::optional<Segment> find_segment(int id, std::string &why)
{
    struct shmid_ds status;
    if (shmctl(id, IPC_STAT, &status) != 0) {
        const bool missing = errno == EINVAL || errno == EIDRM;
        why = missing ? "there is no segment " + std::to_string(id)
                      : "segment " + std::to_string(id) + " may not be looked at: " + std::strerror(errno);
        return std::nullopt;
    }
    const bool is_removed = (status.shm_perm.mode & SHM_DEST) != 0;
    return Segment{id, status.shm_segsz, status.shm_nattch, is_removed, status.shm_cpid, attached_processes(id)};
}

std::optional<std::vector<int>> segments_of(pid_t pid, std::string &why)
{
    std::ifstream maps(proc(pid, "maps"));
    if (!std::filesystem::exists(proc(pid, ""))) {
        why = "there is no process " + std::to_string(pid);
        return std::nullopt;
    }
    if (!maps) {
        why = "the memory of process " + std::to_string(pid) + " may not be looked at: " + std::strerror(errno);
        return std::nullopt;
    }
    if (is_in_another_namespace(pid)) {
        why = "the segments of process " + std::to_string(pid) +
              " are in another IPC namespace (nsenter --ipc --target " + std::to_string(pid) + " ka dump ...)";
        return std::nullopt;
    }
    return mapped_segments(maps);
}

bool is_alive(pid_t pid)
{
    if (pid <= 0 || (kill(pid, 0) != 0 && errno != EPERM)) return false;
    std::ifstream file(proc(pid, "stat"));
    std::string text;
    std::getline(file, text);
    const size_t name_end = text.rfind(") ");
    return name_end == std::string::npos || (text[name_end + 2] != 'Z' && text[name_end + 2] != 'X');
}

Attachment::Attachment(int id)
{
    void *address = shmat(id, nullptr, SHM_RDONLY);
    data_ = address == reinterpret_cast<void *>(-1) ? nullptr : static_cast<const char *>(address);
}

Attachment::~Attachment()
{
    if (data_ != nullptr) shmdt(data_);
}
