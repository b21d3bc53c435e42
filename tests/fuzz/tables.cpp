// SPDX-License-Identifier: MIT
//
// Bytes as a module's file, of which the tables are read.
#include <cstring>
#include <map>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/targets.h"
#include "ka/caller.h"

namespace {

constexpr int32_t most_functions = 100000;
constexpr int32_t most_prototypes = 51;

using Tables = std::unique_ptr<ka_tables, decltype(&ka_free_tables)>;

// A file without a name.
class File {
public:
    explicit File(const fuzz::Bytes &bytes) : fd_(memfd_create("module", MFD_CLOEXEC))
    {
        if (write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) abort();
    }
    ~File() { close(fd_); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

std::string complaint_about(const ka_function &function)
{
    if (function.name == nullptr || std::strlen(function.name) > 1023) return "a function's name is impossible";
    if (function.prototype_count > most_prototypes) return "a function has too many prototypes";
    for (int32_t i = 0; i < function.prototype_count; i++)
        if (function.prototypes[i].name == nullptr || std::strlen(function.prototypes[i].name) > 1023)
            return "an argument's name is impossible";
    return "";
}

std::string complaint_about(const ka_tables &tables)
{
    if (tables.function_count < 0 || tables.function_count > most_functions)
        return "an impossible number of functions";
    std::map<std::string, const ka_function *> first;
    for (int32_t i = 0; i < tables.function_count; i++) {
        const ka_function &function = tables.functions[i];
        const std::string complaint = complaint_about(function);
        if (!complaint.empty()) return complaint;
        first.emplace(function.name, &function);
    }
    for (const auto &[name, function] : first)
        if (ka_find_function(&tables, name.c_str()) != function) return "not the first function of a name is found";
    return "";
}

} // namespace

std::string fuzz::try_tables(const Bytes &input)
{
    const File file(input);
    char why[200];
    std::memset(why, '\x7f', sizeof why);
    const Tables tables(ka_read_tables(file.path().c_str(), why, sizeof why), ka_free_tables);
    if (tables) return complaint_about(*tables);
    const size_t length = strnlen(why, sizeof why);
    return length > 0 && length < sizeof why ? "" : "no reason is given";
}

bool fuzz::has_tables(const Bytes &input)
{
    char why[200];
    return Tables(ka_read_tables(File(input).path().c_str(), why, sizeof why), ka_free_tables) != nullptr;
}
