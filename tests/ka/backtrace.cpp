// SPDX-License-Identifier: MIT
//
// Backtraces of a module compiled with debug information, and of the same module stripped.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "call/backtrace.h"
#include "module_bits.h"

static const std::string with_lines = module_folder(CALLER_MODULES) + "/ka_module_crash";
static const std::string stripped = module_folder(CALLER_MODULES) + "/ka_module_crash_stripped";

struct Seen {
    std::string text;
    int32_t signal = 0;
    int32_t size = 1 << 14;
};

static void look(int32_t pid, int32_t signal, char *text, int32_t size, void *user)
{
    auto *seen = static_cast<Seen *>(user);
    backtrace_inspector()(pid, signal, text, std::min(size, seen->size), nullptr);
    seen->signal = signal;
    seen->text = text;
}

// What is seen when a function ends its host, by itself or at its deadline.
static Seen backtrace_of(const std::string &module, const char *function, int32_t size = 1 << 14)
{
    Seen seen;
    seen.size = size;
    ka_options options;
    ka_options_init(&options, sizeof options);
    options.inspector = look;
    options.user = &seen;
    options.deadline_ms = 3000;
    ka_host *host;
    int32_t code;
    EXPECT_EQ(ka_open(&host, module.c_str(), &options), KA_DONE) << ka_last_error(host)->message;
    ka_begin(host, function);
    EXPECT_NE(ka_call(host, &code), KA_DONE);
    ka_close(host);
    return seen;
}

// "crash.c:N" of the line with that comment.
static std::string place(const std::string &comment)
{
    std::ifstream source(CRASH_SOURCE);
    std::string line;
    for (int number = 1; std::getline(source, line); number++)
        if (line.find("/* " + comment + " */") != std::string::npos)
            return "crash.c:" + std::to_string(number) + "\n";
    ADD_FAILURE() << "no line with the comment " << comment;
    return "";
}

// Whether the text has these pieces in this order.
static testing::AssertionResult has(const std::string &text, const std::vector<std::string> &pieces)
{
    size_t at = 0;
    for (const std::string &piece : pieces) {
        at = text.find(piece, at);
        if (at == std::string::npos)
            return testing::AssertionFailure() << "no " << piece << " in its place:\n" << text;
    }
    return testing::AssertionSuccess();
}

TEST(Backtrace, shows_function_file_and_line_of_a_fault)
{
    const Seen seen = backtrace_of(with_lines, "crash");
    EXPECT_EQ(seen.signal, SIGSEGV);
    EXPECT_TRUE(has(seen.text, {"fault at address 0x10\n", "#0  write_to_nothing at ", place("the fault"),
                                "#1  crash at ", "KaCall at ", "dll_main", "main"}));
}

TEST(Backtrace, of_a_stripped_module_shows_addresses)
{
    const Seen seen = backtrace_of(stripped, "crash");
    EXPECT_TRUE(has(seen.text, {"#0  ka_module_crash_stripped+0x", "#1  ka_module_crash_stripped+0x", "dll_main"}));
    EXPECT_EQ(seen.text.find("write_to_nothing"), std::string::npos) << seen.text;
}

TEST(Backtrace, shows_where_a_thread_of_the_module_failed)
{
    const Seen seen = backtrace_of(with_lines, "thread");
    EXPECT_TRUE(has(seen.text, {"#0  write_to_nothing at ", place("the fault"), "run_thread at "}));
}

TEST(Backtrace, shows_where_a_function_hangs)
{
    const Seen seen = backtrace_of(with_lines, "spin");
    EXPECT_EQ(seen.signal, SIGTERM);
    EXPECT_TRUE(has(seen.text, {"#0  spin at ", place("the loop"), "KaCall at "}));
}

TEST(Backtrace, shows_which_line_used_a_null_real)
{
    const Seen seen = backtrace_of(with_lines, "null_real");
    EXPECT_EQ(seen.signal, SIGABRT);
    EXPECT_TRUE(has(seen.text, {"abort", "compute_with_null at ", place("the null REAL")}));
}

