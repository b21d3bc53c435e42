// SPDX-License-Identifier: MIT
//
// ka_options.environment and ka_options.directory: what a host finds around it, at every start.
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

#include "caller/hosts.h"

class Surroundings : public EveryWay {};
IN_EVERY_WAY(Surroundings);

namespace {

std::string asked(ka_host *host, const char *function, const std::string &text = "")
{
    ka_begin(host, function);
    ka_add_string(host, text.data(), static_cast<int32_t>(text.size()), 1000, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    return string(host, 1, 0);
}

int32_t count_variables(ka_host *host)
{
    ka_begin(host, "count_variables");
    return call(host);
}

// Another working directory for this program, until the record goes.
struct Elsewhere {
    explicit Elsewhere(const std::string &path) { EXPECT_EQ(chdir(path.c_str()), 0); }
    ~Elsewhere() { EXPECT_EQ(chdir(before.c_str()), 0); }
    Elsewhere(const Elsewhere &) = delete;
    Elsewhere &operator=(const Elsewhere &) = delete;
    std::string before = std::filesystem::current_path();
};

const std::string folder = tasks_module.substr(0, tasks_module.rfind('/'));
const std::string file_name = tasks_module.substr(tasks_module.rfind('/') + 1);

// A directory that is removed with the record.
struct Directory {
    Directory() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
    ~Directory() { std::filesystem::remove(path); }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    std::string path = "/tmp/ka_surroundings_XXXXXX";
};

} // namespace

TEST_P(Surroundings, are_those_of_the_program_by_default)
{
    ASSERT_EQ(setenv("KA_TEST_MARK", "of the program", 1), 0);
    Host host(layout());
    EXPECT_EQ(asked(host, "variable", "KA_TEST_MARK"), "of the program");
    EXPECT_EQ(asked(host, "directory"), std::string(std::filesystem::current_path()));
    unsetenv("KA_TEST_MARK");
}

TEST_P(Surroundings, an_environment_takes_the_place_of_the_programs)
{
    ASSERT_EQ(setenv("KA_TEST_MARK", "of the program", 1), 0);
    const char *const environment[] = {"KA_TEST_OTHER=a=b", "KA_TEST_EMPTY=", nullptr};
    Host host([&](ka_options &options) {
        layout()(options);
        options.environment = environment;
    });
    EXPECT_EQ(asked(host, "variable", "KA_TEST_OTHER"), "a=b");
    EXPECT_EQ(asked(host, "variable", "KA_TEST_EMPTY"), "");
    EXPECT_EQ(asked(host, "variable", "KA_TEST_MARK"), "none");
    EXPECT_EQ(count_variables(host), 2);
    EXPECT_STREQ(getenv("KA_TEST_MARK"), "of the program");
    EXPECT_EQ(getenv("KA_TEST_OTHER"), nullptr);
    unsetenv("KA_TEST_MARK");
}

TEST_P(Surroundings, an_environment_may_be_empty)
{
    const char *const environment[] = {nullptr};
    Host host([&](ka_options &options) {
        layout()(options);
        options.environment = environment;
    });
    EXPECT_EQ(count_variables(host), 0);
}

TEST_P(Surroundings, a_directory_is_where_the_host_runs)
{
    const Directory directory;
    Host host([&](ka_options &options) {
        layout()(options);
        options.directory = directory.path.c_str();
    });
    EXPECT_EQ(asked(host, "directory"), directory.path);
    EXPECT_NE(std::string(std::filesystem::current_path()), directory.path);
}

TEST_P(Surroundings, are_copied_and_kept_for_restarts)
{
    const Directory directory;
    std::string path = directory.path;
    std::string variable = "KA_TEST_OTHER=kept";
    const char *environment[] = {variable.c_str(), nullptr};
    Host host([&](ka_options &options) {
        layout()(options);
        options.environment = environment;
        options.directory = path.c_str();
        options.restart = KA_RESTART_NEXT_CALL;
        options.restart_pause_ms = 0;
    });
    environment[0] = nullptr;
    std::fill(variable.begin(), variable.end(), 'x');
    std::fill(path.begin(), path.end(), 'x');
    for (int start = 0; start < 3; start++) {
        EXPECT_EQ(asked(host, "variable", "KA_TEST_OTHER"), "kept");
        EXPECT_EQ(asked(host, "directory"), directory.path);
        if (start == 0) {
            ka_begin(host, "die_by");
            ka_add_integer(host, SIGKILL, KA_BY_VALUE);
            EXPECT_EQ(call_fails(host), KA_DIED);
        } else {
            EXPECT_EQ(ka_restart(host), KA_DONE) << error_text(host);
        }
    }
}

TEST_P(Surroundings, a_relative_module_begins_where_the_program_was)
{
    const Directory directory;
    for (const std::string &module : {file_name, "./" + file_name}) {
        ka_host *host;
        ka_options options = default_options();
        layout()(options);
        options.directory = directory.path.c_str();
        {
            const Elsewhere there(folder);
            EXPECT_EQ(ka_open(&host, module.c_str(), &options), KA_DONE) << error_text(host);
        }
        EXPECT_EQ(asked(host, "directory"), directory.path);
        EXPECT_EQ(ka_restart(host), KA_DONE) << error_text(host); // the program is elsewhere by now
        EXPECT_EQ(asked(host, "directory"), directory.path);
        ka_close(host);
    }
}

TEST_P(Surroundings, a_directory_that_cannot_be_entered_is_named)
{
    const File file("", 0600);
    for (const auto &[path, error] : {std::pair{std::string("/nowhere/at all"), ENOENT}, {file.path, ENOTDIR}}) {
        ka_host *host;
        ka_options options = default_options();
        layout()(options);
        options.directory = path.c_str();
        EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_START);
        EXPECT_EQ(error_text(host),
                  "cannot start " + tasks_module + ": cannot enter the directory " + path + ": " + strerror(error));
        EXPECT_EQ(ka_last_error(host)->sys_errno, error);
        EXPECT_EQ(ka_last_error(host)->retry, KA_RETRY_NO);
        EXPECT_EQ(ka_pid(host), 0);
        ka_close(host);
    }
}

TEST_P(Surroundings, a_directory_that_goes_is_missed_by_the_next_start)
{
    auto directory = std::make_unique<Directory>();
    Host host([&](ka_options &options) {
        layout()(options);
        options.directory = directory->path.c_str();
    });
    directory.reset();
    EXPECT_EQ(ka_restart(host), KA_START);
    EXPECT_EQ(ka_last_error(host)->sys_errno, ENOENT);
}

TEST(SurroundingsOptions, none_are_the_default)
{
    EXPECT_EQ(default_options().environment, nullptr);
    EXPECT_EQ(default_options().directory, nullptr);
}
