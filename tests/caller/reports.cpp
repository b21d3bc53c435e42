// SPDX-License-Identifier: MIT
//
// Reports of errors, as text and as JSON.
#include "caller/hosts.h"

#include <csignal>
#include <nlohmann/json.hpp>
#include <regex>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using nlohmann::json;

static json report(ka_host *host)
{
    const char *text = ka_report_json(host);
    if (!text) return nullptr;
    return json::parse(text, nullptr, false);
}

static std::string report_text(ka_host *host)
{
    const char *text = ka_report_text(host);
    return text ? text : "";
}

// Replaces the parts that vary from run to run.
static std::string without_numbers_of_the_run(std::string text)
{
    text = std::regex_replace(text, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{3}Z"), "TIME");
    text = std::regex_replace(text, std::regex("[0-9]+\\.[0-9] ms"), "MS");
    text = std::regex_replace(text, std::regex("process    [0-9]+"), "process    PID");
    return std::regex_replace(text, std::regex(tasks_module), "MODULE");
}

class Report : public BothLayouts {};
IN_BOTH_LAYOUTS(Report);

static void add_one_of_each(ka_host *host)
{
    const int32_t numbers[] = {1, -2, 3};
    const ka_text texts[] = {{"one", 3}, {"say \"two\"\n", 10}};
    ka_add_integer(host, 7, KA_BY_VALUE);
    ka_add_integers(host, numbers, 3, KA_BY_REFERENCE);
    ka_add_real(host, "-12345678.01234567", KA_BY_REFERENCE);
    ka_add_strings(host, texts, 2, 12, KA_BY_REFERENCE);
    ka_add_string(host, nullptr, 0, 0, KA_BY_VALUE);
    ka_add_integers(host, nullptr, 0, KA_BY_VALUE);
}

TEST_P(Report, of_a_death_is_read_in_a_terminal)
{
    Host host(layout());
    ka_begin(host, "die_with");
    add_one_of_each(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(without_numbers_of_the_run(report_text(host)),
              "MODULE: the host was killed by SIGKILL (Killed) in a call of \"die_with\"\n"
              "  module     MODULE\n"
              "  process    PID, ended: signal 9, SIGKILL (Killed)\n"
              "  when       TIME, MS after the call began\n"
              "  function   die_with\n"
              "  arguments  1 any = 7\n"
              "             2 any = [1, -2, 3], by reference\n"
              "             3 any = -12345678.01234567, by reference\n"
              "             4 any = [\"one\", \"say \\\"two\\\"\\n\"], by reference, room for 12\n"
              "             5 any = \"\"\n"
              "             6 any = []\n"
              "  try again  unsure: the function may have been called, and have had effects\n");
}

TEST_P(Report, of_a_death_is_read_by_programs)
{
    Host host(layout());
    const int32_t pid = ka_pid(host);
    ka_begin(host, "die_with");
    add_one_of_each(host);
    EXPECT_EQ(call_fails(host), KA_DIED);
    const json seen = report(host);
    EXPECT_EQ(seen["error"], "died");
    EXPECT_EQ(seen["error_class"], KA_DIED);
    EXPECT_EQ(seen["message"], error_text(host));
    EXPECT_EQ(seen["retry"], "unsure");
    EXPECT_EQ(seen["module"], tasks_module);
    EXPECT_EQ(seen["process"]["pid"], pid);
    EXPECT_EQ(seen["process"]["ended_by_library"], false);
    EXPECT_EQ(seen["process"]["signal"], SIGKILL);
    EXPECT_EQ(seen["process"]["signal_name"], "SIGKILL");
    EXPECT_EQ(seen["process"]["meaning"], "Killed");
    EXPECT_TRUE(std::regex_match(seen["time"].get<std::string>(), std::regex("20[0-9-]{8}T[0-9:]{8}\\.[0-9]{3}Z")));
    EXPECT_GT(seen["call_microseconds"], 0);
    EXPECT_EQ(seen["called_back"], false);
    EXPECT_EQ(seen["function"], "die_with");
    ASSERT_EQ(seen["arguments"].size(), 6u);
    EXPECT_EQ(seen["arguments"][0]["name"], "any");
    EXPECT_EQ(seen["arguments"][0]["kind"], "VarArg");
    EXPECT_EQ(seen["arguments"][5]["name"], "any");
    EXPECT_EQ(seen["arguments"][0]["type"], "INTEGER");
    EXPECT_EQ(seen["arguments"][0]["by_reference"], false);
    EXPECT_EQ(seen["arguments"][0]["values"], json({7}));
    EXPECT_EQ(seen["arguments"][1]["by_reference"], true);
    EXPECT_EQ(seen["arguments"][1]["count"], 3);
    EXPECT_EQ(seen["arguments"][1]["values"], json({1, -2, 3}));
    EXPECT_EQ(seen["arguments"][2]["type"], "REAL");
    EXPECT_EQ(seen["arguments"][2]["values"], json({"-12345678.01234567"}));
    EXPECT_EQ(seen["arguments"][3]["type"], "STRING");
    EXPECT_EQ(seen["arguments"][3]["room"], 12);
    EXPECT_EQ(seen["arguments"][3]["values"], json({"one", "say \"two\"\n"}));
    EXPECT_EQ(seen["arguments"][4]["values"], json({""}));
    EXPECT_EQ(seen["arguments"][5]["values"], json::array());
    EXPECT_EQ(seen["backtrace"], json::array());
}

TEST_P(Report, names_arguments_by_their_prototypes)
{
    Host host(layout());
    ka_begin(host, "spoil_and_die");
    ka_add_real(host, "1.5", KA_BY_REFERENCE);
    ka_add_string(host, "abc", 3, 5, KA_BY_REFERENCE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    const json seen = report(host);
    EXPECT_EQ(seen["arguments"][0]["name"], "x");
    EXPECT_EQ(seen["arguments"][0]["kind"], "RealByReference");
    EXPECT_EQ(seen["arguments"][1]["name"], "text");
    EXPECT_EQ(seen["arguments"][1]["kind"], "String");
    const std::string text = report_text(host);
    EXPECT_NE(text.find("\n  arguments  1 x = null, by reference\n             2 text = "), std::string::npos)
        << text;
}

TEST_P(Report, shows_no_control_characters_of_a_module)
{
    Host host(layout());
    ka_begin(host, "die_oddly");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_NE(report_text(host).find("\n  arguments  1 odd\\x1b[31m\\x0aname = 1\n"), std::string::npos)
        << report_text(host);
}

TEST_P(Report, of_a_raw_call_knows_no_names)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.checking = KA_RAW;
    });
    ka_begin(host, "die_with");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_TRUE(report(host)["arguments"][0]["name"].is_null());
    EXPECT_TRUE(report(host)["arguments"][0]["kind"].is_null());
    EXPECT_NE(report_text(host).find("arguments  1 = 1\n"), std::string::npos);
}

