// SPDX-License-Identifier: MIT
//
// See command.h.
#include "ka/command.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

Running start_ka(const std::vector<std::string> &words, int input)
{
    int out[2];
    int err[2];
    EXPECT_EQ(pipe(out), 0);
    EXPECT_EQ(pipe(err), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        std::vector<char *> arguments = {const_cast<char *>("ka")};
        for (const std::string &word : words)
            arguments.push_back(const_cast<char *>(word.c_str()));
        arguments.push_back(nullptr);
        if (input != -1) dup2(input, 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {out[0], out[1], err[0], err[1]})
            close(fd);
        execv(KA_COMMAND, arguments.data());
        _exit(99);
    }
    close(out[1]);
    close(err[1]);
    return {pid, out[0], err[0]};
}

// Both streams are read as they come, so that none can fill up.
static void read_streams(const Running &running, Outcome &outcome)
{
    struct pollfd fds[] = {{running.out, POLLIN, 0}, {running.err, POLLIN, 0}};
    std::string *texts[] = {&outcome.out, &outcome.err};
    while (fds[0].fd != -1 || fds[1].fd != -1) {
        poll(fds, 2, -1);
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd == -1 || fds[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t length = read(fds[i].fd, buffer, sizeof buffer);
            if (length > 0) {
                texts[i]->append(buffer, static_cast<size_t>(length));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
            }
        }
    }
}

Outcome await_ka(const Running &running)
{
    Outcome outcome{};
    read_streams(running, outcome);
    int status = 0;
    waitpid(running.pid, &status, 0);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return outcome;
}

Outcome ka(const std::vector<std::string> &words)
{
    return await_ka(start_ka(words));
}

Outcome call(std::vector<std::string> words)
{
    words.insert(words.begin(), {"call", tasks_module});
    return ka(words);
}

// ---- The host, seen from outside -------------------------------------------------------------------------------

static std::string status_of(pid_t pid)
{
    return read_file("/proc/" + std::to_string(pid) + "/status");
}

static std::string field(const std::string &status, const std::string &name)
{
    const size_t at = status.find("\n" + name + ":\t");
    if (at == std::string::npos) return "";
    const size_t begin = at + name.size() + 3;
    return status.substr(begin, status.find('\n', begin) - begin);
}

static pid_t child_of(pid_t parent)
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        const pid_t pid = std::stoi(name);
        if (field(status_of(pid), "PPid") == std::to_string(parent)) return pid;
    }
    return 0;
}

pid_t host_of(pid_t ka_pid)
{
    pid_t host = 0;
    becomes_true([&] { return (host = child_of(ka_pid)) != 0; });
    return host;
}

bool ends(pid_t pid)
{
    return becomes_true([pid] {
        const std::string state = field(status_of(pid), "State");
        return state.empty() || state[0] == 'Z';
    });
}

int segment_of(pid_t host)
{
    std::string words;
    size_t argument = 0;
    becomes_true([&] {
        words = read_file("/proc/" + std::to_string(host) + "/cmdline");
        argument = words.find('\0') + 1; // before there is one, it is still a copy of ka, or about to be the host
        return words.starts_with(tasks_module) && argument > 0 && argument < words.size();
    });
    return std::atoi(words.c_str() + argument);
}

bool segment_exists(int segment_id)
{
    std::istringstream lines(read_file("/proc/sysvipc/shm"));
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        long long key;
        long long id;
        if (fields >> key >> id && id == segment_id) return true;
    }
    return false;
}

bool segment_vanishes(int segment_id)
{
    return becomes_true([segment_id] { return !segment_exists(segment_id); });
}

// All from one reading: the host passes through states of which each looks like a call in part.
bool sleeps_in_a_call(pid_t host)
{
    return becomes_true([host] {
        const std::string status = status_of(host);
        if (field(status, "State").empty()) return false;
        const auto has = [&](const char *name) {
            return (std::stoull("0" + field(status, name), nullptr, 16) & (1ull << (SIGUSR2 - 1))) != 0;
        };
        return has("SigCgt") && has("SigBlk") && !has("ShdPnd") && field(status, "State")[0] == 'S';
    });
}
