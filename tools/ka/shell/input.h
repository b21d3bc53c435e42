// SPDX-License-Identifier: MIT
//
// Where the lines of ka shell come from: a person at a terminal (editor.h), or a script.
#ifndef KA_TOOL_SHELL_INPUT_H
#define KA_TOOL_SHELL_INPUT_H

#include <functional>
#include <string>

enum class Got {
    line,
    end,         // of the input
    interrupted, // the line that was being typed is given up
    ended        // by SIGTERM; by SIGINT too, where nobody types
};

struct Input {
    virtual ~Input() = default;
    virtual Got next(std::string &line) = 0;
};

// Lines of standard input, which is read no further than it must be.
class Script : public Input {
public:
    explicit Script(int interruption) : interruption_(interruption) {}
    Got next(std::string &line) override;

private:
    int interruption_;
    std::string unread_;
    bool at_end_ = false;
};

// Waits until standard input can be read or an interruption has come; its signal, or 0. A signal that has a handler,
// such as a new size of the window or the end of a stop, is none: after it, meanwhile is called.
int await_input(
    int interruption, const std::function<void()> &meanwhile = [] {});

#endif
