// SPDX-License-Identifier: MIT
//
// ka dump, of blocks written by hand and of a running call.
#include "ka/command.h"

#include <csignal>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <sched.h>
#include <sys/wait.h>

#include "ka/help_examples.h"
#include "ka/own_segment.h"

namespace {

constexpr int32_t size = 8192;

Outcome dump(const OwnSegment &segment, std::vector<std::string> options = {})
{
    options.insert(options.begin(), {"dump", "--id"});
    options.push_back(std::to_string(segment.id));
    return ka(options);
}

nlohmann::json dump_json(const OwnSegment &segment, std::vector<std::string> options = {})
{
    options.push_back("--json");
    const Outcome outcome = dump(segment, options);
    EXPECT_EQ(outcome.err, "");
    return nlohmann::json::parse(outcome.out).at(0);
}

bool says(const Outcome &outcome, const std::string &text)
{
    return outcome.out.find(text) != std::string::npos;
}

template <typename Info>
void expect_the_call(const std::string &layout)
{
    OwnSegment segment(size);
    write_call(write_block<Info>(segment.bytes, size), segment.bytes);
    const Outcome outcome = dump(segment);
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    const std::string id = std::to_string(segment.id);
    const std::string pid = std::to_string(getpid());
    for (const std::string &line :
         {"segment " + id + ": 8192 bytes, attached 1 time, not marked for removal\n",
          "block: layout " + layout + ", which fits the header better\n", "  pid       " + pid + ", alive\n",
          std::string("  base      0x40000000\n"), std::string("  scratch   none\n"), std::string("  argc      4\n"),
          std::string("function name: STRING by value, at 3000, room 5\n  value     'scale'\n"),
          std::string("argument 1: STRING by reference, at 3100, room 20\n  value     'it\\'s\\n'\n"),
          std::string("argument 2: INTEGER by value, at 3200, 2 elements, 4 bytes apart\n  value     [-7, 8]\n"),
          std::string("argument 3: REAL by reference, at 3300\n  value     12.5\n")})
        EXPECT_TRUE(says(outcome, line)) << line << "not in\n" << outcome.out;
}

} // namespace

TEST(KaDump, decodes_a_call_in_the_native_layout)
{
    expect_the_call<t_DLL_INFO32>("native");
}

TEST(KaDump, decodes_a_call_in_layout_64)
{
    expect_the_call<t_DLL_INFO64>("64");
}

TEST(KaDump, shows_results_and_the_scratch_area)
{
    OwnSegment segment(size);
    auto *info = write_block<t_DLL_INFO32>(segment.bytes, size);
    info->retcode = -5;
    info->cbval = 77;
    info->scratch = own_base + 7000;
    const Outcome outcome = dump(segment);
    for (const char *line :
         {"  retcode   -5\n", "  cbval     77\n", "  scratch   1192 bytes at 7000\n", "  argc      0, no call\n"})
        EXPECT_TRUE(says(outcome, line)) << line << outcome.out;
}

TEST(KaDump, shows_what_the_last_call_left_when_it_is_asked_for)
{
    OwnSegment segment(size);
    auto *info = write_block<t_DLL_INFO32>(segment.bytes, size);
    write_call(info, segment.bytes);
    info->argc = 0;
    EXPECT_FALSE(says(dump(segment), "argument 2"));
    EXPECT_TRUE(says(dump(segment, {"--descriptors", "3"}), "  value     [-7, 8]\n"));
    EXPECT_FALSE(says(dump(segment, {"--descriptors", "3"}), "argument 3"));
}

TEST(KaDump, shows_as_many_elements_as_are_wished)
{
    OwnSegment segment(size);
    auto *info = write_block<t_DLL_INFO32>(segment.bytes, size);
    write_call(info, segment.bytes);
    info->args[2].elcnt = 1000;
    EXPECT_TRUE(says(dump(segment, {"--elements", "2"}), "  value     [-7, 8, ...]\n"));
    EXPECT_TRUE(says(dump(segment, {"--elements", "0"}), "  value     [...]\n"));
}

TEST(KaDump, has_the_same_as_json)
{
    OwnSegment segment(size);
    write_call(write_block<t_DLL_INFO64>(segment.bytes, size), segment.bytes);
    write_string(segment.bytes + 3100, "\xff\x01");
    const auto json = dump_json(segment);
    EXPECT_EQ(json["segment"]["id"], segment.id);
    EXPECT_EQ(json["segment"]["processes"][0]["pid"], getpid());
    EXPECT_EQ(json["segment"]["processes"][0]["role"], "caller");
    EXPECT_EQ(json["no_block"], nullptr);
    const auto &block = json["block"];
    EXPECT_EQ(block["layout"], "64");
    EXPECT_EQ(block["version"], DLL_VERSION);
    EXPECT_EQ(block["argc"], 4);
    EXPECT_EQ(block["descriptors"][1]["values"][0]["hex"], "ff01");
    EXPECT_EQ(block["descriptors"][2]["elcnt"], 2);
    EXPECT_EQ(block["descriptors"][3]["values"][0]["text"], "12.5");
    EXPECT_EQ(block["descriptors"][3]["by_reference"], true);
}

