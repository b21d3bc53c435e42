// SPDX-License-Identifier: MIT
//
// ka check of files, loaders, libraries, symbols and starts.
#include <algorithm>
#include <csignal>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "caller/waiting.h"
#include "ka/built_module.h"
#include "ka/command.h"
#include "ka/help_examples.h"

namespace {

Outcome check(const std::string &path, std::vector<std::string> options = {})
{
    options.insert(options.begin(), "check");
    options.push_back(path);
    return ka(options);
}

void expect_finding(const std::string &path, const std::string &severity, const std::string &text, int status)
{
    const Outcome outcome = check(path);
    EXPECT_EQ(outcome.status, status) << outcome.out;
    EXPECT_EQ(outcome.err, "");
    const std::string line = severity + ": " + path + ": " + text;
    EXPECT_NE(outcome.out.find(line), std::string::npos) << line << " not in\n" << outcome.out;
}

const std::string two_bytes_of_another_machine = {'\x28', '\0'};

} // namespace

TEST(KaCheck, finds_a_sound_module_good_and_starts_it)
{
    for (const char *name : {"caller_module_tasks", "caller_module_fixed"}) {
        const std::string path = std::string(module_folder(CALLER_MODULES) + "/") + name;
        const Outcome outcome = check(path);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.out, path + ": good\n");
        EXPECT_EQ(outcome.err, "");
    }
}

TEST(KaCheck, finds_the_examples_good)
{
    for (const char *name : {"adder", "ledger", "tour"}) {
        const std::string path = examples_folder(KA_EXAMPLES) + "/" + name;
        EXPECT_EQ(check(path).out, path + ": good\n");
        EXPECT_EQ(nlohmann::json::parse(check(path, {"--json"}).out)["bits"], module_bits());
    }
}

TEST(KaCheck, says_what_is_no_module)
{
    const BuiltModule module(sound_tables);
    const std::string folder = module.folder();
    expect_finding("/no/such/module", "error", "", 4);
    expect_finding(folder, "error", "a directory\n", 4);
    expect_finding(folder + "/module.c", "error", "not executable\n", 4);
    expect_finding(folder + "/module.c", "error", "not an ELF file\n", 4);
    expect_finding(KA_COMMAND, "error", "it does not define KaFuncList\n", 4);
    module.build("object", "int x;", "-c");
    chmod((folder + "/object").c_str(), 0755);
    expect_finding(folder + "/object", "error", "an ELF file but not a program\n", 4);
    std::ofstream(folder + "/short") << "\177ELF\1";
    chmod((folder + "/short").c_str(), 0755);
    expect_finding(folder + "/short", "error", "a damaged ELF file\n", 4);
    expect_finding(library_folder(KA_BUILD) + "/libkahost.so.1", "error",
                   "it names no loader: a shared library, not a program\n", 4);
    module.put(offsetof(Elf32_Ehdr, e_machine), two_bytes_of_another_machine);
    expect_finding(module.path(), "error", "for another processor (ELF machine 40)\n", 4);
    // A word size that the processor does not have, and x32.
    const BuiltModule mixed(sound_tables);
    const bool is_wide = module_bits() == 64;
    mixed.put(EI_CLASS, std::string(1, is_wide ? ELFCLASS32 : ELFCLASS64));
    expect_finding(mixed.path(), "error",
                   "for another processor (ELF machine " + std::to_string(is_wide ? EM_X86_64 : EM_386) + ")\n", 4);
}

TEST(KaCheck, says_that_its_own_library_is_missing)
{
    const BuiltModule module(sound_tables);
    const std::string library = module.folder() + "/libelf.so.1";
    std::ofstream(library) << "not a library";
    setenv("LD_LIBRARY_PATH", module.folder().c_str(), 1);
    expect_finding(module.path(), "error", "cannot be read: " + library + ": file too short\n", 4);
    unsetenv("LD_LIBRARY_PATH");
}

