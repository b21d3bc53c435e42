// SPDX-License-Identifier: MIT
//
// ka debug: one call of one function with the host under gdb, stopped where the function begins; or gdb on a host
// that runs. gdb has the terminal, and ka waits for the answer.
#include "commands.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <unistd.h>

#include "base/exit_status.h"
#include "base/output.h"
#include "call/failure.h"
#include "call/one_call.h"
#include "call/request.h"
#include "call/segment_size.h"
#include "cli/call_words.h"
#include "cli/host_options.h"
#include "cli/option_tree.h"
#include "cli/subcommand.h"
#include "elf/libraries.h"
#include "module/find.h"

namespace {

struct DebugOptions : Request, HostOptions {
    std::string module; // or the number of a process
    std::vector<std::string> option_names;
};

constexpr const char *description = R"(Calls a function with its host under gdb, or attaches gdb to a host that runs.

MODULE FUNCTION [ARGUMENT...]: as ka call takes them. The host is stopped at the first line of the function, with its
arguments in place, and there is no deadline. The end of the call ends the host and gdb, and shows what came back. gdb
reads standard input. Build the module with -g; -O0 or -Og shows every variable.

PID: of a host process (of ka call --no-inspect, for one).

In gdb, SIGUSR1, SIGUSR2 and SIGTERM do not stop the host; a t_DECIMAL is shown as 12.34, a KaStr as its text with its
room; p $ka_arg(2) shows argument 2 as it was passed; ka-stop-in FUNCTION goes on to another call. The file beside the
library, libkahost.so.VERSION-gdb.py, does that in every gdb that is allowed to load it (add-auto-load-safe-path).)";

constexpr const char *examples = R"(Examples:
  ka debug ./adder add 2 40 0
  ka debug --callback 'value * 2' ./tour ask 21 0 0
  echo 'info args' | ka debug ./tour greet world str:20
  ka debug 4711
)";

constexpr int32_t usual_segment_bytes = 1 << 20;

// ---- gdb -------------------------------------------------------------------------------------------------------

// What gdb loads with the library, or from a program that has the library in itself; it must be allowed to.
std::string script_beside(const std::string &library)
{
    std::error_code error;
    return std::filesystem::canonical(library, error).string() + "-gdb.py";
}

bool is_call_host(const std::string &path)
{
    return path.find("/libkahost.so") != std::string::npos;
}

bool has_gdb()
{
    const char *path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (access((folder + "/gdb").c_str(), X_OK) == 0) return true;
    return false;
}

std::string script_of_module(const std::string &module)
{
    std::string why;
    const std::optional<ElfFile> program = read_elf(module, why);
    if (!program) return "";
    for (const ElfFile &library : find_libraries(*program).loaded)
        if (is_call_host(library.path)) return script_beside(library.path);
    std::error_code error;
    return std::filesystem::canonical(module, error);
}

std::string script_of_process(const std::string &pid)
{
    std::ifstream maps("/proc/" + pid + "/maps");
    for (std::string line; std::getline(maps, line);)
        if (is_call_host(line)) return script_beside(line.substr(line.find('/')));
    std::error_code error;
    return std::filesystem::read_symlink("/proc/" + pid + "/exe", error);
}

std::vector<std::string> gdb_words(const std::string &script)
{
    std::vector<std::string> words = {"gdb", "-q", "-iex", "set startup-with-shell off"};
    if (!script.empty()) words.insert(words.end(), {"-iex", "add-auto-load-safe-path " + script});
    return words;
}

// gdb loads what belongs to the library once the program runs, and by then KaCall may have been passed.
std::vector<std::string> gdb_words_for(const DebugOptions &options)
{
    std::vector<std::string> words = gdb_words(script_of_module(options.module));
    words.insert(words.end(),
                 {"-ex", "tbreak *KaCall", "-ex", "run", "-ex", "ka-debug " + options.function, "--args"});
    return words;
}

std::vector<const char *> list_of(const std::vector<std::string> &words)
{
    std::vector<const char *> list;
    for (const std::string &word : words)
        list.push_back(word.c_str());
    list.push_back(nullptr);
    return list;
}

int become(const std::vector<std::string> &words)
{
    execvp(words[0].c_str(), const_cast<char *const *>(list_of(words).data()));
    return report_error(EXIT_NOT_STARTED, words[0] + " cannot be run: " + std::strerror(errno));
}

// ---- The call --------------------------------------------------------------------------------------------------

int show_error(ka_host *host)
{
    const ExitStatus status = exit_status_of(ka_last_error(host)->error_class);
    return report_error_lines(status, failure_text(host));
}