TEST(KaDump, names_what_is_wrong_and_has_status_1)
{
    using Change = void (*)(t_DLL_INFO32 *, char *);
    const std::pair<Change, const char *> cases[] = {
        {[](t_DLL_INFO32 *i, char *) { i->version = 0x102; }, "its version is 102, hosts take 101"},
        {[](t_DLL_INFO32 *i, char *) { i->pid = -1; }, "its pid is -1: a host that answers it ends"},
        {[](t_DLL_INFO32 *i, char *) { i->shmsz = size + 1; }, "its shmsz is 8193, the segment has 8192 bytes"},
        {[](t_DLL_INFO32 *i, char *) { i->scratch = 1; }, "its scratch address 0x1 is outside the segment"},
        {[](t_DLL_INFO32 *i, char *) { i->argc = -3; }, "its argc is -3: answered with 9"},
        {[](t_DLL_INFO32 *i, char *) { i->argc = 52; }, "its argc is 52: answered with 606"},
        {[](t_DLL_INFO32 *i, char *) { i->args[0].type = DLL_REAL; }, "the function name is not a STRING"},
        {[](t_DLL_INFO32 *i, char *) { i->args[2].type = 9; }, "there is no value type 9: answered with 8"},
        {[](t_DLL_INFO32 *i, char *) { i->args[2].ptr = own_base + size; },
         "its address 0x40002000 is outside the segment: the host aborts"},
        {[](t_DLL_INFO32 *i, char *) { i->args[2].ptr = own_base + size - 4; },
         "element 1: reaches beyond the segment"},
        {[](t_DLL_INFO32 *i, char *) { i->args[2].elcnt = -1; }, "it counts -1 elements"},
        {[](t_DLL_INFO32 *i, char *) { i->args[2].elsz = 0; }, "its elements overlap: they are 0 words apart"},
        {[](t_DLL_INFO32 *i, char *) { i->args[1].maxlen = -1; }, "its room is -1"},
        {[](t_DLL_INFO32 *i, char *) { i->args[1].maxlen = 4; }, "element 0: its length is 5, its room 4"},
        {[](t_DLL_INFO32 *, char *b) { b[3103] = 1; }, "element 0: its length is 16777221"},
        {[](t_DLL_INFO32 *, char *b) { b[3103] = '\xff'; }, "element 0: its length is -16777211"},
        {[](t_DLL_INFO32 *, char *b) { b[3302] = '\xff'; }, "element 0: null: a host ends when it is given one"},
        {[](t_DLL_INFO32 *, char *b) { b[3302] = 2; }, "element 0: not a REAL: its sign is 2"},
        {[](t_DLL_INFO32 *, char *b) { b[3303] = 9; }, "element 0: not a REAL: it counts 9 digits"},
        {[](t_DLL_INFO32 *, char *b) { b[3300] = 64; }, "element 0: not a REAL: its exponent is 64"},
        {[](t_DLL_INFO32 *, char *b) { b[3304] = 100; }, "element 0: not a REAL: a digit is 100"},
    };
    for (const auto &[change, text] : cases) {
        OwnSegment segment(size);
        auto *info = write_block<t_DLL_INFO32>(segment.bytes, size);
        write_call(info, segment.bytes);
        change(info, segment.bytes);
        const Outcome outcome = dump(segment, {"--layout", "native"});
        EXPECT_EQ(outcome.status, 1) << text;
        EXPECT_TRUE(says(outcome, std::string("  wrong     ") + text)) << text << " not in\n" << outcome.out;
    }
}

TEST(KaDump, says_why_there_is_no_block)
{
    OwnSegment segment(size);
    auto *info = write_block<t_DLL_INFO32>(segment.bytes, size);
    info->magic[7] = 1;
    const Outcome two_bytes = dump(segment);
    EXPECT_EQ(two_bytes.status, 1);
    EXPECT_TRUE(says(two_bytes, "no block: it begins with KA.DLL, but bytes 6 and 7 are 0x0 and 0x1, not 0\n"));
    EXPECT_FALSE(says(two_bytes, "version"));
    EXPECT_TRUE(says(dump(segment, {"--layout", "64"}), "version")) << "decoded all the same";
    info->magic[0] = 'X';
    EXPECT_TRUE(says(dump(segment), "no block: it begins with 'XA.DLL\\x00\\x01', not with KA.DLL"));
    OwnSegment small(16);
    EXPECT_TRUE(says(dump(small), "no block: it has 16 bytes, less than a header\n"));
}

