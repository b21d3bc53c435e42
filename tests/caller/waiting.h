// SPDX-License-Identifier: MIT
//
// Looking at other processes from outside: for the tests of the library and of the command.
#ifndef TESTS_CALLER_WAITING_H
#define TESTS_CALLER_WAITING_H

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

inline std::string read_file(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Looks every millisecond, for at least ten seconds.
inline bool becomes_true(const std::function<bool()> &condition)
{
    for (int i = 0; i < 10000; i++) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

#endif
