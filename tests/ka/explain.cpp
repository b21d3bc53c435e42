// SPDX-License-Identifier: MIT
//
// ka explain knows every code of the public headers and every message in the sources of the host.
#include "ka/command.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <span>

#include "caller/waiting.h"
#include "ka/built_module.h"

namespace {

std::string source(const std::string &path)
{
    const std::string text = read_file(KA_SOURCES "/" + path);
    EXPECT_FALSE(text.empty()) << path;
    return text;
}

std::vector<std::string> all_matches(const std::string &text, const std::regex &pattern)
{
    std::vector<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), pattern), end; it != end; ++it)
        found.push_back((*it)[1]);
    return found;
}

// The enumeration that has the constant, by name.
std::map<std::string, int> codes(const std::string &header, const std::string &constant)
{
    const std::string text = source(header);
    const size_t at = text.find(constant + " = ");
    EXPECT_NE(at, std::string::npos) << constant;
    const size_t begin = text.rfind("enum", at);
    const std::string body = text.substr(begin, text.find("};", at) - begin);
    const std::regex row("([A-Z][A-Z0-9_]*) = (-?[0-9]+)");
    std::map<std::string, int> found;
    for (std::sregex_iterator it(body.begin(), body.end(), row), end; it != end; ++it)
        found[(*it)[1]] = std::stoi((*it)[2]);
    return found;
}

nlohmann::json explained(const std::string &text)
{
    const Outcome outcome = ka({"explain", "--json", text});
    EXPECT_EQ(outcome.status, 0) << text << ": " << outcome.err;
    return outcome.status == 0 ? nlohmann::json::parse(outcome.out, nullptr, false) : nlohmann::json::array();
}

bool has(const nlohmann::json &list, const std::string &name, int number)
{
    const auto is_it = [&](const auto &row) { return row["name"] == name && row["number"] == number; };
    return std::any_of(list.begin(), list.end(), is_it);
}

// A message as it would be printed.
std::string with_values(std::string form)
{
    const std::pair<const char *, const char *> steps[] = {
        {R"(\\[rn])", ""},      {R"(\\")", "\""},    {R"(%-?[0-9*.]*s)", "nobody's"}, {R"(%(d|lld|u))", "-12"},
        {R"(%[0-9]*x)", "1f0"}, {R"(%p)", "0xf7a0"}, {R"(%[0-9.]*g)", "1.5"},
    };
    for (const auto &[pattern, value] : steps)
        form = std::regex_replace(form, std::regex(pattern), value);
    return form;
}

// Nor what only the compiler says.
std::string without_comments(std::string text)
{
    for (size_t at; (at = text.find("/*")) != std::string::npos;)
        text.erase(at, text.find("*/", at) + 2 - at);
    return std::regex_replace(text, std::regex(R"(//[^\n]*|#include[^\n]*|static_assert\([^;]*;)"), "");
}

// Pieces of lines and of numbers, and names: they are never met alone.
const std::set<std::string> no_messages = {
    "C",           "Unknown",     "???",        "ByRef",           "ByValue",       "dll_setup",
    "dll_cleanup", "dll_scratch", "u_get__arg", "dll/src/dllmain", "math/src/math", "math/decimal/src/dec_roun",
    "dec_round",   "%s%.14se%d",  "E%+03d"};

// Of the caller's library: what is written otherwise than as messages.
const std::set<std::string> no_message_files = {
    "handler.cpp",   "facts.cpp",     "report_json.cpp", "report_text.cpp", "rest.cpp",  "proc.cpp", "text.cpp",
    "real_text.cpp", "printable.cpp", "json.cpp",        "check.cpp",       "owned.cpp", "kinds.cpp"};
