// SPDX-License-Identifier: MIT
//
// --under and --no-inspect: hosts that other programs run or look into.
#include "ka/command.h"

#include <csignal>
#include <filesystem>
#include <sys/wait.h>

namespace {

// A folder, and a word in the environment of every process that is started under it.
struct Marked {
    Marked()
    {
        EXPECT_NE(mkdtemp(folder.data()), nullptr);
        mark = "KA_UNDER_TEST=" + folder;
    }
    ~Marked() { std::filesystem::remove_all(folder); }
    Marked(const Marked &) = delete;
    Marked &operator=(const Marked &) = delete;

    std::vector<std::string> words(const std::string &command, std::vector<std::string> call) const
    {
        call.insert(call.begin(), {"call", "--under", "env " + mark + " " + command});
        return call;
    }
    Outcome run(const std::string &command, const std::vector<std::string> &call) const
    {
        return ka(words(command, call));
    }
    bool is_left(const std::filesystem::path &process) const
    {
        return read_file(process / "environ").find(mark + '\0') != std::string::npos;
    }
    int processes() const
    {
        int count = 0;
        for (const auto &entry : std::filesystem::directory_iterator("/proc"))
            count += is_left(entry.path());
        return count;
    }
    void expect_nothing_left() const
    {
        EXPECT_TRUE(becomes_true([this] { return processes() == 0; })) << processes();
    }

    std::string folder = std::filesystem::temp_directory_path() / "ka_under.XXXXXX";
    std::string mark;
};

std::string quoted(const std::string &text)
{
    return "'" + text + "'";
}

// What becomes the host, and what starts it.
std::vector<std::string> commands(const Marked &marked)
{
    return {"taskset ffffffff",
            "prlimit --nofile=100",
            "strace -f -o " + marked.folder + "/trace",
            "perf record -o " + marked.folder + "/data",
            "sh -c " + quoted("\"$@\"; exit 3") + " sh",
            "setsid --fork --wait"};
}

// The host of a ka that has started one under a command: found by its own module's name in first place.
pid_t host_under(const Marked &marked)
{
    pid_t host = 0;
    becomes_true([&] {
        for (const auto &entry : std::filesystem::directory_iterator("/proc"))
            if (marked.is_left(entry.path()) && read_file(entry.path() / "cmdline").starts_with(tasks_module))
                host = std::stoi(entry.path().filename());
        return host != 0;
    });
    return host;
}

struct InCall {
    Running running;
    pid_t host;
    int segment;
};

InCall hang_under(const Marked &marked, const std::string &command, const std::vector<std::string> &options = {})
{
    std::vector<std::string> call = options;
    call.insert(call.end(), {tasks_module, "hang"});
    const Running running = start_ka(marked.words(command, call));
    const pid_t host = host_under(marked);
    const int segment = segment_of(host);
    EXPECT_TRUE(sleeps_in_a_call(host)) << command;
    return {running, host, segment};
}

std::string process_line(pid_t host)
{
    return "\n  process    " + std::to_string(host) + ", ";
}

} // namespace

// ---- --under ---------------------------------------------------------------------------------------------------

TEST(KaUnder, a_host_that_a_command_becomes_or_starts_answers)
{
    const Marked marked;
    for (const std::string &command : commands(marked)) {
        const Outcome outcome = marked.run(command, {tasks_module, "add", "2", "40", "0"});
        EXPECT_EQ(outcome.status, 0) << command << ": " << outcome.err;
        EXPECT_NE(outcome.out.find("return code 0\n"), std::string::npos) << command << ": " << outcome.out;
        marked.expect_nothing_left();
    }
    EXPECT_NE(read_file(marked.folder + "/trace").find("rt_sigsuspend"), std::string::npos);
    EXPECT_GT(std::filesystem::file_size(marked.folder + "/data"), 0u) << "perf had no time to write";
}

