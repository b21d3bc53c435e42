// SPDX-License-Identifier: MIT
//
// A program at a terminal, with a tester at the keyboard.
#ifndef TESTS_KA_PSEUDO_TERMINAL_H
#define TESTS_KA_PSEUDO_TERMINAL_H

#include <string>
#include <sys/types.h>
#include <vector>

class PseudoTerminal {
public:
    // The program is searched for along PATH. Settings are lines NAME=VALUE of its environment, beside the tests'
    // own.
    PseudoTerminal(const std::vector<std::string> &words, const std::vector<std::string> &settings);
    ~PseudoTerminal(); // ends the program when it still runs
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    void type(const std::string &keys);

    // Waits until the text is written, after what was found before; false when it does not come.
    bool shows(const std::string &text);

    // Waits for the end of the program; its exit status, minus the signal that ended it.
    int end();

    // Everything written so far.
    const std::string &output() const { return output_; }

    pid_t pid() const { return pid_; }

private:
    bool read_more();

    pid_t pid_;
    int fd_;
    size_t found_ = 0;
    std::string output_;
};

#endif
