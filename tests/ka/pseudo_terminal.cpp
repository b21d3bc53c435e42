// SPDX-License-Identifier: MIT
//
// See pseudo_terminal.h.
#include "ka/pseudo_terminal.h"

#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

PseudoTerminal::PseudoTerminal(const std::vector<std::string> &words, const std::vector<std::string> &settings)
{
    struct winsize size = {24, 200, 0, 0};
    pid_ = forkpty(&fd_, nullptr, nullptr, &size);
    if (pid_ != 0) return;
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    for (const std::string &setting : settings)
        putenv(const_cast<char *>(setting.c_str()));
    execvp(arguments[0], arguments.data());
    _exit(99);
}

PseudoTerminal::~PseudoTerminal()
{
    close(fd_);
    if (pid_ == 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

void PseudoTerminal::type(const std::string &keys)
{
    for (size_t at = 0; at < keys.size();) {
        const ssize_t written = write(fd_, keys.data() + at, keys.size() - at);
        if (written <= 0) return;
        at += static_cast<size_t>(written);
    }
}

bool PseudoTerminal::read_more()
{
    struct pollfd ready = {fd_, POLLIN, 0};
    if (poll(&ready, 1, 20000) <= 0) return false;
    char buffer[4096];
    const ssize_t length = read(fd_, buffer, sizeof buffer);
    if (length <= 0) return false; // the program has closed its side
    output_.append(buffer, static_cast<size_t>(length));
    return true;
}

bool PseudoTerminal::shows(const std::string &text)
{
    size_t at;
    while ((at = output_.find(text, found_)) == std::string::npos)
        if (!read_more()) return false;
    found_ = at + text.size();
    return true;
}

int PseudoTerminal::end()
{
    while (read_more())
        ;
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
