// SPDX-License-Identifier: MIT
//
// See terminal.h. Progress is shown by a thread of its own, since its owner waits for something else.
#include "terminal.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

#include "text.h"

bool is_terminal(int fd)
{
    const char *term = std::getenv("TERM");
    return term != nullptr && *term != '\0' && std::strcmp(term, "dumb") != 0 && isatty(fd) == 1;
}

bool shows_colour(int fd)
{
    const char *no_colour = std::getenv("NO_COLOR");
    return (no_colour == nullptr || *no_colour == '\0') && is_terminal(fd);
}

static const char *code_of(Paint paint)
{
    switch (paint) {
    case Paint::error:
        return "1;31";
    case Paint::warning:
        return "33";
    case Paint::good:
        return "32";
    case Paint::name:
        return "1";
    default:
        return "2";
    }
}

std::string painted(const std::string &text, Paint paint, int fd)
{
    return shows_colour(fd) ? std::string("\x1b[") + code_of(paint) + "m" + text + "\x1b[0m" : text;
}

int columns_of(int fd)
{
    winsize size{};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// ---- Progress --------------------------------------------------------------------------------------------------

using namespace std::chrono_literals;

constexpr auto patience = 1s;
constexpr auto pause_between_lines = 200ms;
constexpr const char *clear_line = "\r\x1b[K";

static void write_line(const std::string &text)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

struct Progress::Display {
    std::mutex mutex;
    std::condition_variable over;
    bool is_over = false;
    std::thread thread;

    void show(const Progress &progress)
    {
        const auto begin = std::chrono::steady_clock::now();
        std::unique_lock lock(mutex);
        auto next = begin + patience;
        bool is_shown = false;
        while (!over.wait_until(lock, next, [this] { return is_over; })) {
            const auto passed = std::chrono::steady_clock::now() - begin;
            write_line(clear_line + progress.line(std::chrono::duration_cast<std::chrono::seconds>(passed).count()));
            next += pause_between_lines;
            is_shown = true;
        }
        if (is_shown) write_line(clear_line);
    }
};

// Signals are for the thread that waits for them.
Progress::Progress(std::string what, int64_t total) : what_(printable(what)), total_(total)
{
    if (!is_terminal(STDERR_FILENO)) return;
    display_ = std::make_unique<Display>();
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    display_->thread = std::thread([this] { display_->show(*this); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Progress::~Progress()
{
    if (display_ == nullptr) return;
    {
        const std::lock_guard lock(display_->mutex);
        display_->is_over = true;
    }
    display_->over.notify_one();
    display_->thread.join();
}

// One character less than the terminal has, or some would begin a new line.
std::string Progress::line(int64_t seconds) const
{
    std::string text = what_;
    if (total_ > 0) text += ": " + std::to_string(done_.load()) + " of " + std::to_string(total_);
    text += ", " + std::to_string(seconds) + " s";
    return text.substr(0, static_cast<size_t>(columns_of(STDERR_FILENO) - 1));
}
