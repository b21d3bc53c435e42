// SPDX-License-Identifier: MIT
//
// ka new: what it writes, and what it refuses. tests/install builds what it writes.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <unistd.h>

#include "ka/command.h"
#include "new/project.h"

namespace fs = std::filesystem;

namespace {

// The working folder, empty at first and removed at the end.
class KaNew : public testing::Test {
protected:
    KaNew()
    {
        char name[] = "/tmp/ka_test_XXXXXX";
        folder = mkdtemp(name);
        fs::current_path(folder);
    }
    ~KaNew() override
    {
        fs::current_path("/");
        fs::remove_all(folder);
    }
    // The names of all files in the working folder, with what is in them.
    std::map<std::string, std::string> files() const
    {
        std::map<std::string, std::string> found;
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder))
            if (entry.is_regular_file()) found[fs::relative(entry, folder)] = read_file(entry.path());
        return found;
    }
    // By its words alone.
    void expect_misused(const std::vector<std::string> &words, const std::string &sentence) const
    {
        expect_refused(words, sentence + "; see ka new --help");
    }
    void expect_refused(const std::vector<std::string> &words, const std::string &sentence) const
    {
        std::vector<std::string> all = {"new"};
        all.insert(all.end(), words.begin(), words.end());
        const Outcome outcome = ka(all);
        EXPECT_EQ(outcome.status, 2) << sentence;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "ka: " + sentence + "\n");
    }
    fs::path folder;
};

} // namespace

TEST_F(KaNew, writes_the_same_files_in_every_form)
{
    for (const std::string form : {"", "--cpp", "--c", "--tables"}) {
        const bool is_cpp = form.empty() || form == "--cpp";
        std::vector<std::string> words = {"new", "some-Module_2"};
        if (!form.empty()) words.push_back(form);
        const Outcome outcome = ka(words);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        std::vector<std::string> names;
        for (const auto &[name, text] : files()) {
            names.push_back(name);
            EXPECT_NE(text, "") << name;
            for (const char *mark : {"@NAME@", "@SUFFIX@", "@LANGUAGE@", "@STANDARD@", "@COMPILER@", "@FLAGS@"})
                EXPECT_EQ(text.find(mark), std::string::npos) << name << ": " << mark;
            EXPECT_NE(outcome.out.find(name + "\n"), std::string::npos) << outcome.out;
        }
        const std::string suffix = is_cpp ? ".cpp" : ".c";
        std::vector<std::string> expected = {".gitignore",
                                             "CMakeLists.txt",
                                             "Makefile",
                                             "README.md",
                                             "session.expected",
                                             "session.txt",
                                             "some-Module_2" + suffix,
                                             "some-Module_2_test" + suffix};
        for (std::string &name : expected)
            name.insert(0, "some-Module_2/");
        EXPECT_EQ(names, expected) << form;
        const std::string module = files()["some-Module_2/some-Module_2" + suffix];
        const std::string header = is_cpp ? "<ka/module.hpp>" : form == "--c" ? "<ka/module.h>" : "<ka/dll_module.h>";
        EXPECT_NE(module.find("#include " + header + "\n"), std::string::npos) << module;
        EXPECT_NE(outcome.out.find("\nnext: cd some-Module_2 && make test\n"), std::string::npos) << outcome.out;
        fs::remove_all("some-Module_2");
    }
}

TEST_F(KaNew, what_has_the_name_stays_as_it_is)
{
    fs::create_directory("folder");
    std::ofstream("folder/kept") << "kept";
    std::ofstream("file") << "kept";
    fs::create_symlink("nowhere", "link");
    const auto before = files();
    for (const std::string name : {"folder", "file", "link"})
        expect_refused({name}, name + " is there already, and stays as it is");
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(fs::is_symlink("link"));
    EXPECT_FALSE(fs::exists("nowhere"));
}

TEST_F(KaNew, names_are_checked)
{
    expect_misused({""}, "NAME: is empty");
    expect_misused({"."}, "NAME: is ., which is a folder that is there");
    expect_misused({".."}, "NAME: is .., which is a folder that is there");
    for (const std::string name : {"a/b", "/tmp/a", "../a", "a/"})
        expect_misused({name}, "NAME: has a / in it: the new folder is made in the one where ka is called");
    expect_misused({"--", "-a"}, "NAME: begins with -, and commands would take it for an option");
    expect_misused({"-a"}, "unknown option -a");
    expect_misused({std::string(101, 'a')}, "NAME: is longer than 100 characters");
    for (const std::string name :
         {"1a", "_a", "a b", "a.b", "a$b", "a\nb", "a%b", "\xc3\xa4", "a:b", "a'b", "@NAME@"})
        expect_misused({name}, "NAME: must be a letter with letters, digits, _ and - behind it, for it names files "
                               "and targets of builds");
    for (const std::string name :
         {"all", "test", "clean", "build", "help", "install", "package", "preinstall", "ALL_BUILD", "RUN_TESTS",
          "BITS", "MODULE", "Makefile", "makefile", "GNUmakefile", "CMakeFiles", "Testing"})
        expect_misused({name}, "NAME: is " + name + ", which make or CMake use themselves");
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_EQ(fault_of_name(std::string(100, 'a')), "");
}

TEST_F(KaNew, forms_exclude_each_other)
{
    expect_refused({"a", "--c", "--tables"}, "--cpp, --c and --tables exclude each other");
    expect_refused({"a", "--cpp", "--c"}, "--cpp, --c and --tables exclude each other");
    EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(KaNew, what_cannot_be_written_whole_is_not_left)
{
    const std::vector<ProjectFile> files = {{"first", "text"}, {"missing/second", "text"}, {"third", "text"}};
    EXPECT_EQ(write_project("a", files), "a/missing/second cannot be written: No such file or directory");
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_EQ(write_project("missing/a", files), "missing/a cannot be made: No such file or directory");
}
