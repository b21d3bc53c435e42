// SPDX-License-Identifier: MIT
//
// Looking at other processes from outside: for the tests of the library and of the command.
#ifndef TESTS_CALLER_WAITING_H
#define TESTS_CALLER_WAITING_H

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

// Empty when there is no such file. A file of a process that ends during the reading cannot be read any more:
// iterators over the stream would throw then.
inline std::string read_file(const std::string &path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Looks every millisecond, for at least a minute: a busy machine can keep a thread waiting for seconds.
inline bool becomes_true(const std::function<bool()> &condition)
{
    for (int i = 0; i < 60000; i++) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

#endif
