// SPDX-License-Identifier: MIT
//
// Starting a module: what keeps it from starting, and what the host inherits.
#include "caller/hosts.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

static std::string start_error(const std::string &module)
{
    ka_host *host = nullptr;
    EXPECT_EQ(ka_open(&host, module.c_str(), nullptr), KA_START);
    EXPECT_EQ(ka_last_error(host)->error_class, KA_START);
    EXPECT_EQ(ka_pid(host), 0);
    EXPECT_EQ(ka_begin(host, "add"), KA_CLOSED);
    ka_close(host);
    host = nullptr;
    ka_open(&host, module.c_str(), nullptr);
    const std::string text = error_text(host);
    ka_close(host);
    return text;
}

template <typename Header>
static std::string elf_header(unsigned char elf_class, Elf32_Half machine, Elf32_Half type)
{
    Header header = {};
    memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = elf_class;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_machine = machine;
    header.e_type = type;
    header.e_phentsize = sizeof(Elf32_Phdr);
    if (elf_class == ELFCLASS64) header.e_phentsize = sizeof(Elf64_Phdr);
    return {reinterpret_cast<const char *>(&header), sizeof header};
}

static std::string narrow_header(Elf32_Half machine, Elf32_Half type)
{
    return elf_header<Elf32_Ehdr>(ELFCLASS32, machine, type);
}

static std::string wide_header(Elf32_Half machine, Elf32_Half type)
{
    return elf_header<Elf64_Ehdr>(ELFCLASS64, machine, type);
}

TEST(Start, file_that_cannot_be_a_module_is_named)
{
    const File not_executable(narrow_header(EM_386, ET_EXEC), 0644);
    const File script("#!/bin/sh\n", 0755);
    const File empty("", 0755);
    const std::pair<std::string, std::string> cases[] = {
        {"/no/such/module", "no such file"},
        {script.path + "/module", "Not a directory"},
        {"", "no such file"},
        {"/tmp", "a directory"},
        {"/dev/null", "not a regular file"},
        {not_executable.path, "not executable"},
        {script.path, "not an ELF file"},
        {empty.path, "not an ELF file"},
    };
    for (const auto &[path, why] : cases)
        EXPECT_EQ(start_error(path), "cannot start " + path + ": " + why);
}

// Class and processor must be those of one family: of a 64-bit processor there are programs with 32-bit addresses,
// too.
TEST(Start, program_that_this_machine_does_not_run_is_named)
{
    const std::string other = "a program for another processor (ELF machine ";
    const std::pair<std::string, std::string> cases[] = {
        {narrow_header(EM_ARM, ET_EXEC), other + "40)"},
        {narrow_header(EM_X86_64, ET_DYN), other + "62)"},
        {wide_header(EM_386, ET_DYN), other + "3)"},
        {wide_header(EM_AARCH64, ET_DYN), other + "183)"},
        {elf_header<Elf32_Ehdr>(ELFCLASSNONE, EM_386, ET_EXEC), other + "3)"},
        {narrow_header(EM_386, ET_REL), "an ELF file but not a program"},
        {wide_header(EM_X86_64, ET_CORE), "an ELF file but not a program"},
        {narrow_header(EM_386, ET_EXEC).substr(0, 20), "a cut off ELF file"},
        {wide_header(EM_X86_64, ET_EXEC).substr(0, sizeof(Elf32_Ehdr)), "a cut off ELF file"},
    };
    for (const auto &[header, why] : cases) {
        const File file(header, 0755);
        EXPECT_EQ(start_error(file.path), "cannot start " + file.path + ": " + why);
    }
}

TEST(Start, missing_loader_is_named)
{
    EXPECT_EQ(start_error(no_loader_module), "cannot start " + no_loader_module +
                                                 ": its loader /nowhere/ld-linux.so.2 is missing (the " +
                                                 std::to_string(module_bits()) + "-bit C library is not installed)");
}

// A program whose header is all there is: the kernel refuses it.
TEST(Start, refusal_of_the_kernel_is_told)
{
    for (const std::string &header : {narrow_header(EM_386, ET_EXEC), wide_header(EM_X86_64, ET_EXEC)}) {
        const File hollow(header, 0755);
        const std::string text = start_error(hollow.path);
        EXPECT_EQ(text.find("cannot start " + hollow.path + ": "), 0u) << text;
    }
}

// ---- Modules that end at start ---------------------------------------------------------------------------------

struct AtSetUp {
    explicit AtSetUp(const char *wish) { setenv("KA_TEST_SETUP", wish, 1); }
    ~AtSetUp() { unsetenv("KA_TEST_SETUP"); }
};

static int32_t first_call_fails(ka_host *host)
{
    ka_begin(host, "give_code");
    ka_add_integer(host, 1, KA_BY_VALUE);
    return call_fails(host);
}