TEST_P(Report, of_a_refusal_names_what_was_not_sent)
{
    Host host(layout());
    ka_begin(host, "add");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_REFUSED);
    const json seen = report(host);
    EXPECT_EQ(seen["error"], "refused");
    EXPECT_EQ(seen["retry"], "no");
    EXPECT_TRUE(seen["process"].is_null());
    EXPECT_EQ(seen["arguments"][0]["name"], "a");
    EXPECT_EQ(seen["arguments"][0]["values"], json({1}));
}

TEST_P(Report, cuts_long_arrays_and_strings_and_says_so)
{
    Host host(layout());
    const std::vector<int32_t> many(1000, 5);
    const std::string longest(1000, 'x');
    ka_begin(host, "die_with");
    ka_add_integers(host, many.data(), 1000, KA_BY_VALUE);
    ka_add_string(host, longest.data(), 1000, 0, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    const json seen = report(host);
    EXPECT_EQ(seen["arguments"][0]["count"], 1000);
    EXPECT_EQ(seen["arguments"][0]["values"].size(), 16u);
    EXPECT_EQ(seen["arguments"][0]["cut"], true);
    EXPECT_EQ(seen["arguments"][1]["values"][0], longest.substr(0, 256));
    EXPECT_EQ(seen["arguments"][1]["cut"], true);
    const std::string text = report_text(host);
    EXPECT_NE(text.find("5, ... (1000 elements)]"), std::string::npos) << text;
    EXPECT_NE(text.find("xxx\"... (1000 characters)"), std::string::npos) << text;
}

TEST_P(Report, survives_what_a_module_left_in_the_block)
{
    Host host(layout());
    ka_begin(host, "spoil_and_die");
    ka_add_real(host, "1.5", KA_BY_REFERENCE);
    ka_add_string(host, "abc", 3, 5, KA_BY_REFERENCE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    const json seen = report(host);
    EXPECT_EQ(seen["arguments"][0]["values"], json({nullptr}));
    EXPECT_EQ(seen["arguments"][1]["values"][0], std::string("abc\0\0", 5));
    const std::string text = report_text(host);
    EXPECT_NE(text.find("= null, by reference"), std::string::npos) << text;
    EXPECT_NE(text.find("= \"abc\\x00\\x00\", by reference, room for 5"), std::string::npos) << text;
}

// Control characters, also in good UTF-8; what turns the writing direction; what is not UTF-8.
TEST_P(Report, escapes_what_a_terminal_would_obey)
{
    Host host(layout());
    const std::string sent = "a\x9b\xc2\x9b\xe2\x80\xae\xed\xa0\x80\x7f\xc3\xa4";
    ka_begin(host, "die_with");
    ka_add_string(host, sent.data(), static_cast<int32_t>(sent.size()), 0, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    const std::string text = report_text(host);
    EXPECT_NE(text.find(R"("a\x9b\xc2\x9b\xe2\x80\xae\xed\xa0\x80\x7f)"
                        "\xc3\xa4\"\n"),
              std::string::npos)
        << text;
    const std::string object = ka_report_json(host);
    EXPECT_NE(object.find(R"(\u009b\u202e)"), std::string::npos) << object;
    EXPECT_NE(object.find(R"(\u007f)"), std::string::npos) << object;
}

// Paths too, on the one line that an error has.
TEST(ReportOf, a_path_of_any_bytes_is_one_line)
{
    ka_host *host = nullptr;
    EXPECT_EQ(ka_open(&host, "/no/\x1b[31m\xc2\x9b\n\xff", nullptr), KA_START);
    const std::string text = ka_last_error(host)->message;
    EXPECT_EQ(text.find(R"(cannot start /no/\x1b[31m\xc2\x9b\x0a\xff: )"), 0u) << text;
    EXPECT_EQ(std::string(ka_report_text(host)).find("\n\xff"), std::string::npos);
    ka_close(host);
}

// Each is no UTF-8: a lone byte, a character cut short, one longer than needed, half of a pair, beyond the last.
TEST_P(Report, is_valid_json_whatever_the_strings_hold)
{
    const std::string replacement = "\xef\xbf\xbd";
    for (const std::string bad : {"\xff", "\x80", "\xc3", "\xe2\x82", "\xf0\x9f\x98", "\xc0\xaf", "\xe0\x80\xaf",
                                  "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80"}) {
        Host host(layout());
        const std::string sent = "a" + bad + "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80z";
        ka_begin(host, "die_with");
        ka_add_string(host, sent.data(), static_cast<int32_t>(sent.size()), 0, KA_BY_VALUE);
        EXPECT_EQ(call_fails(host), KA_DIED);
        const json seen = report(host);
        ASSERT_FALSE(seen.is_discarded());
        std::string expected = "a";
        for (size_t i = 0; i < bad.size(); i++)
            expected += replacement;
        EXPECT_EQ(seen["arguments"][0]["values"][0], expected + "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80z");
    }
}

TEST_P(Report, of_every_byte_in_a_string_is_valid_json)
{
    std::string all;
    for (int byte = 0; byte < 128; byte++)
        all += static_cast<char>(byte);
    Host host(layout());
    ka_begin(host, "die_with");
    ka_add_string(host, all.data(), 128, 0, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(report(host)["arguments"][0]["values"][0], all);
}

TEST_P(Report, of_a_passed_deadline_tells_how_the_host_was_ended)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.deadline_ms = 1000;
        options.callback = [](ka_host *, int32_t, void *) { return 1; };
        options.inspector = [](int32_t, int32_t signal, char *text, int32_t size, void *) {
            snprintf(text, static_cast<size_t>(size), "#0 here\n#1 \"there\" %d\n", signal);
        };
    });
    EXPECT_EQ(call_with(host, "ask", 1), 1);
    ka_begin(host, "hang");
    EXPECT_EQ(call_fails(host), KA_DEADLINE);
    const json seen = report(host);
    EXPECT_EQ(seen["error"], "deadline passed");
    EXPECT_EQ(seen["process"]["ended_by_library"], true);
    EXPECT_EQ(seen["process"]["exit_status"], 0);
    EXPECT_EQ(seen["process"]["meaning"], "an orderly end");
    EXPECT_GE(seen["call_microseconds"], 1000000);
    EXPECT_EQ(seen["backtrace"], json({"#0 here", "#1 \"there\" 15"}));
    const std::string text = report_text(host);
    EXPECT_NE(text.find("ended by the library: exit status 0 (an orderly end)"), std::string::npos) << text;
    EXPECT_NE(text.find("\n  backtrace  #0 here\n             #1 \"there\" 15\n"), std::string::npos) << text;
}

