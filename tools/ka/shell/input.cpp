// SPDX-License-Identifier: MIT
//
// See input.h.
#include "input.h"

#include <poll.h>
#include <unistd.h>

#include "base/interruption.h"

int await_input(int interruption, const sigset_t *mask, const std::function<void()> &on_signal)
{
    struct pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {interruption, POLLIN, 0}};
    while (ppoll(waiting, 2, nullptr, mask) < 0)
        on_signal();
    return waiting[1].revents != 0 ? take_interruption(interruption) : 0;
}

LineEvent Script::next(std::string &line)
{
    size_t end;
    while ((end = unread_.find('\n')) == std::string::npos && !at_end_) {
        if (await_input(interruption_) != 0) return LineEvent::ended;
        char buffer[4096];
        const ssize_t length = read(STDIN_FILENO, buffer, sizeof buffer);
        at_end_ = length <= 0;
        if (length > 0) unread_.append(buffer, static_cast<size_t>(length));
    }
    if (unread_.empty()) return LineEvent::end;
    line = unread_.substr(0, end);
    unread_.erase(0, end == std::string::npos ? end : end + 1);
    if (line.ends_with('\r')) line.pop_back(); // lines may end as on other systems
    return LineEvent::line;
}
