// SPDX-License-Identifier: MIT
//
// --help, the manual page and the completion say the same: each is read as its users see it, and compared.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "ka/command.h"

namespace {

const std::string page_file = std::string(KA_SHARE) + "/man/man1/ka.1";

// An option or argument as --help shows it.
struct Shown {
    std::vector<std::string> names;
    std::string value;
    std::vector<std::string> choices;
    std::string default_value;
    std::string text;
};

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

std::string help_of(const std::string &command)
{
    return command.empty() ? ka({"--help"}).out : ka({command, "--help"}).out;
}

// The lines of a list in --help, from its title to the next empty line.
std::vector<std::string> list_in(const std::string &help, const std::string &title)
{
    const size_t at = help.find("\n" + title + ":\n");
    if (at == std::string::npos) return {};
    const size_t begin = at + title.size() + 3;
    return split(help.substr(begin, help.find("\n\n", begin) - begin), '\n');
}

// NAME[,NAME...] [VALUE[:{CHOICE,...}][=DEFAULT]] [REQUIRED]   TEXT, the text perhaps in a line of its own. A name
// that stands for an argument can be followed by choices alone.
std::vector<Shown> entries_in(const std::string &help, const std::string &title)
{
    static const std::regex head(
        R"(^  (\S+)(?: ([A-Z0-9]*)(?::?\{([^}]*)\})?(?:=(\S+))?)?(?: \.\.\.)?(?: REQUIRED)?(?:\s{2,}(.*))?\s*$)");
    std::vector<Shown> entries;
    for (const std::string &line : list_in(help, title)) {
        std::smatch match;
        if (line.starts_with("   ")) {
            EXPECT_FALSE(entries.empty());
            entries.back().text += line.substr(line.find_first_not_of(' '));
            continue;
        }
        EXPECT_TRUE(std::regex_match(line, match, head)) << "'" << line << "'";
        const std::string value = match[2] == "REQUIRED" ? "" : match[2].str();
        entries.push_back({split(match[1], ','), value, split(match[3], ','), match[4], match[5]});
    }
    return entries;
}

std::vector<Shown> all_entries(const std::string &command)
{
    const std::string help = help_of(command);
    std::vector<Shown> entries = entries_in(help, "Positionals");
    for (const Shown &entry : entries_in(help, "Options"))
        entries.push_back(entry);
    return entries;
}

std::vector<std::string> subcommands()
{
    std::vector<std::string> names;
    for (const Shown &entry : entries_in(help_of(""), "Subcommands"))
        names.push_back(entry.names[0]);
    return names;
}

// ---- The page --------------------------------------------------------------------------------------------------

std::string page()
{
    std::string text = read_file(page_file);
    static const std::map<std::string, std::string> marks = {
        {"\\-", "-"},   {"\\(aq", "'"}, {"\\(ga", "`"},  {"\\fB", ""}, {"\\(ha", "^"},
        {"\\(ti", "~"}, {"\\fI", ""},   {"\\(dq", "\""}, {"\\fR", ""}, {"\\&", ""}};
    for (const auto &[mark, plain] : marks)
        for (size_t at; (at = text.find(mark)) != std::string::npos;)
            text.replace(at, mark.size(), plain);
    for (size_t at = 0; (at = text.find("\\e", at)) != std::string::npos; at++)
        text.replace(at, 2, "\\");
    return text;
}

// What the page says about a subcommand; for none, the options of ka itself.
std::string section_of(const std::string &command)
{
    const std::string text = page();
    const std::string title = command.empty() ? "\n.SH OPTIONS\n" : "\n.SS ka " + command + "\n";
    const size_t begin = text.find(title);
    EXPECT_NE(begin, std::string::npos) << command;
    return text.substr(begin, text.find("\n.S", begin + 1) + 1 - begin);
}

std::string joined(const std::vector<std::string> &words)
{
    std::string out;
    for (const std::string &word : words)
        out += (out.empty() ? "" : ", ") + word;
    return out;
}

std::string sentence(std::string text)
{
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text + (text.ends_with('.') ? "\n" : ".\n");
}

// The entry as the page must have it.
std::string in_page(const Shown &entry)
{
    std::string text = ".TP\n" + joined(entry.names) + (entry.value.empty() ? "" : " " + entry.value) + "\n";
    text += sentence(entry.text);
    if (!entry.choices.empty()) text += "One of: " + joined(entry.choices) + ".\n";
    if (!entry.default_value.empty()) text += "Default: " + entry.default_value + ".\n";
    return text;
}

size_t count_of(const std::string &text, const std::string &what)
{
    size_t count = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at++)
        count++;
    return count;
}