int show_outcome(ka_host *host, const CallOutcome &outcome)
{
    if (outcome.error_class != KA_DONE) return show_error(host);
    return write_results(outcome_text(outcome), outcome.return_code == 0 ? EXIT_DONE : EXIT_NONZERO);
}

ka_options settings_of(DebugOptions &options, const char *const *under)
{
    ka_options settings = host_options(options, usual_segment_bytes, -1);
    settings.deadline_ms = INT32_MAX;
    settings.inspector = nullptr; // gdb traces
    settings.under = under;
    return settings;
}

// A host that is closed at the end, and gdb with it.
class Host {
public:
    Host() = default;
    ~Host() { ka_close(host_); }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    bool open(const std::string &module, const ka_options &settings)
    {
        return ka_open(&host_, module.c_str(), &settings) == KA_DONE;
    }
    ka_host *get() const { return host_; }

private:
    ka_host *host_ = nullptr;
};

Invocation invocation_of(const DebugOptions &options, const std::vector<Function> &functions)
{
    return options.raw ? prepare_raw(options, functions) : prepare(options, functions);
}

// gdb runs in this process's group, and gets what is typed: ctrl-C too, which is not for this process. What the
// module's file says is wrong is refused before that; where it does not say it the host is asked.
int call_under_gdb(DebugOptions &options)
{
    std::vector<std::string> words = {"/proc/self/exe", "debugger"};
    for (const std::string &word : gdb_words_for(options))
        words.push_back(word);
    const std::vector<const char *> list = list_of(words);
    ka_options settings = settings_of(options, list.data());
    const Tables tables = read_tables(options.module);
    std::optional<Invocation> invocation;
    if (options.raw || tables.are_whole()) invocation = invocation_of(options, tables.functions);
    if (invocation && options.segment_bytes == 0) make_room(settings, *invocation);
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTTOU, SIG_IGN);
    Host host;
    if (!host.open(options.module, settings)) return show_error(host.get());
    const ka_tables *asked = invocation ? nullptr : ka_host_tables(host.get());
    if (!invocation && asked == nullptr) return show_error(host.get());
    if (!invocation) invocation = invocation_of(options, functions_of(*asked));
    return show_outcome(host.get(), invoke(host.get(), *invocation, options.errors));
}

int attach_gdb(const std::string &pid)
{
    std::vector<std::string> words = gdb_words(script_of_process(pid));
    words.insert(words.end(), {"-p", pid});
    return become(words);
}

bool is_pid(const DebugOptions &options)
{
    return options.function.empty() && !options.module.empty() &&
           options.module.find_first_not_of("0123456789") == std::string::npos;
}

int run_debug(DebugOptions &options)
{
    try {
        unmark_words(options.module, options, options.option_names);
        check_callback_rule("--callback", options.callback);
        if (!has_gdb())
            return report_error(EXIT_NOT_STARTED,
                                "gdb is not installed, or not in PATH (Debian: apt-get install gdb)");
        if (is_pid(options)) return attach_gdb(options.module);
        if (options.function.empty()) throw Malformed("FUNCTION is missing; see ka debug --help");
        const std::string fault = find_module(options.module);
        if (!fault.empty()) return report_failure(KA_START, options.module + ": " + fault, Form::text);
        return call_under_gdb(options);
    } catch (const Malformed &malformed) {
        return report_failure(KA_ARGUMENT, malformed.what(), Form::text);
    } catch (const Refused &refused) {
        return report_failure(KA_REFUSED, refused.what(), Form::text);
    }
}

} // namespace

int become_debugger(const std::vector<std::string> &words)
{
    setpgid(0, getpgid(getppid()));
    for (const int signal : {SIGINT, SIGTTIN, SIGTTOU})
        std::signal(signal, SIG_DFL);
    return become(words);
}

void add_debug_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<DebugOptions>();
    CLI::App *debug = add_subcommand(
        app, {"debug", description, examples, "[OPTIONS] MODULE FUNCTION [ARGUMENT...]\n       ka debug PID"});
    take_extra_words(debug);
    add_option(
        debug,
        {.name = "MODULE",
         .text = "path of the module, or its name in the current folder or in KA_PATH; or PID of a host process",
         .is_required = true},
        options->module);
    add_option(debug, {.name = "FUNCTION", .text = "name of the function"}, options->function);
    add_call_options(debug, *options, "as big as the call needs");
    when_chosen(debug, exit_status, [options, debug] {
        options->arguments = extra_words(debug);
        options->option_names = option_names(debug);
        return run_debug(*options);
    });
}
