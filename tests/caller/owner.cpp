// SPDX-License-Identifier: MIT
//
// A host serves one thread at a time: a second one is refused by every function, and disturbs nothing. Hosts are
// retired beside threads that use them, and programs end beside them.
#include "caller/hosts.h"

#include <atomic>
#include <cstring>
#include <fstream>
#include <random>
#include <semaphore>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "caller/waiting.h"
#include "host/host.h"
#include "host/owner.h"

namespace {

struct Function {
    const char *name;
    // What the function gives; a pointer or a truth as 0 or 1.
    int32_t (*use)(ka_host *host);
    int32_t refused = KA_ARGUMENT;
};

int32_t integer;
t_DECIMAL real;
double number;
char buffer[64];
int32_t offsets[2];
ka_descriptor descriptor;
constexpr ka_text text = {"x", 1};

// All of ka/caller.h that use a host.
constexpr Function functions[] = {
    {"ka_set_deadline", [](ka_host *host) { return ka_set_deadline(host, 20000); }},
    {"ka_restart", [](ka_host *host) { return ka_restart(host); }},
    {"ka_scratch", [](ka_host *host) { return ka_scratch(host, nullptr) ? 1 : 0; }, 0},
    {"ka_report_text", [](ka_host *host) { return ka_report_text(host) ? 1 : 0; }, 0},
    {"ka_report_json", [](ka_host *host) { return ka_report_json(host) ? 1 : 0; }, 0},
    {"ka_error_output", [](ka_host *host) { return ka_error_output(host, buffer, sizeof buffer); }, 0},
    {"ka_reason", [](ka_host *host) { return ka_reason(host) ? 1 : 0; }, 0},
    {"ka_begin", [](ka_host *host) { return ka_begin(host, "give_code"); }},
    {"ka_add_integers", [](ka_host *host) { return ka_add_integers(host, &integer, 1, KA_BY_VALUE); }},
    {"ka_add_reals", [](ka_host *host) { return ka_add_reals(host, &real, 1, KA_BY_VALUE); }},
    {"ka_add_doubles", [](ka_host *host) { return ka_add_doubles(host, &number, 1, KA_BY_VALUE); }},
    {"ka_add_strings", [](ka_host *host) { return ka_add_strings(host, &text, 1, 0, KA_BY_VALUE); }},
    {"ka_add_integer", [](ka_host *host) { return ka_add_integer(host, 1, KA_BY_VALUE); }},
    {"ka_add_real", [](ka_host *host) { return ka_add_real(host, "1", KA_BY_VALUE); }},
    {"ka_add_double", [](ka_host *host) { return ka_add_double(host, 1, KA_BY_VALUE); }},
    {"ka_add_string", [](ka_host *host) { return ka_add_string(host, "x", 1, 0, KA_BY_VALUE); }},
    {"ka_get_descriptor", [](ka_host *host) { return ka_get_descriptor(host, 0, &descriptor); }},
    {"ka_set_descriptor", [](ka_host *host) { return ka_set_descriptor(host, 0, &descriptor); }},
    {"ka_set_argc", [](ka_host *host) { return ka_set_argc(host, 1); }},
    {"ka_call", [](ka_host *host) { return ka_call(host, &integer); }},
    {"ka_send", [](ka_host *host) { return ka_send(host); }},
    {"ka_wait",
     [](ka_host *host) {
         int32_t what = KA_WAITING;
         int32_t value = 0;
         const int32_t status = ka_wait(host, 1, &what, &value);
         EXPECT_NE(what, KA_CALLBACK) << value;
         return status;
     }},
    {"ka_answer", [](ka_host *host) { return ka_answer(host, 1); }},
    {"ka_wait_fd", [](ka_host *host) { return int32_t{ka_wait_fd(host)}; }, -1},
    {"ka_add_real_texts", [](ka_host *host) { return ka_add_real_texts(host, &text, 1, KA_BY_VALUE, nullptr); }},
    {"ka_get_real_texts",
     [](ka_host *host) { return ka_get_real_texts(host, 1, buffer, sizeof buffer, offsets, 1); }},
    {"ka_get_strings", [](ka_host *host) { return ka_get_strings(host, 1, buffer, sizeof buffer, offsets, 1); }},
    {"ka_gives_back", [](ka_host *host) { return ka_gives_back(host, 1); }, 0},
    {"ka_get_integers", [](ka_host *host) { return ka_get_integers(host, 2, &integer, 1); }},
    {"ka_get_reals", [](ka_host *host) { return ka_get_reals(host, 1, &real, 1); }},
    {"ka_get_doubles", [](ka_host *host) { return ka_get_doubles(host, 1, &number, 1); }},
    {"ka_get_string", [](ka_host *host) { return ka_get_string(host, 1, 0, buffer, sizeof buffer, &integer); }},
    {"ka_host_tables", [](ka_host *host) { return ka_host_tables(host) ? 1 : 0; }, 0},
    {"ka_set_trace", [](ka_host *host) { return ka_set_trace(host, 0); }},
    {"ka_close", [](ka_host *host) { return ka_close(host); }},
};

// They can be used beside a thread that is inside.
const std::set<std::string> for_every_thread = {"ka_open", "ka_retire", "ka_pid", "ka_last_error", "ka_cancel"};

// The functions of a header that take a host.
std::set<std::string> functions_with_a_host(const std::string &header)
{
    std::set<std::string> names;
    std::istringstream lines(read_file(header));
    for (std::string line; std::getline(lines, line);) {
        const size_t open = line.find('(');
        if (!line.starts_with("KA_API ") || line.find("ka_host *") == std::string::npos) continue;
        const size_t name = line.rfind("ka_", open);
        names.insert(line.substr(name, open - name));
    }
    return names;
}

// A thread that is inside a call, in its call-back, until leave().
class Inside {
public:
    explicit Inside(ka_host *host)
    {
        thread_ = std::thread([this, host] {
            ka_begin(host, "ask");
            ka_add_integer(host, 7, KA_BY_VALUE);
            status = ka_call(host, &code);
            told = *ka_last_error(host);
            next = ka_begin(host, "ask");
        });
        came_in().acquire();
    }
    ~Inside() { leave(); }
    // Ends the call-back and waits for the thread.
    void leave()
    {
        if (!thread_.joinable()) return;
        may_go().release();
        thread_.join();
    }
    static void options(ka_options &options)
    {
        options.callback = [](ka_host *, int32_t value, void *) {
            came_in().release();
            may_go().acquire();
            return value + 1;
        };
    }
    int32_t status = -1; // of the call
    int32_t code = -1;
    ka_error told; // to the thread, after the call
    int32_t next = -1;

private:
    static std::binary_semaphore &came_in()
    {
        static std::binary_semaphore semaphore(0);
        return semaphore;
    }
    static std::binary_semaphore &may_go()
    {
        static std::binary_semaphore semaphore(0);
        return semaphore;
    }
    std::thread thread_;
};

std::string bytes_of(const ka_host *host)
{
    return {reinterpret_cast<const char *>(host), sizeof *host};
}

std::string segment_of_host(const ka_host *host)
{
    return {host->segment.base, static_cast<size_t>(host->segment.size)};
}

// One of the functions at random, without those that take long.
int32_t use_at_random(ka_host *host, std::minstd_rand &random)
{
    const Function &function = functions[random() % std::size(functions)];
    if (function.name == std::string("ka_restart") || function.name == std::string("ka_close")) return KA_DONE;
    return function.use(host);
}

} // namespace

