// SPDX-License-Identifier: MIT
//
// The libraries that ka check finds are those that the dynamic linker finds, which is asked in each test.
#include "ka/command.h"

#include <elf.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "elf/libraries.h"
#include "ka/built_module.h"

namespace fs = std::filesystem;

namespace {

Outcome check(const std::string &path)
{
    return ka({"check", path});
}

struct Answer {
    int status;
    std::string out; // and what is on standard error
};

Answer answer_of(const std::string &command)
{
    FILE *pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
    std::string text;
    for (int c; (c = fgetc(pipe)) != EOF;)
        text += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

// What the linker itself would load, by its own words; nothing when it would not start the program.
std::optional<std::vector<std::string>> loaded_by_linker(const std::string &program)
{
    const Answer answer = answer_of("LD_TRACE_LOADED_OBJECTS=1 " + program);
    if (answer.status != 0 || answer.out.find("not found") != std::string::npos) return std::nullopt;
    std::vector<std::string> paths;
    std::istringstream lines(answer.out);
    for (std::string line; std::getline(lines, line);) {
        const size_t path = line.find('/');
        if (path == std::string::npos) continue; // the kernel's own
        paths.push_back(line.substr(path, line.find(" (", path) - path));
    }
    return paths;
}

std::optional<std::vector<std::string>> loaded_by_ka(const std::string &program)
{
    std::string why;
    const auto file = read_elf(program, why);
    EXPECT_TRUE(file) << why;
    const Libraries libraries = find_libraries(*file);
    if (!libraries.missing.empty()) return std::nullopt;
    std::vector<std::string> paths;
    for (const ElfFile &library : libraries.loaded)
        paths.push_back(library.path);
    return paths;
}

// The linker shows links as they are, and sorts by its own order.
std::set<fs::path> files_of(const std::vector<std::string> &paths)
{
    std::set<fs::path> files;
    for (const std::string &path : paths)
        files.insert(fs::canonical(path));
    return files;
}

void expect_as_linker(const std::string &program, bool starts)
{
    const auto linkers = loaded_by_linker(program);
    const auto ours = loaded_by_ka(program);
    ASSERT_EQ(linkers.has_value(), starts) << "the linker";
    ASSERT_EQ(ours.has_value(), starts) << "ka";
    if (starts) {
        EXPECT_EQ(files_of(*ours), files_of(*linkers));
    }
}

// A module in a folder of its own that needs a library, which is in a folder below.
class Needy {
public:
    Needy() : module_(sound_tables)
    {
        make_library("good");
        module_.build("user",
                      "#include \"ka/dll_module.h\"\nint far_away(void);\n" + sound_tables +
                          "int32_t KaCall(int32_t i, void **a) { return far_away(); }",
                      "-L" + folder() + "/good -lfar" + host_flags());
    }
    ~Needy() { unsetenv("LD_LIBRARY_PATH"); }

    std::string folder() const { return module_.folder(); }
    std::string program() const { return folder() + "/user"; }
    std::string library(const std::string &in) const { return folder() + "/" + in + "/libfar.so"; }

    void make_library(const std::string &in) const
    {
        fs::create_directories(folder() + "/" + in);
        module_.build(in + "/libfar.so", "int far_away(void) { return 1; }", "-shared -fPIC -Wl,-soname,libfar.so");
    }
    void write_library(const std::string &in, const std::string &bytes) const
    {
        fs::create_directories(folder() + "/" + in);
        std::ofstream(library(in), std::ios::binary) << bytes;
    }

    // Folders, separated by blanks, in which libraries are looked for first.
    void look_in(const std::string &folders) const
    {
        std::istringstream words(folders);
        std::string paths;
        for (std::string word; words >> word;)
            paths.append(paths.empty() ? "" : ":").append(folder()).append("/").append(word);
        setenv("LD_LIBRARY_PATH", paths.c_str(), 1);
    }

private:
    BuiltModule module_;
};

// Nothing but the header of a library: all that the linker reads of one for another machine.
template <typename Header>
std::string header_of_library(unsigned char elf_class, uint16_t machine)
{
    Header header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = elf_class;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_DYN;
    header.e_machine = machine;
    header.e_version = EV_CURRENT;
    header.e_ehsize = sizeof header;
    std::string bytes(4096, '\0');
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

const std::string narrow_header = header_of_library<Elf32_Ehdr>(ELFCLASS32, EM_386);
const std::string wide_header = header_of_library<Elf64_Ehdr>(ELFCLASS64, EM_X86_64);

// Runs a command with a mount table of its own, after others that change it; nothing when the user may not.
std::optional<Answer> answer_among_mounts(const std::string &mounts, const std::string &command)
{
    const std::string unshare = geteuid() == 0 ? "unshare -m" : "unshare -rm";
    if (answer_of(unshare + " mount --bind /dev/null /dev/null").status != 0) return std::nullopt;
    return answer_of(unshare + " sh -ec '" + mounts + "; exec " + command + "'");
}

} // namespace

TEST(KaCheckLibraries, are_those_that_the_linker_loads)
{
    expect_as_linker(tasks_module, true);
    EXPECT_GE(loaded_by_ka(tasks_module)->size(), 2u);
    expect_as_linker(module_folder(CALLER_MODULES) + "/caller_module_no_library", false);
}

TEST(KaCheckLibraries, of_libraries_are_followed)
{
    const BuiltModule module(sound_tables);
    const std::string folder = module.folder();
    module.build("libfar.so", "int far_away(void) { return 1; }", "-shared -fPIC");
    module.build("libmiddle.so", "int far_away(void); int middle(void) { return far_away(); }",
                 "-shared -fPIC -L" + folder + " -lfar");
    module.build("user",
                 "#include \"ka/dll_module.h\"\nint middle(void);\n" + sound_tables +
                     "int32_t KaCall(int32_t i, void **a) { return middle(); }",
                 "-L" + folder + " -lmiddle -Wl,-rpath-link," + folder + host_flags(":'$ORIGIN'"));
    const std::string user = folder + "/user";
    // The path of the program is not that of its libraries, unless it is an RPATH.
    const std::string missing = "the library libfar.so is missing, which " + folder + "/libmiddle.so needs\n";
    EXPECT_NE(check(user).out.find("error: " + user + ": " + missing), std::string::npos) << check(user).out;
    EXPECT_EQ(check(user).status, 4);
    expect_as_linker(user, false);
    setenv("LD_LIBRARY_PATH", folder.c_str(), 1);
    expect_as_linker(user, true);
    unsetenv("LD_LIBRARY_PATH");
    module.build("libmiddle.so", "int middle(void) { return 1; }", "-shared -fPIC");
    EXPECT_EQ(check(user).status, 0) << check(user).out;
}

TEST(KaCheckLibraries, of_another_machine_are_passed_over)
{
    const Needy module;
    const std::string &other = module_bits() == 64 ? narrow_header : wide_header;
    const std::string &own = module_bits() == 64 ? wide_header : narrow_header;
    std::string foreign = own;
    foreign[offsetof(Elf32_Ehdr, e_machine)] = 40;
    module.look_in("first good");
    for (const std::string &passed_over : {other, other.substr(0, 64), foreign}) {
        module.write_library("first", passed_over);
        expect_as_linker(module.program(), true);
    }
    for (const std::string &taken : {own, own.substr(0, 64), std::string("text"), std::string()}) {
        module.write_library("first", taken);
        expect_as_linker(module.program(), false);
    }
    fs::copy_file(module.program(), module.library("first"), fs::copy_options::overwrite_existing);
    expect_as_linker(module.program(), false);
    fs::remove(module.library("first"));
    fs::create_directory(module.library("first"));
    expect_as_linker(module.program(), false);
}

TEST(KaCheckLibraries, of_the_other_word_size_alone_are_named)
{
    const Needy module;
    module.write_library("first", module_bits() == 64 ? narrow_header : wide_header);
    module.look_in("first");
    expect_as_linker(module.program(), false);
    const bool is_wide = module_bits() == 64;
    const std::string finding = "the library libfar.so is missing, which " + module.program() + " needs (" +
                                module.library("first") + (is_wide ? ": a 32-bit file)\n" : ": a 64-bit file)\n") +
                                "  give the folder of its " + (is_wide ? "64" : "32") +
                                "-bit form by -Wl,-rpath or LD_LIBRARY_PATH, or build the module with " +
                                (is_wide ? "-m32\n" : "-m64\n");
    const std::string out = check(module.program()).out;
    EXPECT_NE(out.find(finding), std::string::npos) << finding << " not in\n" << out;
}

TEST(KaCheckLibraries, that_are_no_libraries_are_named)
{
    const Needy module;
    module.look_in("first");
    for (const auto &[bytes, why] : {std::pair<std::string, std::string>{"text", "not an ELF file"},
                                     {read_file(module.program()), "a program, not a library"}}) {
        module.write_library("first", bytes);
        const std::string out = check(module.program()).out;
        EXPECT_NE(out.find(" needs (" + module.library("first") + ": " + why + ")\n"), std::string::npos) << out;
    }
}

// The linker is asked what the names stand for, among folders of all values that they have anywhere.
TEST(KaCheckLibraries, are_found_in_folders_named_by_the_linker)
{
    const Needy module;
    const std::vector<std::string> values[] = {
        {"lib", "lib32", "lib64", "lib/i386-linux-gnu", "lib/x86_64-linux-gnu"},
        {"i386", "i586", "i686", "haswell", "xeon_phi", "x86_64"}};
    const std::string names[] = {"LIB", "PLATFORM"};
    for (int i = 0; i < 2; i++) {
        for (const std::string &value : values[i])
            module.make_library("by" + names[i] + "/" + value);
        for (const std::string &form : {"$" + names[i], "${" + names[i] + "}"}) {
            module.look_in("by" + names[i] + "/" + form);
            const auto loaded = loaded_by_linker(module.program());
            ASSERT_TRUE(loaded) << form;
            const auto is_far = [](const std::string &path) { return path.ends_with("/libfar.so"); };
            const auto far = std::find_if(loaded->begin(), loaded->end(), is_far);
            ASSERT_NE(far, loaded->end());
            for (const std::string &value : values[i])
                if (module.library("by" + names[i] + "/" + value) != *far)
                    fs::remove(module.library("by" + names[i] + "/" + value));
            expect_as_linker(module.program(), true);
        }
    }
    module.look_in("byLIB/lib/$LIB"); // none is there
    expect_as_linker(module.program(), false);
}

TEST(KaCheckLibraries, are_found_by_the_cache_alone)
{
    const Needy module;
    const std::string cache = module.folder() + "/cache";
    const auto answer = answer_among_mounts("/sbin/ldconfig -C " + cache + " " + module.folder() +
                                                "/good; mount --bind " + cache + " /etc/ld.so.cache",
                                            KA_COMMAND " check " + module.program());
    if (!answer) GTEST_SKIP() << "this system gives this user no mounts of its own";
    EXPECT_EQ(answer->out, module.program() + ": good\n");
    expect_as_linker(module.program(), false);
}

TEST(KaCheckLibraries, are_found_without_a_cache)
{
    const auto answer =
        answer_among_mounts("mount --bind /dev/null /etc/ld.so.cache", KA_COMMAND " check " + tasks_module);
    if (!answer) GTEST_SKIP() << "this system gives this user no mounts of its own";
    EXPECT_EQ(answer->out, tasks_module + ": good\n");
}

// The folder of its loader is hidden.
TEST(KaCheckLibraries, of_the_32_bit_c_library_are_missed_by_32_bit_modules_only)
{
    const char *loader = "/lib/ld-linux.so.2";
    const std::string hide =
        fs::exists(loader) ? "mount -t tmpfs none " + fs::canonical(loader).parent_path().string() : "true";
    const std::string example = examples_folder(KA_EXAMPLES) + "/adder";
    const auto answer = answer_among_mounts(hide, KA_COMMAND " check " + example);
    if (!answer) GTEST_SKIP() << "this system gives this user no mounts of its own";
    if (module_bits() == 64) {
        EXPECT_EQ(answer->out, example + ": good\n");
        EXPECT_EQ(answer->status, 0);
        return;
    }
    EXPECT_EQ(answer->status, 4);
    for (const char *part : {": its loader /lib/ld-linux.so.2 is missing\n"
                             "  install the 32-bit C library (Debian: libc6:i386 or libc6-i386)\n",
                             ": the library libc.so.6 is missing, which ",
                             "  install its 32-bit form (Debian: libc6:i386 or libc6-i386), or give its folder by "})
        EXPECT_NE(answer->out.find(part), std::string::npos) << part << "not in\n" << answer->out;
}
