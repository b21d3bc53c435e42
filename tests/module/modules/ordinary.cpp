// SPDX-License-Identifier: MIT
//
// Ordinary functions with every type of parameter and of result. Compiled as C++17; the header is the first include,
// so it must compile alone.
#include <ka/module.hpp>

static_assert(__cplusplus == 201703L, "this source is to be compiled as C++17");

namespace {

// ---- One parameter of each type ----------------------------------------------------------------------------------

ka::code integer_in(std::int32_t a)
{
    return ka::code(a);
}
ka::code integer_in_by_reference(const std::int32_t &a)
{
    return ka::code(a);
}
void integer_changed(std::int32_t &a)
{
    a *= 2;
}
ka::code integers(ka::array<std::int32_t, 2> a)
{
    return ka::code(static_cast<std::int32_t>(a.size()) * 1000 + a[1]);
}
double real_in(double a)
{
    return a;
}
double real_in_by_reference(const double &a)
{
    return a;
}
void real_changed(double &a)
{
    a *= 2;
}
double reals(ka::array<double, 0> a)
{
    return a.empty() ? -1 : a[a.size() - 1];
}
std::int32_t text_in(const char *a)
{
    return static_cast<std::int32_t>(std::char_traits<char>::length(a));
}
std::int32_t view_in(std::string_view a)
{
    return static_cast<std::int32_t>(a.size());
}
std::int32_t view_in_by_reference(const std::string_view &a)
{
    return static_cast<std::int32_t>(a.size());
}
void string_changed(ka::string a)
{
    a += "!";
}
void strings_changed(ka::array<ka::string> a)
{
    for (ka::string each : a)
        each += "!";
}
std::int32_t views(ka::array<std::string_view, 3> a)
{
    return static_cast<std::int32_t>(a[0].size() + a[2].size());
}

// What arrived, as kind and number of elements of each.
ka::code rest(std::int32_t first, ka::args rest)
{
    std::int32_t found = first;
    for (const ka::argument each : rest)
        found = found * 100 + static_cast<std::int32_t>(each.size()) * 10 +
                (each.is_integer()  ? 1
                 : each.is_real()   ? 2
                 : each.is_string() ? 3
                                    : 0);
    return ka::code(found);
}
void sum_of_rest(double &sum, const ka::args &rest)
{
    sum = 0;
    for (std::size_t i = 0; i < rest.size(); i++)
        sum += rest[i].real();
}
void double_rest(ka::args rest)
{
    for (const ka::argument each : rest) {
        if (each.is_integer())
            for (ka::integer &x : each.integers())
                x *= 2;
        if (each.is_real())
            for (double &x : each.reals())
                x *= 2;
        if (each.is_string())
            for (ka::string x : each.strings())
                x += x;
    }
}
ka::code integer_of_rest(ka::args rest)
{
    return ka::code(rest[0].integer());
}
ka::code text_of_rest(ka::args rest)
{
    return ka::code(static_cast<std::int32_t>(rest[0].text().size()));
}
ka::code nothing()
{
    return ka::own<42>;
}

// ---- One result of each type -------------------------------------------------------------------------------------

void no_result() {}
std::int32_t integer_out()
{
    return -7;
}
double real_out()
{
    return 0.1;
}
ka::decimal exact_out()
{
    return ka::decimal("1234567.8901234");
}
std::string string_out()
{
    return std::string("a\0b", 3);
}
std::string_view view_out(std::string_view a)
{
    return a.substr(1);
}
const char *text_out(std::int32_t is_null)
{
    return is_null != 0 ? nullptr : "text";
}
const std::string constant_out()
{
    return "constant";
}
std::int32_t old_status(std::int32_t a)
{
    return a;
}
std::int32_t result_behind(std::int32_t &a, ka::string b, double c)
{
    a++;
    b = "changed";
    return static_cast<std::int32_t>(c);
}

// ---- Names and forms of functions --------------------------------------------------------------------------------

int overloaded(int a)
{
    return a;
}
double overloaded(double a)
{
    return a / 2;
}

template <typename T>
T twice(T a)
{
    return 2 * a;
}

std::int32_t never_throws(std::int32_t a) noexcept
{
    return a + 1;
}

struct Account {
    static std::int32_t number(std::int32_t a) { return a + 100; }
};

// What the tables say about a function: "version,length: text", or about an argument: "text".
std::string doc_of(std::int32_t function, std::int32_t argument)
{
    const auto *const record = static_cast<const t_DLL_DOC *>(KaFuncList[function].user);
    if (record == nullptr || std::memcmp(record->magic, DLL_DOC_MAGIC, sizeof record->magic) != 0) return "none";
    if (argument > 0) {
        const char *const text = record->arguments[argument - 1];
        return text != nullptr ? text : "nothing";
    }
    const bool is_whole = record->length == static_cast<std::int32_t>(sizeof *record);
    return std::to_string(record->version) + (is_whole ? ": " : "? ") +
           (record->text != nullptr ? record->text : "nothing");
}

// Names that stand for something in the headers, too.
std::int32_t name()
{
    return 1;
}
std::int32_t words()
{
    return 2;
}
std::int32_t tables()
{
    return 3;
}
std::int32_t type()
{
    return 4;
}

} // namespace

namespace bank::rates {
double rate(double a);
}

// clang-format off
#define TEN(X) X "0", X "1", X "2", X "3", X "4", X "5", X "6", X "7", X "8", X "9"
using I = std::int32_t;
static I forty_nine(I a, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I,
                    I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I, I z) { return 100 * a + z; }

KA_MODULE(
    KA_FN(doc_of, ka::doc("what the tables say"), "function", ka::doc("from 0"), "argument", ka::result("text"), ka::doc("the words")),
    KA_FN(integer_in, "a", ka::doc("an INTEGER")), KA_FN(integer_in_by_reference, "a"), KA_FN(integer_changed, "a"), KA_FN(integers, "a"),
    KA_FN(real_in, "a"), KA_FN(real_in_by_reference, "a"), KA_FN(real_changed, "a"), KA_FN(reals, "a"),
    KA_FN(text_in, "a"), KA_FN(view_in, "a"), KA_FN(view_in_by_reference, "a"), KA_FN(string_changed, "a"),
    KA_FN(strings_changed, "a"), KA_FN(views, "a"),
    KA_FN(rest, "first", "rest"), KA_FN(sum_of_rest, "sum", "rest"),
    KA_FN(double_rest, "rest"), KA_FN(integer_of_rest, "rest"), KA_FN(text_of_rest, "rest"), KA_FN(nothing),
    KA_FN(no_result), KA_FN(integer_out), KA_FN(real_out), KA_FN(exact_out), KA_FN(string_out), KA_FN(view_out, "a"),
    KA_FN(text_out, "is_null"), KA_FN(constant_out), KA_FN_STATUS(old_status, "a"),
    KA_FN(result_behind, "a", "b", "c", ka::result("sum")),
    KA_FN_AS("of_integer", (static_cast<int (*)(int)>(overloaded)), "a"),
    KA_FN_AS("of_real", (static_cast<double (*)(double)>(overloaded)), "a"),
    KA_FN_AS("TWICE it!", twice<std::int32_t>, "a"), KA_FN(never_throws, "a"), KA_FN(Account::number, "a"),
    KA_FN(bank::rates::rate, "a"), KA_FN(name), KA_FN(words), KA_FN(tables), KA_FN(type),
    KA_FN(forty_nine, TEN("a"), TEN("b"), TEN("c"), TEN("d"), "0", "1", "2", "3", "4", "5", "6", "7", "8"))
// clang-format on

double bank::rates::rate(double a)
{
    return a / 100;
}