TEST(KaUnder, the_report_is_the_hosts)
{
    const Marked marked;
    for (const std::string &command : commands(marked)) {
        const Outcome outcome = marked.run(command, {tasks_module, "die_by", "6"});
        EXPECT_EQ(outcome.status, 5) << command;
        for (const char *part : {": the host was killed by SIGABRT (Aborted) in a call of \"die_by\"\n",
                                 "ended: signal 6, SIGABRT", "1 number = 6"})
            EXPECT_NE(outcome.err.find(part), std::string::npos) << command << ": " << outcome.err;
        const bool traces_itself = command.starts_with("strace");
        EXPECT_EQ(outcome.err.find("\n  backtrace  #0 ") != std::string::npos, !traces_itself) << outcome.err;
        const Outcome left = marked.run(command, {tasks_module, "leave", "3"});
        EXPECT_NE(left.err.find(": the host ended with status 3 in a call of \"leave\"\n"), std::string::npos)
            << command << ": " << left.err;
        marked.expect_nothing_left();
    }
}

TEST(KaUnder, the_deadline_ends_the_host_and_its_command)
{
    const Marked marked;
    for (const std::string &command : {commands(marked)[0], commands(marked)[2], commands(marked)[4]}) {
        const InCall call = hang_under(marked, command, {"--deadline", "5s"});
        const Outcome outcome = await_ka(call.running);
        EXPECT_EQ(outcome.status, 6) << command << ": " << outcome.err;
        EXPECT_NE(outcome.err.find(process_line(call.host)), std::string::npos) << command << ": " << outcome.err;
        EXPECT_TRUE(ends(call.host));
        EXPECT_TRUE(segment_vanishes(call.segment));
        marked.expect_nothing_left();
    }
}

TEST(KaUnder, an_interruption_ends_the_host_and_its_command)
{
    const Marked marked;
    for (const std::string &command : commands(marked)) {
        const InCall call = hang_under(marked, command);
        kill(call.running.pid, SIGINT);
        const Outcome outcome = await_ka(call.running);
        EXPECT_EQ(outcome.status, 130) << command;
        EXPECT_NE(outcome.err.find(process_line(call.host)), std::string::npos) << command << ": " << outcome.err;
        EXPECT_TRUE(segment_vanishes(call.segment));
        marked.expect_nothing_left();
    }
}

TEST(KaUnder, nothing_is_left_where_ka_itself_is_killed)
{
    const Marked marked;
    for (const std::string &command : commands(marked)) {
        const InCall call = hang_under(marked, command);
        kill(call.running.pid, SIGKILL);
        EXPECT_EQ(await_ka(call.running).status, -SIGKILL);
        EXPECT_TRUE(ends(call.host)) << command;
        EXPECT_TRUE(segment_vanishes(call.segment)) << command;
        marked.expect_nothing_left();
    }
}

