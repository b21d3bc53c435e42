// SPDX-License-Identifier: MIT
//
// Options: defaults, bad values, and a record that is older or newer than the library.
#include "caller/hosts.h"

#include <cstddef>
#include <cstring>

TEST(Options, defaults_are_those_of_the_header)
{
    ka_options options;
    memset(&options, 0xee, sizeof options);
    ka_options_init(&options, sizeof options);
    EXPECT_EQ(options.size, sizeof options);
    EXPECT_EQ(options.layout, KA_LAYOUT_NATIVE);
    EXPECT_EQ(options.segment_bytes, 1 << 20);
    EXPECT_EQ(options.scratch_bytes, 1 << 16);
    EXPECT_EQ(options.deadline_ms, 30000);
    EXPECT_EQ(options.grace_ms, 2000);
    EXPECT_EQ(options.cancel_fd, -1);
    EXPECT_EQ(options.callback, nullptr);
    EXPECT_EQ(options.user, nullptr);
    EXPECT_EQ(options.segment_max, 0);
}

TEST(Options, none_at_all_are_the_defaults)
{
    ka_host *host;
    ASSERT_EQ(ka_open(&host, tasks_module.c_str(), nullptr), KA_DONE);
    int32_t size;
    ka_scratch(host, &size);
    EXPECT_EQ(size, 1 << 16);
    ka_close(host);
}

TEST(Options, shorter_record_keeps_the_defaults_of_what_it_lacks)
{
    ka_options options = default_options();
    options.size = offsetof(ka_options, callback);
    options.callback = reinterpret_cast<ka_callback *>(16);
    ka_host *host;
    ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE);
    EXPECT_EQ(call_with(host, "ask", 3), 0);
    ka_close(host);
}

TEST(Options, longer_record_is_read_as_far_as_it_is_known)
{
    struct {
        ka_options known;
        char more[64];
    } options;
    ka_options_init(&options.known, sizeof options);
    EXPECT_EQ(options.known.size, sizeof options);
    for (char byte : options.more)
        EXPECT_EQ(byte, 0);
    options.known.scratch_bytes = 100;
    ka_host *host;
    ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options.known), KA_DONE);
    EXPECT_EQ(call_with(host, "scratch_room", 100), 1);
    ka_close(host);
}

static std::string refusal(const std::function<void(ka_options &)> &spoil)
{
    ka_options options = default_options();
    spoil(options);
    ka_host *host;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
    const std::string text = error_text(host);
    ka_close(host);
    return text;
}

TEST(Options, bad_values_are_named)
{
    EXPECT_EQ(refusal([](ka_options &o) { o.size = 0; }), "options of 0 bytes were not filled by ka_options_init");
    EXPECT_EQ(refusal([](ka_options &o) { o.layout = 32; }),
              "layout is 32; it is KA_LAYOUT_NATIVE (0) or KA_LAYOUT_64 (64)");
    EXPECT_EQ(refusal([](ka_options &o) { o.deadline_ms = 0; }), "deadline_ms is 0; it must be above 0");
    EXPECT_EQ(refusal([](ka_options &o) { o.grace_ms = -1; }), "grace_ms is -1; it must not be below 0");
    EXPECT_EQ(refusal([](ka_options &o) { o.cancel_fd = 12345; }), "cancel_fd 12345 is not open");
    EXPECT_EQ(refusal([](ka_options &o) { o.scratch_bytes = -1; }), "scratch_bytes is -1; it must not be below 0");
    EXPECT_EQ(refusal([](ka_options &o) { o.segment_bytes = -5; }),
              "segment_bytes is -5; it must be at least scratch_bytes (65536) + 1680");
    EXPECT_EQ(refusal([](ka_options &o) { o.segment_bytes = 1 << 16; }),
              "segment_bytes is 65536; it must be at least scratch_bytes (65536) + 1680");
    EXPECT_EQ(refusal([](ka_options &o) { o.segment_bytes = INT32_MAX; }),
              "segment_bytes is 2147483647; it must not be above 2147475455");
    EXPECT_EQ(refusal([](ka_options &o) { o.segment_max = 1000; }),
              "segment_max is 1000; it must be 0, or segment_bytes (1048576) to 2147475455");
    EXPECT_EQ(refusal([](ka_options &o) { o.segment_max = -1; }),
              "segment_max is -1; it must be 0, or segment_bytes (1048576) to 2147475455");
    EXPECT_EQ(refusal([](ka_options &o) { o.segment_max = INT32_MAX; }),
              "segment_max is 2147483647; it must be 0, or segment_bytes (1048576) to 2147475455");
    EXPECT_EQ(refusal([](ka_options &o) { o.restart = 3; }),
              "restart is 3; it is KA_RESTART_NEVER (0) to KA_RESTART_AT_ONCE (2)");
    EXPECT_EQ(refusal([](ka_options &o) { o.restart_pause_ms = -1; }),
              "restart_pause_ms is -1; it must not be below 0");
    EXPECT_EQ(refusal([](ka_options &o) { o.restart_pause_max_ms = -2; }),
              "restart_pause_max_ms is -2; it must not be below 0");
    EXPECT_EQ(refusal([](ka_options &o) { o.error_output = 3; }),
              "error_output is 3; it is KA_STDERR_INHERIT (0) to KA_STDERR_RING (2)");
    EXPECT_EQ(refusal([](ka_options &o) {
                  o.error_output = KA_STDERR_RING;
                  o.ring_bytes = 0;
              }),
              "ring_bytes is 0; KA_STDERR_RING needs at least 1");
    EXPECT_EQ(refusal([](ka_options &o) { o.trace_level = -1; }), "trace_level is -1; it must be 0 to 4");
    EXPECT_EQ(refusal([](ka_options &o) { o.trace_level = 5; }), "trace_level is 5; it must be 0 to 4");
}

TEST(Options, smallest_segment_is_the_scratch_area_and_1680_bytes)
{
    EXPECT_EQ(refusal([](ka_options &o) { o.segment_bytes = o.scratch_bytes + 1679; }),
              "segment_bytes is 67215; it must be at least scratch_bytes (65536) + 1680");
    Host host([](ka_options &options) { options.segment_bytes = options.scratch_bytes + 1680; });
    EXPECT_EQ(ka_begin(host, "nothing"), KA_TOO_BIG);
}

TEST(Options, segment_of_any_size_serves)
{
    for (int32_t size : {70000, 70001, 70003, 1 << 24}) {
        Host host([size](ka_options &options) { options.segment_bytes = size; });
        EXPECT_EQ(call_with(host, "give_code", size), size);
        EXPECT_EQ(call_with(host, "scratch_room", 1 << 16), 1);
    }
}

TEST(Options, deadline_can_be_set_between_calls)
{
    Host host;
    EXPECT_EQ(ka_set_deadline(host, 0), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "deadline_ms is 0; it must be above 0");
    EXPECT_EQ(ka_set_deadline(host, 50), KA_DONE);
    ka_begin(host, "hang");
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    EXPECT_EQ(error_text(host), tasks_module + ": a call of \"hang\" took more than 50 ms");
}