const std::set<std::string> no_library_messages = {"KA_WAIT_FAST",
                                                   "KA_WAIT_SAFE",
                                                   "safe",
                                                   "fast",
                                                   " during a call",
                                                   ", and the system refuses others", // of a message's values
                                                   "in %s \\\"%s\\\"",
                                                   "a call of",
                                                   "a call-back of",
                                                   "before its first call",
                                                   "between calls", // when a host died
                                                   "%.200s: the host %s %s",
                                                   ", element %d",
                                                   "count",
                                                   "room",
                                                   "grace_ms",
                                                   "restart_pause_ms",
                                                   "restart_pause_max_ms", // of an argument, of an option
                                                   "ka_begin",
                                                   "ka_send",
                                                   "ka_wait",
                                                   "ka_answer",
                                                   "ka_last_error",
                                                   "ka_add_...",
                                                   "ka_..._descriptor",
                                                   "ka_call",
                                                   "ka_get_...",
                                                   "ka_host_tables",
                                                   "ka_set_trace",
                                                   "ka_restart",
                                                   "ka_close", // out of turn
                                                   "ended with status %d",
                                                   "was killed by SIG%s (%s)",
                                                   "unknown", // how it died: below
                                                   "done",
                                                   "not started",
                                                   "refused",
                                                   "died",
                                                   "closed",
                                                   "argument",
                                                   "cancelled",
                                                   "unknown error",
                                                   "KaArgList",
                                                   "KaFuncList",
                                                   "dll_debug",
                                                   "auxv",
                                                   "magic",
                                                   "version",
                                                   "pid",
                                                   "base",
                                                   "shmsz",
                                                   "scratch", // fields of the header
                                                   "exe",
                                                   "mem",
                                                   "process %d %s",
                                                   "status",
                                                   "syscall",
                                                   "initial-exec", // how a variable of a thread is found
                                                   "%d:64"};

bool is_message_file(const std::filesystem::path &path)
{
    return path.extension() == ".cpp" && !no_message_files.contains(path.filename());
}

