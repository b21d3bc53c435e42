// SPDX-License-Identifier: MIT
//
// ka_options.segment_max: the segment becomes as large as a call needs.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <numeric>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "caller/hosts.h"

class Growth : public EveryWay {
protected:
    static constexpr int32_t first = 1 << 17;
    static constexpr int32_t most = 1 << 24;

    std::function<void(ka_options &)> growing(int32_t segment_max = most, int32_t restart = KA_RESTART_NEVER) const
    {
        return [=, this](ka_options &options) {
            layout()(options);
            options.segment_bytes = first;
            options.segment_max = segment_max;
            options.restart = restart;
            options.restart_pause_ms = 0;
        };
    }
};
IN_EVERY_WAY(Growth);

namespace {

constexpr int32_t many = 50000;

std::vector<int32_t> numbers(int32_t count)
{
    std::vector<int32_t> made(static_cast<size_t>(count));
    std::iota(made.begin(), made.end(), 1);
    return made;
}

int32_t add_numbers(ka_host *host, int32_t count)
{
    ka_begin(host, "double");
    return ka_add_integers(host, numbers(count).data(), count, KA_BY_REFERENCE);
}

void expect_doubled(ka_host *host, int32_t count)
{
    EXPECT_EQ(call(host), 0);
    std::vector<int32_t> expected = numbers(count);
    for (int32_t &number : expected)
        number *= 2;
    EXPECT_EQ(integers(host, 1, count), expected);
}

int32_t call_count(ka_host *host)
{
    ka_begin(host, "count_call");
    return call(host);
}

} // namespace

TEST_P(Growth, a_first_call_has_the_segment_that_it_needs)
{
    const Host host(growing());
    const pid_t before = ka_pid(host);
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    EXPECT_EQ(ka_pid(host), before); // nothing waits before ka_call
    expect_doubled(host, many);
    EXPECT_NE(ka_pid(host), before);
    EXPECT_TRUE(ends(before));
    const pid_t grown = ka_pid(host);
    EXPECT_EQ(call_count(host), 1);
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    expect_doubled(host, many);
    EXPECT_EQ(call_count(host), 2);
    EXPECT_EQ(ka_pid(host), grown);
}

TEST_P(Growth, arguments_before_it_and_after_it_arrive)
{
    const Host host(growing());
    const std::string text(30000, 'x');
    ka_begin(host, "describe");
    int32_t expected = 0;
    for (int i = 0; i < 10; i++) {
        ka_add_integers(host, numbers(5).data(), 5, KA_BY_REFERENCE);
        ka_add_string(host, text.data(), static_cast<int32_t>(text.size()), 0, KA_BY_REFERENCE);
        ka_add_real(host, "0.5", KA_BY_REFERENCE);
        expected += 305 + 801 + 501;
    }
    EXPECT_EQ(call(host), expected);
    for (int i = 0; i < 10; i++) {
        EXPECT_EQ(integers(host, 3 * i + 1, 5), numbers(5));
        int32_t length = 0;
        std::string got(text.size(), '.');
        EXPECT_EQ(ka_get_string(host, 3 * i + 2, 0, got.data(), static_cast<int32_t>(got.size()), &length), KA_DONE);
        EXPECT_EQ(got, text);
        EXPECT_EQ(reals(host, 3 * i + 3, 1), std::vector<std::string>({"0.5"}));
    }
}

TEST_P(Growth, the_scratch_area_stays_where_it_is)
{
    const Host host(growing());
    int32_t size = 0;
    char *scratch = static_cast<char *>(ka_scratch(host, &size));
    EXPECT_EQ(size, 1 << 16);
    memset(scratch, 'a', static_cast<size_t>(size));
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    EXPECT_EQ(ka_scratch(host, &size), scratch);
    EXPECT_EQ(std::count(scratch, scratch + size, 'a'), size);
    memset(scratch, 'b', static_cast<size_t>(size));
    expect_doubled(host, many);
    EXPECT_EQ(ka_scratch(host, &size), scratch);
    EXPECT_EQ(std::count(scratch, scratch + size, 'b'), size);
    EXPECT_EQ(call_with(host, "scratch_room", size), 1);
    EXPECT_EQ(std::count(scratch, scratch + size, 's'), size);
    EXPECT_EQ(call_with(host, "scratch_room", size + 1), 0);
}

TEST_P(Growth, later_a_restart_makes_room)
{
    const Host host(growing());
    char *scratch = static_cast<char *>(ka_scratch(host, nullptr));
    memset(scratch, 'a', 1 << 16);
    EXPECT_EQ(call_count(host), 1);
    EXPECT_EQ(add_numbers(host, many), KA_TOO_BIG);
    EXPECT_EQ(call_fails(host), KA_TOO_BIG);
    EXPECT_EQ(call_count(host), 2); // its memory is its own
    EXPECT_EQ(add_numbers(host, many), KA_TOO_BIG);
    EXPECT_EQ(ka_restart(host), KA_DONE) << error_text(host);
    EXPECT_EQ(ka_scratch(host, nullptr), scratch);
    EXPECT_EQ(std::count(scratch, scratch + (1 << 16), 'a'), 1 << 16);
    EXPECT_EQ(call_count(host), 1);
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    expect_doubled(host, many);
}

