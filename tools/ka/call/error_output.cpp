// SPDX-License-Identifier: MIT
//
// See error_output.h. A thread waits for the pipe, and lives until ka ends.
#include "error_output.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <poll.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "wire/reason.h"

struct ErrorOutput::Pipe {
    static constexpr size_t kept_bytes = 1 << 16;

    int ends[2] = {-1, -1};
    std::mutex lock;   // of all below, and of the order in which things go on
    std::string bytes; // since begin, the last ones
    bool is_cut = false;

    Pipe() = default;
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe()
    {
        for (const int end : ends)
            if (end != -1) close(end);
    }

    // Above the standard descriptors, one of which may be closed.
    bool open()
    {
        int low[2];
        if (pipe2(low, O_CLOEXEC) != 0) return false;
        for (int i = 0; i < 2; i++) {
            ends[i] = fcntl(low[i], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            close(low[i]);
        }
        return ends[0] != -1 && ends[1] != -1 && fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
    }

    void take()
    {
        char part[4096];
        ssize_t length = 0;
        while ((length = read(ends[0], part, sizeof part)) > 0) {
            pass_on(part, static_cast<size_t>(length));
            bytes.append(part, static_cast<size_t>(length));
            if (bytes.size() <= 2 * kept_bytes) continue;
            bytes.erase(0, bytes.size() - kept_bytes);
            is_cut = true;
        }
    }

    static void pass_on(const char *part, size_t length)
    {
        while (length > 0) {
            const ssize_t written = write(STDERR_FILENO, part, length);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return; // nobody reads it
            part += written;
            length -= static_cast<size_t>(written);
        }
    }
};

// With every signal blocked.
static bool start_thread(const std::function<void()> &work)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    bool has_started = true;
    try {
        std::thread(work).detach();
    } catch (const std::system_error &) {
        has_started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return has_started;
}

void ErrorOutput::collect(ka_options &settings)
{
    auto pipe = std::make_shared<Pipe>();
    const auto attend = [pipe] {
        pollfd readable{pipe->ends[0], POLLIN, 0};
        for (;;) {
            poll(&readable, 1, -1);
            const std::lock_guard guard(pipe->lock);
            pipe->take();
        }
    };
    if (!pipe->open() || !start_thread(attend)) return;
    pipe_ = pipe;
    settings.error_output = KA_STDERR_FILE;
    settings.error_fd = pipe->ends[1];
}

void ErrorOutput::flush() const
{
    if (pipe_ == nullptr) return;
    const std::lock_guard guard(pipe_->lock);
    pipe_->take();
}

void ErrorOutput::begin() const
{
    if (pipe_ == nullptr) return;
    const std::lock_guard guard(pipe_->lock);
    pipe_->take();
    pipe_->bytes.clear();
    pipe_->is_cut = false;
}

std::string ErrorOutput::reason(const std::string &function) const
{
    if (pipe_ == nullptr) return "";
    const std::lock_guard guard(pipe_->lock);
    pipe_->take();
    const std::string &bytes = pipe_->bytes;
    const size_t line_end = pipe_->is_cut ? bytes.find('\n') : std::string::npos; // of the line that is cut
    const size_t from = !pipe_->is_cut ? 0 : line_end == std::string::npos ? bytes.size() : line_end + 1;
    const wire::t_REASON found =
        wire::last_reason(bytes.data() + from, bytes.size() - from, function.data(), function.size());
    return {found.length > 0 ? found.text : "", found.length};
}
