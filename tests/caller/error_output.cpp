// SPDX-License-Identifier: MIT
//
// Where the host's standard error goes: to the program's own, to a file, into the library's buffer. Neither the
// amount that the module writes, nor a reader that does not read, makes the host wait for ever.
#include "caller/hosts.h"

#include <csignal>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "caller/waiting.h"

constexpr int32_t ten_megabytes = 10000000;

static std::function<void(ka_options &)> with_ring(int32_t bytes = 1 << 16, int32_t waiting = KA_WAIT_SAFE)
{
    return [=](ka_options &options) {
        options.error_output = KA_STDERR_RING;
        options.ring_bytes = bytes;
        options.waiting = waiting;
    };
}

static std::string output(ka_host *host, int32_t size = 1 << 16)
{
    std::string text(static_cast<size_t>(size), '\0');
    const int32_t length = ka_error_output(host, text.data(), size);
    EXPECT_GE(length, 0);
    EXPECT_LE(length, size);
    text.resize(static_cast<size_t>(length));
    return text;
}

// The end of the text of write_errors, as much as the buffer keeps.
static std::string end_of_errors(int32_t bytes, int32_t kept)
{
    std::string text;
    char number[16];
    for (int32_t i = bytes / 8 - kept / 8 - 1; i < bytes / 8; i++) {
        snprintf(number, sizeof number, "%07d\n", i);
        text += number;
    }
    return text.substr(text.size() - static_cast<size_t>(kept));
}

static int32_t cry_and_die(ka_host *host, const std::string &text)
{
    ka_begin(host, "cry_and_die");
    ka_add_string(host, text.data(), static_cast<int32_t>(text.size()), 0, KA_BY_REFERENCE);
    return call_fails(host);
}

class Ring : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Waiting, Ring, testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST),
                         [](const auto &mode) { return mode.param == KA_WAIT_SAFE ? "safe" : "fast"; });

TEST_P(Ring, takes_ten_megabytes_in_a_call)
{
    Host host(with_ring(1 << 16, GetParam()));
    EXPECT_EQ(call_with(host, "write_errors", ten_megabytes), 0);
    EXPECT_EQ(output(host), end_of_errors(ten_megabytes, 1 << 16));
}

TEST_P(Ring, takes_ten_megabytes_before_the_first_call)
{
    setenv("KA_TEST_SETUP", "errs10000000", 1);
    Host host(with_ring(1 << 16, GetParam()));
    unsetenv("KA_TEST_SETUP");
    EXPECT_EQ(call_with(host, "give_code", 3), 3);
    EXPECT_EQ(output(host), end_of_errors(ten_megabytes, 1 << 16));
}

TEST_P(Ring, takes_ten_megabytes_between_calls)
{
    Host host(with_ring(1000, GetParam()));
    EXPECT_EQ(call_with(host, "write_errors_later", ten_megabytes), 0);
    EXPECT_TRUE(becomes_true([&] { return output(host, 1000) == end_of_errors(ten_megabytes, 1000); }));
    EXPECT_EQ(call_with(host, "give_code", 3), 3);
}

TEST_P(Ring, takes_ten_megabytes_at_the_end)
{
    const File done("", 0600);
    unlink(done.path.c_str());
    setenv("KA_TEST_LAST_ERRORS", "10000000", 1);
    setenv("KA_TEST_CLEANUP", done.path.c_str(), 1);
    {
        Host host([&](ka_options &options) {
            with_ring(1000, GetParam())(options);
            options.grace_ms = 60000;
        });
        EXPECT_EQ(call_with(host, "give_code", 3), 3);
        EXPECT_EQ(ka_close(std::exchange(host.host, nullptr)), KA_DONE);
    }
    unsetenv("KA_TEST_LAST_ERRORS");
    unsetenv("KA_TEST_CLEANUP");
    EXPECT_EQ(access(done.path.c_str(), F_OK), 0) << "the module was killed while it wrote";
}

TEST_P(Ring, comes_with_an_error)
{
    Host host(with_ring(1 << 16, GetParam()));
    EXPECT_EQ(cry_and_die(host, "first\nsecond \"two\"\nno end"), KA_DIED);
    EXPECT_EQ(output(host), "first\nsecond \"two\"\nno end");
    EXPECT_EQ(output(host, 6), "no end");
    EXPECT_EQ(output(host, 1), "d");
    const nlohmann::json report = nlohmann::json::parse(ka_report_json(host));
    EXPECT_EQ(report["error_output"], nlohmann::json({"first", "second \"two\"", "no end"}));
    const std::string text = ka_report_text(host);
    EXPECT_NE(text.find("\n  stderr     first\n             second \"two\"\n             no end\n"),
              std::string::npos)
        << text;
}

TEST(RingRules, any_bytes_are_kept_as_they_are)
{
    const std::string bytes("\0\x01\xff\n\n\xc3\x28\0", 8);
    Host host(with_ring());
    EXPECT_EQ(cry_and_die(host, bytes), KA_DIED);
    EXPECT_EQ(output(host), bytes);
    EXPECT_FALSE(nlohmann::json::parse(ka_report_json(host), nullptr, false).is_discarded());
}

