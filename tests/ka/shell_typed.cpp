// SPDX-License-Identifier: MIT
//
// ka shell as a person meets it: at a terminal.
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "caller/waiting.h"
#include "ka/command.h"
#include "ka/pseudo_terminal.h"

namespace {

const std::string prompt = "caller_module_tasks> ";
const std::string up = "\x1b[A";
const std::string left = "\x1b[D";
const std::string home_key = "\x01";
const std::string ctrl_c = "\x03";
const std::string ctrl_d = "\x04";
const std::string ctrl_r = "\x12";

// A home of its own for each test.
class KaShell : public testing::Test {
protected:
    KaShell()
    {
        std::string name = testing::TempDir() + "ka_shell.XXXXXX";
        home_ = mkdtemp(name.data());
    }
    ~KaShell() override { std::filesystem::remove_all(home_); }

    std::string history() const { return home_ + "/.local/state/ka/history"; }

    std::unique_ptr<PseudoTerminal> start(const std::vector<std::string> &more_settings = {})
    {
        return start_program({KA_COMMAND, "shell", tasks_module}, more_settings);
    }

    // At its first prompt.
    std::unique_ptr<PseudoTerminal> start_program(const std::vector<std::string> &words,
                                                  const std::vector<std::string> &more_settings = {},
                                                  const std::string &its_prompt = prompt)
    {
        std::vector<std::string> settings = {"TERM=xterm", "HOME=" + home_, "XDG_STATE_HOME=", "LC_ALL=C.UTF-8"};
        settings.insert(settings.end(), more_settings.begin(), more_settings.end());
        auto terminal = std::make_unique<PseudoTerminal>(words, settings);
        EXPECT_TRUE(terminal->shows(its_prompt)) << terminal->output();
        return terminal;
    }

    std::string home_;
};

bool becomes_stopped(pid_t pid)
{
    const std::string status = "/proc/" + std::to_string(pid) + "/status";
    return becomes_true([&] { return read_file(status).find("\nState:\tT") != std::string::npos; });
}

// Lets the program run to the end of its next read.
void run_until_read(pid_t pid)
{
    __ptrace_syscall_info call = {};
    for (uint64_t number = 0; call.op != PTRACE_SYSCALL_INFO_EXIT || number != SYS_read;) {
        ASSERT_EQ(ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr), 0);
        int status;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSTOPPED(status)) << status;
        if (call.op == PTRACE_SYSCALL_INFO_ENTRY) number = call.entry.nr;
        ASSERT_GT(ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof call, &call), 0);
    }
}

void send_while_key_is_worked_on(PseudoTerminal &terminal, const std::string &key, int signal)
{
    const pid_t pid = terminal.pid();
    ASSERT_EQ(ptrace(PTRACE_SEIZE, pid, nullptr, PTRACE_O_TRACESYSGOOD), 0);
    ASSERT_EQ(ptrace(PTRACE_INTERRUPT, pid, nullptr, nullptr), 0);
    ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
    terminal.type(key);
    run_until_read(pid);
    kill(pid, signal);
    ASSERT_EQ(ptrace(PTRACE_DETACH, pid, nullptr, nullptr), 0);
}

// Types a line and waits for what must come of it, and for the next prompt.
void expect(PseudoTerminal &terminal, const std::string &keys, const std::string &result)
{
    terminal.type(keys + "\n");
    EXPECT_TRUE(terminal.shows(result)) << keys << ":\n" << terminal.output();
    EXPECT_TRUE(terminal.shows(prompt)) << keys << ":\n" << terminal.output();
}

void expect_end(PseudoTerminal &terminal, int status)
{
    EXPECT_EQ(terminal.end(), status) << terminal.output();
}

} // namespace

TEST_F(KaShell, calls_functions_of_one_host)
{
    const auto terminal = start();
    expect(*terminal, "add 2 40 0", "sum = 42\r\nreturn code 0\r\n");
    expect(*terminal, "count_call", "return code 1\r\n");
    expect(*terminal, "count_call", "return code 2\r\n");
    terminal->type(ctrl_d);
    expect_end(*terminal, 0);
}

