// SPDX-License-Identifier: MIT
//
// ka new: the files of a new module.
#include "commands.h"

#include <memory>

#include "base/exit_status.h"
#include "base/output.h"
#include "cli/subcommand.h"
#include "new/project.h"

namespace {

struct Options {
    std::string name;
    bool cpp = false;
    bool c = false;
    bool tables = false;
};

constexpr const char *description = R"(Writes a new module: functions, tests, and how it is built.

The folder NAME, which must not be there yet, gets
  NAME.cpp or NAME.c                three functions
  NAME_test.cpp or .c               their unit tests, which call them in their own process
  session.txt, session.expected     lines for ka shell, and what it answers
  Makefile, CMakeLists.txt          each builds and tests all of it; a variable BITS=32 makes a 32-bit module
  README.md, .gitignore
Nothing in it depends on where kahost is: pkg-config and CMake find it, or ka itself says where it is (ka --prefix).)";

constexpr const char *examples = R"(Examples:
  ka new first && make -C first test
  ka new second --c && make -C second && ka call second/second divide 1 4 0
  ka new third --tables && cmake -S third -B third/build
)";

int run_new(const Options &options)
{
    const int chosen = int{options.cpp} + int{options.c} + int{options.tables};
    if (chosen > 1) return report_error(EXIT_USAGE, "--cpp, --c and --tables exclude each other");
    const Writing writing = options.c ? Writing::c : options.tables ? Writing::tables : Writing::cpp;
    const std::vector<ProjectFile> files = project_files(options.name, writing);
    const std::string fault = write_project(options.name, files);
    if (!fault.empty()) return report_error(EXIT_USAGE, fault);
    std::string text;
    for (const ProjectFile &file : files)
        text += options.name + "/" + file.name + "\n";
    return write_results(text + "next: cd " + options.name + " && make test\n", EXIT_DONE);
}

} // namespace

void add_new_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<Options>();
    CLI::App *command = add_subcommand(app, {"new", description, examples});
    add_option(
        command,
        {.name = "NAME", .text = "of the module and of its folder", .is_required = true, .fault = fault_of_name},
        options->name);
    add_flag(command, "--cpp", options->cpp, "in C++, with ka/module.hpp; the default");
    add_flag(command, "--c", options->c, "in C, with ka/module.h");
    add_flag(command, "--tables", options->tables, "in C, with tables written by hand");
    when_chosen(command, exit_status, [options] { return run_new(*options); });
}
