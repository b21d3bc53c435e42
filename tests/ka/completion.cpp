// SPDX-License-Identifier: MIT
//
// Completion at the tab key, in the shells themselves.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "ka/command.h"
#include "ka/pseudo_terminal.h"

namespace {

const std::string share = KA_SHARE;

std::string search_path()
{
    const std::string own = std::filesystem::path(KA_COMMAND).parent_path();
    return "PATH=" + own + ":" + std::getenv("PATH");
}

// A shell that has loaded its script from where it is installed.
struct Shell {
    const char *name;
    std::vector<std::string> words;
    std::string load;
};

const Shell shells[] = {
    {"bash", {"bash", "--norc", "--noprofile", "-i"}, ". " + share + "/bash-completion/completions/ka"},
    {"zsh",
     {"zsh", "-f", "-i"},
     "fpath=(" + share + "/zsh/site-functions $fpath); autoload -Uz compinit; compinit -u -D"},
};

std::unique_ptr<PseudoTerminal> start(const Shell &shell)
{
    const std::vector<std::string> settings = {"TERM=dumb", "PS1=ready> ", "INPUTRC=/dev/null", search_path()};
    auto terminal = std::make_unique<PseudoTerminal>(shell.words, settings);
    EXPECT_TRUE(terminal->shows("ready> "));
    terminal->type(shell.load + "; echo lo''aded\n");
    EXPECT_TRUE(terminal->shows("loaded\r\n")) << terminal->output();
    EXPECT_TRUE(terminal->shows("ready> "));
    return terminal;
}

// What a tab makes of a line in every shell that edits it in place. A tab only completes what is unambiguous.
void expect_completed(const std::string &typed, const std::string &completed)
{
    for (const Shell &shell : shells) {
        const auto terminal = start(shell);
        terminal->type(typed + "\t");
        EXPECT_TRUE(terminal->shows(completed)) << shell.name << ": " << terminal->output();
    }
}

std::string in_fish(const std::string &line)
{
    const std::string file = testing::TempDir() + "ka_fish." + std::to_string(getpid());
    const std::string script = "source " + share + "/fish/vendor_completions.d/ka.fish; complete -C \"" + line + "\"";
    const std::string command = search_path() + " fish -N -c '" + script + "' >" + file;
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::string out = read_file(file);
    std::filesystem::remove(file);
    return out;
}

} // namespace

TEST(KaCompletion, of_a_subcommand)
{
    expect_completed("ka ca", "ka call ");
    EXPECT_EQ(in_fish("ka ca").substr(0, 5), "call\t");
}

TEST(KaCompletion, of_an_option_behind_the_subcommand)
{
    expect_completed("ka call --la", "ka call --layout ");
    EXPECT_EQ(in_fish("ka call --la"), "--layout\tlayout of the shared block\n");
}

TEST(KaCompletion, of_a_choice)
{
    expect_completed("ka call --layout na", "ka call --layout native ");
    EXPECT_EQ(in_fish("ka call --layout "), "64\nnative\n");
    EXPECT_EQ(in_fish("ka completion "), "bash\nfish\nzsh\n");
}

TEST(KaCompletion, of_a_choice_behind_an_equals_sign)
{
    expect_completed("ka call --layout=na", "ka call --layout=native ");
    EXPECT_EQ(in_fish("ka call --layout=na"), "--layout=native\n");
}

TEST(KaCompletion, of_a_function_name)
{
    expect_completed("ka call " + tasks_module + " measu", tasks_module + " measure ");
    expect_completed("ka call --layout=64 --deadline 4 " + tasks_module + " measu", tasks_module + " measure ");
    EXPECT_EQ(in_fish("ka call " + tasks_module + " ad"), "add\ta b sum\n");
}

TEST(KaCompletion, of_a_function_name_shows_what_its_author_has_written)
{
    const std::string module = module_folder(CALLER_MODULES) + "/caller_module_documented_stripped";
    EXPECT_EQ(in_fish("ka call " + module + " good_al"), "good_alone\ta b c d: alone\n");
    EXPECT_EQ(in_fish("ka call " + module + " good_lat"), "good_later\ta later version\n");
    EXPECT_EQ(in_fish("ka call " + module + " minus"), "minus_one\ta\n");
}

TEST(KaCompletion, of_a_module_takes_programs_and_folders_alone)
{
    const std::string folder = testing::TempDir() + "ka_completion." + std::to_string(getpid());
    std::filesystem::create_directories(folder + "/modules");
    std::filesystem::copy(tasks_module, folder + "/module_one");
    std::ofstream(folder + "/module.c");
    for (const Shell &shell : shells) {
        const auto terminal = start(shell);
        terminal->type("ka call " + folder + "/module_\t");
        EXPECT_TRUE(terminal->shows("/module_one ")) << shell.name << ": " << terminal->output();
    }
    EXPECT_EQ(in_fish("ka call " + folder + "/mod"), folder + "/modules/\n" + folder + "/module_one\n");
    std::filesystem::remove_all(folder);
}

TEST(KaCompletion, of_a_module_knows_those_of_ka_path)
{
    const std::string folder = testing::TempDir() + "ka_completion." + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    std::filesystem::create_symlink(tasks_module, folder + "/module_in_path");
    setenv("KA_PATH", folder.c_str(), 1);
    expect_completed("ka call module_in", "ka call module_in_path ");
    EXPECT_EQ(in_fish("ka call module_in"), "module_in_path\tin KA_PATH\n");
    unsetenv("KA_PATH");
    std::filesystem::remove_all(folder);
}

// The words that the shells ask with.
TEST(KaCompletion, answers_for_an_unfinished_line)
{
    EXPECT_EQ(ka({"complete", "call", "--layout=6"}).out, "words\n--layout=64\t\n");
    EXPECT_EQ(ka({"complete", "call", tasks_module, "--", "-"}).out, "words\n");
    EXPECT_EQ(ka({"complete", "call", "--deadline", "call", tasks_module, "shou"}).out, "words\nshout\ttexts\n");
    EXPECT_EQ(ka({"complete", "call", ""}).out, "executables\n");
    EXPECT_EQ(ka({"complete", "call", "nowhere", ""}).out, "words\n");
    EXPECT_EQ(ka({"complete", "nothing", ""}).status, 0);
    EXPECT_EQ(ka({"complete"}).status, 0);
}

TEST(KaCompletion, is_written_for_three_shells)
{
    EXPECT_EQ(ka({"completion", "bash"}).out, read_file(share + "/bash-completion/completions/ka"));
    EXPECT_EQ(ka({"completion", "zsh"}).out, read_file(share + "/zsh/site-functions/_ka"));
    EXPECT_EQ(ka({"completion", "fish"}).out, read_file(share + "/fish/vendor_completions.d/ka.fish"));
    EXPECT_EQ(ka({"completion", "csh"}).status, 2);
    EXPECT_EQ(ka({"completion"}).status, 2);
}