TEST_F(KaShell, ends_at_quit_and_leaves_no_host)
{
    const auto terminal = start();
    const pid_t host = host_of(terminal->pid());
    const int segment = segment_of(host);
    terminal->type(":quit\n");
    expect_end(*terminal, 0);
    EXPECT_TRUE(ends(host));
    EXPECT_TRUE(segment_vanishes(segment));
}

TEST_F(KaShell, keeps_results_in_variables)
{
    const auto terminal = start();
    expect(*terminal, "add 2 40 0", "sum = 42\r\n");
    expect(*terminal, "add $sum 1 0", "sum = 43\r\n");
    expect(*terminal, "n = [1, 2]", "\r\n");
    expect(*terminal, ":vars", "n = [1, 2]\r\nsum = 43\r\n");
    expect(*terminal, "give_code $nothing", "there is no variable $nothing; these are known: $n $sum\r\n");
}

// ---- Editing ---------------------------------------------------------------------------------------------------

TEST_F(KaShell, lines_are_edited_with_the_cursor_keys)
{
    const auto terminal = start();
    expect(*terminal, "give_code 4" + left + "1", "return code 14\r\n");
    expect(*terminal, "code 5" + home_key + "give_", "return code 5\r\n");
    expect(*terminal, "measure \xc3\xa9\xc3\xa8" + left + "x", "return code 5\r\n");
}

TEST_F(KaShell, brings_back_earlier_lines)
{
    const auto terminal = start();
    expect(*terminal, "give_code 7", "return code 7\r\n");
    expect(*terminal, "give_code 8", "return code 8\r\n");
    expect(*terminal, up + up, "return code 7\r\n");
}

TEST_F(KaShell, keeps_lines_from_session_to_session_for_their_owner_alone)
{
    auto terminal = start();
    expect(*terminal, "give_code 7", "return code 7\r\n");
    expect(*terminal, " give_code 8", "return code 8\r\n");
    terminal->type(ctrl_d);
    expect_end(*terminal, 0);
    struct stat status;
    ASSERT_EQ(stat(history().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(read_file(history()), "give_code 7\n");
    terminal = start();
    expect(*terminal, up, "return code 7\r\n");
    expect(*terminal, ctrl_r + "code 7\x1b", "\r\n");
}

TEST_F(KaShell, history_does_not_grow_without_end)
{
    std::filesystem::create_directories(home_ + "/ka");
    std::ofstream file(home_ + "/ka/history");
    for (int i = 0; i < 2500; i++)
        file << "give_code " << i << "\n";
    file.close();
    const auto terminal = start({"XDG_STATE_HOME=" + home_});
    expect(*terminal, up, "return code 2499\r\n");
    expect(*terminal, "give_code 1", "return code 1\r\n");
    const std::string kept = read_file(home_ + "/ka/history");
    EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 1001);
    EXPECT_TRUE(kept.starts_with("give_code 1500\n")) << kept.substr(0, 100);
    EXPECT_TRUE(kept.ends_with("give_code 2499\ngive_code 1\n"));
}

TEST_F(KaShell, history_of_few_long_lines_is_cut_too)
{
    std::filesystem::create_directories(home_ + "/ka");
    std::ofstream file(home_ + "/ka/history");
    for (int i = 0; i < 60; i++)
        file << "measure " << std::string(10000, 'x') << i << "\n";
    file << "give_code 5\n";
    file.close();
    const auto terminal = start({"XDG_STATE_HOME=" + home_});
    expect(*terminal, up, "return code 5\r\n");
    const std::string kept = read_file(home_ + "/ka/history");
    EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 27);
    EXPECT_TRUE(kept.ends_with("59\ngive_code 5\n"));
}

