// SPDX-License-Identifier: MIT
//
// Calls that do not suit the module's tables: what is said about them, and that nothing is sent.
#include "caller/hosts.h"

#include <csignal>
#include <cstdlib>
#include <sys/shm.h>
#include <unistd.h>

#include "caller/waiting.h"
#include "ka/dll_module.h"

class Refusals : public BothLayouts {};
IN_BOTH_LAYOUTS(Refusals);

namespace {

struct Refusal {
    int32_t code;
    int32_t argument;
    std::string text;
    bool operator==(const Refusal &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Refusal &refusal)
{
    return out << refusal.code << " for argument " << refusal.argument << ": " << refusal.text;
}

Refusal refused(ka_host *host)
{
    EXPECT_EQ(call_fails(host), KA_REFUSED);
    const ka_error *error = ka_last_error(host);
    EXPECT_EQ(error->retry, KA_RETRY_NO);
    return {error->return_code, error->argument, error->message};
}

void begin(ka_host *host, const char *function, int integers)
{
    ka_begin(host, function);
    for (int32_t i = 0; i < integers; i++)
        ka_add_integer(host, i, KA_BY_REFERENCE);
}

} // namespace

TEST_P(Refusals, name_argument_and_what_was_wanted_and_given)
{
    Host host(layout());
    begin(host, "add", 2);
    ka_add_real(host, "1.5", KA_BY_REFERENCE);
    EXPECT_EQ(refused(host),
              (Refusal{8, 3, "add: argument 3 (sum) is IntByReference: takes INTEGER by reference, got REAL"}));
    begin(host, "add", 1);
    ka_add_string(host, "x", 1, 0, KA_BY_VALUE);
    EXPECT_EQ(refused(host),
              (Refusal{8, 2, "add: argument 2 (b) is IntByValue: takes INTEGER or REAL by value, got STRING"}));
    begin(host, "measure", 1);
    EXPECT_EQ(refused(host),
              (Refusal{8, 1, "measure: argument 1 (text) is zString: takes STRING by value, got INTEGER"}));
    begin(host, "greet", 1);
    EXPECT_EQ(refused(host),
              (Refusal{8, 1, "greet: argument 1 (text) is String: takes STRING by reference, got INTEGER"}));
    begin(host, "scale_one", 1);
    EXPECT_EQ(refused(host),
              (Refusal{8, 1, "scale_one: argument 1 (x) is RealByReference: takes REAL by reference, got INTEGER"}));
    ka_begin(host, "scale_one");
    ka_add_double(host, 1, KA_BY_VALUE);
    ka_add_string(host, "", 0, 0, KA_BY_VALUE);
    EXPECT_EQ(
        refused(host),
        (Refusal{8, 2, "scale_one: argument 2 (factor) is RealByValue: takes INTEGER or REAL by value, got STRING"}));
}

TEST_P(Refusals, count_elements_where_there_is_a_least_number)
{
    Host host(layout());
    ka_begin(host, "double");
    ka_add_integers(host, nullptr, 0, KA_BY_REFERENCE);
    EXPECT_EQ(refused(host), (Refusal{17, 1,
                                      "double: argument 1 (values) is IntArray: takes at least 1 element of INTEGER "
                                      "by reference, got 0 elements of INTEGER"}));
    const double reals[3] = {};
    ka_begin(host, "double");
    ka_add_doubles(host, reals, 3, KA_BY_REFERENCE);
    EXPECT_EQ(refused(host), (Refusal{8, 1,
                                      "double: argument 1 (values) is IntArray: takes at least 1 element of INTEGER "
                                      "by reference, got 3 elements of REAL"}));
    begin(host, "shout", 1);
    EXPECT_EQ(refused(host), (Refusal{17, 1,
                                      "shout: argument 1 (texts) is StringArray: takes at least 2 elements of STRING "
                                      "by reference, got 1 element of INTEGER"}));
}

TEST_P(Refusals, count_arguments)
{
    Host host(layout());
    begin(host, "add", 2);
    EXPECT_EQ(refused(host), (Refusal{9, 0, "add: takes 3 arguments (a, b, sum), got 2"}));
    begin(host, "add", 4);
    EXPECT_EQ(refused(host), (Refusal{9, 0, "add: takes 3 arguments (a, b, sum), got 4"}));
    begin(host, "give_code", 0);
    EXPECT_EQ(refused(host), (Refusal{9, 0, "give_code: takes 1 argument (number), got 0"}));
    begin(host, "count_call", 1);
    EXPECT_EQ(refused(host), (Refusal{9, 0, "count_call: takes no arguments, got 1"}));
}

TEST_P(Refusals, name_the_function_that_is_not_there)
{
    Host host(layout());
    for (const char *name : {"ad", "Add", "add ", ""}) {
        begin(host, name, 3);
        EXPECT_EQ(refused(host), (Refusal{7, 0, "the module has no function \"" + std::string(name) + "\""}));
    }
    begin(host, "tab\tand\x1b[1m", 0);
    EXPECT_EQ(refused(host).text, "the module has no function \"tab\\x09and\\x1b[1m\"");
}

static int32_t argc_in_block(ka_host *host, int32_t layout)
{
    const void *block = shmat(segment_of(ka_pid(host)), nullptr, SHM_RDONLY);
    const int32_t argc = layout == KA_LAYOUT_64 ? static_cast<const t_DLL_INFO64 *>(block)->argc
                                                : static_cast<const t_DLL_INFO32 *>(block)->argc;
    shmdt(block);
    return argc;
}

TEST_P(Refusals, send_nothing_and_leave_the_host_usable)
{
    Host host(layout());
    begin(host, "count_call", 0);
    EXPECT_EQ(call(host), 1);
    for (int i = 0; i < 3; i++) {
        begin(host, "count_call", 1);
        EXPECT_EQ(call_fails(host), KA_REFUSED);
        EXPECT_EQ(call_fails(host), KA_REFUSED); // still the call that was built
        EXPECT_EQ(argc_in_block(host, GetParam()), 0);
        int32_t value;
        EXPECT_EQ(ka_get_integers(host, 1, &value, 1), KA_ARGUMENT);
    }
    begin(host, "count_call", 0);
    EXPECT_EQ(call(host), 2);
    EXPECT_STREQ(ka_last_error(host)->message, "");
}

TEST_P(Refusals, are_return_codes_of_a_host_that_is_not_checked)
{
    Host host([this](ka_options &options) {
        layout()(options);
        options.checking = KA_RAW;
    });
    begin(host, "no such function", 0);
    EXPECT_EQ(call(host), KA_NO_FUNCTION);
    begin(host, "add", 0);
    EXPECT_EQ(call(host), KA_WRONG_COUNT);
    begin(host, "measure", 1);
    EXPECT_EQ(call(host), KA_WRONG_TYPE);
}

TEST_P(Refusals, are_no_codes_of_a_function)
{
    Host host(layout());
    for (int32_t code : {7, 8, 9, 17, 606, -1, 2}) {
        ka_begin(host, "give_code");
        ka_add_integer(host, code, KA_BY_VALUE);
        EXPECT_EQ(call(host), code);
        EXPECT_EQ(ka_last_error(host)->error_class, KA_DONE);
    }
}

TEST(RefusalOptions, checking_that_does_not_exist_is_refused)
{
    ka_host *host = nullptr;
    ka_options options = default_options();
    options.checking = 2;
    EXPECT_EQ(ka_open(&host, tasks_module.c_str(), &options), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "checking is 2; it is KA_CHECKED (0) or KA_RAW (1)");
    ka_close(host);
}

// ---- Other modules ---------------------------------------------------------------------------------------------

namespace {

// A host with these tables; see modules/random_tables.c.
struct TablesHost {
    explicit TablesHost(const std::string &tables) : file(tables, 0644)
    {
        setenv("KA_TEST_TABLES", file.path.c_str(), 1);
        ka_open(&host, module_path("random_tables").c_str(), nullptr);
        EXPECT_NE(ka_host_tables(host), nullptr) << error_text(host);
        unsetenv("KA_TEST_TABLES");
    }
    ~TablesHost() { ka_close(host); }
    TablesHost(const TablesHost &) = delete;
    TablesHost &operator=(const TablesHost &) = delete;
    File file;
    ka_host *host = nullptr;
};

} // namespace

TEST(RefusalTexts, of_functions_that_end_with_a_vararg)
{
    const TablesHost tables("2 4 f 1 3 g 2 2  0 0 1 0 2 0 0 0");
    begin(tables.host, "f", 1);
    EXPECT_EQ(refused(tables.host), (Refusal{9, 0, "f: takes 2 or more arguments (p, p, p...), got 1"}));
    begin(tables.host, "g", 0);
    EXPECT_EQ(refused(tables.host), (Refusal{9, 0, "g: takes 1 or more arguments (p, p...), got 0"}));
    begin(tables.host, "f", 2);
    EXPECT_EQ(call(tables.host), 424000);
    begin(tables.host, "f", 50);
    EXPECT_EQ(call(tables.host), 424000);
}

TEST(RefusalTexts, of_tables_that_are_wrong)
{
    const TablesHost tables("5 6 kind 0 2 few 0 -3 many 0 60 lost 100000000 1 unnamed 5 1  1 0 12 0 1 0 1 0 1 0 9 2");
    begin(tables.host, "kind", 2);
    EXPECT_EQ(refused(tables.host), (Refusal{-1, 2,
                                             "kind: the module's own table is wrong: the prototype of argument 2 (p) "
                                             "has kind 12, and kinds are 0 to 9"}));
    begin(tables.host, "few", 1);
    EXPECT_EQ(refused(tables.host),
              (Refusal{9, 0, "few: the module's own table is wrong: it gives the function -3 arguments, got 1"}));
    begin(tables.host, "many", 1);
    EXPECT_EQ(
        refused(tables.host),
        (Refusal{9, 0,
                 "many: the module's own table is wrong: it gives the function more than 50 arguments, got 1"}));
    begin(tables.host, "lost", 1);
    EXPECT_EQ(
        refused(tables.host),
        (Refusal{-1, 1,
                 "lost: the module's own table is wrong: the prototype of argument 1 lies outside the module"}));
    begin(tables.host, "unnamed", 1);
    EXPECT_EQ(refused(tables.host), (Refusal{17, 1,
                                             "unnamed: argument 1 is StringArray: takes at least 2 elements of "
                                             "STRING by reference, got 1 element of INTEGER"}));
}

TEST(RefusalTexts, of_many_arguments_are_cut)
{
    std::string text = "1 50 f 0 50";
    for (int i = 0; i < 50; i++)
        text += " 1 0";
    const TablesHost tables(text);
    begin(tables.host, "f", 49);
    const std::string told = refused(tables.host).text;
    EXPECT_EQ(told.substr(0, 27), "f: takes 50 arguments (?, p");
    EXPECT_NE(told.find(", got 49"), std::string::npos) << told;
}

// Tables that the module fills as it starts are those that count.
TEST(HostTables, are_those_in_memory)
{
    Host host({}, module_path("built"));
    begin(host, "twice", 0);
    EXPECT_EQ(refused(host).text, "twice: takes 1 argument (number), got 0");
    begin(host, "half_of_a_name_that_no_short_string_holds", 1);
    EXPECT_EQ(refused(host).code, KA_TOO_FEW_ELEMENTS);
    begin(host, "twice", 0);
    ka_add_integer(host, 21, KA_BY_REFERENCE);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(integers(host, 1, 1), std::vector<int32_t>({42}));
}

TEST(HostTables, are_given_before_any_call_and_when_nothing_is_checked)
{
    for (int32_t checking : {KA_CHECKED, KA_RAW}) {
        Host host([checking](ka_options &options) { options.checking = checking; });
        const ka_tables *tables = ka_host_tables(host);
        ASSERT_NE(tables, nullptr) << error_text(host);
        const ka_function *scale = ka_find_function(tables, "scale");
        ASSERT_NE(scale, nullptr);
        EXPECT_STREQ(scale->prototypes[1].name, "factor");
        EXPECT_EQ(ka_host_tables(host), tables);
        EXPECT_EQ(call_with(host, "give_code", 3), 3);
        EXPECT_EQ(ka_host_tables(host), tables);
    }
}

TEST(HostTables, of_a_library_that_the_program_was_linked_with_are_found)
{
    Host host({}, module_path("apart"));
    begin(host, "from_a_library", 1);
    EXPECT_EQ(refused(host).text,
              "from_a_library: argument 1 (text) is String: takes STRING by reference, got INTEGER");
}

TEST(HostTables, are_found_however_the_module_was_linked)
{
    for (const char *name : {"tasks", "fixed", "stripped", "fixed_stripped", "sysv", "fixed_sysv", "packed"}) {
        SCOPED_TRACE(name);
        Host host({}, module_path(name));
        const ka_tables *tables = ka_host_tables(host);
        ASSERT_NE(tables, nullptr) << error_text(host);
        EXPECT_NE(ka_find_function(tables, "scribble_base"), nullptr);
    }
}

// The program itself is found without the list; a library that the list hides is not.
TEST(HostTables, are_found_in_a_process_that_forges_its_list_of_libraries)
{
    Host host({}, module_path("circular"));
    EXPECT_EQ(call_with(host, "same", 8), 8);
    begin(host, "same", 2);
    EXPECT_EQ(refused(host).text, "same: takes 1 argument (number), got 2");
    EXPECT_EQ(ka_set_trace(host, 1), KA_SYSTEM);
    EXPECT_EQ(error_text(host), module_path("circular") + ": its trace level cannot be set: process " +
                                    std::to_string(ka_pid(host)) + " is not a host: it has no dll_debug");
    EXPECT_EQ(call_with(host, "same", 9), 9);
}

// 64 headers are the most that are looked at.
TEST(HostTables, are_none_in_a_process_that_forges_the_number_of_its_headers)
{
    for (const char *count : {"65", "2000", "-1", "-2147483648"}) {
        setenv("KA_TEST_HEADERS", count, 1);
        Host host({}, module_path("misleading"));
        unsetenv("KA_TEST_HEADERS");
        EXPECT_EQ(ka_set_trace(host, 1), KA_SYSTEM) << count;
        EXPECT_EQ(error_text(host), module_path("misleading") + ": its trace level cannot be set: process " +
                                        std::to_string(ka_pid(host)) + " runs a program without dynamic symbols")
            << count;
    }
    Host truthful({}, module_path("misleading"));
    EXPECT_EQ(ka_set_trace(truthful, 1), KA_DONE) << error_text(truthful);
}

TEST(HostTables, of_a_host_that_has_ended_are_none)
{
    Host host;
    kill(ka_pid(host), SIGKILL);
    ASSERT_TRUE(ends(ka_pid(host)));
    EXPECT_EQ(ka_host_tables(host), nullptr);
    EXPECT_EQ(ka_last_error(host)->error_class, KA_DIED);
    EXPECT_EQ(ka_host_tables(host), nullptr);
    EXPECT_EQ(ka_last_error(host)->error_class, KA_CLOSED);
}