std::vector<std::string> messages_of(const std::string &folder)
{
    std::vector<std::string> found;
    for (const auto &file : std::filesystem::recursive_directory_iterator(KA_SOURCES "/" + folder)) {
        if (!is_message_file(file.path())) continue;
        const std::string text =
            std::regex_replace(without_comments(read_file(file.path())), std::regex(R"re("\s*\n\s*")re"), "");
        for (const std::string &literal : all_matches(text, std::regex(R"re("((?:[^"\\\n]|\\.)*)")re"))) {
            const std::string without_values = std::regex_replace(literal, std::regex("%[-0-9.*]*[a-z]|\\\\."), "");
            const bool says_something = std::any_of(without_values.begin(), without_values.end(),
                                                    [](unsigned char c) { return std::isalpha(c); });
            const bool is_path = literal.starts_with('/');
            if (says_something && !is_path && !no_messages.contains(literal)) found.push_back(literal);
        }
    }
    return found;
}

} // namespace

TEST(KaExplain, knows_every_code_of_the_public_headers_by_number_and_by_name)
{
    const std::pair<const char *, const char *> families[] = {
        {"dll/include/ka/dll_codes.h", "KA_OK"},         {"dll/include/ka/dll_codes.h", "KA_EXIT_START"},
        {"dll/include/ka/kastring.h", "KASTR_OK"},       {"math/include/ka/real.h", "REAL_OK"},
        {"math/decimal/include/ka/decimal.h", "DEC_OK"}, {"caller/include/ka/caller.h", "KA_DONE"},
        {"tools/ka/base/exit_status.h", "EXIT_DONE"},
    };
    for (const auto &[header, first] : families) {
        const auto family = codes(header, first);
        EXPECT_FALSE(family.empty()) << header;
        for (const auto &[name, number] : family) {
            EXPECT_TRUE(has(explained(name), name, number)) << name;
            EXPECT_TRUE(has(explained(std::to_string(number)), name, number)) << name << " by its number";
        }
    }
}

TEST(KaExplain, knows_every_message_of_the_host)
{
    size_t count = 0;
    for (const char *folder : {"dll/src", "math/src", "math/decimal/src"}) {
        for (const std::string &message : messages_of(folder)) {
            const std::string printed = with_values(message);
            EXPECT_FALSE(explained(printed).empty()) << message;
            count++;
        }
    }
    EXPECT_GT(count, 30u) << "the messages were not found in the sources";
}

TEST(KaExplain, knows_every_message_of_the_callers_library)
{
    size_t count = 0;
    for (const std::string &message : messages_of("caller/src")) {
        if (no_library_messages.contains(message)) continue;
        const nlohmann::json list = explained(with_values(message));
        const auto is_of_library = [](const auto &row) { return row.value("layer", "") == "error of libkacall"; };
        EXPECT_TRUE(std::any_of(list.begin(), list.end(), is_of_library)) << message;
        count++;
    }
    EXPECT_GT(count, 80u) << "the messages were not found in the sources";
}

TEST(KaExplain, knows_every_message_of_a_unit_test)
{
    const std::set<std::string> pieces = {"ka: unit test: %s\\n", "argument %d of \\\"%.80s\\\": %s", "C"};
    size_t count = 0;
    for (const std::string &message : messages_of("dll/test/src")) {
        if (pieces.contains(message)) continue;
        const nlohmann::json list = explained("ka: unit test: " + with_values(message));
        EXPECT_EQ(list.empty() ? "" : list[0].value("layer", ""), "last words of a unit test") << message;
        count++;
    }
    EXPECT_GT(count, 12u) << "the messages were not found in the sources";
}

TEST(KaExplain, says_meaning_cause_and_remedy_of_everything)
{
    const Outcome outcome = ka({"explain", "--all", "--json"});
    ASSERT_EQ(outcome.status, 0);
    const auto list = nlohmann::json::parse(outcome.out);
    EXPECT_GT(list.size(), 60u);
    for (const auto &row : list)
        for (const char *field : {"layer", "meaning", "cause", "remedy"})
            EXPECT_NE(row[field], "") << row;
}

TEST(KaExplain, shows_every_meaning_of_a_number_with_its_layer)
{
    const Outcome outcome = ka({"explain", "2"});
    EXPECT_EQ(outcome.status, 0);
    for (const char *line : {"2 KA_NO_MEMORY, return code of a call\n", "2 KA_REFUSED, error of libkacall\n",
                             "2 EXIT_USAGE, exit status of ka\n", "2 KA_EXIT_START, exit status of a host\n"})
        EXPECT_NE(outcome.out.find(line), std::string::npos) << line;
    EXPECT_TRUE(has(explained("-1"), "KA_BAD_PROTOTYPE", -1));
    EXPECT_TRUE(has(explained("-1"), "DEC_NEGATIVE_PLACES", -1));
}

TEST(KaExplain, knows_every_signal_by_name_by_number_and_as_a_shell_tells_it)
{
    for (int signal = 1; signal < 32; signal++) {
        const std::string name = std::string("SIG") + sigabbrev_np(signal);
        for (const std::string &text : {name, name.substr(3), std::to_string(signal), std::to_string(128 + signal),
                                        std::string("ka: m: it was ended: ") + sigdescr_np(signal)})
            EXPECT_TRUE(has(explained(text), signal == SIGIO ? "SIGIO" : name, signal)) << text;
    }
}

TEST(KaExplain, knows_an_error_class_by_its_name)
{
    EXPECT_TRUE(has(explained("died"), "KA_DIED", 3));
    EXPECT_TRUE(has(explained("too big"), "KA_TOO_BIG", 5));
}

// What hosts and ka really say, from processes of their own.
TEST(KaExplain, knows_what_is_really_said)
{
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"fault"}, {"die_by", "6"}, {"leave", "3"}, {"--deadline", "0.5", "hang"}}) {
        const std::string said = call(words).err;
        EXPECT_FALSE(explained(said).empty()) << said;
    }
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"add"}, {"nobody"}, {"add", "x", "1", "2"}}) {
        const std::string said = call(words).err;
        EXPECT_TRUE(has(explained(said), "KA_REFUSED", 2)) << said;
    }
    const std::string missing = module_folder(CALLER_MODULES) + "/caller_module_no_library";
    EXPECT_TRUE(has(explained(ka({"call", missing, "count_call"}).err), "", 127));
    FILE *pipe = popen((tasks_module + " 2>&1").c_str(), "r");
    char line[1000] = "";
    EXPECT_NE(fgets(line, sizeof line, pipe), nullptr);
    pclose(pipe);
    EXPECT_EQ(explained(line)[0]["message"], "%s: Illegal call");
}