TEST_P(Report, tells_of_callbacks)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.callback = [](ka_host *inner, int32_t, void *) {
            kill(ka_pid(inner), SIGKILL);
            EXPECT_TRUE(ends(ka_pid(inner)));
            return 1;
        };
    });
    ka_begin(host, "ask");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(report(host)["called_back"], true);
    EXPECT_NE(report_text(host).find("which had called back"), std::string::npos);
}

TEST_P(Report, outlives_the_start_of_the_next_process)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.restart = KA_RESTART_AT_ONCE;
        options.restart_pause_ms = 0;
        options.inspector = [](int32_t, int32_t, char *text, int32_t, void *) { strcpy(text, "seen\n"); };
    });
    const int32_t dead = ka_pid(host);
    ka_begin(host, "fault");
    EXPECT_EQ(call_fails(host), KA_DIED);
    ASSERT_NE(ka_pid(host), 0);
    const json seen = report(host);
    EXPECT_EQ(seen["process"]["pid"], dead);
    EXPECT_EQ(seen["process"]["signal"], SIGSEGV);
    EXPECT_EQ(seen["backtrace"], json({"seen"}));
}

// ---- Other errors ----------------------------------------------------------------------------------------------

TEST(ReportOf, no_error_is_nothing)
{
    Host host;
    EXPECT_EQ(ka_report_text(host), nullptr);
    EXPECT_EQ(ka_report_json(host), nullptr);
    EXPECT_EQ(call_with(host, "give_code", 1), 1);
    EXPECT_EQ(ka_report_text(host), nullptr);
}

