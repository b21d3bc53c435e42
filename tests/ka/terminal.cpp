// SPDX-License-Identifier: MIT
//
// Colour and progress are for terminals only: the streams are real pseudo-terminals.
#include "base/terminal.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

namespace {

struct Terminal {
    int master = -1;
    int slave = -1;

    Terminal()
    {
        winsize size{24, 40, 0, 0};
        EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
    }
    ~Terminal()
    {
        close(master);
        close(slave);
    }
};

// The environment is this program's own; every test says what it needs.
class KaTerminal : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("TERM", "xterm", 1);
        unsetenv("NO_COLOR");
    }
};

// What has been written to the terminal once wanted is part of it; what there is after ten seconds otherwise.
std::string read_until(int master, const std::string &wanted)
{
    std::string text;
    pollfd readable{master, POLLIN, 0};
    while (text.find(wanted) == std::string::npos && poll(&readable, 1, 10000) == 1) {
        char buffer[256];
        const ssize_t length = read(master, buffer, sizeof buffer);
        if (length <= 0) break;
        text.append(buffer, static_cast<size_t>(length));
    }
    return text;
}

// Standard error of this program is the terminal as long as this lives.
class ErrorsTo {
public:
    explicit ErrorsTo(int fd) : kept_(dup(STDERR_FILENO)) { dup2(fd, STDERR_FILENO); }
    ~ErrorsTo()
    {
        dup2(kept_, STDERR_FILENO);
        close(kept_);
    }
    ErrorsTo(const ErrorsTo &) = delete;
    ErrorsTo &operator=(const ErrorsTo &) = delete;

private:
    int kept_;
};

} // namespace

TEST_F(KaTerminal, shows_colour)
{
    const Terminal terminal;
    EXPECT_EQ(painted("text", Paint::error, terminal.slave), "\x1b[1;31mtext\x1b[0m");
    EXPECT_EQ(columns_of(terminal.slave), 40);
}

TEST_F(KaTerminal, shows_none_with_no_color)
{
    const Terminal terminal;
    setenv("NO_COLOR", "0", 1);
    EXPECT_EQ(painted("text", Paint::error, terminal.slave), "text");
    setenv("NO_COLOR", "", 1);
    EXPECT_NE(painted("text", Paint::error, terminal.slave), "text");
}

TEST_F(KaTerminal, shows_none_when_it_is_dumb_or_unknown)
{
    const Terminal terminal;
    setenv("TERM", "dumb", 1);
    EXPECT_EQ(painted("text", Paint::good, terminal.slave), "text");
    unsetenv("TERM");
    EXPECT_EQ(painted("text", Paint::good, terminal.slave), "text");
}

TEST_F(KaTerminal, pipe_shows_none_whatever_the_other_stream_is)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(painted("text", Paint::name, ends[1]), "text");
    EXPECT_EQ(columns_of(ends[1]), 80);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(KaTerminal, progress_is_told_after_a_second_and_cleared)
{
    const Terminal terminal;
    const ErrorsTo errors(terminal.slave);
    std::string told;
    {
        Progress progress("counting", 7);
        progress.advance();
        told = read_until(terminal.master, " s");
    }
    EXPECT_EQ(told.substr(0, 25), "\r\x1b[Kcounting: 1 of 7, 1 s");
    const std::string rest = read_until(terminal.master, "\r\x1b[K");
    EXPECT_TRUE(rest.ends_with("\r\x1b[K")) << rest;
}

TEST_F(KaTerminal, progress_fits_the_line)
{
    const Terminal terminal;
    const ErrorsTo errors(terminal.slave);
    const Progress progress(std::string(100, 'x'));
    EXPECT_EQ(read_until(terminal.master, "xx").find('x' + std::string(39, 'x')), std::string::npos);
}

TEST_F(KaTerminal, progress_says_nothing_when_done_in_time)
{
    const Terminal terminal;
    const ErrorsTo errors(terminal.slave);
    Progress("short work");
    ASSERT_EQ(write(terminal.slave, "end", 3), 3);
    EXPECT_EQ(read_until(terminal.master, "end"), "end");
}
