// SPDX-License-Identifier: MIT
//
// ka completion: the scripts that make shells ask ka what can follow on its command line.
#include "commands.h"

#include <memory>

#include "base/exit_status.h"
#include "base/output.h"
#include "cli/completion_scripts.h"
#include "cli/subcommand.h"

namespace {

constexpr const char *description = R"(Writes the completion of ka for a shell.

The build puts the scripts where shells look for them, below share/.)";

constexpr const char *examples = R"text(Examples:
  eval "$(ka completion bash)"
  ka completion zsh >~/.zfunc/_ka
  ka completion fish >~/.config/fish/completions/ka.fish
)text";

} // namespace

void add_completion_command(CLI::App &app, int &exit_status)
{
    const auto shell = std::make_shared<std::string>();
    CLI::App *completion = add_subcommand(app, {"completion", description, examples});
    add_option(
        completion,
        {.name = "SHELL", .text = "the shell to write for", .is_required = true, .choices = {"bash", "zsh", "fish"}},
        *shell);
    when_chosen(completion, exit_status, [shell] { return write_results(completion_script(*shell), EXIT_DONE); });
}