TEST(Owner, no_function_with_a_host_is_forgotten_here)
{
    std::set<std::string> tried = for_every_thread;
    for (const Function &function : functions)
        tried.insert(function.name);
    for (const std::string &name : functions_with_a_host(CALLER_HEADER))
        EXPECT_TRUE(tried.contains(name)) << name;
}

TEST(Owner, every_function_finds_a_host_in_use_and_changes_nothing)
{
    Host host(Inside::options);
    Inside inside(host);
    const std::string record = bytes_of(host);
    const std::string segment = segment_of_host(host);
    for (const Function &function : functions) {
        EXPECT_EQ(function.use(host), function.refused) << function.name;
        EXPECT_EQ(error_text(host), std::string(function.name) + ": the host is used by another thread");
        EXPECT_EQ(ka_last_error(host)->error_class, KA_ARGUMENT);
        EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_NO);
    }
    EXPECT_TRUE(bytes_of(host) == record);
    EXPECT_TRUE(segment_of_host(host) == segment);
    inside.leave();
    EXPECT_EQ(inside.code, 8);
}

TEST(Owner, the_process_of_a_host_in_use_can_be_asked_for)
{
    Host host(Inside::options);
    const int32_t pid = ka_pid(host);
    const Inside inside(host);
    EXPECT_GT(pid, 0);
    EXPECT_EQ(ka_pid(host), pid);
}

