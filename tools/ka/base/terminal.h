// SPDX-License-Identifier: MIT
//
// What ka does on a terminal only: colour, and a line that shows how far long work has come. A file or a pipe gets
// plain text.
#ifndef KA_TOOL_BASE_TERMINAL_H
#define KA_TOOL_BASE_TERMINAL_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

// A terminal that understands more than text: TERM is set, and not to "dumb".
bool is_terminal(int fd);

// A terminal, and NO_COLOR is not set, or empty. Standard output and standard error are asked separately.
bool shows_colour(int fd);

enum class Paint { error, warning, good, name, faint };

// text, in colour where fd shows it.
std::string painted(const std::string &text, Paint paint, int fd);

// Characters in a line of the terminal; 80 where that is not known.
int columns_of(int fd);

// From its construction to its end something is under way. After a second standard error shows what, when it is a
// terminal; the line is gone at the end.
class Progress {
public:
    explicit Progress(std::string what, int64_t total = 0); // total: of steps, 0 when they are not counted
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // One step is done.
    void advance() { done_.fetch_add(1, std::memory_order_relaxed); }

private:
    struct Display;

    std::string line(int64_t seconds) const;

    std::string what_;
    int64_t total_;
    std::atomic<int64_t> done_ = 0;
    std::unique_ptr<Display> display_; // null where nothing is shown
};

#endif
