// SPDX-License-Identifier: MIT
//
// ka real: looks at one number, or at the result of one operation on numbers.
#include "commands.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>

#include "base/exit_status.h"
#include "base/output.h"
#include "call/failure.h"
#include "cli/subcommand.h"
#include "number/show.h"
#include "values/literal.h"

namespace {

struct Options {
    std::vector<std::string> words;
    int packed_length = DEC_DIGITS + 1;
    bool json = false;

    Form form() const { return json ? Form::json : Form::text; }
};

using Words = std::vector<std::string>;

constexpr const char *description = R"(Shows a REAL in every form: text, record, packed bytes, double.

  ka real NUMBER              a number: 12.345, -1e9, or a record as below
  ka real A + B               likewise - x * /  (write '*' in quotes, or x)
  ka real negate NUMBER       the other sign
  ka real round NUMBER N      to N decimals after the point
  ka real trunc NUMBER N      cut off there
  ka real precision NUMBER N  to N significant decimals
  ka real compare A B         -1, 0 or 1
  ka real record RECORD       dec_exp:sign:digits, the sign being + - or null
  ka real bytes HEX...        a packed field
  ka real double D            a double: 0.1, 0x1.8p+1, inf, nan)";

constexpr const char *examples = R"(Examples:
  ka real 12.345
  ka real 2 / 3
  ka real -5 x 1.10
  ka real round 2.345 2
  ka real record 1:+:12,34,50
  ka real bytes C1 0C 23
  ka real --length 3 12.345
  ka real --json double 0.1
)";

// ---- Operations ------------------------------------------------------------------------------------------------

using Arithmetic = int (*)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *);

struct Operation {
    const char *name;
    Arithmetic run;
};

constexpr Operation operations[] = {{"+", m_add}, {"-", m_sub}, {"x", m_mpy}, {"*", m_mpy}, {"/", m_dvd}};

int precision(const t_DECIMAL *x, int count, t_DECIMAL *r)
{
    *r = *x;
    return mkprec(r, count);
}

struct ToPlaces {
    const char *name;
    int (*run)(const t_DECIMAL *, int, t_DECIMAL *);
    const char *count;
};

constexpr ToPlaces to_places[] = {
    {"round", m_round, "the number of decimals"},
    {"trunc", m_trunc, "the number of decimals"},
    {"precision", precision, "the number of significant decimals"},
};

// True when the digits of a, seen as a fraction, are less than those of b: the quotient is then cut off.
bool lacks_guard_digit(const t_DECIMAL &a, const t_DECIMAL &b)
{
    return std::lexicographical_compare(a.dec_dgts, a.dec_dgts + a.dec_ndgts, b.dec_dgts, b.dec_dgts + b.dec_ndgts);
}

void add_notes(const Number &from, Number &to)
{
    for (const std::string &note : from.notes)
        to.notes.push_back("operand: " + note);
}

Number calculate(const Words &words)
{
    const auto *operation = std::find_if(std::begin(operations), std::end(operations),
                                         [&](const Operation &each) { return each.name == words[1]; });
    if (operation == std::end(operations))
        throw Malformed("'" + words[1] + "' is not an operation; these are: + - x * /");
    const Number a = read_operand(words[0]);
    const Number b = read_operand(words[2]);
    Number result{};
    result.status = operation->run(&a.value, &b.value, &result.value);
    add_notes(a, result);
    add_notes(b, result);
    if (operation->run == m_dvd && result.value.dec_ndgts == DEC_DIGITS && lacks_guard_digit(a.value, b.value))
        result.notes.push_back("cut off, not rounded: this quotient has no digit past the last");
    return result;
}

Number change_places(const ToPlaces &operation, const Words &words)
{
    const Number x = read_operand(words[1]);
    const int count = read_count(words[2], operation.count, 0, 1000);
    Number result{};
    result.status = operation.run(&x.value, count, &result.value);
    add_notes(x, result);
    if (result.status != REAL_OK) result.notes.push_back("cut to the decimals asked for");
    if (operation.run == m_trunc && x.value.dec_exp < 0 && result.value.dec_ndgts != 0)
        result.notes.push_back("below 0.01 m_trunc keeps two more decimals for every pair of zeros after the point");
    return result;
}

// ---- The words -------------------------------------------------------------------------------------------------

void expect(const Words &words, size_t count, const char *form)
{
    if (words.size() != count) throw Malformed("usage: ka real " + words[0] + " " + form);
}

Number negate(const Words &words)
{
    expect(words, 2, "NUMBER");
    const Number x = read_operand(words[1]);
    Number result{};
    result.status = m_chs(&x.value, &result.value);
    add_notes(x, result);
    return result;
}

Number read_bytes_of(const Words &words)
{
    std::string hex;
    for (size_t i = 1; i < words.size(); i++)
        hex += (i > 1 ? " " : "") + words[i];
    return read_bytes(hex);
}

Number evaluate(const Words &words)
{
    for (const ToPlaces &operation : to_places) {
        if (words[0] != operation.name) continue;
        expect(words, 3, "NUMBER N");
        return change_places(operation, words);
    }
    if (words[0] == "negate") return negate(words);
    if (words[0] == "bytes") return read_bytes_of(words);
    if (words[0] == "record") {
        expect(words, 2, "RECORD");
        return read_record(words[1]);
    }
    if (words[0] == "double") {
        expect(words, 2, "DOUBLE");
        return read_double(words[1]);
    }
    if (words.size() == 3) return calculate(words);
    if (words.size() != 1) throw Malformed("a NUMBER, or A OPERATION B, is expected; see ka real --help");
    return words[0].find(':') == std::string::npos ? read_text(words[0]) : read_record(words[0]);
}

std::string compare(const Options &options)
{
    expect(options.words, 3, "A B");
    const Number a = read_operand(options.words[1]);
    const Number b = read_operand(options.words[2]);
    const int order = m_cmp(&a.value, &b.value);
    return options.json ? order_json(order) : show_order(order, exact_text(a.value), exact_text(b.value));
}

// Words in one quoted argument count as several.
Words words_of(const Words &arguments)
{
    Words words;
    for (const std::string &argument : arguments) {
        std::istringstream parts(argument);
        for (std::string word; parts >> word;)
            words.push_back(word);
    }
    return words;
}

int show(const Options &options)
{
    if (options.words.empty()) throw Malformed("a number is missing; see ka real --help");
    if (options.words[0] == "compare") return write_results(compare(options), EXIT_DONE);
    const Number number = evaluate(options.words);
    return write_results((options.json ? number_json : show_number)(number, options.packed_length),
                         number.status == REAL_OK ? EXIT_DONE : EXIT_NONZERO);
}

int run_real(const Options &options)
{
    try {
        return show(options);
    } catch (const Malformed &malformed) {
        return report_failure(KA_ARGUMENT, malformed.what(), options.form());
    }
}

} // namespace

void add_real_command(CLI::App &app, int &exit_status)
{
    const auto options = std::make_shared<Options>();
    CLI::App *real =
        add_subcommand(app, {"real", description, examples, "[OPTIONS] NUMBER | A OPERATION B | VERB ..."});
    take_extra_words(real); // a number may begin with a minus sign
    add_option(real,
               {.name = "--length",
                .value = "N",
                .text = "bytes of the packed form shown",
                .shows_default = true,
                .range = Range{2, 64}},
               options->packed_length);
    add_flag(real, "--json", options->json, "shows one JSON object");
    when_chosen(real, exit_status, [options, real] {
        options->words = words_of(extra_words(real));
        return run_real(*options);
    });
}
