// SPDX-License-Identifier: MIT
//
// A module named without a path is one of the current folder, or else of the folders in KA_PATH.
#include <fcntl.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "ka/command.h"

namespace {

namespace fs = std::filesystem;

// The current folder is here/, and KA_PATH names nowhere/ and there/.
class KaNamedModule : public testing::Test {
protected:
    KaNamedModule()
        : before_(fs::current_path()), folder_(testing::TempDir() + "ka_named." + std::to_string(getpid()))
    {
        fs::create_directories(folder_ + "/here");
        fs::create_directories(folder_ + "/there");
        fs::current_path(folder_ + "/here");
        search(folder_ + "/nowhere:" + folder_ + "/there");
    }
    ~KaNamedModule() override
    {
        unsetenv("KA_PATH");
        fs::current_path(before_);
        fs::remove_all(folder_);
    }
    void search(const std::string &folders) { setenv("KA_PATH", folders.c_str(), 1); }
    std::string there() const { return folder_ + "/there"; }
    // A link: a copy would not find a library that is beside the module.
    void put(const std::string &place) { fs::create_symlink(tasks_module, folder_ + "/" + place); }

private:
    fs::path before_;
    std::string folder_;
};

} // namespace

TEST_F(KaNamedModule, is_found_in_a_folder_of_ka_path)
{
    put("there/tasks");
    EXPECT_EQ(ka({"call", "tasks", "add", "2", "40", "0"}).out, "sum = 42\nreturn code 0\n");
    EXPECT_EQ(ka({"call", "--", "tasks", "add", "2", "40", "0"}).out, "sum = 42\nreturn code 0\n");
    EXPECT_EQ(ka({"list", "tasks"}).out, ka({"list", tasks_module}).out);
    EXPECT_EQ(ka({"list", "--start", "tasks"}).out, ka({"list", tasks_module}).out);
    EXPECT_EQ(ka({"check", "tasks"}).status, 0);
    std::ofstream("script") << "add 2 40 0\n";
    const int input = open("script", O_RDONLY);
    EXPECT_EQ(await_ka(start_ka({"shell", "tasks"}, input)).out, "sum = 42\nreturn code 0\n");
    close(input);
}

TEST_F(KaNamedModule, is_that_of_the_current_folder_first)
{
    std::ofstream(there() + "/tasks") << "#!/bin/false\n";
    fs::permissions(there() + "/tasks", fs::perms::owner_all);
    put("here/tasks");
    EXPECT_EQ(ka({"call", "tasks", "add", "2", "40", "0"}).out, "sum = 42\nreturn code 0\n");
}

TEST_F(KaNamedModule, is_not_a_folder_or_a_file_that_cannot_run)
{
    put("there/tasks");
    put("there/other");
    fs::create_directory("tasks");
    std::ofstream("other") << "";
    EXPECT_EQ(ka({"call", "tasks", "add", "2", "40", "0"}).out, "sum = 42\nreturn code 0\n");
    EXPECT_EQ(ka({"call", "other", "add", "2", "40", "0"}).out, "sum = 42\nreturn code 0\n");
}

TEST_F(KaNamedModule, is_looked_for_in_the_current_folder_where_ka_path_has_an_empty_one)
{
    put("here/tasks");
    search(":" + there());
    EXPECT_EQ(ka({"call", "tasks", "add", "2", "40", "0"}).out, "sum = 42\nreturn code 0\n");
}

TEST_F(KaNamedModule, with_a_slash_is_a_path)
{
    put("there/tasks");
    const Outcome outcome = ka({"call", "./tasks", "add", "2", "40", "0"});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.err, "ka: cannot start ./tasks: no such file\n");
}

TEST_F(KaNamedModule, that_is_nowhere_is_told_with_where_it_was_looked_for)
{
    const std::string where = "no such file in this folder, and no such program in KA_PATH (" + there() + ")";
    search(there());
    for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{{"call", "tasks", "add"},
                                                                                       {"list", "tasks"},
                                                                                       {"list", "--start", "tasks"},
                                                                                       {"shell", "tasks"},
                                                                                       {"debug", "tasks", "add"}}) {
        const Outcome outcome = ka(words);
        EXPECT_EQ(outcome.status, 4) << words[0];
        EXPECT_EQ(outcome.out, "") << words[0];
        EXPECT_EQ(outcome.err, "ka: tasks: " + where + "\n") << words[0];
    }
    const Outcome checked = ka({"check", "tasks"});
    EXPECT_EQ(checked.status, 4);
    EXPECT_EQ(checked.out, "error: tasks: " + where + "\n  look at the path\n");
    EXPECT_NE(ka({"call", "--json", "tasks", "add"}).out.find("\"message\":\"tasks: " + where + "\""),
              std::string::npos);

    unsetenv("KA_PATH");
    EXPECT_EQ(ka({"list", "tasks"}).err, "ka: tasks: no such file in this folder, and KA_PATH is not set\n");
}

TEST_F(KaNamedModule, is_completed)
{
    put("there/tasks");
    std::ofstream(there() + "/tasks.c") << "";
    EXPECT_EQ(ka({"complete", "call", "ta"}).out, "executables\ntasks\tin KA_PATH\n");
    EXPECT_EQ(ka({"complete", "call", "to"}).out, "executables\n");
    EXPECT_EQ(ka({"complete", "call", "tasks", "shou"}).out, "words\nshout\ttexts\n");
}
