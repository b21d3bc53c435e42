// SPDX-License-Identifier: MIT
//
// The library refuses exactly the calls that the call host would refuse, with the same code: random tables, sound and
// unsound, and random calls, each made checked and unchecked.
#include "caller/hosts.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <sstream>

#include "ka/dll_module.h"

namespace {

constexpr int32_t entered = 424000; // the functions' return codes: this and their position

class Dice {
public:
    explicit Dice(uint32_t seed) : engine_(seed) {}
    int32_t below(int32_t limit) { return std::uniform_int_distribution<int32_t>(0, limit - 1)(engine_); }
    bool percent(int32_t chance) { return below(100) < chance; }
    int32_t one_of(const std::vector<int32_t> &values)
    {
        return values[static_cast<size_t>(below(static_cast<int32_t>(values.size())))];
    }

private:
    std::mt19937 engine_;
};

struct RandomFunction {
    std::string name;
    int32_t first;
    int32_t count;
};

struct RandomPrototype {
    int32_t kind;
    int32_t least;
};

struct RandomTables {
    std::vector<RandomFunction> functions;
    std::vector<RandomPrototype> prototypes;

    std::string text() const
    {
        std::ostringstream out;
        out << functions.size() << ' ' << prototypes.size() << '\n';
        for (const RandomFunction &function : functions)
            out << function.name << ' ' << function.first << ' ' << function.count << '\n';
        for (const RandomPrototype &prototype : prototypes)
            out << prototype.kind << ' ' << prototype.least << '\n';
        return out.str();
    }
};

// Few letters, so that names are alike, and some the same.
std::string random_name(Dice &dice)
{
    std::string name;
    do {
        name += static_cast<char>('a' + dice.below(3));
    } while (dice.percent(65) && name.size() < 30);
    return name;
}

RandomTables random_tables(Dice &dice)
{
    RandomTables tables;
    const int32_t prototypes = dice.below(200);
    for (int32_t i = 0; i < prototypes; i++) {
        const int32_t kind = dice.percent(4) ? dice.one_of({-1, 10, 12, INT32_MIN, INT32_MAX}) : dice.below(10);
        tables.prototypes.push_back({kind, dice.percent(10) ? dice.one_of({-1, INT32_MIN, 1000}) : dice.below(4)});
    }
    const int32_t functions = dice.below(60);
    for (int32_t i = 0; i < functions; i++) {
        const int32_t count = dice.percent(8) ? dice.one_of({-1, -7, INT32_MIN, 49, 50, 51, 52, 60}) : dice.below(6);
        tables.functions.push_back({random_name(dice), dice.below(prototypes + 20), count});
    }
    return tables;
}

struct RandomArgument {
    int32_t type;
    int32_t count;
    int32_t passing;
};

struct RandomCall {
    std::string name;
    std::vector<RandomArgument> arguments;
};

int32_t suitable_type(Dice &dice, int32_t kind)
{
    if (dice.percent(3) || kind <= KA_VARARG || kind > KA_STRING_ARRAY) return 1 + dice.below(3);
    if (kind <= KA_INT_ARRAY) return DLL_INTEGER;
    return kind <= KA_REAL_ARRAY ? DLL_REAL : DLL_STRING;
}

RandomCall random_call(Dice &dice, const RandomTables &tables)
{
    if (tables.functions.empty() || dice.percent(10)) return {random_name(dice), {}};
    const RandomFunction &function =
        tables.functions[static_cast<size_t>(dice.below(static_cast<int32_t>(tables.functions.size())))];
    RandomCall call = {function.name, {}};
    int32_t count = std::max(function.count, 0) + (dice.percent(25) ? dice.below(4) - 1 : 0);
    if (dice.percent(3)) count = 50;
    for (int32_t i = 0; i < count && i < 50; i++) {
        const auto at = static_cast<size_t>(function.first + i);
        const RandomPrototype prototype =
            at < tables.prototypes.size() ? tables.prototypes[at] : RandomPrototype{0, 0};
        const int32_t elements =
            prototype.least > 0 && prototype.least < 10 && dice.percent(95) ? prototype.least : dice.below(5);
        call.arguments.push_back({suitable_type(dice, prototype.kind), elements, dice.below(2)});
    }
    return call;
}

void build(ka_host *host, const RandomCall &call)
{
    static constexpr int32_t integers[10] = {};
    static constexpr double doubles[10] = {};
    static constexpr ka_text texts[10] = {};
    ka_begin(host, call.name.c_str());
    for (const RandomArgument &argument : call.arguments) {
        if (argument.type == DLL_INTEGER) ka_add_integers(host, integers, argument.count, argument.passing);
        if (argument.type == DLL_REAL) ka_add_doubles(host, doubles, argument.count, argument.passing);
        if (argument.type == DLL_STRING) ka_add_strings(host, texts, argument.count, 8, argument.passing);
    }
}

std::string told(const RandomCall &call)
{
    std::string text = call.name;
    for (const RandomArgument &argument : call.arguments)
        text += " " + std::to_string(argument.type) + "x" + std::to_string(argument.count);
    return text;
}

// How often each verdict was seen; 0 is a call that reached its function.
using Verdicts = std::map<int32_t, int>;

void compare(ka_host *checked, ka_host *raw, const RandomCall &call, Verdicts &seen)
{
    int32_t truth = 0;
    int32_t code = 0;
    build(raw, call);
    ASSERT_EQ(ka_call(raw, &truth), KA_DONE) << error_text(raw);
    build(checked, call);
    const int32_t status = ka_call(checked, &code);
    if (status == KA_DONE) {
        ASSERT_EQ(code, truth);
        ASSERT_GE(code, entered);
        seen[0]++;
        return;
    }
    ASSERT_EQ(status, KA_REFUSED) << error_text(checked);
    ASSERT_EQ(ka_last_error(checked)->return_code, truth) << error_text(checked);
    seen[truth]++;
}

} // namespace

class Equivalence : public BothLayouts {};
IN_BOTH_LAYOUTS(Equivalence);

TEST_P(Equivalence, of_the_librarys_and_the_hosts_refusals)
{
    Verdicts seen;
    for (uint32_t seed = 1; seed <= 40; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Dice dice(seed);
        const RandomTables tables = random_tables(dice);
        const File file(tables.text(), 0644);
        setenv("KA_TEST_TABLES", file.path.c_str(), 1);
        const std::string module = module_path("random_tables");
        Host checked(layout(), module);
        Host raw(
            [this](ka_options &options) {
                layout()(options);
                options.checking = KA_RAW;
            },
            module);
        for (int round = 0; round < 400; round++) {
            const RandomCall call = random_call(dice, tables);
            SCOPED_TRACE(told(call));
            compare(checked, raw, call, seen);
            if (HasFatalFailure()) return;
        }
        unsetenv("KA_TEST_TABLES");
    }
    for (int32_t verdict :
         {0, +KA_NO_FUNCTION, +KA_WRONG_TYPE, +KA_WRONG_COUNT, +KA_TOO_FEW_ELEMENTS, +KA_BAD_PROTOTYPE}) {
        EXPECT_GT(seen[verdict], 100) << verdict;
        seen.erase(verdict);
    }
    EXPECT_TRUE(seen.empty()) << seen.begin()->first;
}