TEST(Owner, last_error_alone_finds_a_host_in_use)
{
    Host host(Inside::options);
    Inside inside(host);
    EXPECT_EQ(error_text(host), "ka_last_error: the host is used by another thread");
    inside.leave();
    std::thread([&] { EXPECT_EQ(error_text(host), ""); }).join();
}

TEST(Owner, a_refusal_is_told_to_the_refused_thread_alone)
{
    Host host(Inside::options);
    Inside inside(host);
    EXPECT_EQ(ka_begin(host, "add"), KA_ARGUMENT);
    inside.leave();
    EXPECT_EQ(inside.code, 8);
    EXPECT_EQ(error_text(host), "ka_begin: the host is used by another thread");
    std::thread([&] { EXPECT_EQ(error_text(host), ""); }).join();
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
    EXPECT_EQ(error_text(host), "");
}

TEST(Owner, each_host_refuses_for_itself)
{
    Host host(Inside::options);
    Host other;
    const Inside inside(host);
    EXPECT_EQ(ka_begin(host, "add"), KA_ARGUMENT);
    EXPECT_EQ(call_with(other, "give_code", 5), 5);
    EXPECT_EQ(error_text(other), "");
    EXPECT_EQ(error_text(host), "ka_begin: the host is used by another thread");
}

// Also while they build calls and read results: whoever comes in at the same time is refused, and nothing breaks.
TEST(Owner, threads_that_use_one_host_at_random_break_nothing)
{
    Host host;
    std::atomic<int> refusals{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; i++)
        threads.emplace_back([&, i] {
            std::minstd_rand random(i + 1);
            for (int k = 0; k < 20000; k++)
                if (use_at_random(host, random) == KA_ARGUMENT) refusals++;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_GT(refusals, 0);
    int32_t what = KA_WAITING;
    int32_t value;
    while (what == KA_WAITING && ka_wait(host, -1, &what, &value) == KA_DONE)
        ;
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
}

TEST(Owner, a_closed_host_is_found_closed)
{
    Host host;
    ka_host *closed = std::exchange(host.host, nullptr);
    EXPECT_EQ(ka_close(closed), KA_DONE);
    for (const Function &function : functions) {
        EXPECT_EQ(function.use(closed), function.refused == KA_ARGUMENT ? int32_t{KA_CLOSED} : function.refused)
            << function.name;
        EXPECT_EQ(error_text(closed), std::string(function.name) + ": the host was closed");
        EXPECT_EQ(ka_last_error(closed)->retry, KA_RETRY_NO);
    }
    EXPECT_EQ(ka_pid(closed), 0);
}

// ---- Retired ---------------------------------------------------------------------------------------------------

TEST(Retire, of_none_is_done)
{
    EXPECT_EQ(ka_retire(nullptr), KA_DONE);
}

TEST(Retire, of_an_idle_host_ends_it_at_once)
{
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
    const pid_t pid = ka_pid(host);
    const int segment = segment_of(pid);
    ka_host *retired = std::exchange(host.host, nullptr);
    std::thread([&] { EXPECT_EQ(ka_retire(retired), KA_DONE); }).join();
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_TRUE(segment_vanishes(segment));
    EXPECT_EQ(ka_begin(retired, "add"), KA_CLOSED);
    EXPECT_EQ(ka_retire(retired), KA_DONE);
}

TEST(Retire, of_a_host_that_never_started_frees_it)
{
    ka_host *host;
    EXPECT_EQ(ka_open(&host, "/nowhere", nullptr), KA_START);
    EXPECT_EQ(ka_retire(host), KA_DONE);
    EXPECT_EQ(ka_close(host), KA_CLOSED);
}

TEST(Retire, while_a_call_is_built_or_read_ends_it)
{
    for (const bool called : {false, true}) {
        Host host;
        ka_begin(host, "add");
        if (called) ka_add_integers(host, &integer, 1, KA_BY_VALUE);
        ka_host *retired = std::exchange(host.host, nullptr);
        std::thread([&] { EXPECT_EQ(ka_retire(retired), KA_DONE); }).join();
        EXPECT_EQ(ka_add_integer(retired, 1, KA_BY_VALUE), KA_CLOSED);
        EXPECT_EQ(error_text(retired), "ka_add_integer: the host was closed");
        EXPECT_EQ(ka_call(retired, &integer), KA_CLOSED);
    }
}

TEST(Retire, beside_a_callback_waits_for_the_thread_inside)
{
    Host host(Inside::options);
    const pid_t pid = ka_pid(host);
    const int segment = segment_of(pid);
    ka_host *retired = std::exchange(host.host, nullptr);
    Inside inside(retired);
    EXPECT_EQ(ka_retire(retired), KA_DONE);
    EXPECT_EQ(ka_retire(retired), KA_DONE);
    EXPECT_EQ(ka_begin(retired, "add"), KA_ARGUMENT);
    EXPECT_EQ(kill(pid, 0), 0);
    inside.leave();
    EXPECT_EQ(inside.status, KA_CANCELLED);
    EXPECT_EQ(inside.told.error_class, KA_CANCELLED);
    EXPECT_EQ(inside.next, KA_CLOSED);
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_TRUE(segment_vanishes(segment));
    EXPECT_EQ(ka_begin(retired, "add"), KA_CLOSED);
}

TEST(Retire, in_a_callback_of_its_own_ends_the_host_after_it)
{
    ka_options options = default_options();
    options.callback = [](ka_host *own, int32_t value, void *) {
        EXPECT_EQ(ka_retire(own), KA_DONE);
        EXPECT_NE(ka_scratch(own, nullptr), nullptr);
        return value;
    };
    ka_host *host;
    ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE);
    const pid_t pid = ka_pid(host);
    ka_begin(host, "ask");
    ka_add_integer(host, 7, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_CANCELLED);
    EXPECT_EQ(ka_begin(host, "ask"), KA_CLOSED);
    EXPECT_EQ(kill(pid, 0), -1);
}

TEST(Retire, beside_a_thread_that_waits_ends_its_call)
{
    for (const int32_t transport : {KA_TRANSPORT_SIGNALS, KA_TRANSPORT_FAST, KA_TRANSPORT_PLAIN}) {
        ka_options options = default_options();
        options.transport = transport;
        ka_host *host;
        ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE);
        const pid_t pid = ka_pid(host);
        std::thread user([&] {
            ka_begin(host, "hang");
            EXPECT_EQ(call_fails(host), KA_CANCELLED);
            EXPECT_EQ(ka_last_error(host)->error_class, KA_CANCELLED);
            EXPECT_EQ(ka_begin(host, "hang"), KA_CLOSED);
        });
        EXPECT_TRUE(is_in_function(pid));
        EXPECT_EQ(ka_retire(host), KA_DONE);
        user.join();
        EXPECT_EQ(kill(pid, 0), -1);
    }
}

