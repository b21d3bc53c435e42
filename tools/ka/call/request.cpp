// SPDX-License-Identifier: MIT
//
// See request.h.
#include "request.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "values/json_arguments.h"

namespace {

// To the streams of the standard library a file that cannot be read is an empty one.
bool append_all(int fd, std::string &text)
{
    char buffer[1 << 16];
    ssize_t length;
    while ((length = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(length));
    return length == 0;
}

std::string read_all(const std::string &path)
{
    const bool is_input = path == "-";
    const int fd = is_input ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::string text;
    const bool is_read = fd != -1 && append_all(fd, text);
    const std::string why = std::strerror(errno);
    if (fd != -1 && !is_input) close(fd);
    if (!is_read) throw Malformed("cannot be read: " + why);
    return text;
}

// The place of a malformed argument.
std::string place_of(const Request &request)
{
    return request.arguments_file.empty() ? "" : "--args " + request.arguments_file + ": ";
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

std::vector<Argument> arguments_of(const Request &request, const Function &function)
{
    try {
        return arguments_for(function, read_literals(request, &function));
    } catch (const Malformed &malformed) {
        throw Malformed(place_of(request) + malformed.what());
    }
}

std::vector<Argument> raw_arguments_of(const Request &request)
{
    try {
        return raw_arguments(read_literals(request, nullptr));
    } catch (const Malformed &malformed) {
        throw Malformed(place_of(request) + malformed.what());
    }
}

} // namespace

Invocation prepare(const Request &request, const std::vector<Function> &functions)
{
    const Function &function = find_function(functions, request.function);
    const std::vector<Argument> arguments = arguments_of(request, function);
    return {request.function, arguments, argument_names(&function, arguments.size())};
}

Invocation prepare_raw(const Request &request, const std::vector<Function> &functions)
{
    const auto is_wanted = [&](const Function &function) { return function.name == request.function; };
    const auto found = std::find_if(functions.begin(), functions.end(), is_wanted);
    const std::vector<Argument> arguments = raw_arguments_of(request);
    return {request.function, arguments,
            argument_names(found != functions.end() ? &*found : nullptr, arguments.size())};
}