TEST(KaCheck, says_what_the_loader_would_miss)
{
    const std::string package = module_bits() == 64 ? "64-bit C library (Debian: libc6:amd64 or libc6-amd64)"
                                                    : "32-bit C library (Debian: libc6:i386 or libc6-i386)";
    expect_finding(module_folder(CALLER_MODULES) + "/caller_module_no_loader", "error",
                   "its loader /nowhere/ld-linux.so.2 is missing\n  install the " + package + "\n", 4);
    const std::string no_library = module_folder(CALLER_MODULES) + "/caller_module_no_library";
    const std::string form =
        module_bits() == 64 ? "64-bit form (Debian: libkahost1)" : "32-bit form (Debian: lib32kahost1)";
    expect_finding(no_library, "error",
                   "the library libkahost.so.1 is missing, which " + no_library + " needs\n  install its " + form +
                       ", or give its folder by -Wl,-rpath or LD_LIBRARY_PATH\n",
                   4);
}

TEST(KaCheck, says_which_symbols_are_missing)
{
    const std::string ignore = "-Wl,--unresolved-symbols=ignore-all -Wl,-z,lazy";
    const BuiltModule no_call(sound_tables, "-DOWN_KACALL " + ignore);
    expect_finding(no_call.path(), "error", "it does not define KaCall\n", 4);
    const BuiltModule no_tables("", ignore);
    expect_finding(no_tables.path(), "error", "it does not define KaFuncList\n", 4);
    expect_finding(no_tables.path(), "error", "it does not define KaArgList\n", 4);
    const BuiltModule no_list("int32_t KaArgList_unused; t_DLL_PROTO KaArgList[] = {{\"a\", 1, 0}};", ignore);
    expect_finding(no_list.path(), "error", "it does not define KaFuncList\n", 4);
}

// With lazy binding it starts all the same.
TEST(KaCheck, says_which_symbol_a_library_has_no_longer)
{
    const BuiltModule module(sound_tables);
    module.build("libstub.so", "int nowhere(void) { return 0; }", "-shared -fPIC");
    module.build("user",
                 "#include \"ka/dll_module.h\"\nint nowhere(void);\n" + sound_tables +
                     "int32_t KaCall(int32_t i, void **a) { return nowhere(); }",
                 "-L" + module.folder() + " -lstub -Wl,-z,lazy" + host_flags(":'$ORIGIN'"));
    module.build("libstub.so", "int elsewhere(void) { return 0; }", "-shared -fPIC");
    const std::string user = module.folder() + "/user";
    expect_finding(user, "error", "nothing provides the symbol nowhere, which " + user + " uses\n", 1);
}

TEST(KaCheck, says_which_version_is_missing)
{
    const BuiltModule module(sound_tables + "void g(void) { puts(\"\"); }");
    module.replace("GLIBC_2.34", "GLIBC_9.99");
    const Outcome outcome = check(module.path());
    EXPECT_EQ(outcome.status, 4);
    EXPECT_NE(outcome.out.find("libc.so.6 has no version GLIBC_9.99, which " + module.path() + " needs\n"),
              std::string::npos)
        << outcome.out;
}

TEST(KaCheck, says_when_the_call_host_is_not_in_charge)
{
    const BuiltModule own_main("#include \"ka/dll_host.h\"\n" + sound_tables +
                               "int main(void) { return u_get_argc(); }");
    expect_finding(own_main.path(), "error", "it has a main of its own, so that of the call host never runs\n", 1);
    const BuiltModule no_host(sound_tables + "int main(void) { return 0; }", "-DNO_HOST");
    expect_finding(no_host.path(), "error", "it is not linked with the call host: it would never answer\n", 1);
}

