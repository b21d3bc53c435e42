// SPDX-License-Identifier: MIT
//
// Hosts in gdb, as authors of modules meet them there: of both word sizes, with and without ka debug.
#include "ka/command.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>

#include "ka/pseudo_terminal.h"

namespace {

const std::string debugged = module_folder(CALLER_MODULES) + "/ka_module_debugged";
const std::string debug_source = KA_SOURCES "/tests/ka/modules/debugged.c";

// The line of the module's source that has the text, from 1.
std::string line_with(const std::string &text)
{
    std::ifstream source(debug_source);
    int number = 1;
    for (std::string line; std::getline(source, line); number++)
        if (line.find(text) != std::string::npos) return "debugged.c:" + std::to_string(number) + "\n";
    ADD_FAILURE() << text;
    return "";
}

// A file that goes away with the record.
struct TypedLines {
    explicit TypedLines(const std::string &lines)
    {
        const int fd = mkstemp(path.data());
        EXPECT_EQ(write(fd, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
        lseek(fd, 0, SEEK_SET);
        descriptor = fd;
    }
    ~TypedLines()
    {
        close(descriptor);
        std::filesystem::remove(path);
    }
    TypedLines(const TypedLines &) = delete;
    TypedLines &operator=(const TypedLines &) = delete;
    std::string path = std::filesystem::temp_directory_path() / "ka_debug.XXXXXX";
    int descriptor = -1;
};

// ka debug, with what somebody types at gdb's prompt.
Outcome debug(std::vector<std::string> words, const std::string &typed)
{
    const TypedLines lines("directory " KA_SOURCES "\n" + typed);
    words.insert(words.begin(), "debug");
    return await_ka(start_ka(words, lines.descriptor));
}

void expect_in_order(const std::string &text, const std::vector<std::string> &parts)
{
    size_t at = 0;
    for (const std::string &part : parts) {
        const size_t found = text.find(part, at);
        ASSERT_NE(found, std::string::npos) << part << " is missing in\n" << text;
        at = found + part.size();
    }
}

std::string output_of(const std::string &command)
{
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    std::string text;
    char buffer[4096];
    for (size_t length; (length = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        text.append(buffer, length);
    pclose(pipe);
    return text;
}

// The host that a gdb traces which this ka has started.
pid_t host_in_gdb_of(pid_t ka_pid)
{
    const auto number_after = [](const std::filesystem::path &process, const std::string &field) {
        const std::string status = read_file(process / "status");
        const size_t at = status.find("\n" + field + ":\t");
        return at == std::string::npos ? 0 : std::atoi(status.c_str() + at + field.size() + 3);
    };
    pid_t host = 0;
    becomes_true([&] {
        for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
            const int tracer = number_after(entry.path(), "TracerPid");
            if (tracer != 0 && number_after("/proc/" + std::to_string(tracer), "PPid") == ka_pid)
                host = std::stoi(entry.path().filename());
        }
        return host != 0;
    });
    return host;
}

// gdb without a terminal, which may load what lies beside the library.
std::string gdb(const std::string &words)
{
    return "gdb -q -batch -nx -iex 'set pagination off' -iex 'set debug-file-directory /nowhere' -iex "
           "'directory " KA_SOURCES "' -iex 'add-auto-load-safe-path " +
           library_folder(KA_BUILD) + "' " + words;
}

} // namespace

// ---- ka debug --------------------------------------------------------------------------------------------------

TEST(KaDebug, stops_in_the_function_steps_over_a_call_back_and_answers)
{
    const Outcome outcome = debug({"--callback", "value * 2", debugged, "ask", "21", "0"},
                                  "p $ka_arg(0)\np $ka_arg(1)\nnext\nnext\np answer\ncontinue\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect_in_order(outcome.out,
                    {"ask (argv=", line_with("int32_t answer = -1;"), " = \"ask\"\n", " = 21\n",
                     "answer = dll_callback", "argv[1] = answer;", " = 42\n", "answer = 42\nreturn code 0\n"});
    EXPECT_NE(outcome.err.find("ka: call-back 21, answered 42\n"), std::string::npos) << outcome.err;
}

TEST(KaDebug, shows_values_as_they_are_meant)
{
    const Outcome outcome = debug({debugged, "look at", "[12.34,-5e20]", "'hello':20"},
                                  "next\nnext\nnext\np exact\np numbers[0]\np *text\np $ka_arg(1)\np $ka_arg(1)[1]\n"
                                  "p $ka_arg(2)\np $ka_arg(3)\nnext\nnext\np exact\np *text\ncontinue\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect_in_order(outcome.out, {"other_name (argv=", line_with("double *numbers = argv[0];"), " = 12.34\n",
                                  " = 12.34", " = \"hello\", room 20\n", " = {12.34, -5E+20}\n", " = -5E+20\n",
                                  " = \"hello\"\n", " = -12.34\n", " = \"Jello\", room 20\n", "text = 'Jello'\n"});
    EXPECT_NE((outcome.out + outcome.err).find("there is no argument 3: the call has 2"), std::string::npos);
}

TEST(KaDebug, knows_a_module_of_one_file)
{
    const TypedLines place("");
    const std::string module = place.path + ".module";
    ASSERT_EQ(output_of(KA_C_COMPILER + module_flag() + "-g -I" KA_BUILD "/include " + debug_source +
                        " -rdynamic -L" + library_folder(KA_BUILD) + " -l:libkahost.a -o " + module),
              "");
    const Outcome outcome = debug({"--callback", "value * 2", module, "ask", "21", "0"},
                                  "p $ka_arg(1)\nnext\nnext\np answer\ncontinue\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect_in_order(outcome.out, {"ask (argv=", line_with("int32_t answer = -1;"), " = 21\n", " = 42\n",
                                  "answer = 42\nreturn code 0\n"});
    std::filesystem::remove(module);
}

TEST(KaDebug, ends_where_the_host_ends_without_a_call)
{
    const TypedLines place("");
    const std::string module = place.path + ".module"; // whose tables nobody finds: -rdynamic is missing
    ASSERT_EQ(output_of(KA_C_COMPILER + module_flag() + "-I" KA_BUILD "/include " + debug_source + " -L" +
                        library_folder(KA_BUILD) + " -l:libkahost.a -o " + module),
              "");
    const Outcome outcome = debug({module, "ask", "21", "0"}, "");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.err, "ka: " + module + ": its tables cannot be read: not a module: KaFuncList is missing\n");
    EXPECT_EQ(outcome.out.find("Fatal signal"), std::string::npos) << outcome.out;
    std::filesystem::remove(module);
}

TEST(KaDebug, stops_in_the_dispatcher_where_that_is_the_body)
{
    const Outcome outcome = debug({debugged, "add one", "41", "0"}, "p index\np *(int *)argv[1]\ncontinue\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect_in_order(outcome.out, {"KaCall (index=2", line_with("switch (index) {"), " = 2\n", " = 0\n",
                                  "sum = 42\nreturn code 0\n"});
}

TEST(KaDebug, says_that_gdb_is_missing)
{
    const std::string said =
        output_of("{ PATH=/nowhere " KA_COMMAND " debug " + debugged + " ask 1 0; echo status $?; }");
    EXPECT_EQ(said, "ka: gdb is not installed, or not in PATH (Debian: apt-get install gdb)\nstatus 4\n");
}

TEST(KaDebug, finds_the_bodies_of_optimized_modules)
{
    const std::string tour = examples_folder(KA_EXAMPLES) + "/tour";
    const Outcome outcome = debug({"--layout", "64", tour, "greet", "world", "str:20"}, "p $ka_arg(1)\ncontinue\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect_in_order(outcome.out, {"greet (name=", "tour.cpp:", " = \"world\"\n", "greeting = 'hello, world'\n"});

    const std::string ledger = examples_folder(KA_EXAMPLES) + "/ledger";
    const Outcome inner = debug({ledger, "difference", "3", "2", "str:20"}, "p a\ncontinue\n");
    EXPECT_EQ(inner.status, 0) << inner.err;
    expect_in_order(inner.out, {"difference (", "a=", "ledger.cpp:", "result = '1.00'\n"});
}

// One that is called as its source does not say: an instance of a template, beside a parameter that the host is asked
// for.
TEST(KaDebug, stops_in_a_function_of_another_name)
{
    const TypedLines source("#include <ka/module.hpp>\n"
                            "template <typename T> T sum_of(ka::array<T> values)\n"
                            "{\n"
                            "    T sum = 0;\n"
                            "    for (T &each : values) sum += each;\n"
                            "    return sum;\n"
                            "}\n"
                            "KA_MODULE(KA_FN_AS(\"SUM\", sum_of<double>, \"values\"))\n");
    const std::string module = source.path + ".module";
    for (const char *level : {"-O0 ", "-O2 "}) {
        ASSERT_EQ(output_of(KA_CXX_COMPILER + module_flag() + level + "-std=c++17 -g -I" KA_BUILD "/include -x c++ " +
                            source.path + " -x none -L" + library_folder(KA_BUILD) + " -Wl,-rpath," +
                            library_folder(KA_BUILD) + " -lkahost -o " + module),
                  "");
        const Outcome outcome = debug({module, "SUM", "[1.5,2]", "0"}, "p $ka_arg(1)\ncontinue\n");
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        expect_in_order(outcome.out,
                        {"sum_of<double> (values=", source.path + ":", " = {1.5, 2}\n", "result = 3.5\n"});
    }
    std::filesystem::remove(module);
}

TEST(KaDebug, the_end_of_gdb_is_the_end_of_the_call)
{
    for (const char *typed : {"", "kill\nquit\n"}) {
        const Outcome outcome = debug({debugged, "ask", "1", "0"}, typed);
        EXPECT_EQ(outcome.status, 5);
        EXPECT_NE(outcome.err.find("the host was killed by SIGKILL (Killed) in a call of \"ask\""), std::string::npos)
            << outcome.err;
    }
}

TEST(KaDebug, refuses_before_gdb_starts_what_cannot_be_called)
{
    const Outcome unknown = debug({debugged, "nobody"}, "");
    EXPECT_EQ(unknown.status, 3);
    EXPECT_EQ(unknown.out, "");
    EXPECT_EQ(debug({debugged, "ask", "x", "0"}, "").status, 3);
    EXPECT_EQ(debug({debugged}, "").status, 2);
    EXPECT_EQ(debug({debugged, "ask", "--nonsense"}, "").status, 2);
    EXPECT_EQ(debug({"/no/module", "f"}, "").status, 4);
}

TEST(KaDebug, gdb_has_the_terminal_and_interrupts_a_function)
{
    PseudoTerminal terminal({KA_COMMAND, "debug", tasks_module, "hang"}, {"TERM=dumb"});
    ASSERT_TRUE(terminal.shows("(gdb) ")) << terminal.output();
    terminal.type("set confirm off\n");
    terminal.type("continue\n");
    ASSERT_TRUE(terminal.shows("Continuing.")) << terminal.output();
    ASSERT_TRUE(sleeps_in_a_call(host_in_gdb_of(terminal.pid())));
    terminal.type("\x03");
    EXPECT_TRUE(terminal.shows("received signal SIGINT")) << terminal.output();
    terminal.type("kill\nquit\n");
    EXPECT_TRUE(terminal.shows("killed by SIGKILL (Killed) in a call of \"hang\"")) << terminal.output();
}

TEST(KaDebug, attaches_to_a_host_that_runs)
{
    const Running running = start_ka({"call", "--no-inspect", tasks_module, "hang"});
    const pid_t host = host_of(running.pid);
    segment_of(host);
    ASSERT_TRUE(sleeps_in_a_call(host));
    const Outcome outcome = debug({std::to_string(host)}, "bt\np $ka_arg(0)\ndetach\nquit\n");
    expect_in_order(outcome.out, {" hang (argv=", " = \"hang\"\n"});
    kill(running.pid, SIGINT);
    EXPECT_EQ(await_ka(running).status, 130);
}

// ---- gdb by itself ---------------------------------------------------------------------------------------------

TEST(Gdb, loads_what_lies_beside_the_library)
{
    const std::string commands =
        " -ex 'tbreak ask' -ex run -ex next -ex next -ex 'p answer' -ex 'info signals SIGUSR2'"
        " -ex continue --args";
    const Outcome outcome = ka(
        {"call", "--deadline", "2m", "--callback", "const:7", "--under", gdb(commands), debugged, "ask", "1", "0"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect_in_order(outcome.out,
                    {"answer = dll_callback", "argv[1] = answer;", " = 7\n", "SIGUSR2       No", "exited normally"});
    EXPECT_NE(outcome.out.find("answer = 7\nreturn code 0\n"), std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.out.find("Program received signal"), std::string::npos) << outcome.out;
}

TEST(Gdb, server_runs_a_host_and_a_client_stops_it)
{
    const std::string port_file = std::filesystem::temp_directory_path() / ("ka_port." + std::to_string(getpid()));
    const std::string server = "sh -c 'exec gdbserver --once localhost:0 \"$@\" 2>" + port_file + "' sh";
    const Running running = start_ka({"call", "--deadline", "2m", "--under", server, debugged, "ask", "20", "0"});
    std::string port;
    ASSERT_TRUE(becomes_true([&] {
        const std::string text = read_file(port_file);
        const size_t at = text.find("Listening on port ");
        if (at == std::string::npos || text.find('\n', at) == std::string::npos) return false;
        port = text.substr(at + 18, text.find('\n', at) - at - 18);
        return true;
    })) << read_file(port_file);
    const std::string seen =
        output_of(gdb("-iex 'set sysroot /' -ex 'file " + debugged + "' -ex 'target remote localhost:" + port +
                      "' -ex 'break ask' -ex continue -ex 'p $ka_arg(1)' -ex 'delete' -ex continue"));
    expect_in_order(seen, {"Breakpoint 1, ask (argv=", " = 20\n", "exited normally"});
    const Outcome outcome = await_ka(running);
    std::filesystem::remove(port_file);
    EXPECT_EQ(outcome.status, 0) << outcome.err << seen;
    EXPECT_NE(outcome.out.find("answer = 0\nreturn code 0\n"), std::string::npos) << outcome.out;
}

TEST(Gdb, two_look_at_two_hosts_of_one_shell)
{
    std::vector<Running> running;
    std::vector<pid_t> hosts;
    for (int i = 0; i < 2; i++) {
        running.push_back(start_ka({"call", "--no-inspect", tasks_module, "hang"}));
        hosts.push_back(host_of(running[i].pid));
        segment_of(hosts[i]);
        ASSERT_TRUE(sleeps_in_a_call(hosts[i]));
    }
    const TypedLines together[2] = {TypedLines(""), TypedLines("")}; // each goes away when its gdb has attached
    const std::string await = " -ex 'shell while [ -e " + together[0].path + " ] || [ -e " + together[1].path +
                              " ]; do sleep 0.01; done' -ex 'p $ka_arg(0)' -ex detach";
    FILE *gdbs[2];
    for (int i = 0; i < 2; i++)
        gdbs[i] = popen(
            (gdb("-p " + std::to_string(hosts[i]) + " -ex 'shell rm " + together[i].path + "'" + await) + " 2>&1")
                .c_str(),
            "r");
    for (FILE *pipe : gdbs) {
        std::string seen;
        char buffer[4096];
        for (size_t length; (length = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            seen.append(buffer, length);
        pclose(pipe);
        EXPECT_NE(seen.find(" = \"hang\"\n"), std::string::npos) << seen;
    }
    for (const Running &each : running) {
        kill(each.pid, SIGINT);
        EXPECT_EQ(await_ka(each).status, 130);
    }
}

// ---- Sanitizers ------------------------------------------------------------------------------------------------

TEST(Sanitizers, report_the_line_of_an_overflow_and_a_leak_at_the_end)
{
    const TypedLines place("");
    const std::string module = place.path + ".module";
    const std::string folder = library_folder(KA_BUILD);
    const std::string build = KA_C_COMPILER + module_flag() +
                              "-g -fsanitize=address,undefined -I" KA_BUILD "/include " + debug_source + " -L" +
                              folder + " -lkahost -Wl,-rpath," + folder + " -o " + module;
    ASSERT_EQ(output_of(build), "");
    const auto wrong = [&module](const char *which) {
        return ka({"call", "--no-inspect", "--deadline", "2m", module, "wrong", which});
    };
    const Outcome overflow = wrong("0");
    EXPECT_EQ(overflow.status, 5);
    EXPECT_NE(overflow.err.find("AddressSanitizer: heap-buffer-overflow"), std::string::npos) << overflow.err;
    EXPECT_NE(overflow.err.find("in wrong " + std::filesystem::path(debug_source).parent_path().string() + "/" +
                                line_with("/* overflow */")),
              std::string::npos)
        << overflow.err;
    const std::string line = line_with("/* overflow of an integer */");
    const Outcome integer = wrong("1");
    EXPECT_NE(integer.err.find(line.substr(0, line.size() - 1) + ":"), std::string::npos) << integer.err;
    EXPECT_NE(integer.err.find("signed integer overflow"), std::string::npos) << integer.err;
    const Outcome leak = wrong("2");
    EXPECT_EQ(leak.status, 0);
    EXPECT_NE(leak.err.find("LeakSanitizer: detected memory leaks"), std::string::npos) << leak.err;
    EXPECT_NE(leak.err.find(line_with("/* leak */")), std::string::npos) << leak.err;
    std::filesystem::remove(module);
}
