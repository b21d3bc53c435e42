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

namespace {

using Paths = std::vector<std::string>;

// A file that was loaded, and by which; the program itself has no parent.
struct Node {
    ElfFile file;
    int parent;
};

void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

std::string expanded(std::string folder, const ElfFile &file)
{
    std::error_code ignored;
    const std::string origin = std::filesystem::absolute(file.path, ignored).parent_path();
    for (const auto &[name, value] :
         {std::pair<std::string, std::string>{"ORIGIN", origin}, {"LIB", "lib"}, {"PLATFORM", "i686"}}) {
        replace_all(folder, "${" + name + "}", value);
        replace_all(folder, "$" + name, value);
    }
    return folder;
}

// An empty folder in a list is the current one.
void add_folders(Paths &folders, const std::string &list, const ElfFile &file)
{
    if (list.empty()) return;
    std::string separated = list;
    std::replace(separated.begin(), separated.end(), ';', ':');
    std::istringstream parts(separated);
    for (std::string folder; std::getline(parts, folder, ':');)
        folders.push_back(folder.empty() ? "." : expanded(folder, file));
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

constexpr int32_t cache_32_bit = 3; // ELF, and no other word size

std::multimap<std::string, std::string> read_cache()
{
    std::ifstream stream("/etc/ld.so.cache", std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    std::multimap<std::string, std::string> cache;
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
        if (entry.flags == cache_32_bit) cache.emplace(text(entry.name), text(entry.path));
    }
    return cache;
}

// ---- The search ------------------------------------------------------------------------------------------------

Paths folders_before_cache(const std::vector<Node> &nodes, int asking)
{
    Paths folders;
    const ElfFile &file = nodes[static_cast<size_t>(asking)].file;
    // A RUNPATH puts the RPATHs out of force, those of the files above too.
    for (int at = asking; file.runpath.empty() && at >= 0; at = nodes[static_cast<size_t>(at)].parent) {
        const ElfFile &above = nodes[static_cast<size_t>(at)].file;
        if (above.runpath.empty()) add_folders(folders, above.rpath, above);
    }
    const char *environment = std::getenv("LD_LIBRARY_PATH");
    if (environment != nullptr) add_folders(folders, environment, nodes[0].file);
    add_folders(folders, file.runpath, file);
    return folders;
}

Paths candidates(const std::vector<Node> &nodes, int asking, const std::string &name)
{
    if (name.find('/') != std::string::npos) return {expanded(name, nodes[static_cast<size_t>(asking)].file)};
    Paths paths;
    for (const std::string &folder : folders_before_cache(nodes, asking))
        paths.push_back(std::filesystem::path(folder) / name);
    static const std::multimap<std::string, std::string> cache = read_cache();
    const auto [begin, end] = cache.equal_range(name);
    for (auto entry = begin; entry != end; ++entry)
        paths.push_back(entry->second);
    for (const char *folder :
         {"/lib/i386-linux-gnu", "/usr/lib/i386-linux-gnu", "/lib32", "/usr/lib32", "/lib", "/usr/lib"})
        paths.push_back(std::filesystem::path(folder) / name);
    return paths;
}

// Files of another word size or processor are passed over, as the linker does.
std::optional<ElfFile> search(const std::vector<Node> &nodes, int asking, const std::string &name, std::string &met)
{
    for (const std::string &path : candidates(nodes, asking, name)) {
        std::error_code unreachable; // counts as missing
        if (!std::filesystem::is_regular_file(path, unreachable)) continue;
        std::string why;
        auto file = read_elf(path, why);
        if (file) return file;
        if (met.empty()) met.append(path).append(": ").append(why);
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
            std::string met;
            auto file = search(nodes, static_cast<int>(asking), name, met);
            if (file) {
                nodes.push_back({std::move(*file), static_cast<int>(asking)});
            } else {
                libraries.missing.push_back({name, nodes[asking].file.path, met});
            }
        }
    }
    for (size_t i = 1; i < nodes.size(); i++)
        libraries.loaded.push_back(std::move(nodes[i].file));
    return libraries;
}