namespace {

// What a command of a shell writes, in a folder of its own with a module's sources.
std::string said_by(const std::string &command)
{
    const BuiltModule module(sound_tables);
    module.build("half.o", "int half;", "-c");
    const std::string all =
        "cd " + module.folder() +
        " && echo 'int x;' >empty.c && sed -i 's/KaCall/Ka_Call/' module.c && export LC_ALL=C CC=" +
        KA_C_COMPILER " B=" KA_BUILD " L=" + library_folder(KA_BUILD) + " && { " + command + "; } 2>&1";
    FILE *pipe = popen(all.c_str(), "r");
    std::string text;
    char buffer[4096];
    for (size_t length; (length = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        text.append(buffer, length);
    pclose(pipe);
    return text;
}

struct Said {
    std::string command;
    std::string part; // of what is said
};

// It is said, and known.
void expect_known(std::span<const Said> cases)
{
    for (const auto &[command, part] : cases) {
        const std::string said = said_by(command);
        ASSERT_NE(said.find(part), std::string::npos) << command << "\n" << said;
        const size_t line = said.rfind('\n', said.find(part)) + 1;
        const auto rows = explained(said.substr(line, said.find('\n', line) - line));
        ASSERT_FALSE(rows.empty()) << said;
        const std::string layer = rows[0]["layer"];
        EXPECT_TRUE(layer.starts_with("message when a module is ")) << layer << ": " << said;
    }
}

} // namespace

// Compiler, linker and loader say so themselves.
TEST(KaExplain, knows_what_is_said_of_a_first_build)
{
    const std::string cc = "$CC" + module_flag();
    const std::string host = " -L$L -lkahost";
    const std::string std_headers =
        "for h in bits/libc-header-start.h sys/cdefs.h asm/errno.h; do echo \"#include <$h>\" >h.c; "
        "$CC -nostdinc -I. -c h.c; done";
    const Said cases[] = {
        {cc + "empty.c" + host, "undefined reference to `KaFuncList'"},
        {cc + "empty.c" + host, "undefined reference to `KaArgList'"},
        {cc + "empty.c" + host, "undefined reference to `KaCall'"},
        {cc + "-w -I$B/include module.c" + host, "undefined reference to `KaCall'"},
        {cc + "empty.c", "undefined reference to `main'"},
        {"echo 'int KaFuncList, KaArgList, KaCall, decadd;' >m.c && " + cc + "m.c -L$L -l:libkahost.a",
         "multiple definition of `decadd'"},
        {cc + "empty.c -lkahost", "cannot find -lkahost"},
        {"echo 'int ka_open(void); int main(void) { return ka_open(); }' >m.c && " + cc + "m.c",
         "undefined reference to `ka_open'"},
        {cc + "-w -c module.c", "fatal error: ka/dll_module.h: No such file or directory"},
        {std_headers, "fatal error: bits/libc-header-start.h: No such file or directory"},
        {std_headers, "fatal error: sys/cdefs.h: No such file or directory"},
        {std_headers, "fatal error: asm/errno.h: No such file or directory"},
        {"ld -m elf_" + std::string(module_bits() == 64 ? "x86_64" : "i386") + " -L. -lstdc++",
         "cannot find -lstdc++"},
        {"echo 'int KaFuncList, KaArgList, KaCall;' >m.c && " + cc + "m.c" + host + " -o m && ./m 1",
         "error while loading shared libraries: libkahost.so"},
    };
    expect_known(cases);
}

// One module with several mistakes: every compiler says each of them in its own words.
TEST(KaExplain, knows_what_compilers_say_of_a_wrong_declaration)
{
    const std::string flags = module_flag() + "-fsyntax-only -I$B/include ";
    const std::string said = said_by(
        "echo '#include <ka/module.hpp>\nvoid few(double) {}\nvoid part(float) {}\nvoid over(int) {}\n"
        "void over(double) {}\nstruct Account { void pay() {} };\nka::code own() { return ka::own<8>; }\n"
        "KA_MODULE(KA_FN(few), KA_FN(part, \"a\"), KA_FN(Account::pay), KA_FN(over, \"a\"), "
        "KA_FN_AS(\"plus\", +[](double a) { return a; }, \"a\"))' >wrong.cpp; "
        "echo '#include <ka/module.h>\nstatic void add(int32_t a) {}\n#define F(L) L(add, (int32, a))\nKA_MODULE(F)' "
        ">wrong.c; for c in $CC clang; do $c" +
        flags + "-std=c++20 -x c++ wrong.cpp; $c" + flags +
        "-x c wrong.c; done; PKG_CONFIG_PATH= PKG_CONFIG_LIBDIR=. pkg-config --libs kahost; true");
    for (const auto &[part, times] : std::map<std::string, int>{
             {"KA_FN(few): too few names", 2},
             {"KA_FN(part): a floating parameter is a double", 2},
             {"unable to deduce", 1},
             {"incompatible initializer of type '<overloaded function type>'", 1},
             {"KA_FN(Account::pay): not a function by itself", 2},
             {"ka::own: the call host answers with this code itself", 2},
             {"has no linkage", 1},
             {"KA_MODULE: add is not declared as its line says", 2},
             {"Package kahost was not found", 1},
             {"Package 'kahost', required by", 1},
         }) {
        int seen = 0;
        for (size_t at = 0; (at = said.find(part, at)) != std::string::npos; at = said.find('\n', at)) {
            const size_t line = said.rfind('\n', at) + 1;
            const auto rows = explained(said.substr(line, said.find('\n', line) - line));
            EXPECT_EQ(rows.empty() ? "" : rows[0].value("layer", ""), "message when a module is built") << part;
            seen++;
        }
        EXPECT_GE(seen, times) << part << "\n" << said;
    }
}

// All that the headers for modules can say: the texts of their assertions.
TEST(KaExplain, knows_every_message_of_the_headers_for_modules)
{
    const std::set<std::string> own_checks = {"ka_integer lies in the block as an INTEGER does"};
    const std::regex message(R"(,\s*((?:FUNCTION,)?(?:\s*(?:"(?:[^"\\]|\\.)*"|#[A-Z]+|KA_KINDS_))+)\s*\))");
    size_t count = 0;
    for (const char *header :
         {"module/checks.hpp", "module/code.hpp", "module/life.hpp", "module/tables.hpp", "module.h"}) {
        const std::string text =
            std::regex_replace(source(std::string("dll/include/ka/") + header), std::regex(R"(\\\n)"), "");
        for (std::string said : all_matches(text, message)) {
            said = std::regex_replace(said, std::regex(R"(^FUNCTION,)"), "");
            said = std::regex_replace(said, std::regex(R"(#[A-Z]+|KA_KINDS_)"), "\"add\"");
            said = std::regex_replace(said, std::regex(R"("\s*")"), "");
            said = with_values(std::regex_replace(said, std::regex(R"(^\s*"|"\s*$)"), ""));
            if (own_checks.contains(said) || said.find(' ') == std::string::npos) continue;
            const nlohmann::json list = explained(said);
            EXPECT_EQ(list.empty() ? "" : list[0].value("layer", ""), "message when a module is built") << said;
            count++;
        }
    }
    EXPECT_GT(count, 30u) << "the messages were not found in the headers";
}

// A module that is started by hand, or with a segment that is gone.
TEST(KaExplain, knows_the_status_of_a_host_that_cannot_start)
{
    const std::string said = said_by(tasks_module + " 2>&1; echo \"exit status $?\"");
    EXPECT_NE(said.find("exit status 2\n"), std::string::npos) << said;
    EXPECT_TRUE(has(explained("exit status 2"), "KA_EXIT_START", 2));
}

// A part of the other word size is met.
TEST(KaExplain, knows_what_is_said_of_two_word_sizes_in_one_module)
{
    const bool is_wide = module_bits() == 64;
    const std::string cc = "$CC" + module_flag();
    const std::string other_flag = is_wide ? " -m32 " : " -m64 ";
    const std::string other_folder = is_wide ? KA_BUILD "/lib" : KA_BUILD "/lib64";
    const std::string names[] = {"i386:x86-64", "i386"};
    std::vector<Said> cases = {
        {"$CC" + other_flag + "-c empty.c && " + cc + "empty.o half.o",
         names[is_wide] + " architecture of input file `empty.o' is incompatible with " + names[!is_wide] +
             " output"},
        {"D=$(dirname $(" + cc + "-print-libgcc-file-name)); ld -m elf_" + (is_wide ? "i386" : "x86_64") +
             " -L$D -lgcc",
         "when searching for -lgcc"},
        {"$CC" + other_flag + "-shared -nostdlib empty.c -o libstdc++.so; ld -m elf_" +
             (is_wide ? "x86_64" : "i386") + " -L. -lstdc++",
         "when searching for -lstdc++"},
        {"$CC" + other_flag + "-shared -nostdlib empty.c -o other.so; " + cc + "empty.c ./other.so",
         "file in wrong format"},
    };
    if (std::filesystem::exists(other_folder + "/libkahost.so")) { // the build has both
        cases.push_back({cc + "empty.c -L" + other_folder + " -lkahost", "when searching for -lkahost"});
        cases.push_back({"echo 'int KaFuncList, KaArgList, KaCall;' >m.c && " + cc +
                             "m.c -L$L -lkahost -o m && LD_LIBRARY_PATH=" + other_folder + " ./m 1",
                         "wrong ELF class: ELFCLASS"});
    }
    expect_known(cases);
}

// In each form that gdb and strace have.
TEST(KaExplain, knows_that_a_tracer_is_refused)
{
    for (const char *text :
         {"ptrace: Operation not permitted.", "strace: attach: ptrace(PTRACE_SEIZE, 1851): Operation not permitted"})
        EXPECT_EQ(explained(text).size(), 1u) << text;
}

TEST(KaExplain, knows_an_exit_status_as_it_is_told)
{
    for (const char *text : {"exit status 127", "ended with status 127", "make: *** [Makefile:3: run] Error 127",
                             "exit status 127 (a library is missing; see its standard error)"})
        EXPECT_TRUE(has(explained(text), "", 127)) << text;
    EXPECT_TRUE(has(explained("exit status 139"), "SIGSEGV", SIGSEGV));
    EXPECT_TRUE(has(explained("exit status 2"), "KA_EXIT_START", 2));
    EXPECT_TRUE(has(explained("exit status 6"), "EXIT_DEADLINE", 6));
    EXPECT_FALSE(has(explained("exit status 2"), "KA_NO_MEMORY", 2)) << "a return code";
    EXPECT_FALSE(has(explained("m: the host ended with status 6"), "EXIT_DEADLINE", 6)) << "of ka";
    for (int status : {0, 2, 126, 127})
        EXPECT_FALSE(explained("exit status " + std::to_string(status)).empty());
}

TEST(KaExplain, knows_a_return_code_as_it_is_shown)
{
    EXPECT_TRUE(has(explained("return code 8"), "KA_WRONG_TYPE", 8));
    EXPECT_TRUE(has(explained("code 18"), "KASTR_NO_ROOM", 18));
    EXPECT_TRUE(has(explained("return code 23 (f: out of range)"), "REAL_RANGE", 23));
    EXPECT_FALSE(has(explained("return code 8"), "SIGFPE", 8));
    EXPECT_FALSE(has(explained("return code 2"), "KA_EXIT_START", 2));
    EXPECT_TRUE(has(explained("exit 2"), "KA_EXIT_START", 2));
}

TEST(KaExplain, says_most_first_and_nothing_twice)
{
    EXPECT_EQ(explained("calling add, argc = 3").size(), 1u);
    EXPECT_EQ(explained("fatal math error cc #-2").size(), 1u);
    const auto list = explained("fatal math error cc #-2\nfatal math error cc #-2\nBad DLL_MAGIC");
    EXPECT_EQ(list.size(), 2u);
}

TEST(KaExplain, reads_lines_from_standard_input)
{
    FILE *pipe = popen("printf 'nothing here\\nBad DLL_MAGIC\\n' | " KA_COMMAND " explain -", "r");
    char line[200] = "";
    EXPECT_NE(fgets(line, sizeof line, pipe), nullptr);
    EXPECT_STREQ(line, "\"Bad DLL_MAGIC\", message of a host that cannot start\n");
    EXPECT_EQ(pclose(pipe), 0);
}

TEST(KaExplain, refuses_what_nothing_is_known_about)
{
    const Outcome outcome = ka({"explain", "utter", "nonsense"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "ka: nothing is known about 'utter nonsense'\n");
    EXPECT_EQ(ka({"explain", "55"}).err,
              "ka: nothing is known about '55'; as the return code of a call it is the function's own\n");
    EXPECT_EQ(ka({"explain"}).status, 2);
    EXPECT_EQ(ka({"explain", "(((", "%s", "[a-"}).status, 2);
    EXPECT_EQ(ka({"explain", std::string(100000, 'x')}).status, 2);
}

TEST(KaExplain, lines_stay_within_eighty_columns)
{
    std::istringstream lines(ka({"explain", "--all"}).out);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("  ")) {
            EXPECT_LE(line.size(), 80u) << line;
        }
}
