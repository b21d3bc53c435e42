// SPDX-License-Identifier: MIT
//
// A language of four statements that calls native code: this is all the code that embedding libkacall takes.
// Integers, decimals and strings are passed by value, &name passes a variable by reference. A module that crashes is
// an error of one line; the next call starts it again. usage: embed SCRIPT DIRECTORY-OF-MODULES
//
//     use tour                      starts the module DIRECTORY/tour
//     name = 2.50                   2 is an INTEGER, 2.50 a REAL, "2" a STRING
//     tour.greet "world" &name      calls a function of the module
//     print name                    shows a value
#include <charconv>
#include <fstream>
#include <iostream>
#include <ka/caller.hpp>
#include <map>
#include <variant>

namespace {

using Value = std::variant<std::int32_t, ka::Decimal, std::string>;
using Words = std::vector<std::string>;

constexpr std::int32_t string_room = 80; // every string variable of the language can become this long

// Words are separated by blanks; text between quotation marks is one word, which keeps the first mark.
Words split(const std::string &line)
{
    Words words;
    for (std::size_t at = 0; (at = line.find_first_not_of(' ', at)) != std::string::npos;) {
        const bool quoted = line[at] == '"';
        const std::size_t end = std::min(line.find(quoted ? '"' : ' ', at + 1), line.size());
        words.push_back(line.substr(at, end - at));
        at = quoted ? end + 1 : end;
    }
    return words;
}

template <typename Thing>
Thing &find(std::map<std::string, Thing> &things, const std::string &name, const char *what)
{
    const auto found = things.find(name);
    if (found == things.end()) throw std::runtime_error("unknown " + std::string(what) + ' ' + name);
    return found->second;
}

auto by_reference(std::string &text)
{
    return ka::ref(text, string_room);
}
template <typename Number>
auto by_reference(Number &number)
{
    return ka::ref(number);
}

class Interpreter {
public:
    explicit Interpreter(std::string directory) : directory_(std::move(directory)) {}

    void run(const Words &words)
    {
        const std::size_t dot = words[0].find('.');
        if (words[0] == "use" && words.size() == 2) {
            use(words[1]);
        } else if (words[0] == "print" && words.size() == 2) {
            print(value_of(words[1]));
        } else if (words.size() == 3 && words[1] == "=") {
            variables_[words[0]] = value_of(words[2]);
        } else if (dot != std::string::npos) {
            call(words[0].substr(0, dot), words[0].substr(dot + 1), Words(words.begin() + 1, words.end()));
        } else {
            throw std::runtime_error("not a statement");
        }
    }

private:
    void use(const std::string &name)
    {
        ka::Options options;
        options.restart = KA_RESTART_NEXT_CALL;
        options.deadline_ms = 5000;
        ka::Host host(directory_ + '/' + name, options);
        // A function that asks back gets the value of the variable "reply".
        host.on_callback(
            [this](std::int32_t) { return std::get<std::int32_t>(find(variables_, "reply", "variable")); });
        modules_.insert_or_assign(name, std::move(host));
    }

    Value value_of(const std::string &word)
    {
        if (word[0] == '"') return word.substr(1);
        if (word.find_first_of("+-.0123456789") != 0) return find(variables_, word, "variable");
        if (word.find_first_of(".eE") != std::string::npos) return ka::Decimal(word);
        std::int32_t number = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
        if (error != std::errc() || *end != '\0') throw std::runtime_error(word + " is not an INTEGER");
        return number;
    }

    void call(const std::string &module, const std::string &function, const Words &words)
    {
        ka::Host &host = find(modules_, module, "module");
        host.begin(function);
        for (const std::string &word : words) {
            if (word[0] == '&')
                std::visit([&](auto &variable) { host.add(by_reference(variable)); }, variable_of(word));
            else
                std::visit([&](const auto &value) { host.add(value); }, value_of(word));
        }
        const std::int32_t code = host.send();
        for (std::size_t i = 0; i < words.size(); i++) {
            const auto number = static_cast<std::int32_t>(i + 1);
            if (words[i][0] != '&') continue;
            std::visit([&](auto &variable) { host.take(number, variable); }, variable_of(words[i]));
        }
        if (code != 0) throw std::runtime_error(function + " returned " + std::to_string(code));
    }

    Value &variable_of(const std::string &word) { return find(variables_, word.substr(1), "variable"); }

    static void print(const Value &value)
    {
        if (const auto *decimal = std::get_if<ka::Decimal>(&value)) std::cout << decimal->text << std::endl;
        if (const auto *integer = std::get_if<std::int32_t>(&value)) std::cout << *integer << std::endl;
        if (const auto *text = std::get_if<std::string>(&value)) std::cout << *text << std::endl;
    }

    std::string directory_;
    std::map<std::string, Value> variables_;
    std::map<std::string, ka::Host> modules_;
};

} // namespace

int main(int argc, char **argv)
{
    std::ifstream script(argc == 3 ? argv[1] : "");
    if (!script) {
        std::cerr << "usage: embed SCRIPT DIRECTORY-OF-MODULES\n";
        return 2;
    }
    Interpreter interpreter(argv[2]);
    int number = 1;
    for (std::string line; std::getline(script, line); number++) {
        try {
            const Words words = split(line.substr(0, line.find('#')));
            if (!words.empty()) interpreter.run(words);
        } catch (const std::exception &error) {
            std::cout << "line " << number << ": " << error.what() << std::endl;
        }
    }
}
