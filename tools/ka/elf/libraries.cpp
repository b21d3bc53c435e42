// SPDX-License-Identifier: MIT
//
// See libraries.h.
#include "libraries.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <unistd.h>

namespace {

using Paths = std::vector<std::string>;

// A file that was loaded, and by which; the program itself has no parent.
struct Node {
    ElfFile file;
    int parent;
};

// ---- Names in paths --------------------------------------------------------------------------------------------

// What $LIB is, the dynamic linker was told when it was built: the folder that it lies in itself.
std::string lib_folder(const std::string &loader)
{
    std::error_code unreachable; // a program without it does not start
    const std::string folder = std::filesystem::canonical(loader, unreachable).parent_path();
    const size_t at = folder.rfind("/lib");
    return at == std::string::npos ? "lib" : folder.substr(at + 1);
}

void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

std::string replaced(std::string text, const std::string &name, const std::string &value)
{
    replace_all(text, "${" + name + "}", value);
    replace_all(text, "$" + name, value);
    return text;
}

// The folder that $ORIGIN stands for. The kernel tells a program its own path without links.
std::string origin_of(const ElfFile &file, const ElfFile &program)
{
    std::error_code error;
    if (file.path != program.path) return std::filesystem::absolute(file.path, error).parent_path();
    return std::filesystem::weakly_canonical(file.path, error).parent_path();
}

// More than one path, where it names what can have several values. A program's loader expands the paths of all files.
Paths expanded(const std::string &path, const ElfFile &file, const ElfFile &program)
{
    const std::string known =
        replaced(replaced(path, "ORIGIN", origin_of(file, program)), "LIB", lib_folder(program.loader));
    Paths paths;
    for (const char *platform : program.machine->platforms) {
        const std::string whole = replaced(known, "PLATFORM", platform);
        if (paths.empty() || paths.back() != whole) paths.push_back(whole);
    }
    return paths;
}

// An empty folder in a list is the current one.
void add_folders(Paths &folders, const std::string &list, const ElfFile &file, const ElfFile &program)
{
    if (list.empty()) return;
    std::string separated = list;
    std::replace(separated.begin(), separated.end(), ';', ':');
    std::istringstream parts(separated);
    for (std::string folder; std::getline(parts, folder, ':');)
        for (const std::string &each : expanded(folder.empty() ? "." : folder, file, program))
            folders.push_back(each);
}

// ---- The linker's cache ----------------------------------------------------------------------------------------

struct CacheHeader {
    char magic[20];
    uint32_t count, text_size, flags, unused[4];
};
struct CacheEntry {
    int32_t flags;
    uint32_t name, path, os_version;
    uint64_t capabilities;
};
static_assert(sizeof(CacheHeader) == 48 && sizeof(CacheEntry) == 24);

constexpr int32_t cache_flags_of_all = 1; // files that say nothing about their word size

struct CachedLibrary {
    int32_t flags;
    std::string path;
};
using Cache = std::multimap<std::string, CachedLibrary>;

Cache read_cache()
{
    std::ifstream stream("/etc/ld.so.cache", std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    Cache cache;
    const size_t start = bytes.find("glibc-ld.so.cache1.1"); // an older form may come before it
    CacheHeader header;
    if (start == std::string::npos || bytes.size() - start < sizeof header) return cache;
    std::memcpy(&header, bytes.data() + start, sizeof header);
    const auto text = [&](uint32_t offset) {
        return offset < bytes.size() - start ? std::string(bytes.c_str() + start + offset) : std::string();
    };
    for (uint32_t i = 0; i < header.count; i++) {
        CacheEntry entry;
        const size_t at = start + sizeof header + i * sizeof entry;
        if (at + sizeof entry > bytes.size()) break;
        std::memcpy(&entry, bytes.data() + at, sizeof entry);
        cache.emplace(text(entry.name), CachedLibrary{entry.flags, text(entry.path)});
    }
    return cache;
}

void add_cached(Paths &paths, const std::string &name, const ElfMachine &machine)
{
    static const Cache cache = read_cache();
    const auto [begin, end] = cache.equal_range(name);
    for (auto entry = begin; entry != end; ++entry)
        if (entry->second.flags == machine.cache_flags || entry->second.flags == cache_flags_of_all)
            paths.push_back(entry->second.path);
}

// ---- The search ------------------------------------------------------------------------------------------------

Paths folders_before_cache(const std::vector<Node> &nodes, int asking)
{
    Paths folders;
    const ElfFile &program = nodes[0].file;
    const ElfFile &file = nodes[static_cast<size_t>(asking)].file;
    // A RUNPATH puts the RPATHs out of force, those of the files above too.
    for (int at = asking; file.runpath.empty() && at >= 0; at = nodes[static_cast<size_t>(at)].parent) {
        const ElfFile &above = nodes[static_cast<size_t>(at)].file;
        if (above.runpath.empty()) add_folders(folders, above.rpath, above, program);
    }
    const char *environment = std::getenv("LD_LIBRARY_PATH");
    if (environment != nullptr) add_folders(folders, environment, program, program);
    add_folders(folders, file.runpath, file, program);
    return folders;
}

Paths candidates(const std::vector<Node> &nodes, int asking, const std::string &name)
{
    const ElfFile &program = nodes[0].file;
    if (name.find('/') != std::string::npos) return expanded(name, nodes[static_cast<size_t>(asking)].file, program);
    Paths paths;
    for (const std::string &folder : folders_before_cache(nodes, asking))
        paths.push_back(std::filesystem::path(folder) / name);
    add_cached(paths, name, *program.machine);
    const std::string lib = lib_folder(program.loader);
    for (const std::string &folder : {"/" + lib, "/usr/" + lib, std::string("/lib"), std::string("/usr/lib")})
        paths.push_back(std::filesystem::path(folder) / name);
    return paths;
}

// A file that the linker comes to.
struct Met {
    std::optional<ElfFile> library;
    std::string why; // it is none
    bool is_of_other_size = false;
    bool is_passed_over = false; // the linker looks further; on everything else that is no library it gives up
};

Met meet(const std::string &path, const ElfMachine &machine)
{
    std::error_code unreachable;
    if (!std::filesystem::is_regular_file(path, unreachable)) return {{}, "not a regular file"};
    if (access(path.c_str(), R_OK) != 0) return {{}, std::strerror(errno), false, true};
    const std::string header = header_of(path);
    const ElfMachine *own = machine_of(header);
    Met met;
    met.library = read_elf(path, met.why);
    met.is_passed_over = own != &machine && header.starts_with(ELFMAG);
    met.is_of_other_size = met.is_passed_over && own != nullptr;
    if (met.is_of_other_size) met.why = "a " + bits_text(*own) + " file";
    if (met.library && !met.library->is_library && !met.is_passed_over) met.why = "a program, not a library";
    if (!met.why.empty()) met.library.reset();
    return met;
}

std::optional<ElfFile> search(const std::vector<Node> &nodes, int asking, MissingLibrary &wanted)
{
    for (const std::string &path : candidates(nodes, asking, wanted.library)) {
        std::error_code unreachable; // counts as missing
        if (!std::filesystem::exists(path, unreachable)) continue;
        Met met = meet(path, *nodes[0].file.machine);
        if (met.library) return std::move(met.library);
        if (wanted.met.empty()) wanted.met.append(path).append(": ").append(met.why);
        wanted.is_of_other_size |= met.is_of_other_size;
        if (!met.is_passed_over) break;
    }
    return std::nullopt;
}

bool is_loaded(const std::vector<Node> &nodes, const std::string &name)
{
    return std::any_of(nodes.begin() + 1, nodes.end(), [&](const Node &node) {
        return node.file.soname == name || std::filesystem::path(node.file.path).filename() == name;
    });
}

bool is_known_missing(const std::vector<MissingLibrary> &missing, const std::string &name)
{
    return std::any_of(missing.begin(), missing.end(),
                       [&](const MissingLibrary &each) { return each.library == name; });
}

} // namespace

// Breadth first, which is also the order in which symbols are looked for.
Libraries find_libraries(const ElfFile &program)
{
    std::vector<Node> nodes = {{program, -1}};
    Libraries libraries;
    for (size_t asking = 0; asking < nodes.size(); asking++) {
        const Paths needed = nodes[asking].file.needed;
        for (const std::string &name : needed) {
            if (is_loaded(nodes, name) || is_known_missing(libraries.missing, name)) continue;
            MissingLibrary wanted = {name, nodes[asking].file.path, "", false};
            auto file = search(nodes, static_cast<int>(asking), wanted);
            if (file)
                nodes.push_back({std::move(*file), static_cast<int>(asking)});
            else
                libraries.missing.push_back(wanted);
        }
    }
    for (size_t i = 1; i < nodes.size(); i++)
        libraries.loaded.push_back(std::move(nodes[i].file));
    return libraries;
}