TEST(Start, module_without_its_library_ended_at_start)
{
    Host host({}, no_library_module);
    EXPECT_EQ(first_call_fails(host), KA_START);
    EXPECT_EQ(error_text(host), no_library_module + " ended at start with status 127");
    EXPECT_EQ(ka_last_error(host)->exit_status, 127);
}

TEST(Start, status_2_before_the_first_answer_is_a_failed_start)
{
    const AtSetUp setup("exit2");
    for (bool dead_before_the_call : {false, true}) {
        Host host;
        EXPECT_TRUE(!dead_before_the_call || ends(ka_pid(host)));
        EXPECT_EQ(first_call_fails(host), KA_START);
        EXPECT_EQ(error_text(host), tasks_module + " ended at start with status 2");
    }
}

static const auto raw = [](ka_options &options) { options.checking = KA_RAW; };

// Nobody has seen the host wait, but the call was still pending when it ended.
TEST(Start, status_2_or_127_before_a_sent_call_was_taken_is_a_failed_start)
{
    for (const char *wish : {"call2", "call127"}) {
        const AtSetUp setup(wish);
        Host host(raw);
        EXPECT_EQ(first_call_fails(host), KA_START);
        EXPECT_EQ(error_text(host), tasks_module + " ended at start with status " + (wish + 4));
        EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_NO);
    }
}

// The function has run, whatever the status says: it may have had effects.
TEST(Start, status_of_a_failed_start_out_of_a_function_is_a_death)
{
    for (const auto &adjust : {std::function<void(ka_options &)>(), std::function<void(ka_options &)>(raw)}) {
        for (int32_t status : {2, 127}) {
            Host host(adjust);
            ka_begin(host, "leave");
            ka_add_integer(host, status, KA_BY_VALUE);
            EXPECT_EQ(call_fails(host), KA_DIED);
            EXPECT_EQ(error_text(host), tasks_module + ": the host ended with status " + std::to_string(status) +
                                            " in a call of \"leave\"");
            EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_UNSURE);
            EXPECT_EQ(ka_last_error(host)->exit_status, status);
            EXPECT_NE(std::string(ka_report_text(host)).find("exit status " + std::to_string(status) + "\n"),
                      std::string::npos)
                << ka_report_text(host);
        }
    }
}

TEST(Start, status_of_a_failed_start_after_the_host_was_seen_waiting_is_a_death)
{
    const AtSetUp setup("hups2");
    Host host;
    ASSERT_NE(ka_host_tables(host), nullptr) << error_text(host);
    kill(ka_pid(host), SIGHUP);
    ASSERT_TRUE(ends(ka_pid(host)));
    EXPECT_EQ(first_call_fails(host), KA_DIED);
    EXPECT_EQ(error_text(host), tasks_module + ": the host ended with status 2 before its first call");
    EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_YES);
}

// Observations of the process before say nothing about it.
TEST(Start, status_2_of_a_host_that_is_started_again_is_a_failed_start)
{
    Host host([](ka_options &options) {
        options.restart = KA_RESTART_NEXT_CALL;
        options.restart_pause_ms = 0;
    });
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    ka_begin(host, "leave");
    ka_add_integer(host, 3, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    const AtSetUp wish("exit2");
    ka_begin(host, "give_code");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_START);
    EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_NO);
}

TEST(Start, other_ends_before_the_first_answer_are_deaths)
{
    {
        const AtSetUp setup("exit5");
        Host host;
        EXPECT_TRUE(ends(ka_pid(host)));
        EXPECT_EQ(first_call_fails(host), KA_DIED);
        EXPECT_EQ(error_text(host), tasks_module + ": the host ended with status 5 before its first call");
    }
    {
        const AtSetUp setup("kill11");
        Host host;
        EXPECT_EQ(first_call_fails(host), KA_DIED);
        EXPECT_EQ(ka_last_error(host)->signal, SIGSEGV);
    }
}

TEST(Start, call_sent_while_the_module_still_sets_up_is_not_lost)
{
    const AtSetUp setup("naps300");
    for (int32_t layout : {KA_LAYOUT_NATIVE, KA_LAYOUT_64}) {
        Host host([layout](ka_options &options) { options.layout = layout; });
        EXPECT_EQ(call_with(host, "give_code", 4), 4);
    }
}

TEST(Start, first_calls_right_after_the_start_are_never_lost)
{
    for (int32_t i = 0; i < 100; i++) {
        Host host;
        ASSERT_EQ(call_with(host, "give_code", i), i);
    }
}

TEST(Start, deadline_covers_the_set_up_of_the_module)
{
    const AtSetUp setup("naps600000");
    Host host([](ka_options &options) { options.deadline_ms = 1000; });
    EXPECT_EQ(first_call_fails(host), KA_DEADLINE);
}

TEST(Start, close_right_after_the_start_ends_a_module_that_sets_up)
{
    const AtSetUp setup("naps600000");
    pid_t pid;
    {
        Host host;
        pid = ka_pid(host);
    }
    EXPECT_EQ(kill(pid, 0), -1);
}

