// SPDX-License-Identifier: MIT
//
// share/kahost/caller.json says what compilers say of the headers, for each word size.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "module_bits.h"
#include "toolchain.h"

namespace {

using Json = nlohmann::ordered_json;

Json caller_json()
{
    return Json::parse(std::ifstream(LINKING_BUILD "/share/kahost/caller.json"));
}

const std::string bits = std::to_string(module_bits());

// What a C compiler knows after these headers, with the lines behind them.
constexpr const char *headers[] = {"caller.h", "dll_block.h", "dll_codes.h", "dll_module.h"};

void compile(const linking::Folder &folder, const std::string &lines)
{
    std::ofstream source(folder.path("all.c"));
    for (const char *header : headers)
        source << "#include <ka/" << header << ">\n";
    source << lines;
    source.close();
    linking::run("gcc -std=gnu11 -Wall -Werror" + module_flag() +
                 "-g -fno-eliminate-unused-debug-types -I" LINKING_BUILD "/include -c " + folder.path("all.c") +
                 " -o " + folder.path("all.o"));
}

std::string same_type(const std::string &known, const std::string &said)
{
    return "_Static_assert(__builtin_types_compatible_p(__typeof__(" + known + "), " + said + "), \"" + known + ": " +
           said + "\");\n";
}

// "int32_t(ka_host *, int32_t)"
std::string function_type(const Json &function)
{
    std::string types;
    for (const Json &parameter : function["parameters"])
        types += (types.empty() ? "" : ", ") + std::string(parameter["type"]);
    return std::string(function["result"]) + "(" + (types.empty() ? "void" : types) + ")";
}

std::map<std::string, std::string> listed_records()
{
    std::ifstream file(LINKING_FOLDER "/exported_records_" + bits + ".txt");
    std::map<std::string, std::string> records;
    std::string name;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#')) continue;
        if (line[0] != ' ') name = line.substr(0, line.find(' '));
        records[name] += line + "\n";
    }
    return records;
}

std::string header_text()
{
    std::ostringstream text;
    text << std::ifstream(LINKING_BUILD "/include/ka/caller.h").rdbuf();
    return text.str();
}

} // namespace

TEST(CallerJson, records_are_those_that_are_listed)
{
    const std::map<std::string, std::string> listed = listed_records(); // Records.lie_as_they_are_listed
    const Json records = caller_json()["records"];
    for (const auto &[name, record] : records.items()) {
        std::ostringstream text;
        text << name << " " << record["size"][bits] << "\n";
        for (const Json &field : record["fields"])
            text << "    " << std::string(field["name"]) << " " << field[bits]["offset"] << " " << field[bits]["size"]
                 << "\n";
        ASSERT_TRUE(listed.count(name)) << name;
        EXPECT_EQ(text.str(), listed.at(name));
    }
    EXPECT_TRUE(records.contains("t_DECIMAL"));
    const std::string header = header_text();
    const std::regex definition(R"(\ntypedef struct (\w+) \{)");
    for (std::sregex_iterator each(header.begin(), header.end(), definition), end; each != end; ++each)
        EXPECT_TRUE(records.contains((*each)[1].str())) << (*each)[1];
}

TEST(CallerJson, types_are_what_the_compiler_takes_them_for)
{
    const linking::Folder folder;
    const Json json = caller_json();
    std::string lines;
    for (const auto &[name, record] : json["records"].items())
        for (const Json &field : record["fields"])
            lines += same_type("((" + name + " *)0)->" + std::string(field["name"]), field["type"]);
    for (const auto &[name, function] : json["functions"].items())
        lines += same_type(name, function_type(function));
    for (const auto &[name, function] : json["callbacks"].items())
        lines += same_type(name, function_type(function));
    for (const Json &name : json["opaque"])
        lines += "const " + std::string(name) + " *a_" + std::string(name) + ";\n";
    for (const auto &[name, value] : json["constants"].items())
        lines += "_Static_assert(" + name + " == " + value.dump() + ", \"" + name + "\");\n";
    compile(folder, lines);
    EXPECT_THROW(compile(folder, same_type("ka_open", "int(void)")), std::exception);
}

// The compiler's own list, from debug information.
TEST(CallerJson, constants_are_all_there)
{
    const linking::Folder folder;
    compile(folder, "");
    const std::string listing = linking::run("readelf --debug-dump=info " + folder.path("all.o"));
    const Json constants = caller_json()["constants"];
    std::istringstream lines(listing);
    bool in_enumerator = false;
    size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("Abbrev Number") != std::string::npos)
            in_enumerator = line.find("DW_TAG_enumerator") != std::string::npos;
        if (!in_enumerator || line.find("DW_AT_name") == std::string::npos) continue;
        const std::string name = line.substr(line.find_last_of(" \t", line.find_last_not_of(" \t")) + 1);
        EXPECT_TRUE(constants.contains(name.substr(0, name.find_last_not_of(" \t") + 1))) << line;
        count++;
    }
    EXPECT_EQ(count, constants.size());
    EXPECT_GT(count, 60u);
}

TEST(CallerJson, functions_are_those_that_the_library_exports)
{
    std::set<std::string> said;
    const Json functions = caller_json()["functions"];
    for (const auto &function : functions.items())
        said.insert(function.key());
    std::ifstream file(LINKING_ROOT "/caller/kacall.map");
    std::set<std::string> exported;
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("    ka_")) exported.insert(line.substr(4, line.size() - 5));
    EXPECT_EQ(said, exported);
    EXPECT_GE(said.size(), 40u);
}

TEST(CallerJson, tells_version_and_library)
{
    const Json json = caller_json();
    EXPECT_EQ(json["version"], LINKING_VERSION);
    const std::string library =
        LINKING_BUILD + std::string(bits == "64" ? "/lib64/" : "/lib/") + std::string(json["library"]);
    EXPECT_TRUE(std::ifstream(library).good()) << library;
}

TEST(CallerJson, is_made_of_what_is_understood_alone)
{
    const linking::Folder folder;
    const std::string awk = "awk -v version=1 -v output=/dev/stdout -f " LINKING_ROOT "/caller/caller_json.awk " +
                            folder.path("none.map") + " " + folder.path("caller.h") + " 2>&1";
    std::ofstream(folder.path("none.map")) << "local:\n";
    const auto made = [&](const std::string &text) {
        std::ofstream(folder.path("caller.h")) << text << std::endl;
        return linking::run(awk + " || echo failed");
    };
    EXPECT_EQ(Json::parse(made("enum { KA_A = 1, KA_B, KA_C = KA_B + 0x10 };"))["constants"].dump(),
              R"({"KA_A":1,"KA_B":2,"KA_C":18})");
    EXPECT_NE(made("enum { KA_A = OTHER };").find("not understood: the value OTHER\nfailed"), std::string::npos);
    EXPECT_NE(made("typedef struct ka_a { long a; } ka_a;").find("the size of long\nfailed"), std::string::npos);
    EXPECT_NE(made("union ka_u { int a; };").find("failed"), std::string::npos);
    std::ofstream(folder.path("none.map")) << "    ka_gone;\n";
    EXPECT_NE(made("enum { KA_A };").find("no header declares ka_gone\nfailed"), std::string::npos);
}