TEST(ReportOf, a_failed_start_has_no_call_and_no_process)
{
    ka_host *host;
    EXPECT_EQ(ka_open(&host, no_loader_module.c_str(), nullptr), KA_START);
    const json seen = report(host);
    EXPECT_EQ(seen["error"], "not started");
    EXPECT_EQ(seen["retry"], "no");
    EXPECT_TRUE(seen["process"].is_null());
    EXPECT_TRUE(seen["function"].is_null());
    EXPECT_TRUE(seen["arguments"].is_null());
    EXPECT_TRUE(seen["call_microseconds"].is_null());
    EXPECT_NE(report_text(host).find("try again  no: it would fail again"), std::string::npos);
    ka_close(host);
}

TEST(ReportOf, an_end_at_start_tells_what_the_status_means)
{
    Host host({}, no_library_module);
    ka_begin(host, "add");
    EXPECT_EQ(call_fails(host), KA_START);
    const json seen = report(host);
    EXPECT_EQ(seen["process"]["exit_status"], 127);
    EXPECT_EQ(seen["process"]["meaning"], "a library is missing; see its standard error");
}

TEST(ReportOf, a_bad_argument_has_no_process)
{
    Host host;
    ka_begin(host, "add");
    EXPECT_EQ(ka_add_real(host, "nonsense", KA_BY_VALUE), KA_ARGUMENT);
    const json seen = report(host);
    EXPECT_EQ(seen["error"], "argument");
    EXPECT_TRUE(seen["process"].is_null());
    EXPECT_TRUE(seen["arguments"].is_null());
}