// ---- Inheritance -----------------------------------------------------------------------------------------------

struct Signals {
    Signals()
    {
        sigprocmask(SIG_SETMASK, nullptr, &mask);
        for (int i = 1; i < NSIG; i++)
            sigaction(i, nullptr, &actions[i]);
    }
    ~Signals()
    {
        for (int i = 1; i < NSIG; i++)
            sigaction(i, &actions[i], nullptr);
        sigprocmask(SIG_SETMASK, &mask, nullptr);
    }
    sigset_t mask;
    struct sigaction actions[NSIG];
};

TEST(StartInherits, nothing_from_a_caller_that_ignores_or_blocks_the_signals_in_use)
{
    const Signals restored_at_end;
    for (int signal : {SIGUSR2, SIGTERM})
        ::signal(signal, SIG_IGN);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    pid_t pid;
    {
        Host host([](ka_options &options) { options.grace_ms = 60000; });
        pid = ka_pid(host);
        EXPECT_EQ(call_with(host, "ask", 1), 0);
        ASSERT_TRUE(becomes_idle(pid));
        EXPECT_EQ(signal_mask(pid, "SigIgn") & (signal_bit(SIGUSR2) | signal_bit(SIGTERM)), 0u);
    }
    EXPECT_EQ(kill(pid, 0), -1);
}

// The module would set up for ten minutes, and be given ten more to end.
TEST(StartInherits, no_deafness_to_sigterm_while_the_module_sets_up)
{
    const Signals restored_at_end;
    ::signal(SIGTERM, SIG_IGN);
    const AtSetUp setup("naps600000");
    pid_t pid;
    {
        Host host([](ka_options &options) { options.grace_ms = 600000; });
        pid = ka_pid(host);
        ASSERT_TRUE(is_setting_up(pid));
    }
    EXPECT_EQ(kill(pid, 0), -1);
}

TEST(StartInherits, other_ignored_signals_as_any_child_does)
{
    const Signals restored_at_end;
    ::signal(SIGHUP, SIG_IGN);
    ::signal(SIGQUIT, [](int) {});
    Host host;
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    EXPECT_NE(signal_mask(ka_pid(host), "SigIgn") & signal_bit(SIGHUP), 0u);
    EXPECT_EQ(signal_mask(ka_pid(host), "SigIgn") & signal_bit(SIGQUIT), 0u);
    EXPECT_EQ(signal_mask(ka_pid(host), "SigCgt"), signal_bit(SIGUSR2) | signal_bit(SIGTERM));
}

TEST(StartInherits, caller_that_waits_fast_keeps_its_own_mask_and_gets_it_back)
{
    const auto fast = [](ka_options &options) { options.waiting = KA_WAIT_FAST; };
    const Signals restored_at_end;
    for (bool blocked : {false, true}) {
        sigset_t set;
        sigset_t now;
        sigemptyset(&set);
        sigaddset(&set, SIGHUP);
        if (blocked) sigaddset(&set, SIGUSR2);
        sigprocmask(SIG_SETMASK, &set, nullptr);
        {
            Host first(fast);
            {
                Host second(fast);
                EXPECT_EQ(call_with(second, "give_code", 1), 1);
            }
            sigprocmask(SIG_SETMASK, nullptr, &now);
            EXPECT_EQ(sigismember(&now, SIGUSR2), 1);
            EXPECT_EQ(sigismember(&now, SIGHUP), 1);
            EXPECT_EQ(sigismember(&now, SIGTERM), 0);
            EXPECT_EQ(call_with(first, "give_code", 1), 1);
        }
        sigprocmask(SIG_SETMASK, nullptr, &now);
        EXPECT_EQ(sigismember(&now, SIGUSR2), blocked ? 1 : 0);
        EXPECT_EQ(sigismember(&now, SIGHUP), 1);
    }
}

TEST(StartInherits, caller_keeps_its_mask)
{
    const Signals restored_at_end;
    for (bool blocked : {false, true}) {
        sigset_t set;
        sigset_t now;
        sigemptyset(&set);
        if (blocked) sigaddset(&set, SIGUSR2);
        sigprocmask(SIG_SETMASK, &set, nullptr);
        {
            Host host;
            EXPECT_EQ(call_with(host, "ask", 1), 0);
            sigprocmask(SIG_SETMASK, nullptr, &now);
            EXPECT_EQ(sigismember(&now, SIGUSR2), blocked ? 1 : 0);
        }
        sigprocmask(SIG_SETMASK, nullptr, &now);
        EXPECT_EQ(sigismember(&now, SIGUSR2), blocked ? 1 : 0);
    }
}

TEST(StartInherits, failed_start_restores_the_mask)
{
    const Signals restored_at_end;
    start_error(no_loader_module);
    sigset_t now;
    sigprocmask(SIG_SETMASK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGUSR2), 0);
}