TEST(Backtrace, of_an_endless_recursion_is_folded_and_shows_where_it_began)
{
    for (const char *function : {"recurse", "thread_recurse"}) {
        const Seen seen = backtrace_of(with_lines, function);
        EXPECT_EQ(seen.signal, SIGSEGV);
        EXPECT_TRUE(seen.text.starts_with("stack overflow: fault at address 0x")) << seen.text;
        EXPECT_TRUE(has(seen.text, {"#0  recurse at ", "\n    ... ", " more of recurse\n", " recurse at "}));
        EXPECT_LT(std::count(seen.text.begin(), seen.text.end(), '\n'), 25) << seen.text;
    }
    EXPECT_TRUE(
        has(backtrace_of(with_lines, "recurse").text, {" more of recurse\n", "KaCall at ", "dll_main", "main"}));
    EXPECT_TRUE(has(backtrace_of(with_lines, "thread_recurse").text, {" more of recurse\n", "run_recursion at "}));
}

// Hundreds of thousands of the smallest frames.
TEST(Backtrace, of_functions_that_call_each_other_without_end_names_them)
{
    const Seen seen = backtrace_of(with_lines, "turns");
    EXPECT_TRUE(seen.text.starts_with("stack overflow: fault at address 0x")) << seen.text;
    const bool starts_even = seen.text.find(" more of ask_even, ask_odd\n") != std::string::npos;
    EXPECT_TRUE(starts_even || has(seen.text, {" more of ask_odd, ask_even\n"}));
    EXPECT_TRUE(has(seen.text, {" more of ask_", "KaCall at ", "main"}) ||
                has(seen.text, {"... and more: the stack"}))
        << seen.text;
}

TEST(Backtrace, counts_the_frames_that_it_folds)
{
    const Seen seen = backtrace_of(with_lines, "descend");
    EXPECT_TRUE(seen.text.starts_with("fault at address 0x10\n")) << seen.text;
    EXPECT_TRUE(has(seen.text, {"#0  write_to_nothing", "#1  descend at ", "#2  descend at ",
                                "    ... 97 more of descend\n", "#100 descend at ", "#101 KaCall at "}));
}

TEST(Backtrace, that_does_not_fit_is_cut_at_a_line)
{
    const Seen seen = backtrace_of(with_lines, "recurse", 200);
    EXPECT_LT(seen.text.size(), 200u);
    EXPECT_TRUE(has(seen.text, {"#0  recurse"}));
    EXPECT_EQ(seen.text.back(), '\n');
}

// ---- Libraries that few runs of ka need ------------------------------------------------------------------------

static std::string output_of(const std::string &command)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> output(popen((command + " 2>&1").c_str(), "r"), pclose);
    std::string text;
    char part[1024];
    while (const size_t length = fread(part, 1, sizeof part, output.get()))
        text.append(part, length);
    return text;
}

TEST(Backtrace, that_cannot_be_had_without_its_library_says_so)
{
    char folder[] = "/tmp/ka-test-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string library = folder + std::string("/libdw.so.1");
    std::ofstream(library) << "not a library";
    const std::string shown =
        output_of("LD_LIBRARY_PATH=" + std::string(folder) + " " KA_COMMAND " call " + with_lines + " crash");
    EXPECT_TRUE(has(shown, {"was killed by SIGSEGV", "fault at address 0x10", "no backtrace: ", "libdw.so.1"}));
    std::remove(library.c_str());
    std::remove(folder);
}

TEST(Backtrace, library_is_loaded_by_no_run_that_shows_none)
{
    const std::string loaded = output_of("LD_TRACE_LOADED_OBJECTS=1 " KA_COMMAND);
    EXPECT_NE(loaded.find("libc.so"), std::string::npos) << loaded;
    for (const char *seldom_needed : {"libdw", "libelf", "libedit"})
        EXPECT_EQ(loaded.find(seldom_needed), std::string::npos) << loaded;
}