TEST(KaCheck, starts_the_module_once_and_says_how_that_went)
{
    const BuiltModule ends(sound_tables + "void dll_setup(void) { fputs(\"no licence\\n\", stderr); _exit(3); }");
    expect_finding(ends.path(), "error", "it does not start: " + ends.path(), 4);
    EXPECT_NE(check(ends.path()).out.find("; it wrote: no licence\n"), std::string::npos);
    EXPECT_EQ(check(ends.path(), {"--no-start"}).out, ends.path() + ": good\n");
    const BuiltModule dies(sound_tables + "void dll_setup(void) { abort(); }");
    expect_finding(dies.path(), "error",
                   "it does not start: " + dies.path() +
                       ": the host was killed by SIGABRT (Aborted) before its first call, in dll_setup\n",
                   4);
    const std::string of_death = check(dies.path()).out;
    EXPECT_NE(of_death.find("\n  backtrace  #0 "), std::string::npos) << of_death;
    EXPECT_NE(of_death.find("  dll_setup"), std::string::npos) << of_death;
    EXPECT_EQ(of_death.find("ka check"), std::string::npos) << of_death;
    const auto json = nlohmann::json::parse(check(dies.path(), {"--json"}).out);
    EXPECT_TRUE(json["findings"][0]["backtrace"][0].get<std::string>().starts_with("#0 ")) << json;
    const BuiltModule hangs(sound_tables + "void dll_setup(void) { for (;;) pause(); }");
    const Outcome hung = check(hangs.path(), {"--deadline", "0.5"});
    EXPECT_EQ(hung.status, 4);
    EXPECT_NE(hung.out.find("500 ms"), std::string::npos) << hung.out;
    const BuiltModule writes(sound_tables + "void dll_cleanup(void) { fputs(\"bye\\n\", stderr); }");
    expect_finding(writes.path(), "warning", "it writes on standard error as it starts or ends: bye\n", 1);
}

TEST(KaCheck, says_that_a_call_back_in_dll_setup_is_not_answered)
{
    const BuiltModule asks("#include \"ka/dll_host.h\"\n" + sound_tables +
                           "void dll_setup(void) { dll_callback(7); }");
    expect_finding(
        asks.path(), "error",
        "it does not start: cannot start " + asks.path() +
            ": dll_setup calls back, and call-backs before the first call are not answered\n  look at dll_setup",
        4);
}

// Of what a process holds: its own memory, and files that are nowhere but in memory.
static size_t kilobytes_held_by(pid_t pid)
{
    const std::string folder = "/proc/" + std::to_string(pid);
    const std::string status = read_file(folder + "/status");
    const size_t at = status.find("\nVmHWM:");
    size_t held = at == std::string::npos ? 0 : std::stoul(status.substr(at + 7));
    std::error_code ended;
    for (const auto &entry : std::filesystem::directory_iterator(folder + "/fd", ended)) {
        struct stat file;
        const bool is_there = stat(entry.path().c_str(), &file) == 0;
        if (is_there && S_ISREG(file.st_mode) && file.st_nlink == 0) held += static_cast<size_t>(file.st_size) / 1024;
    }
    return held;
}

TEST(KaCheck, keeps_little_of_a_module_that_writes_without_end)
{
    const BuiltModule writes(sound_tables + "static char line[65536] = \"more\\n\";"
                                            "void dll_setup(void) { for (;;) write(2, line, sizeof line); }");
    const Running running = start_ka({"check", "--deadline", "1", writes.path()});
    size_t most = 0;
    for (siginfo_t end = {}; end.si_pid == 0; usleep(1000)) {
        most = std::max(most, kilobytes_held_by(running.pid));
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(running.pid), &end, WEXITED | WNOHANG | WNOWAIT), 0);
    }
    const Outcome outcome = await_ka(running);
    EXPECT_EQ(outcome.status, 4) << outcome.out;
    EXPECT_GT(most, 1000u);
#ifdef __SANITIZE_ADDRESS__ // which keeps what was freed, up to 256 MB, and a shadow of it
    const size_t bound = 512;
#else
    const size_t bound = 64;
#endif
    EXPECT_LT(most, bound * 1024) << "kB";
}

// The last of it: what went wrong is mostly said at the end.
TEST(KaCheck, shows_the_end_of_what_is_written)
{
    const BuiltModule ends(sound_tables + "void dll_setup(void) { for (int i = 0; i < 5000; i++)"
                                          " fprintf(stderr, \"line %d\\n\", i); exit(3); }");
    const Outcome outcome = check(ends.path());
    EXPECT_NE(outcome.out.find("\n    line 4998\n    line 4999\n"), std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.out.find("line 0\n"), std::string::npos) << outcome.out;
}