TEST(KaUnder, a_command_that_stays_is_ended_after_the_host)
{
    const Marked marked;
    const std::string script = "trap \"\" TERM; \"$@\"; while :; do sleep 1; done";
    const Outcome outcome = marked.run("sh -c " + quoted(script) + " sh", {tasks_module, "add", "2", "40", "0"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    marked.expect_nothing_left();
}

TEST(KaUnder, a_command_that_ends_first_leaves_no_host)
{
    const Marked marked;
    const std::string script = "\"$@\" & exit 0";
    for (int round = 0; round < 5; round++) { // the host is found in time, or is not
        const Outcome outcome = marked.run("sh -c " + quoted(script) + " sh", {tasks_module, "add", "2", "40", "0"});
        EXPECT_TRUE(outcome.status == 0 || outcome.status == 4) << outcome.status << ": " << outcome.err;
        marked.expect_nothing_left();
    }
}

TEST(KaUnder, a_command_that_starts_no_host_is_a_start_that_fails)
{
    const Marked marked;
    const Outcome failed = marked.run("false", {tasks_module, "count_call"});
    EXPECT_EQ(failed.status, 4);
    EXPECT_EQ(failed.err, "ka: cannot start " + tasks_module + ": its command \"env\" ended with status 1\n");
    const Outcome late = marked.run("sh -c 'sleep 1000'", {"--deadline", "2s", tasks_module, "count_call"});
    EXPECT_EQ(late.status, 6);
    EXPECT_EQ(late.err.substr(0, late.err.find('\n')),
              "ka: " + tasks_module + " did not start under the command \"env\" within 2000 ms");
    marked.expect_nothing_left();
    const Outcome missing = ka({"call", "--under", "/no/command", tasks_module, "count_call"});
    EXPECT_EQ(missing.status, 4);
    EXPECT_EQ(missing.err, "ka: cannot start " + tasks_module +
                               ": the command \"/no/command\" cannot be run: No such file or directory\n");
    const std::string no_library = module_folder(CALLER_MODULES) + "/caller_module_no_library";
    EXPECT_NE(marked.run("nice", {no_library, "count_call"}).err.find("its command \"env\" ended with status 127\n"),
              std::string::npos);
}

TEST(KaUnder, its_words_are_split_as_a_shell_splits_them)
{
    const Marked marked;
    const std::string shows = R"(sh -c 'printf "<%s>" "$@" >)" + marked.folder +
                              R"(/words; shift 4; exec "$@"' sh 'a b' "c \"d\"" e\ f ""g)";
    EXPECT_EQ(marked.run(shows, {tasks_module, "add", "2", "40", "0"}).status, 0);
    EXPECT_TRUE(read_file(marked.folder + "/words").starts_with("<a b><c \"d\"><e f><g><" + tasks_module + ">"));
    for (const std::string wrong : {"", "  ", "nice 'x", "'' x"}) {
        const Outcome outcome = ka({"call", "--under", wrong, tasks_module, "count_call"});
        EXPECT_EQ(outcome.status, 2) << wrong;
        EXPECT_NE(outcome.err.find("--under: takes a command"), std::string::npos) << outcome.err;
    }
}

TEST(KaUnder, a_shell_runs_each_of_its_hosts_so)
{
    const Marked marked;
    const std::string lines = "add 2 40 0\\ndie_by 9\\nadd 2 41 0\\n";
    const std::string command = "printf '" + lines + "' | " KA_COMMAND " shell --keep-going --under 'env " +
                                marked.mark + " strace -f -o " + marked.folder + "/trace' " + tasks_module + " 2>&1";
    FILE *pipe = popen(command.c_str(), "r");
    std::string text;
    char buffer[4096];
    for (size_t length; (length = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        text.append(buffer, length);
    pclose(pipe);
    EXPECT_NE(text.find("= 42\n"), std::string::npos) << text;
    EXPECT_NE(text.find("killed by SIGKILL"), std::string::npos) << text;
    EXPECT_NE(text.find("= 43\n"), std::string::npos) << text;
    marked.expect_nothing_left();
}

// ---- --no-inspect ----------------------------------------------------------------------------------------------

// True once it is the tracer; false when it has given up.
static bool strace_attaches(pid_t host)
{
    const pid_t strace = fork();
    if (strace == 0) {
        close(STDERR_FILENO);
        execlp("strace", "strace", "-o", "/dev/null", "-p", std::to_string(host).c_str(), nullptr);
        _exit(127);
    }
    bool ended = false;
    int status = 0;
    const std::string traced = "\nTracerPid:\t" + std::to_string(strace) + "\n";
    const bool attached = becomes_true([&] {
        ended = waitpid(strace, &status, WNOHANG) == strace;
        return ended || read_file("/proc/" + std::to_string(host) + "/status").find(traced) != std::string::npos;
    });
    if (!ended) {
        kill(strace, SIGKILL);
        waitpid(strace, &status, 0);
    }
    EXPECT_FALSE(ended && WIFEXITED(status) && WEXITSTATUS(status) == 127) << "there is no strace";
    return attached && !ended;
}

TEST(KaNoInspect, leaves_the_host_to_other_tracers)
{
    for (const bool inspects : {true, false}) {
        std::vector<std::string> words = {"call", tasks_module, "hang"};
        if (!inspects) words.insert(words.begin() + 1, "--no-inspect");
        const Running running = start_ka(words);
        const pid_t host = host_of(running.pid);
        segment_of(host);
        ASSERT_TRUE(sleeps_in_a_call(host));
        EXPECT_EQ(strace_attaches(host), !inspects);
        kill(running.pid, SIGINT);
        const Outcome outcome = await_ka(running);
        EXPECT_EQ(outcome.status, 130);
        EXPECT_EQ(outcome.err.find("\n  backtrace") != std::string::npos, inspects) << outcome.err;
    }
}

TEST(KaNoInspect, is_known_to_the_shell_too)
{
    const Outcome outcome = ka({"shell", "--no-inspect", tasks_module});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
}