TEST(KaDump, knows_a_caller_that_is_gone)
{
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    OwnSegment segment(size);
    write_block<t_DLL_INFO32>(segment.bytes, size)->pid = child;
    EXPECT_TRUE(says(dump(segment), "  pid       " + std::to_string(child) + ", no such process\n"));
}

TEST(KaDump, changes_nothing_and_leaves_nothing_attached)
{
    OwnSegment segment(size);
    write_call(write_block<t_DLL_INFO32>(segment.bytes, size), segment.bytes);
    const std::string before(segment.bytes, size);
    EXPECT_EQ(dump(segment).status, 0);
    EXPECT_EQ(std::string(segment.bytes, size), before);
    struct shmid_ds status;
    shmctl(segment.id, IPC_STAT, &status);
    EXPECT_EQ(status.shm_nattch, 1u);
}

// The segment of a running call is marked for removal, and is found by the host's pid, the caller's, and its own
// number.
TEST(KaDump, shows_a_running_call_by_any_of_its_numbers)
{
    for (const char *layout : {"native", "64"}) {
        const Running running = start_ka({"call", "--layout", layout, tasks_module, "nap", "600000"});
        const pid_t host = host_of(running.pid);
        const int segment = segment_of(host);
        EXPECT_TRUE(sleeps_in_a_call(host));
        const std::string from =
            "block: layout " + std::string(layout) + ", as given to host " + std::to_string(host);
        for (const std::vector<std::string> &words : {std::vector<std::string>{"--pid", std::to_string(host)},
                                                      {"--pid", std::to_string(running.pid)},
                                                      {"--id", std::to_string(segment)}}) {
            const Outcome outcome = ka({"dump", words[0], words[1]});
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            for (const std::string &text :
                 {from, std::string("removed with the last"), std::string("  value     'nap'\n"),
                  std::string("  value     600000\n"), "  host      " + std::to_string(host) + " " + tasks_module,
                  "  caller    " + std::to_string(running.pid)})
                EXPECT_TRUE(says(outcome, text)) << text << " not in\n" << outcome.out;
        }
        for (std::string example : help_examples("dump")) {
            example = std::regex_replace(example, std::regex("\\b32771\\b"), std::to_string(segment));
            example = std::regex_replace(example, std::regex("\\b4711\\b"), "--pid " + std::to_string(host));
            example = std::regex_replace(example, std::regex("--pid --pid"), "--pid");
            EXPECT_EQ(run_example(example, ".").status, 0) << example;
        }
        kill(running.pid, SIGTERM);
        await_ka(running);
        EXPECT_TRUE(segment_vanishes(segment));
    }
}

// In a new IPC namespace: what examine finds there.
static int status_in_namespace(const std::function<int()> &examine)
{
    const pid_t child = fork();
    if (child == 0) {
        const bool is_new = unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
        _exit(is_new ? examine() : 77);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The first segment of every namespace has the same number.
TEST(KaDump, another_namespaces_segment_of_that_number_is_another)
{
    const int status = status_in_namespace([] {
        OwnSegment segment(size);
        write_block<t_DLL_INFO32>(segment.bytes, size);
        const std::string stranger = std::to_string(getpid());
        return status_in_namespace([&] {
            OwnSegment own(size);
            write_block<t_DLL_INFO32>(own.bytes, size);
            if (own.id != segment.id) return 1;
            if (!says(dump(own), "attached 1 time") || says(dump(own), "process   " + stranger + " ")) return 2;
            const Outcome outcome = ka({"dump", "--pid", stranger});
            return outcome.status == 4 && outcome.err.find("in another IPC namespace") != std::string::npos ? 0 : 3;
        });
    });
    if (status == 77) GTEST_SKIP() << "new namespaces are forbidden here";
    EXPECT_EQ(status, 0);
}

TEST(KaDump, refuses_what_is_neither_segment_nor_process)
{
    const Outcome gone = ka({"dump", "2147483647"});
    EXPECT_EQ(gone.status, 4);
    EXPECT_EQ(gone.out, "");
    EXPECT_EQ(gone.err, "ka: there is no segment 2147483647, and there is no process 2147483647\n");
    EXPECT_EQ(ka({"dump", "--id", "2147483647"}).err, "ka: there is no segment 2147483647\n");
    const std::string own = std::to_string(getpid());
    EXPECT_EQ(ka({"dump", "--pid", own}).err, "ka: process " + own + " has no shared segment attached\n");
    for (const std::vector<std::string> &words : {std::vector<std::string>{"dump", "--id", "2147483647"},
                                                  {"dump", "--pid", "2147483647"},
                                                  {"dump", "--json", "2147483647"},
                                                  {"dump", "--pid", own}})
        EXPECT_EQ(ka(words).status, 4);
    for (const std::vector<std::string> &words : {std::vector<std::string>{"dump"},
                                                  {"dump", "x"},
                                                  {"dump", "--id", "--pid", "1"},
                                                  {"dump", "--layout", "32", "1"}})
        EXPECT_EQ(ka(words).status, 2);
}
