// SPDX-License-Identifier: MIT
//
// ka explain: what a code, a name or a message means, why it comes and what to do.
#include "commands.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <regex>
#include <sstream>
#include <unistd.h>

#include "base/exit_status.h"
#include "base/json.h"
#include "base/output.h"
#include "base/terminal.h"
#include "base/text.h"
#include "call/failure.h"
#include "cli/subcommand.h"
#include "explain/find.h"

namespace {

struct Options {
    std::string text;
    bool all = false;
    bool json = false;
    bool markdown = false;

    Form form() const { return json ? Form::json : Form::text; }
};

using Rows = std::vector<const Explanation *>;

constexpr const char *description = R"(Explains a code, a name or a message: what it means, why it comes, what to do.

  a number        a return code, the status of a REAL, an exit status, a signal
  a name          KA_NO_FUNCTION, REAL_RANGE, SIGSEGV, died
  a message       of a host, of ka, or of compiler, linker and loader, quoted or not; numbers and names in it may
                  differ
  -               the lines of standard input, each as a message)";

constexpr const char *examples = R"(Examples:
  ka explain 7
  ka explain -1201
  ka explain SIGSEGV
  ka explain exit status 139
  ka explain 'Unsupported DLL_VERSION 102'
  ka explain --json 17
  ka explain --all
)";

// ---- Finding ---------------------------------------------------------------------------------------------------

// Each explanation once, however many lines it explains.
Rows find_lines(std::istream &lines)
{
    Rows found;
    for (std::string line; std::getline(lines, line);) {
        for (const Explanation *row : look_up(line))
            if (std::find(found.begin(), found.end(), row) == found.end()) found.push_back(row);
    }
    return found;
}

Rows rows_wanted(const Options &options)
{
    Rows found;
    if (options.all) {
        for (const Explanation &row : explanations())
            found.push_back(&row);
        return found;
    }
    if (options.text == "-") return find_lines(std::cin);
    std::istringstream lines(options.text);
    return find_lines(lines);
}

// ---- Showing ---------------------------------------------------------------------------------------------------

std::string paragraph(const std::string &label, const char *text)
{
    const std::string indent(label.size(), ' ');
    std::string out;
    std::string line = label;
    const auto width = static_cast<size_t>(columns_of(STDOUT_FILENO));
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (line.size() + 1 + word.size() > width) {
            out += line + "\n";
            line = indent;
        }
        line += (line.ends_with(' ') ? "" : " ") + word;
    }
    return out + line + "\n";
}

std::string first_line(const char *text)
{
    return std::string(text).substr(0, std::string(text).find('\n'));
}

std::string key_of(const Explanation &row)
{
    const std::string number = row.number == NO_NUMBER ? "" : std::to_string(row.number);
    const std::string name = row.name;
    return number + (number.empty() || name.empty() ? "" : " ") + name;
}

std::string heading(const Explanation &row)
{
    const std::string key = key_of(row);
    const std::string shown = key.empty() ? "\"" + first_line(row.messages) + "\"" : key;
    return painted(shown, Paint::name, STDOUT_FILENO) + ", " + row.layer;
}

std::string show(const Rows &rows)
{
    std::string out;
    for (const Explanation *row : rows) {
        out += (out.empty() ? "" : "\n") + heading(*row) + "\n";
        out += paragraph("  means   ", row->meaning);
        out += paragraph("  cause   ", row->cause);
        out += paragraph("  remedy  ", row->remedy);
    }
    return out;
}

std::string json_of(const Rows &rows)
{
    JsonArray list;
    for (const Explanation *row : rows)
        list.add(JsonObject()
                     .add("layer", row->layer)
                     .add("number", row->number == NO_NUMBER ? Json() : row->number)
                     .add("name", row->name)
                     .add("message", first_line(row->messages))
                     .add("meaning", row->meaning)
                     .add("cause", row->cause)
                     .add("remedy", row->remedy));
    return list.text() + "\n";
}

// The marks of Markdown are to be read as they are.
std::string plain_markdown(const std::string &text)
{
    std::string out;
    for (const char c : text)
        out += (std::strchr("\\`*_<>[]|~#", c) != nullptr ? "\\" : "") + std::string(1, c);
    return out;
}

// What stands for any text or number in the form of a message.
std::string shown_form(const std::string &form)
{
    return std::regex_replace(std::regex_replace(form, std::regex("%s"), "..."), std::regex("%[dx]"), "N");
}

std::string messages_of(const Explanation &row)
{
    std::string out;
    std::istringstream forms(row.messages);
    for (std::string form; std::getline(forms, form);)
        out += "    " + shown_form(form) + "\n";
    return out.empty() ? "" : out + "\n";
}

std::string markdown_of(const Rows &rows)
{
    std::string out =
        "# Codes and messages\n\nWhat `ka explain` knows. In messages ... is any text, and N any number.\n";
    std::string layer;
    for (const Explanation *row : rows) {
        if (layer != row->layer) out += "\n## " + std::string(row->layer) + "\n";
        layer = row->layer;
        const std::string key = key_of(*row);
        out += "\n### " + plain_markdown(key.empty() ? shown_form(first_line(row->messages)) : key) + "\n\n";
        out += messages_of(*row);
        out += "- means: " + plain_markdown(row->meaning) + "\n- cause: " + plain_markdown(row->cause) +
               "\n- remedy: " + plain_markdown(row->remedy) + "\n";
    }
    return out;
}

// ---- The command -----------------------------------------------------------------------------------------------

int run_explain(const Options &options)
{
    if (options.text.empty() && !options.all)
        return report_failure(KA_ARGUMENT, "a number, a name or a message is missing", options.form());
    const Rows rows = rows_wanted(options);
    if (rows.empty()) {
        const bool may_be_own = may_be_own_code(options.text);
        const std::string remedy = may_be_own ? "; as the return code of a call it is the function's own" : "";
        const std::string what =
            options.text == "-" ? "any line of standard input" : "'" + shortened(options.text) + "'";
        return report_failure(KA_ARGUMENT, "nothing is known about " + what + remedy, options.form());
    }
    const std::string text = options.json ? json_of(rows) : options.markdown ? markdown_of(rows) : show(rows);
    return write_results(text, EXIT_DONE);
}

} // namespace

void add_explain_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<Options>();
    CLI::App *explain =
        add_subcommand(app, {"explain", description, examples, "[OPTIONS] NUMBER | NAME | MESSAGE... | -"});
    take_extra_words(explain); // a number may begin with a minus sign
    add_flag(explain, "--all", options->all, "shows all that is known");
    add_flag(explain, "--json", options->json, "shows one JSON array");
    add_flag(explain, "--markdown", options->markdown, "shows Markdown, with every message");
    when_chosen(explain, exit_status, [options, explain] {
        for (const std::string &word : extra_words(explain))
            if (word != "--") options->text += (options->text.empty() ? "" : " ") + word;
        return run_explain(*options);
    });
}