// ---- The completion --------------------------------------------------------------------------------------------

std::set<std::string> offered(std::vector<std::string> words)
{
    words.insert(words.begin(), "complete");
    const std::vector<std::string> lines = split(ka(words).out, '\n');
    return {lines.begin() + 1, lines.end()};
}

std::vector<std::string> words_for(const std::string &command, const std::vector<std::string> &more)
{
    std::vector<std::string> words = more;
    if (!command.empty()) words.insert(words.begin(), command);
    return words;
}

} // namespace

TEST(KaManual, has_what_help_lists_and_nothing_else)
{
    std::vector<std::string> commands = subcommands();
    ASSERT_GE(commands.size(), 4u);
    EXPECT_EQ(count_of(page(), "\n.SS ka "), commands.size());
    commands.insert(commands.begin(), "");
    for (const std::string &command : commands) {
        const std::string section = section_of(command);
        const std::vector<Shown> entries = all_entries(command);
        for (const Shown &entry : entries)
            EXPECT_NE(section.find(in_page(entry)), std::string::npos) << in_page(entry) << "is not in\n" << section;
        EXPECT_EQ(count_of(section, "\n.TP\n"), entries.size()) << command;
    }
}

TEST(KaManual, has_every_line_of_the_descriptions_and_examples)
{
    const std::string text = page();
    for (const std::string &command : subcommands()) {
        const std::string help = help_of(command);
        for (const std::string &line : split(help, '\n')) {
            const bool is_heading_or_list = line.empty() || line.ends_with(':') || line.starts_with("  -") ||
                                            line.starts_with("       ") || line.starts_with("Usage: ") ||
                                            std::regex_search(line, std::regex("^  [A-Z]+( |$)"));
            if (is_heading_or_list) continue;
            const std::string written = line.starts_with("  ") ? line.substr(2) : line;
            EXPECT_NE(text.find("\n" + written + "\n"), std::string::npos) << command << ": " << line;
        }
        const size_t usage = help.find("\nUsage: ") + 8;
        EXPECT_NE(text.find("\n" + help.substr(usage, help.find('\n', usage) - usage) + "\n"), std::string::npos);
    }
}

TEST(KaManual, is_free_of_warnings)
{
    EXPECT_EQ(std::system(("mandoc -T lint -W warning " + page_file).c_str()), 0);
    EXPECT_EQ(std::system(("test -z \"$(groff -ww -man -T utf8 " + page_file + " 2>&1 >/dev/null)\"").c_str()), 0);
}

TEST(KaManual, is_written_by_ka)
{
    const Outcome outcome = ka({"manual"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, read_file(page_file));
}

TEST(KaCompletion, offers_what_help_lists_and_nothing_else)
{
    std::set<std::string> lines;
    for (const Shown &entry : entries_in(help_of(""), "Subcommands"))
        lines.insert(entry.names[0] + "\t" + entry.text);
    EXPECT_EQ(offered({""}), lines);

    std::vector<std::string> commands = subcommands();
    commands.insert(commands.begin(), "");
    for (const std::string &command : commands) {
        lines.clear();
        for (const Shown &entry : entries_in(help_of(command), "Options")) {
            lines.insert(entry.names.back() + "\t" + entry.text);
            std::set<std::string> choices;
            for (const std::string &choice : entry.choices)
                choices.insert(choice + "\t");
            if (choices.empty()) continue;
            EXPECT_EQ(offered(words_for(command, {entry.names.back(), ""})), choices);
        }
        EXPECT_EQ(offered(words_for(command, {"--"})), lines) << command;
    }
}

TEST(KaVersion, is_told)
{
    const Outcome outcome = ka({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(std::regex_match(outcome.out, std::regex(R"(ka \d+\.\d+\.\d+\n)"))) << outcome.out;
}
