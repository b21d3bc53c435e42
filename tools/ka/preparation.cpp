// SPDX-License-Identifier: MIT
//
// See preparation.h.
#include "preparation.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

#include "json_arguments.h"

namespace {

std::string read_all(const std::string &path)
{
    std::ifstream file;
    if (path != "-") file.open(path);
    std::istream &input = path == "-" ? std::cin : file;
    std::string text{std::istreambuf_iterator<char>(input), {}};
    if (path != "-" && !file.is_open()) throw Malformed(path + ": cannot be read");
    return text;
}

Literal read_raw_literal(size_t position, const std::string &text)
{
    try {
        return read_literal(text, Unquoted::number);
    } catch (const Malformed &malformed) {
        throw Malformed("argument " + std::to_string(position) + " (" + text + "): " + malformed.what());
    }
}

// function is null when the arguments stand for themselves.
std::vector<Literal> read_literals(const Request &request, const Function *function)
{
    if (!request.arguments_file.empty()) return read_json_arguments(read_all(request.arguments_file));
    std::vector<Literal> literals;
    for (const std::string &text : request.arguments) {
        const size_t position = literals.size() + 1;
        literals.push_back(function != nullptr ? read_literal_for(*function, position, text)
                                               : read_raw_literal(position, text));
    }
    return literals;
}

std::vector<Argument> raw_arguments(const std::vector<Literal> &literals)
{
    std::vector<Argument> arguments;
    for (const Literal &literal : literals) {
        try {
            arguments.push_back(argument_of(literal));
        } catch (const Malformed &malformed) {
            throw Malformed("argument " + std::to_string(arguments.size() + 1) + " (" + literal.written +
                            "): " + malformed.what());
        }
    }
    return arguments;
}

} // namespace

Invocation prepare(const Request &request, const std::vector<Function> &functions)
{
    const Function &function = find_function(functions, request.function);
    const std::vector<Argument> arguments = arguments_for(function, read_literals(request, &function));
    return {request.function, arguments, argument_names(&function, arguments.size())};
}

Invocation prepare_raw(const Request &request, const std::vector<Function> &functions)
{
    const auto is_wanted = [&](const Function &function) { return function.name == request.function; };
    const auto found = std::find_if(functions.begin(), functions.end(), is_wanted);
    const std::vector<Argument> arguments = raw_arguments(read_literals(request, nullptr));
    return {request.function, arguments,
            argument_names(found != functions.end() ? &*found : nullptr, arguments.size())};
}