// Whatever the thread does at that moment: start, wait for tables, build, call, read.
TEST(Retire, beside_threads_that_use_the_host_at_random_breaks_nothing)
{
    for (unsigned round = 0; round < 40; round++) {
        ka_options options = default_options();
        options.transport = static_cast<int32_t>(round % 3);
        options.callback = [](ka_host *, int32_t value, void *) { return value + 1; };
        ka_host *host;
        ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE);
        const pid_t pid = ka_pid(host);
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < 3; i++)
            threads.emplace_back([host, i, round] {
                std::minstd_rand random(100 * round + i + 1);
                int32_t result = KA_DONE;
                while (result != KA_CLOSED) {
                    result = use_at_random(host, random);
                    if (result != KA_DONE && ka_last_error(host)->error_class == KA_CLOSED) break;
                }
            });
        std::this_thread::sleep_for(std::chrono::microseconds(200 * round));
        EXPECT_EQ(ka_retire(host), KA_DONE);
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(kill(pid, 0), -1);
        EXPECT_EQ(ka_begin(host, "add"), KA_CLOSED);
    }
}

TEST(Retire, beside_a_start_cancels_it)
{
    static constexpr const char *words[] = {"sh", "-c", "exec sleep 60", nullptr};
    ka_host *host = nullptr;
    std::thread user([&] {
        ka_options options = default_options();
        options.under = words;
        EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_CANCELLED);
        EXPECT_EQ(ka_last_error(host)->error_class, KA_CANCELLED);
        EXPECT_EQ(ka_begin(host, "add"), KA_CLOSED);
    });
    EXPECT_TRUE(becomes_true([&] { return __atomic_load_n(&host, __ATOMIC_SEQ_CST) && ka_pid(host) != 0; }));
    EXPECT_EQ(ka_retire(host), KA_DONE);
    user.join();
    EXPECT_EQ(ka_pid(host), 0);
}

