// SPDX-License-Identifier: MIT
//
// ka manual: the manual page ka(1). It is written with the macros that every man program knows. A text is laid out by
// its shape: a line that ends with a colon and has none before it is a heading, indented lines stay as they are, and
// all others are filled.
#include "commands.h"

#include <algorithm>
#include <cctype>

#include "base/exit_status.h"
#include "base/output.h"
#include "cli/option_tree.h"
#include "cli/subcommand.h"

namespace {

constexpr const char *description = R"(Writes the manual page ka(1), made from what --help says.

The build puts it into share/man/man1/ka.1.)";

constexpr const char *examples = R"(Examples:
  ka manual | man -l -
)";

// A plain - and ' would become typographic ones, which cannot be copied into a shell.
std::string escaped(const std::string &text)
{
    std::string out = text.starts_with('.') ? "\\&" : "";
    for (char c : text) {
        switch (c) {
        case '\\':
            out += "\\e";
            break;
        case '-':
            out += "\\-";
            break;
        case '\'':
            out += "\\(aq";
            break;
        case '`':
            out += "\\(ga";
            break;
        case '^':
            out += "\\(ha";
            break;
        case '~':
            out += "\\(ti";
            break;
        case '"':
            out += "\\(dq";
            break;
        default:
            out += c;
        }
    }
    return out;
}

// The words after an option are part of a list in --help; here they are a sentence.
std::string sentence(std::string text)
{
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return escaped(text) + (text.ends_with('.') ? "\n" : ".\n");
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

bool is_indented(const std::string &line)
{
    return line.starts_with("  ");
}

bool is_heading(const std::vector<std::string> &lines, size_t i)
{
    return lines[i].ends_with(':') && (i == 0 || lines[i - 1].empty()) && i + 1 < lines.size() &&
           is_indented(lines[i + 1]);
}

// Lines that stay as they are, from the one at i; i is left at the first after them.
std::string verbatim(const std::vector<std::string> &lines, size_t &i)
{
    std::string out = ".RS 4\n.nf\n";
    for (; i < lines.size() && is_indented(lines[i]); i++)
        out += escaped(lines[i].substr(2)) + "\n";
    return out + ".fi\n.RE\n";
}

std::string laid_out(const std::string &text, const std::string &heading_macro)
{
    const std::vector<std::string> lines = lines_of(text);
    std::string out;
    bool is_new_paragraph = true;
    for (size_t i = 0; i < lines.size();) {
        if (is_indented(lines[i])) {
            out += verbatim(lines, i);
            is_new_paragraph = true;
            continue;
        }
        if (is_heading(lines, i)) {
            const std::string title = lines[i].substr(0, lines[i].size() - 1);
            out += heading_macro == ".SH" ? ".SH " + escaped(upper(title)) + "\n" : ".PP\n" + escaped(title) + ":\n";
        } else if (!lines[i].empty()) {
            out += (is_new_paragraph ? ".PP\n" : "") + escaped(lines[i]) + "\n";
        }
        is_new_paragraph = lines[i].empty();
        i++;
    }
    return out;
}

std::string joined(const std::vector<std::string> &words, const std::string &between)
{
    std::string out;
    for (const std::string &word : words)
        out += (out.empty() ? "" : between) + word;
    return out;
}

std::string entry_text(const Entry &entry)
{
    std::vector<std::string> names;
    for (const std::string &name : entry.names)
        names.push_back("\\fB" + escaped(name) + "\\fR");
    std::string out = ".TP\n" + joined(names, ", ");
    if (!entry.value.empty() && entry.value != entry.names[0]) out += " \\fI" + escaped(entry.value) + "\\fR";
    out += "\n" + sentence(entry.text);
    if (!entry.choices.empty()) out += "One of: " + escaped(joined(entry.choices, ", ")) + ".\n";
    if (!entry.default_value.empty()) out += "Default: " + escaped(entry.default_value) + ".\n";
    return out;
}

std::string entries(const Command &command)
{
    std::string out;
    for (const std::vector<Entry> *list : {&command.arguments, &command.options})
        for (const Entry &entry : *list)
            out += entry_text(entry);
    return out;
}

// The exit statuses, which every --help ends with, are in the page once.
std::string without_exit_status(std::string footer)
{
    const size_t at = footer.find(exit_status_help());
    if (at != std::string::npos) footer.erase(at);
    return footer;
}

std::string synopsis(const std::vector<Command> &commands)
{
    std::string out = ".SH SYNOPSIS\n.nf\n";
    for (size_t i = 1; i < commands.size(); i++)
        out += escaped(commands[i].usage) + "\n";
    return out + ".fi\n";
}

std::string subcommand(const Command &command)
{
    return ".SS ka " + escaped(command.name) + "\n" + escaped(command.summary) + "\n" +
           laid_out(command.details, ".PP") + entries(command) + laid_out(without_exit_status(command.footer), ".PP");
}

std::string page(const CLI::App &app)
{
    const std::vector<Command> commands = commands_of(app);
    const Command &ka = commands[0];
    std::string summary = ka.summary;
    if (summary.ends_with('.')) summary.pop_back();
    std::string out = ".\\\" SPDX-License-Identifier: MIT\n";
    out += ".TH KA 1 \"" KA_RELEASE_DATE "\" \"kahost " KA_VERSION "\" \"User Commands\"\n";
    out += ".SH NAME\nka \\- " + escaped(summary) + "\n" + synopsis(commands);
    out += ".SH DESCRIPTION\n" + escaped(ka.summary) + "\n" + laid_out(ka.details, ".PP");
    out += ".SH OPTIONS\n" + entries(ka) + ".SH SUBCOMMANDS\n";
    for (size_t i = 1; i < commands.size(); i++)
        out += subcommand(commands[i]);
    return out + laid_out(ka.footer, ".SH");
}

} // namespace

void add_manual_command(CLI::App &app, int &exit_status)
{
    CLI::App *manual = add_subcommand(app, {"manual", description, examples});
    when_chosen(manual, exit_status, [&app] { return write_results(page(app), EXIT_DONE); });
}