TEST_F(KaShell, history_that_is_too_long_is_left_alone)
{
    std::filesystem::create_directories(home_ + "/ka");
    const std::string content = "give_code 7\n" + std::string(1 << 20, 'x') + "\ngive_code 7\n";
    std::ofstream(home_ + "/ka/history") << content;
    const auto terminal = start({"XDG_STATE_HOME=" + home_});
    expect(*terminal, up + "give_code 8", "return code 8\r\n"); // there is no earlier line
    terminal->type(ctrl_d);
    expect_end(*terminal, 0);
    EXPECT_EQ(read_file(home_ + "/ka/history"), content);
}

TEST_F(KaShell, history_that_is_no_file_hangs_nothing)
{
    std::filesystem::create_directories(home_ + "/ka");
    ASSERT_EQ(mkfifo((home_ + "/ka/history").c_str(), 0600), 0);
    const auto terminal = start({"XDG_STATE_HOME=" + home_});
    expect(*terminal, "give_code 8", "return code 8\r\n");
    terminal->type(ctrl_d);
    expect_end(*terminal, 0);
    // Nor is one that somebody reads written to.
    const int reader = open((home_ + "/ka/history").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_NE(reader, -1);
    const auto again = start({"XDG_STATE_HOME=" + home_});
    expect(*again, "give_code 9", "return code 9\r\n");
    char byte;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    close(reader);
}

// ---- Completion ------------------------------------------------------------------------------------------------

TEST_F(KaShell, tab_completes_functions_variables_and_orders)
{
    const auto terminal = start();
    expect(*terminal, "measu\tabcd", "return code 4\r\n");
    expect(*terminal, "add 2 40 0", "sum = 42\r\n");
    expect(*terminal, "give_code $s\t", "return code 42\r\n");
    expect(*terminal, ":va\t", "sum = 42\r\n");
    expect(*terminal, ":list give_\t", "IntByValue");
}

TEST_F(KaShell, tab_lists_what_is_left_to_choose)
{
    const auto terminal = start();
    terminal->type("scr\t");
    EXPECT_TRUE(terminal->shows("scratch_room")) << terminal->output();
    EXPECT_TRUE(terminal->shows("scribble")) << terminal->output();
    EXPECT_TRUE(terminal->shows(prompt + "scr")) << terminal->output();
    expect(*terminal, "at\t10", "return code 1\r\n");
}

TEST_F(KaShell, tab_shows_what_a_function_takes)
{
    const auto terminal = start();
    terminal->type("add 2 \t");
    EXPECT_TRUE(terminal->shows("add a:IntByValue b:IntByValue sum:IntByReference\r\n")) << terminal->output();
    expect(*terminal, "40 0", "sum = 42\r\n");
}

TEST_F(KaShell, tab_shows_what_the_author_has_written)
{
    const std::string name = "caller_module_documented_stripped";
    const auto terminal =
        start_program({KA_COMMAND, "shell", module_folder(CALLER_MODULES) + "/" + name}, {}, name + "> ");
    terminal->type("good \t");
    EXPECT_TRUE(terminal->shows("good a:IntByValue b:IntByValue c:IntByValue d:IntByValue\r\n"
                                "  adds, \xc3\xa4hnlich\r\n"
                                "  a: the first\r\n"
                                "  c: the \\x1b[31mthird\r\n"
                                "  of four\r\n"))
        << terminal->output();
    terminal->type("1 2 3 4\n");
    EXPECT_TRUE(terminal->shows("return code 0\r\n")) << terminal->output();
}

// ---- Interruptions ---------------------------------------------------------------------------------------------

TEST_F(KaShell, ctrl_c_ends_the_call_and_the_session_goes_on)
{
    const auto terminal = start();
    expect(*terminal, "count_call", "return code 1\r\n");
    const pid_t host = host_of(terminal->pid());
    terminal->type("hang\n");
    EXPECT_TRUE(sleeps_in_a_call(host));
    terminal->type(ctrl_c);
    EXPECT_TRUE(terminal->shows("a call of \"hang\" was cancelled")) << terminal->output();
    EXPECT_TRUE(terminal->shows("  function   hang\r\n")) << terminal->output();
    EXPECT_TRUE(terminal->shows("  backtrace  #0 ")) << terminal->output();
    EXPECT_TRUE(terminal->shows(prompt)) << terminal->output();
    EXPECT_TRUE(ends(host));
    expect(*terminal, "count_call", "return code 1\r\n");
    expect(*terminal, "count_call", "return code 2\r\n");
    EXPECT_NE(terminal->output().find("the module was started again"), std::string::npos) << terminal->output();
}

TEST_F(KaShell, ctrl_c_at_the_prompt_gives_the_line_up)
{
    const auto terminal = start();
    expect(*terminal, "count_call", "return code 1\r\n");
    terminal->type("give_code 3");
    EXPECT_TRUE(terminal->shows("give_code 3"));
    terminal->type(ctrl_c);
    EXPECT_TRUE(terminal->shows(prompt)) << terminal->output();
    expect(*terminal, "count_call", "return code 2\r\n");
    terminal->type(ctrl_c);
    EXPECT_TRUE(terminal->shows(prompt)) << terminal->output();
    terminal->type(ctrl_d);
    expect_end(*terminal, 0);
}

TEST_F(KaShell, sigterm_ends_the_session)
{
    for (const std::string line : {"", "hang\n"}) {
        const auto terminal = start();
        const pid_t host = host_of(terminal->pid());
        terminal->type(line);
        EXPECT_TRUE(line.empty() || sleeps_in_a_call(host));
        kill(terminal->pid(), SIGTERM);
        expect_end(*terminal, 130);
        EXPECT_TRUE(ends(host));
    }
}

TEST_F(KaShell, a_terminal_that_goes_away_ends_session_and_host)
{
    auto terminal = start();
    const pid_t host = host_of(terminal->pid());
    const int segment = segment_of(host);
    terminal.reset();
    EXPECT_TRUE(ends(host));
    EXPECT_TRUE(segment_vanishes(segment));
}

TEST_F(KaShell, what_is_typed_during_a_call_is_done_after_it)
{
    const auto terminal = start();
    terminal->type("nap 300\n");
    EXPECT_TRUE(sleeps_in_a_call(host_of(terminal->pid())));
    terminal->type("give_code 5\ngive_code 6\n" + ctrl_d);
    EXPECT_TRUE(terminal->shows("return code 5")) << terminal->output();
    EXPECT_TRUE(terminal->shows("return code 6")) << terminal->output();
    expect_end(*terminal, 0);
}

// ---- Orders ----------------------------------------------------------------------------------------------------

TEST_F(KaShell, restart_gives_the_module_new_memory)
{
    const auto terminal = start();
    expect(*terminal, "count_call", "return code 1\r\n");
    const pid_t host = host_of(terminal->pid());
    expect(*terminal, ":restart", "the module was started again");
    EXPECT_TRUE(ends(host));
    expect(*terminal, "count_call", "return code 1\r\n");
}

TEST_F(KaShell, a_crash_is_told_and_the_session_goes_on)
{
    const auto terminal = start();
    expect(*terminal, "add 2 40 0", "sum = 42\r\n");
    expect(*terminal, "die_by 11", "SIGSEGV");
    EXPECT_NE(terminal->output().find("1 number = 11"), std::string::npos) << terminal->output();
    EXPECT_NE(terminal->output().find("backtrace"), std::string::npos) << terminal->output();
    expect(*terminal, "give_code $sum", "return code 42\r\n");
    expect(*terminal, "leave 3", "3");
    expect(*terminal, "count_call", "return code 1\r\n");
}

TEST_F(KaShell, deadline_can_be_set)
{
    const auto terminal = start();
    expect(*terminal, ":deadline 0.1", "\r\n");
    expect(*terminal, "hang", "took more than 100 ms");
    expect(*terminal, ":deadline soon", ":deadline takes a time from 1ms to 500h, such as 10s, not \"soon\"\r\n");
}

// ---- Terminals -------------------------------------------------------------------------------------------------

TEST_F(KaShell, works_on_a_terminal_that_can_nothing)
{
    for (const std::string term : {"TERM=dumb", "TERM=", "TERM=no_such_terminal"}) {
        const auto terminal = start({term});
        expect(*terminal, "measu\tabcd", "return code 4\r\n");
        terminal->type(ctrl_d);
        expect_end(*terminal, 0);
    }
}

TEST_F(KaShell, colours_complaints_unless_told_not_to)
{
    const std::string red = "\x1b[";
    const auto coloured = start();
    expect(*coloured, "nothing", "has no function");
    EXPECT_NE(coloured->output().find(red + "1;31m"), std::string::npos) << coloured->output();
    const auto plain = start({"NO_COLOR=1"});
    expect(*plain, "nothing", "has no function");
    EXPECT_EQ(plain->output().find("31m"), std::string::npos) << plain->output();
}

TEST_F(KaShell, standard_output_has_the_results_alone)
{
    const std::string file = home_ + "/results";
    const std::string command = std::string("exec ") + KA_COMMAND + " shell --json " + tasks_module + " >" + file;
    const auto terminal = start_program({"sh", "-c", command});
    terminal->type("give_code 3\n");
    EXPECT_TRUE(terminal->shows(prompt)) << terminal->output();
    terminal->type(ctrl_d);
    expect_end(*terminal, 0);
    EXPECT_TRUE(read_file(file).starts_with("{\"function\":\"give_code\",\"return_code\":3,")) << read_file(file);
}

// Whatever has written to the terminal: the line is there again, and can be typed on.
TEST_F(KaShell, line_is_shown_again_after_a_stop)
{
    const auto terminal = start();
    terminal->type("give_co");
    EXPECT_TRUE(terminal->shows("give_co"));
    for (int i = 0; i < 2; i++) {
        kill(terminal->pid(), SIGSTOP);
        EXPECT_TRUE(becomes_stopped(terminal->pid()));
        kill(terminal->pid(), SIGCONT);
        EXPECT_TRUE(terminal->shows(prompt)) << terminal->output();
        EXPECT_TRUE(terminal->shows("give_co")) << terminal->output();
    }
    expect(*terminal, "de 0", "return code 0");
}

// The shell is held where it has read a key and not yet shown it; the first signal of a line is the editing
// library's.
TEST_F(KaShell, line_is_shown_again_after_a_stop_while_a_key_is_worked_on)
{
    const auto terminal = start();
    for (int signal : {SIGCONT, SIGCONT, SIGWINCH, SIGWINCH}) {
        send_while_key_is_worked_on(*terminal, "5", signal);
        EXPECT_TRUE(terminal->shows("5")) << terminal->output();
        EXPECT_TRUE(terminal->shows(prompt)) << signal << ": " << terminal->output();
        EXPECT_TRUE(terminal->shows("5")) << terminal->output();
    }
}

TEST_F(KaShell, without_the_editing_library_it_says_so_and_still_reads_a_script)
{
    std::ofstream(home_ + "/libedit.so.2") << "not a library";
    const std::string without = "LD_LIBRARY_PATH=" + home_;
    PseudoTerminal terminal({KA_COMMAND, "shell", tasks_module}, {without});
    EXPECT_TRUE(terminal.shows("lines cannot be edited: ")) << terminal.output();
    EXPECT_TRUE(terminal.shows("libedit.so.2: file too short")) << terminal.output();
    EXPECT_EQ(terminal.end(), 2) << terminal.output();
    const std::string script = "echo give_code 7 | " KA_COMMAND " shell " + tasks_module;
    PseudoTerminal shell({"sh", "-c", script}, {without});
    EXPECT_TRUE(shell.shows("return code 7")) << shell.output();
}
