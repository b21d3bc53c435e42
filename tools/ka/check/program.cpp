// SPDX-License-Identifier: MIT
//
// See finding.h. Everything that the kernel and the dynamic linker would stumble over, all of it at once.
#include <elf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <unistd.h>

#include "base/text.h"
#include "elf/libraries.h"
#include "finding.h"

namespace {

bool check_file(const std::string &module, Findings &findings)
{
    std::error_code error;
    const auto status = std::filesystem::status(module, error);
    if (!std::filesystem::exists(status)) {
        findings.push_back({Severity::fatal, error ? error.message() : "no such file", "look at the path"});
    } else if (std::filesystem::is_directory(status)) {
        findings.push_back({Severity::fatal, "a directory", "name the executable in it"});
    } else if (!std::filesystem::is_regular_file(status)) {
        findings.push_back({Severity::fatal, "not a regular file", "name an executable"});
    } else if (access(module.c_str(), R_OK) != 0) {
        findings.push_back({Severity::fatal, std::string("cannot be read: ") + std::strerror(errno), "chmod +r"});
    } else {
        if (access(module.c_str(), X_OK) != 0) findings.push_back({Severity::fatal, "not executable", "chmod +x"});
        return true;
    }
    return false;
}

void check_loader(const ElfFile &program, Findings &findings)
{
    std::error_code unreachable; // counts as missing
    const bool is_static = program.needed.empty() && program.loader.empty();
    if (is_static) return;
    if (program.loader.empty()) {
        findings.push_back({Severity::fatal, "it names no loader: a shared library, not a program",
                            "link it as an executable, without -shared"});
    } else if (!std::filesystem::exists(program.loader, unreachable)) {
        findings.push_back({Severity::fatal, "its loader " + printable(program.loader) + " is missing",
                            "install the " + bits_text(*program.machine) +
                                " C library (Debian: " + c_library_package(*program.machine) + ")"});
    }
}

std::string remedy_of(const MissingLibrary &missing, const ElfMachine &machine)
{
    const std::string form = "its " + bits_text(machine) + " form";
    const std::string ways = " by -Wl,-rpath or LD_LIBRARY_PATH";
    if (missing.is_of_other_size)
        return "give the folder of " + form + ways + ", or build the module with " + other_machine(machine).flag;
    const std::string package = package_of(missing.library, machine);
    return "install " + form + (package.empty() ? "" : " (Debian: " + package + ")") + ", or give its folder" + ways;
}

void report_missing(const Libraries &libraries, const ElfMachine &machine, Findings &findings)
{
    for (const MissingLibrary &each : libraries.missing) {
        std::string text =
            "the library " + printable(each.library) + " is missing, which " + printable(each.needed_by) + " needs";
        if (!each.met.empty()) text += " (" + printable(each.met) + ")";
        findings.push_back({Severity::fatal, text, remedy_of(each, machine)});
    }
}

// ---- Symbols ---------------------------------------------------------------------------------------------------

constexpr const char *own_symbols[] = {"KaFuncList", "KaArgList", "KaCall"};

bool is_own(const std::string &name)
{
    return std::find(std::begin(own_symbols), std::end(own_symbols), name) != std::end(own_symbols);
}

std::set<std::string> provided_symbols(const ElfFile &program, const Libraries &libraries)
{
    std::set<std::string> names;
    const auto add = [&](const ElfFile &file) {
        for (const ElfSymbol &symbol : file.exported)
            if (symbol.is_defined) names.insert(symbol.name);
    };
    add(program);
    for (const ElfFile &library : libraries.loaded)
        add(library);
    return names;
}

// Where a library is missing, its symbols would all be reported again.
void check_undefined(const ElfFile &program, const Libraries &libraries, Findings &findings)
{
    if (!libraries.missing.empty()) return;
    const std::set<std::string> provided = provided_symbols(program, libraries);
    const auto check = [&](const ElfFile &file) {
        for (const ElfSymbol &symbol : file.exported) {
            if (symbol.is_defined || symbol.is_weak || is_own(symbol.name) || provided.contains(symbol.name))
                continue;
            findings.push_back({Severity::error,
                                "nothing provides the symbol " + printable(symbol.name) + ", which " +
                                    printable(file.path) + " uses",
                                "link the library that has it; a call that comes to it ends the host"});
        }
    };
    check(program);
    for (const ElfFile &library : libraries.loaded)
        check(library);
}

void check_versions(const ElfFile &file, const Libraries &libraries, Findings &findings)
{
    for (const ElfNeed &need : file.versions_needed) {
        const auto is_it = [&](const ElfFile &library) {
            return library.soname == need.library || std::filesystem::path(library.path).filename() == need.library;
        };
        const auto found = std::find_if(libraries.loaded.begin(), libraries.loaded.end(), is_it);
        if (need.is_weak || found == libraries.loaded.end() || found->versions.contains(need.version)) continue;
        findings.push_back({Severity::fatal,
                            printable(found->path) + " has no version " + printable(need.version) + ", which " +
                                printable(file.path) + " needs",
                            "build the module on the oldest system it is to run on, or bring a newer library"});
    }
}

bool has_host(const ElfFile &program, const Libraries &libraries)
{
    for (const ElfFile &library : libraries.loaded)
        if (find_defined(library, "dll_debug") != nullptr && find_defined(library, "main") != nullptr) return true;
    return find_defined(program, "u_get_baseptr") != nullptr;
}

void check_host(const ElfFile &program, const Libraries &libraries, Findings &findings)
{
    const auto is_host = [](const MissingLibrary &each) { return each.library.starts_with("libkahost"); };
    const bool host_missing = std::any_of(libraries.missing.begin(), libraries.missing.end(), is_host);
    if (host_missing) return;
    if (!has_host(program, libraries)) {
        findings.push_back({Severity::error,
                            "it is not linked with the call host: it would never answer",
                            "link it with -lkahost; it must not have a main of its own",
                            {},
                            true});
        return;
    }
    const bool host_inside = find_defined(program, "u_get_baseptr") != nullptr;
    if (!host_inside && find_defined(program, "main") != nullptr)
        findings.push_back({Severity::error,
                            "it has a main of its own, so that of the call host never runs",
                            "remove main: dll_setup is where a module begins",
                            {},
                            true});
}

void check_own_symbols(const ElfFile &program, Findings &findings)
{
    for (const char *name : own_symbols) {
        const ElfSymbol *symbol = find_defined(program, name);
        const bool is_table = std::strcmp(name, "KaCall") != 0;
        const int wanted = is_table ? STT_OBJECT : STT_FUNC;
        if (symbol == nullptr) {
            findings.push_back({Severity::fatal, std::string("it does not define ") + name,
                                "define it in the module; in C++ within extern \"C\""});
        } else if (symbol->type != wanted && symbol->type != STT_NOTYPE) {
            findings.push_back({Severity::error,
                                std::string(name) + (is_table ? " is not a table" : " is not a function"),
                                "declare it as ka/dll_module.h does: include that header"});
        }
    }
}

} // namespace

std::optional<ElfFile> check_program(const std::string &module, Findings &findings)
{
    if (!check_file(module, findings)) return std::nullopt;
    std::string why;
    auto program = read_elf(module, why);
    if (!program) {
        findings.push_back({Severity::fatal, why, "build it with a compiler for this machine"});
        return std::nullopt;
    }
    check_loader(*program, findings);
    const Libraries libraries = find_libraries(*program);
    report_missing(libraries, *program->machine, findings);
    check_versions(*program, libraries, findings);
    for (const ElfFile &library : libraries.loaded)
        check_versions(library, libraries, findings);
    check_host(*program, libraries, findings);
    check_own_symbols(*program, findings);
    check_undefined(*program, libraries, findings);
    return program;
}
