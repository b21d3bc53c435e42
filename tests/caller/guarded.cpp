// SPDX-License-Identifier: MIT
//
// Hosts whose memory the system guards. Root could look into it all the same, so these tests run in processes that
// have given up that right, and report back.
#include "caller/hosts.h"

#include <cstdlib>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "caller/waiting.h"

static const std::string guarded_module = module_path("guarded");

static bool give_up_looking()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[2] = {};
    if (syscall(SYS_capget, &header, rights) != 0) return false;
    rights[CAP_SYS_PTRACE / 32].effective &= ~(1u << CAP_SYS_PTRACE % 32);
    rights[CAP_SYS_PTRACE / 32].permitted &= ~(1u << CAP_SYS_PTRACE % 32);
    return syscall(SYS_capset, &header, rights) == 0;
}

// Does the work in such a process, and returns its result.
static std::string without_rights(const std::function<std::string()> &work)
{
    int report[2];
    EXPECT_EQ(pipe(report), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        const std::string text = give_up_looking() ? work() : "the right is kept";
        _exit(write(report[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    close(report[1]);
    std::string text;
    char part[512];
    for (ssize_t length; (length = read(report[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(length));
    close(report[0]);
    waitpid(pid, nullptr, 0);
    return text;
}

// The class of the error and its text, or the return code.
static std::string outcome_of_call(ka_host *host, int integers)
{
    int32_t code = 0;
    ka_begin(host, "same");
    for (int i = 0; i < integers; i++)
        ka_add_integer(host, 33, KA_BY_VALUE);
    const int32_t status = ka_call(host, &code);
    return status == KA_DONE ? std::to_string(code) : std::string(ka_error_name(status)) + ": " + error_text(host);
}

TEST(GuardedHosts, are_checked_by_the_tables_in_their_files)
{
    EXPECT_EQ(without_rights([] {
                  Host host({}, guarded_module);
                  return outcome_of_call(host, 1) + ", " + outcome_of_call(host, 2);
              }),
              "33, refused: same: takes 1 argument (number), got 2");
}

// The file lacks the names that come from a library: by it, calls of such functions would be refused.
TEST(GuardedHosts, whose_files_lack_a_part_of_their_tables_are_called_unchecked)
{
    EXPECT_EQ(without_rights([] {
                  Host host({}, module_path("borrowed_guarded"));
                  const std::string code = std::to_string(call_with(host, "borrowed", 33));
                  return code + ", " + outcome_of_call(host, 2);
              }),
              "33, 9");
}

TEST(GuardedHosts, whose_files_are_gone_too_are_called_unchecked)
{
    const File copy(read_file(guarded_module), 0755);
    setenv("LD_LIBRARY_PATH", library_folder(CALLER_BUILD).c_str(), 1);
    EXPECT_EQ(without_rights([&copy] {
                  Host host({}, copy.path);
                  becomes_idle(ka_pid(host));
                  unlink(copy.path.c_str());
                  const std::string outcome = outcome_of_call(host, 1) + ", " + outcome_of_call(host, 2);
                  const bool none = ka_host_tables(host) == nullptr;
                  return outcome + ", " + (none ? ka_error_name(ka_last_error(host)->error_class) : "tables");
              }),
              "33, 9, system error");
    unsetenv("LD_LIBRARY_PATH");
}

TEST(GuardedHosts, cannot_be_traced_and_go_on)
{
    const std::string told = without_rights([] {
        Host host([](ka_options &options) { options.trace_level = 1; }, guarded_module);
        const std::string first = outcome_of_call(host, 1);
        const std::string second = ka_error_name(ka_set_trace(host, 0));
        return first + "\n" + second + "\n" + outcome_of_call(host, 1);
    });
    EXPECT_EQ(told.substr(0, told.find("process ")),
              "system error: " + guarded_module + ": its trace level cannot be set: no permission to look into ");
    EXPECT_EQ(told.substr(told.find('\n')), "\nsystem error\n33");
}