TEST(Retire, between_the_steps_of_a_call_ends_it_at_once)
{
    for (const int32_t transport : {KA_TRANSPORT_SIGNALS, KA_TRANSPORT_FAST, KA_TRANSPORT_PLAIN}) {
        for (const bool with_fd : {false, true}) {
            for (const char *function : {"hang", "ask"}) {
                ka_options options = default_options();
                options.transport = transport;
                ka_host *host;
                ASSERT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_DONE);
                const pid_t pid = ka_pid(host);
                const int descriptors = open_descriptors();
                EXPECT_TRUE(!with_fd || ka_wait_fd(host) >= 0);
                ka_begin(host, function);
                if (function[0] == 'a') ka_add_integer(host, 7, KA_BY_VALUE);
                int32_t what = -1;
                int32_t value;
                EXPECT_EQ(ka_send(host), KA_DONE);
                EXPECT_EQ(ka_wait(host, function[0] == 'a' ? -1 : 20, &what, &value), KA_DONE);
                EXPECT_EQ(what, function[0] == 'a' ? KA_CALLBACK : KA_WAITING);
                std::thread([&] { EXPECT_EQ(ka_retire(host), KA_DONE); }).join();
                EXPECT_EQ(kill(pid, 0), -1);
                EXPECT_LT(open_descriptors(), descriptors);
                EXPECT_EQ(ka_wait(host, -1, &what, &value), KA_CLOSED);
                EXPECT_EQ(ka_cancel(host), 0);
            }
        }
    }
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 5), 5);
}

// As a thread that was held up on its way out of a host that others have retired, with many hosts after it.
TEST(Retire, that_comes_late_leaves_another_host_in_the_same_place_alone)
{
    ka_host *retired = nullptr;
    ka_open(&retired, "/nowhere", nullptr);
    EXPECT_EQ(ka_retire(retired), KA_DONE);
    ka_host *host = nullptr;
    for (int i = 0; i < 100 && host != retired; i++) {
        EXPECT_EQ(ka_close(host), KA_DONE);
        remove_retired(retired);
        ka_open(&host, "/nowhere", nullptr);
    }
    ASSERT_EQ(host, retired);
    remove_retired(retired);
    EXPECT_EQ(ka_close(host), KA_DONE);
}

TEST(Retire, that_is_under_way_keeps_its_place)
{
    ka_host *host = nullptr;
    ka_open(&host, "/nowhere", nullptr);
    ka_host *const kept = host;
    kept->held++; // as ka_retire does
    for (int i = 0; i < 200; i++) {
        EXPECT_EQ(ka_close(host), KA_DONE);
        ka_open(&host, "/nowhere", nullptr);
        ASSERT_NE(host, kept);
    }
    kept->held--;
    EXPECT_EQ(ka_close(host), KA_DONE);
}

// ---- The end of the program --------------------------------------------------------------------------------------

// With exit(), beside a thread that uses a host: as an interpreter ends beside a daemon thread.
TEST(Exit, beside_a_thread_that_uses_a_host_is_in_order)
{
    static char module[1024];
    snprintf(module, sizeof module, "%s", tasks_module.c_str());
    for (int round = 0; round < 50; round++) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            static int32_t host_pid;
            static std::atomic<bool> called{false};
            pthread_t thread;
            pthread_create(
                &thread, nullptr,
                [](void *kind) -> void * {
                    ka_host *host;
                    int32_t code;
                    const auto way = reinterpret_cast<intptr_t>(kind);
                    ka_open(&host, module, nullptr);
                    host_pid = ka_pid(host);
                    for (;;) {
                        ka_begin(host, way == 0 ? "hang" : "add");
                        for (int i = 0; way != 0 && i < 3; i++)
                            ka_add_integer(host, i, KA_BY_REFERENCE);
                        called = way == 0;
                        if (way != 1) ka_call(host, &code);
                        called = true;
                        ka_get_integers(host, 3, &code, 1);
                    }
                },
                reinterpret_cast<void *>(static_cast<intptr_t>(round % 3)));
            while (!called)
                usleep(100);
            usleep(static_cast<useconds_t>(round * 50));
            if (write(ready[1], &host_pid, sizeof host_pid) != sizeof host_pid) _exit(1);
            exit(0);
        }
        close(ready[1]);
        int32_t host_pid = 0;
        EXPECT_EQ(read(ready[0], &host_pid, sizeof host_pid), static_cast<ssize_t>(sizeof host_pid));
        close(ready[0]);
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(ends(host_pid));
    }
}
