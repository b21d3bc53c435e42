// SPDX-License-Identifier: MIT
//
// A module that writes into the header of the block, and ends: the error and the reports say so.
#include "caller/hosts.h"

#include <csignal>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

class OverwrittenHeader : public EveryWay {};
IN_EVERY_WAY(OverwrittenHeader);

// Without its caller's number the host cannot reply, and ends in order: nothing else shows why.
TEST_P(OverwrittenHeader, is_told_of_a_host_that_cannot_reply)
{
    Host host(layout());
    ka_begin(host, "overwrite");
    ka_add_integer(host, offsetof(t_DLL_INFO32, pid), KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(error_text(host), tasks_module + ": the host ended with status 0 in a call of \"overwrite\"; "
                                               "the module had overwritten the block's header (pid)");
}

TEST_P(OverwrittenHeader, is_told_by_its_fields)
{
    const bool wide = std::get<0>(GetParam()) == KA_LAYOUT_64;
    const std::pair<size_t, std::string> fields[] = {
        {offsetof(t_DLL_INFO32, magic), "magic"},
        {offsetof(t_DLL_INFO32, version), "version"},
        {offsetof(t_DLL_INFO32, pid), "pid"},
        {wide ? offsetof(t_DLL_INFO64, base) : offsetof(t_DLL_INFO32, base), "base"},
        {wide ? offsetof(t_DLL_INFO64, shmsz) : offsetof(t_DLL_INFO32, shmsz), "shmsz"},
        {wide ? offsetof(t_DLL_INFO64, scratch) : offsetof(t_DLL_INFO32, scratch), "scratch"}};
    for (const auto &[offset, name] : fields) {
        Host host(layout());
        ka_begin(host, "overwrite_and_die");
        ka_add_integer(host, static_cast<int32_t>(offset), KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        const std::string text = ka_report_text(host);
        EXPECT_NE(text.find("; the module had overwritten the block's header (" + name + ")\n"), std::string::npos)
            << text;
        EXPECT_NE(text.find("\n  header     overwritten by the module: " + name + "\n"), std::string::npos) << text;
        const auto seen = nlohmann::json::parse(ka_report_json(host));
        EXPECT_EQ(seen["overwritten_header"], nlohmann::json({name}));
    }
}

TEST_P(OverwrittenHeader, is_not_said_of_the_process_after_it)
{
    Host host(layout());
    ka_begin(host, "overwrite");
    ka_add_integer(host, offsetof(t_DLL_INFO32, pid), KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    ASSERT_EQ(ka_restart(host), KA_DONE);
    const auto pid = static_cast<id_t>(ka_pid(host));
    siginfo_t end = {};
    kill(ka_pid(host), SIGKILL);
    ASSERT_EQ(waitid(P_PID, pid, &end, WEXITED | WNOWAIT), 0); // dead, and left to the library
    EXPECT_EQ(ka_host_tables(host), nullptr);
    EXPECT_NE(error_text(host).find("SIGKILL"), std::string::npos) << error_text(host);
    EXPECT_EQ(error_text(host).find("header"), std::string::npos) << error_text(host);
}

TEST_P(OverwrittenHeader, is_not_told_of_a_host_that_left_it_alone)
{
    Host host(layout());
    ka_begin(host, "die_by");
    ka_add_integer(host, SIGKILL, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(error_text(host).find("header"), std::string::npos) << error_text(host);
    EXPECT_EQ(std::string(ka_report_text(host)).find("header"), std::string::npos) << ka_report_text(host);
    EXPECT_EQ(nlohmann::json::parse(ka_report_json(host))["overwritten_header"], nlohmann::json::array());
}