TEST(ReportOf, a_call_that_is_too_big_has_no_arguments)
{
    Host host;
    const std::vector<int32_t> many(1 << 20);
    ka_begin(host, "double");
    ka_add_integers(host, many.data(), 1 << 20, KA_BY_REFERENCE);
    EXPECT_EQ(call_fails(host), KA_TOO_BIG);
    EXPECT_EQ(report(host)["error"], "too big");
    EXPECT_TRUE(report(host)["arguments"].is_null());
}

TEST(ReportOf, a_closed_host_does_not_repeat_the_call_before)
{
    Host host;
    ka_begin(host, "die_with");
    ka_add_integer(host, 1, KA_BY_VALUE);
    EXPECT_EQ(call_fails(host), KA_DIED);
    EXPECT_EQ(ka_begin(host, "add"), KA_CLOSED);
    const json seen = report(host);
    EXPECT_EQ(seen["error"], "closed");
    EXPECT_EQ(seen["retry"], "no");
    EXPECT_TRUE(seen["process"].is_null());
    EXPECT_TRUE(seen["function"].is_null());
}

TEST(ReportOf, a_cancelled_call_tells_its_arguments)
{
    const int event = eventfd(0, EFD_CLOEXEC);
    {
        Host host([event](ka_options &options) { options.cancel_fd = event; });
        ka_begin(host, "give_code");
        ka_add_integer(host, 2, KA_BY_VALUE);
        eventfd_write(event, 1);
        EXPECT_EQ(call_fails(host), KA_CANCELLED);
        const json seen = report(host);
        EXPECT_EQ(seen["error"], "cancelled");
        EXPECT_EQ(seen["retry"], "yes");
        EXPECT_EQ(seen["process"]["ended_by_library"], true);
        EXPECT_EQ(seen["arguments"][0]["values"], json({2}));
    }
    close(event);
}

#ifndef __SANITIZE_ADDRESS__ // which has no room under such a limit
static void use_up_memory()
{
    const struct rlimit none = {0, 0};
    setrlimit(RLIMIT_AS, &none);
    for (size_t size = 1 << 20; size >= 16; size /= 2)
        while (malloc(size))
            ;
}

TEST(ReportOf, an_error_without_memory_is_nothing)
{
    const pid_t child = fork();
    if (child == 0) {
        ka_host *host;
        int32_t code;
        ka_open(&host, tasks_module.c_str(), nullptr);
        ka_begin(host, "die_with");
        ka_add_integer(host, 1, KA_BY_VALUE);
        if (ka_call(host, &code) != KA_DIED) _exit(1);
        use_up_memory();
        const char *text = ka_report_text(host);
        const char *object = ka_report_json(host);
        if (text || object) _exit(3);
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << WEXITSTATUS(status);
}
#endif
