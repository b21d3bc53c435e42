// SPDX-License-Identifier: MIT
//
// What a run of the command costs in processor time, that of its host included, beside programs that do less.
// usage: bench_starts [--csv FILE] KA ONE-CALL ADDER
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "columns.h"

namespace {

double nanoseconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
}

[[noreturn]] void become(const std::vector<std::string> &words)
{
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

// Of the program, and of the processes for which it has waited.
double processor_ns(const std::vector<std::string> &words)
{
    const pid_t pid = fork();
    if (pid == 0) become(words);
    int status = 1;
    rusage used = {};
    if (wait4(pid, &status, 0, &used) != pid || status != 0) {
        std::fprintf(stderr, "bench_starts: %s failed\n", words[0].c_str());
        std::exit(1);
    }
    return nanoseconds(used.ru_utime) + nanoseconds(used.ru_stime);
}

bench::Burst runs_of(const std::vector<std::string> &words)
{
    return [words](long times) {
        double ns = 0;
        for (long i = 0; i < times; i++)
            ns += processor_ns(words);
        return ns;
    };
}

} // namespace

int main(int argc, char **argv)
{
    const char *const file = bench::csv_path(argc, argv);
    const int first = file != nullptr ? 3 : 1;
    if (argc - first != 3) {
        std::fprintf(stderr, "usage: bench_starts [--csv FILE] KA ONE-CALL ADDER\n");
        return 2;
    }
    const std::string ka = argv[first], one_call = argv[first + 1], adder = argv[first + 2];
    const bench::Burst call = runs_of({ka, "call", adder, "add", "2", "40", "0"});
    bench::Csv csv(file);
    bench::print(csv, "processor time of a run",
                 {{"true", runs_of({"true"}), 0},
                  {"ka --version", runs_of({ka, "--version"}), 0, 1.6},
                  {"ka call", call, 0, 4},
                  {"a C program with the library", runs_of({one_call, adder}), 0},
                  {"ka call --no-inspect", runs_of({ka, "call", "--no-inspect", adder, "add", "2", "40", "0"}), 0},
                  {"ka call, beside the C program", call, 3, 1.2}});
}
