// SPDX-License-Identifier: MIT
#include "host/process_state.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace harness {
namespace {

std::string place(pid_t pid, const char *what)
{
    return "/proc/" + std::to_string(pid) + "/" + what;
}

} // namespace

std::set<int> signals(pid_t pid, const std::string &line)
{
    std::ifstream status(place(pid, "status"));
    std::string text;
    while (std::getline(status, text)) {
        if (!text.starts_with(line + ":")) continue;
        const uint64_t mask = std::stoull(text.substr(line.size() + 1), nullptr, 16);
        std::set<int> found;
        for (int signal = 1; signal <= 64; signal++) {
            if ((mask >> (signal - 1) & 1) != 0) found.insert(signal);
        }
        return found;
    }
    throw std::runtime_error("no " + line + " in " + place(pid, "status"));
}

std::set<int> descriptors(pid_t pid)
{
    std::set<int> found;
    for (const auto &entry : std::filesystem::directory_iterator(place(pid, "fd"))) {
        found.insert(std::stoi(entry.path().filename()));
    }
    return found;
}

std::set<pid_t> other_threads(pid_t pid)
{
    std::set<pid_t> found;
    for (const auto &entry : std::filesystem::directory_iterator(place(pid, "task"))) {
        found.insert(std::stoi(entry.path().filename()));
    }
    found.erase(pid);
    return found;
}

std::set<uint64_t> segment_addresses(pid_t pid)
{
    std::ifstream maps(place(pid, "maps"));
    std::string text;
    std::set<uint64_t> found;
    while (std::getline(maps, text)) {
        if (text.find("/SYSV") != std::string::npos) found.insert(std::stoull(text, nullptr, 16));
    }
    return found;
}

} // namespace harness