TEST(RingRules, small_rings_keep_the_last_bytes)
{
    for (int32_t room : {1, 2, 7, 8, 9, 4096}) {
        Host host(with_ring(room));
        EXPECT_EQ(call_with(host, "write_errors", 100000), 0);
        EXPECT_EQ(output(host), end_of_errors(100000, room)) << room;
        EXPECT_EQ(output(host), end_of_errors(100000, room)) << "looking takes nothing away";
    }
}

TEST(RingRules, report_shows_the_last_lines_only)
{
    Host host(with_ring());
    EXPECT_EQ(call_with(host, "write_errors", 8000), 0);
    EXPECT_EQ(cry_and_die(host, "the end\n"), KA_DIED);
    const nlohmann::json report = nlohmann::json::parse(ka_report_json(host));
    ASSERT_EQ(report["error_output"].size(), 20u);
    EXPECT_EQ(report["error_output"][0], "0000981");
    EXPECT_EQ(report["error_output"][19], "the end");
}

TEST(RingRules, of_the_host_that_failed_is_shown_after_a_restart)
{
    Host host([](ka_options &options) {
        with_ring()(options);
        options.restart = KA_RESTART_AT_ONCE;
        options.restart_pause_ms = 0;
    });
    EXPECT_EQ(cry_and_die(host, "alas"), KA_DIED);
    ASSERT_NE(ka_pid(host), 0);
    EXPECT_EQ(output(host), "alas");
    EXPECT_EQ(call_with(host, "write_errors", 16), 0);
    EXPECT_EQ(output(host), "0000000\n0000001\n");
}

TEST(RingRules, of_a_failed_start_tells_what_the_loader_said)
{
    Host host(with_ring(), no_library_module);
    ka_begin(host, "add");
    EXPECT_EQ(call_fails(host), KA_START);
    EXPECT_NE(output(host).find("libkahost.so.1: cannot open shared object file"), std::string::npos);
}

TEST(RingRules, leave_no_descriptors)
{
    {
        Host warm_up(with_ring());
    }
    const int before = open_descriptors();
    for (int i = 0; i < 20; i++) {
        Host host(with_ring());
        EXPECT_EQ(call_with(host, "write_errors", 16), 0);
        if (i % 2 == 0) {
            EXPECT_EQ(cry_and_die(host, "x"), KA_DIED);
        }
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(RingRules, hold_no_host_back_when_the_caller_is_killed)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    const pid_t caller = fork();
    if (caller == 0) {
        ka_options options = default_options();
        with_ring()(options);
        ka_host *host;
        int32_t code;
        ka_open(&host, tasks_module.c_str(), &options);
        const int32_t pid = ka_pid(host);
        if (write(report[1], &pid, sizeof pid) != sizeof pid) _exit(1);
        ka_begin(host, "write_errors");
        ka_add_integer(host, INT32_MAX, KA_BY_VALUE);
        ka_call(host, &code);
        _exit(0);
    }
    int32_t pid = 0;
    EXPECT_EQ(read(report[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
    usleep(50000);
    kill(caller, SIGKILL);
    EXPECT_EQ(waitpid(caller, nullptr, 0), caller);
    EXPECT_TRUE(ends(pid));
    waitpid(pid, nullptr, 0);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    close(report[0]);
    close(report[1]);
}

// ---- Files and the program's own -------------------------------------------------------------------------------

TEST(ErrorFile, gets_everything_and_is_kept_for_restarts)
{
    const File file("", 0600);
    const int fd = open(file.path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    {
        Host host([fd](ka_options &options) {
            options.error_output = KA_STDERR_FILE;
            options.error_fd = fd;
            options.restart = KA_RESTART_NEXT_CALL;
            options.restart_pause_ms = 0;
        });
        close(fd);
        EXPECT_EQ(cry_and_die(host, "before\n"), KA_DIED);
        EXPECT_EQ(output(host), "");
        EXPECT_EQ(cry_and_die(host, "after\n"), KA_DIED);
    }
    EXPECT_EQ(read_file(file.path), "before\nafter\n");
}

TEST(ErrorFile, that_is_not_open_is_refused)
{
    ka_options options = default_options();
    options.error_output = KA_STDERR_FILE;
    ka_host *host;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "error_fd -1 is not open");
    ka_close(host);
}

TEST(ErrorOutput, out_of_range_is_refused)
{
    for (const auto &[kind, room] : {std::pair{3, 1}, {-1, 1}, {2, 0}, {2, -5}}) {
        ka_options options = default_options();
        options.error_output = kind;
        options.ring_bytes = room;
        ka_host *host;
        EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
        ka_close(host);
    }
}

TEST(ErrorOutput, of_a_program_without_standard_descriptors_reaches_the_ring)
{
    const pid_t child = fork();
    if (child == 0) {
        for (int fd = 0; fd < 3; fd++)
            close(fd);
        ka_options options = default_options();
        with_ring()(options);
        ka_host *host;
        int32_t code;
        if (ka_open(&host, tasks_module.c_str(), &options) != KA_DONE) _exit(1);
        ka_begin(host, "write_errors");
        ka_add_integer(host, 16, KA_BY_VALUE);
        if (ka_call(host, &code) != KA_DONE || code != 0) _exit(2);
        char text[32];
        const int32_t length = ka_error_output(host, text, sizeof text);
        ka_close(host);
        _exit(length == 16 ? 0 : 3);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << WEXITSTATUS(status);
}