// Libraries, RUNPATH and tables of a damaged file are read too, and never beyond it.
TEST(KaCheck, survives_damaged_files)
{
    const BuiltModule module(sound_tables);
    const std::string sound = read_file(module.path());
    unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    for (int round = 0; round < 60; round++) {
        std::string bytes = sound;
        for (int i = 0; i < 30; i++) // headers and dynamic section are the interesting ones
            bytes[random() % (i < 10 ? 0x400 : bytes.size())] = static_cast<char>(random());
        bytes.replace(0, 5, sound, 0, 5);
        if (random() % 4 == 0) bytes.resize(random() % bytes.size());
        std::ofstream(module.path(), std::ios::binary) << bytes;
        const Outcome outcome = check(module.path(), {"--no-start"});
        EXPECT_TRUE(outcome.status == 0 || outcome.status == 1 || outcome.status == 4)
            << outcome.status << ", seed " << seed << outcome.err;
    }
}

TEST(KaCheck, has_the_same_as_json)
{
    const BuiltModule module("t_DLL_PROTO KaArgList[] = {{\"a\", 10, 0}};"
                             "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, 1, 0}, {0, 0, 0, 0}};");
    const auto json = nlohmann::json::parse(check(module.path(), {"--json"}).out);
    EXPECT_EQ(json["module"], module.path());
    EXPECT_EQ(json["bits"], module_bits());
    EXPECT_EQ(json["startable"], true);
    ASSERT_EQ(json["findings"].size(), 1u);
    EXPECT_EQ(json["findings"][0]["severity"], "error");
    EXPECT_NE(json["findings"][0]["remedy"], "");
    EXPECT_EQ(nlohmann::json::parse(check("/etc/passwd", {"--json"}).out)["bits"], nullptr);
}

TEST(KaCheckHelp, examples_work)
{
    const BuiltModule module(sound_tables);
    std::filesystem::copy_file(module.path(), module.folder() + "/adder");
    for (const std::string &example : help_examples("check"))
        EXPECT_EQ(run_example(example, module.folder()).status, 0) << example;
    EXPECT_EQ(ka({"check"}).status, 2);
    EXPECT_EQ(ka({"check", "--deadline", "0", tasks_module}).status, 2);
}

TEST(KaCheck, interrupted_start_gives_130_and_what_was_found_before)
{
    const BuiltModule module("t_DLL_PROTO KaArgList[] = {{\"a\", 1, 0}};"
                             "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, 1, 0}, {\"f\", 0, 1, 0}, {0, 0, 0, 0}};"
                             "void dll_setup(void) { for (;;) pause(); }");
    for (const int signal : {SIGINT, SIGTERM}) {
        const Running running = start_ka({"check", module.path()});
        const pid_t host = host_of(running.pid);
        kill(running.pid, signal);
        const Outcome outcome = await_ka(running);
        EXPECT_EQ(outcome.status, 130);
        EXPECT_NE(outcome.out.find("two functions are named f"), std::string::npos) << outcome.out;
        EXPECT_EQ(outcome.out.find("start"), std::string::npos) << outcome.out;
        // As it was started, or as it was waited for: "the start of ...", "the start".
        EXPECT_TRUE(outcome.err.ends_with(" was cancelled\n")) << outcome.err;
        EXPECT_TRUE(ends(host));
    }
}

TEST(KaCheck, interrupted_start_is_an_object_where_json_is_asked_for)
{
    const BuiltModule module(std::string(sound_tables) + "void dll_setup(void) { for (;;) pause(); }");
    const Running running = start_ka({"check", "--json", module.path()});
    host_of(running.pid);
    kill(running.pid, SIGINT);
    const Outcome outcome = await_ka(running);
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(nlohmann::json::parse(outcome.out)["error"], "cancelled");
}