TEST_P(Growth, other_restarts_keep_the_size)
{
    const Host host(growing());
    EXPECT_EQ(call_count(host), 1);
    EXPECT_EQ(add_numbers(host, many), KA_TOO_BIG);
    EXPECT_EQ(call_count(host), 2); // the last function did not fail
    EXPECT_EQ(ka_restart(host), KA_DONE);
    EXPECT_EQ(call_count(host), 1);
    EXPECT_EQ(add_numbers(host, many), KA_TOO_BIG);
}

TEST_P(Growth, what_has_grown_stays_so_after_a_death)
{
    const Host host(growing(most, KA_RESTART_NEXT_CALL));
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    expect_doubled(host, many);
    ka_begin(host, "die_by");
    ka_add_integer(host, SIGKILL, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    expect_doubled(host, many);
}

// There is no process: the one to come gets the segment that the call needs.
TEST_P(Growth, a_call_that_starts_the_host_again_has_what_it_needs)
{
    const Host host(growing(most, KA_RESTART_NEXT_CALL));
    ka_begin(host, "die_by");
    ka_add_integer(host, SIGKILL, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    expect_doubled(host, many);
}

TEST_P(Growth, ends_at_segment_max)
{
    const int32_t needed = [&] {
        const Host host(growing(0));
        EXPECT_EQ(add_numbers(host, many), KA_TOO_BIG);
        return static_cast<int32_t>(ka_last_error(host)->needed_bytes);
    }();
    const Host enough(growing(needed));
    EXPECT_EQ(add_numbers(enough, many), KA_DONE);
    expect_doubled(enough, many);
    const Host too_small(growing(needed - 1));
    EXPECT_EQ(add_numbers(too_small, many), KA_TOO_BIG);
    EXPECT_EQ(ka_last_error(too_small)->needed_bytes, needed);
    EXPECT_EQ(ka_restart(too_small), KA_DONE);
    EXPECT_EQ(add_numbers(too_small, many), KA_TOO_BIG);
    EXPECT_EQ(call_count(too_small), 1);
}

TEST_P(Growth, a_call_that_is_given_up_costs_a_process_at_most)
{
    const Host host(growing());
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    EXPECT_EQ(call_count(host), 1);
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    expect_doubled(host, many);
    EXPECT_EQ(call_count(host), 2);
}

TEST_P(Growth, a_refused_call_does_not_count)
{
    const Host host(growing());
    ka_begin(host, "no such function");
    EXPECT_EQ(call_fails(host), KA_REFUSED);
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    expect_doubled(host, many);
}

TEST_P(Growth, tables_and_trace_level_hold_between)
{
    const Host host(growing());
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    EXPECT_NE(ka_host_tables(host), nullptr) << error_text(host);
    EXPECT_EQ(ka_set_trace(host, 0), KA_DONE) << error_text(host);
    expect_doubled(host, many);
    EXPECT_NE(ka_host_tables(host), nullptr) << error_text(host);
}

TEST_P(Growth, descriptors_that_were_set_stay_so)
{
    const Host host([this](ka_options &options) {
        growing()(options);
        options.checking = KA_RAW;
    });
    ka_descriptor before;
    ka_descriptor after;
    EXPECT_EQ(add_numbers(host, 5), KA_DONE);
    EXPECT_EQ(ka_get_descriptor(host, 1, &before), KA_DONE);
    before.offset += 4;
    before.elcnt = 3;
    before.maxlen = 77;
    EXPECT_EQ(ka_set_descriptor(host, 1, &before), KA_DONE);
    EXPECT_EQ(ka_add_integers(host, numbers(many).data(), many, KA_BY_VALUE), KA_DONE);
    EXPECT_EQ(ka_get_descriptor(host, 1, &after), KA_DONE);
    EXPECT_EQ(after.offset, before.offset);
    EXPECT_EQ(after.elcnt, 3);
    EXPECT_EQ(after.maxlen, 77);
    EXPECT_EQ(ka_set_argc(host, 2), KA_DONE); // the second is not among them
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(integers(host, 1, 5), std::vector<int32_t>({1, 4, 6, 8, 5}));
}

TEST_P(Growth, leaves_nothing)
{
    for (int step = 0; step < 3; step++) {
        pid_t before;
        pid_t after;
        {
            const Host host(growing());
            before = ka_pid(host);
            EXPECT_EQ(step > 0 ? add_numbers(host, many) : int32_t{KA_DONE}, KA_DONE);
            if (step > 1) expect_doubled(host, many);
            after = ka_pid(host);
        }
        EXPECT_TRUE(ends(before));
        EXPECT_TRUE(ends(after));
    }
    EXPECT_TRUE(segments_of_creator_vanish(getpid()));
}

TEST_P(Growth, a_child_of_the_program_closes_its_copy)
{
    const Host host(growing());
    EXPECT_EQ(add_numbers(host, many), KA_DONE);
    const pid_t child = fork();
    if (child == 0) _exit(ka_close(host) == KA_DONE ? 0 : 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    expect_doubled(host, many);
}

TEST_P(Growth, addresses_are_asked_for_at_the_start)
{
    if (sizeof(void *) > 4) return; // there are enough
    ka_options options = default_options();
    growing(INT32_MAX - 8192)(options);
    ka_host *host[3];
    int32_t last = KA_DONE;
    for (ka_host *&each : host)
        last = ka_open(&each, tasks_module.c_str(), &options);
    EXPECT_EQ(last, KA_SYSTEM);
    EXPECT_EQ(error_text(host[2]), "cannot reserve addresses for segment_max: Cannot allocate memory");
    EXPECT_EQ(ka_last_error(host[2])->sys_errno, ENOMEM);
    for (ka_host *each : host)
        ka_close(each);
}
