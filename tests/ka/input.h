// SPDX-License-Identifier: MIT
//
// A standard input for start_ka: a file in memory, of any length.
#ifndef TESTS_KA_INPUT_H
#define TESTS_KA_INPUT_H

#include <gtest/gtest.h>

#include <string>
#include <sys/mman.h>
#include <unistd.h>

class Input {
public:
    explicit Input(const std::string &text) : fd_(memfd_create("input", MFD_CLOEXEC))
    {
        EXPECT_EQ(pwrite(fd_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    ~Input() { close(fd_); }
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    int fd() const { return fd_; }

private:
    int fd_;
};

#endif
