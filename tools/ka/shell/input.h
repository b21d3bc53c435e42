// SPDX-License-Identifier: MIT
//
// Where the lines of ka shell come from: a person at a terminal (editor.h), or a script.
#ifndef KA_TOOL_SHELL_INPUT_H
#define KA_TOOL_SHELL_INPUT_H

#include <csignal>
#include <functional>
#include <string>

enum class LineEvent {
    line,
    end,         // of the input
    interrupted, // the line that was being typed is given up
    ended        // by SIGTERM; by SIGINT too in a script
};

// Lines of standard input, which is read no further than it must be.
class Script {
public:
    explicit Script(int interruption) : interruption_(interruption) {}
    LineEvent next(std::string &line);

private:
    int interruption_;
    std::string unread_;
    bool at_end_ = false;
};

// Waits until standard input can be read or an interruption has come; its signal, or 0. A handled signal (SIGWINCH,
// SIGCONT) does not end the wait: on_signal is called and the wait goes on. While it waits, the mask holds.
int await_input(
    int interruption, const sigset_t *mask = nullptr, const std::function<void()> &on_signal = [] {});

#endif
