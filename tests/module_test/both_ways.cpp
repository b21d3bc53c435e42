// SPDX-License-Identifier: MIT
//
// Random calls of one module, in a host process and in this process: codes, values and lengths are the same. KA_SEED
// repeats a run, KA_CALLS sets the number of calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ka/caller.h"
#include "ka/dll_module.h"
#include "ka/module_test.h"
#include "module_bits.h"

namespace {

std::uint64_t setting(const char *name, std::uint64_t otherwise)
{
    const char *const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

// An argument, and what it is after the call.
struct Argument {
    std::int32_t form = KA_TEST_INT32;
    std::int32_t by_reference = 0;
    std::int32_t room = 0;
    std::int32_t elsz = 0;
    std::int32_t shift = 0;
    std::int32_t count = 1; // may be below 0
    std::vector<std::int32_t> integers = {};
    std::vector<double> doubles = {};
    std::vector<t_DECIMAL> reals = {};
    std::vector<std::string> texts = {};
    std::int32_t gives_back = 0;

    bool is_unusual() const { return elsz != 0 || shift != 0; }
    std::int32_t elements() const { return std::max(count, 0); }
};

std::string bytes_of(const void *data, std::size_t size)
{
    return {static_cast<const char *>(data), size};
}

template <typename T>
std::string bytes_of(const std::vector<T> &values)
{
    return bytes_of(values.data(), values.size() * sizeof(T));
}

std::string shown(const Argument &a)
{
    std::string text = "form " + std::to_string(a.form) + " back " + std::to_string(a.gives_back) + ":";
    for (const unsigned char c : bytes_of(a.integers) + bytes_of(a.doubles) + bytes_of(a.reals))
        text += " " + std::to_string(c);
    for (const std::string &each : a.texts)
        text += " '" + each + "'";
    return text;
}

struct Call {
    std::string function = "nothing";
    std::vector<Argument> arguments = {};
    std::vector<std::int32_t> asked = {};
    std::int32_t code = 0;
};

std::int32_t answer(std::int32_t value)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value) * 5u + 3u);
}

// ---- Random calls ------------------------------------------------------------------------------------------------

class Calls {
public:
    explicit Calls(std::uint64_t seed) : random_(seed) {}

    Call next()
    {
        static const struct {
            const char *name;
            std::vector<std::int32_t> kinds;
        } functions[] = {{"scalars", {1, 2, 4, 5, 7, 8}},
                         {"arrays", {3, 6, 9}},
                         {"rest", {1, 0}},
                         {"nothing", {}},
                         {"any", {0}},
                         {"asks", {2, 0}},
                         {"missing", {1}}};
        const auto &function = functions[below(7)];
        Call call;
        call.function = function.name;
        for (const std::int32_t kind : function.kinds) {
            const std::int32_t several = kind == KA_VARARG ? below(percent(2) ? 53 : 5) : percent(98) ? 1 : 0;
            for (std::int32_t i = 0; i < several; i++)
                call.arguments.push_back(argument(kind));
        }
        if (percent(2)) call.arguments.push_back(argument(KA_VARARG));
        return call;
    }

private:
    std::int32_t below(std::int32_t limit)
    {
        return static_cast<std::int32_t>(random_() % static_cast<std::uint64_t>(limit));
    }
    bool percent(std::int32_t chance) { return below(100) < chance; }

    std::int32_t form_for(std::int32_t kind)
    {
        const std::int32_t any = 1 + below(4);
        if (percent(3) || kind == KA_VARARG) return any;
        if (kind >= KA_ZSTRING) return KA_TEST_STRING;
        if (kind >= KA_REAL_BY_REFERENCE) return 2 + below(2);
        if (kind == KA_INT_BY_VALUE || kind == KA_REAL_BY_VALUE) return 1 + below(3);
        return KA_TEST_INT32;
    }
    t_DECIMAL real()
    {
        t_DECIMAL made = {};
        made.dec_pos = percent(50) ? DEC_POSITIVE : DEC_NEGATIVE;
        if (percent(5)) return made;
        const bool any = percent(10);
        made.dec_exp =
            static_cast<std::int16_t>(any ? DEC_EXP_MIN + below(DEC_EXP_MAX - DEC_EXP_MIN + 1) : below(20) - 9);
        made.dec_ndgts = static_cast<std::int8_t>(1 + below(8));
        for (int i = 0; i < made.dec_ndgts; i++)
            made.dec_dgts[i] = static_cast<std::uint8_t>(below(100));
        for (const int end : {0, made.dec_ndgts - 1})
            made.dec_dgts[end] = static_cast<std::uint8_t>(1 + below(99));
        return made;
    }
    double number()
    {
        if (percent(20)) return below(1000);
        return static_cast<double>(static_cast<std::int64_t>(random_())) * std::pow(10.0, below(40) - 30);
    }
    std::string text()
    {
        std::string made(static_cast<std::size_t>(below(10)), ' ');
        for (char &c : made)
            c = static_cast<char>(percent(90) ? 'a' + below(26) : below(256));
        return made;
    }

    Argument argument(std::int32_t kind)
    {
        Argument a;
        a.form = form_for(kind);
        a.by_reference = percent(60);
        a.count = percent(60) ? 1 : percent(3) ? -below(3) : below(5);
        for (std::int32_t k = 0; k < a.count; k++) {
            if (a.form == KA_TEST_INT32) a.integers.push_back(static_cast<std::int32_t>(random_()));
            if (a.form == KA_TEST_DOUBLE) a.doubles.push_back(number());
            if (a.form == KA_TEST_REAL) a.reals.push_back(real());
            if (a.form == KA_TEST_STRING) a.texts.push_back(text());
        }
        for (const std::string &each : a.texts)
            a.room = std::max(a.room, static_cast<std::int32_t>(each.size()));
        if (!a.texts.empty() && percent(50)) a.room += 1 + below(7);
        if (a.form != KA_TEST_DOUBLE && a.room + a.count > 0 && percent(20)) {
            const std::int32_t least = a.form == KA_TEST_INT32  ? 1
                                       : a.form == KA_TEST_REAL ? 3
                                                                : 1 + (a.room + 3) / 4;
            a.elsz = least + below(4);
            a.shift = below(4);
        }
        return a;
    }

    std::mt19937_64 random_;
};

// ---- In this process ---------------------------------------------------------------------------------------------

std::int32_t keep_and_answer(std::int32_t value, void *user)
{
    static_cast<Call *>(user)->asked.push_back(value);
    return answer(value);
}

// The characters of the strings, with their room, and the records of them.
struct Strings {
    explicit Strings(const Argument &a)
    {
        for (const std::string &text : a.texts) {
            rooms.push_back(text);
            rooms.back().resize(static_cast<std::size_t>(a.room));
        }
        for (std::size_t k = 0; k < rooms.size(); k++)
            records.push_back({a.room, static_cast<std::int32_t>(a.texts[k].size()), rooms[k].data()});
    }
    std::vector<std::string> rooms = {};
    std::vector<KaStr> records = {};
};

class Here {
public:
    explicit Here(std::int32_t layout)
    {
        ka_test_settings settings;
        ka_test_settings_init(&settings);
        settings.layout = layout;
        test_ = ka_test_open(&settings);
    }
    ~Here() { ka_test_close(test_); }
    Here(const Here &) = delete;
    Here &operator=(const Here &) = delete;

    void make(Call &call)
    {
        ka_test_settings_of(test_)->callback = keep_and_answer;
        ka_test_settings_of(test_)->user = &call;
        std::vector<Strings> strings;
        for (const Argument &a : call.arguments)
            strings.emplace_back(a);
        std::vector<ka_test_argument> given;
        for (std::size_t i = 0; i < call.arguments.size(); i++)
            given.push_back(argument(call.arguments[i], strings[i]));
        given.push_back({});
        call.code = ka_test_send(test_, call.function.c_str(), given.data());
        for (std::size_t i = 0; i < call.arguments.size(); i++) {
            Argument &a = call.arguments[i];
            a.gives_back = given[i].gives_back;
            for (std::size_t k = 0; a.gives_back != 0 && k < a.texts.size(); k++)
                a.texts[k].assign(strings[i].records[k].data, static_cast<std::size_t>(strings[i].records[k].len));
        }
    }
    std::uint32_t scratch() const { return *static_cast<std::uint32_t *>(ka_test_scratch(test_)); }

private:
    static ka_test_argument argument(Argument &a, Strings &strings)
    {
        ka_test_argument made = {};
        made.form = a.form;
        made.by_reference = a.by_reference;
        made.count = a.count;
        made.elsz = a.elsz;
        made.shift = a.shift;
        if (a.form == KA_TEST_INT32) made.values = a.integers.data();
        if (a.form == KA_TEST_DOUBLE) made.values = a.doubles.data();
        if (a.form == KA_TEST_REAL) made.values = a.reals.data();
        if (a.form == KA_TEST_STRING) made.values = strings.records.data();
        return made;
    }

    ka_test *test_;
};

// ---- In a host process -------------------------------------------------------------------------------------------

// The bytes of an argument that the library cannot place: it is sent as a string whose room they are.
std::string placed(const Argument &a)
{
    const std::size_t stride = static_cast<std::size_t>(a.elsz) * 4;
    std::string bytes(8 + stride * static_cast<std::size_t>(a.elements()), '\0');
    for (std::size_t k = 0; k < static_cast<std::size_t>(a.elements()); k++) {
        std::string element;
        if (a.form == KA_TEST_INT32) element = bytes_of(&a.integers[k], 4);
        if (a.form == KA_TEST_REAL) element = bytes_of(&a.reals[k], sizeof a.reals[k]);
        if (a.form == KA_TEST_STRING) {
            const auto length = static_cast<std::int32_t>(a.texts[k].size());
            element = bytes_of(&length, 4) + a.texts[k];
        }
        bytes.replace(static_cast<std::size_t>(a.shift) + k * stride, element.size(), element);
    }
    return bytes;
}

void take_placed(Argument &a, const std::string &bytes)
{
    for (std::size_t k = 0; k < static_cast<std::size_t>(a.elements()); k++) {
        const char *const at =
            bytes.data() + static_cast<std::size_t>(a.shift) + k * static_cast<std::size_t>(a.elsz) * 4;
        if (a.form == KA_TEST_INT32) std::memcpy(&a.integers[k], at, 4);
        if (a.form == KA_TEST_REAL) std::memcpy(&a.reals[k], at, sizeof a.reals[k]);
        if (a.form == KA_TEST_STRING) {
            std::int32_t length;
            std::memcpy(&length, at, 4);
            a.texts[k].assign(at + 4, static_cast<std::size_t>(std::clamp(length, 0, a.room)));
        }
    }
}

// Not null where there are no elements.
template <typename T>
T *first_of(std::vector<T> &values)
{
    static T none{};
    return values.empty() ? &none : values.data();
}

class There {
public:
    explicit There(std::int32_t layout)
    {
        ka_options options;
        ka_options_init(&options, sizeof options);
        options.layout = layout == 64 ? KA_LAYOUT_64 : KA_LAYOUT_NATIVE;
        options.checking = KA_RAW;
        options.user = this;
        options.callback = [](ka_host *, std::int32_t value, void *user) {
            return keep_and_answer(value, static_cast<There *>(user)->call_);
        };
        ka_open(&host_, (module_folder(CALLER_MODULES) + "/caller_module_changes").c_str(), &options);
    }
    ~There() { ka_close(host_); }
    There(const There &) = delete;
    There &operator=(const There &) = delete;

    void make(Call &call)
    {
        call_ = &call;
        ka_begin(host_, call.function.c_str());
        const std::size_t sent = std::min(call.arguments.size(), std::size_t{DLL_MAX_ARGS});
        for (std::size_t i = 0; i < sent; i++)
            add(call.arguments[i], static_cast<std::int32_t>(i) + 1);
        if (sent < call.arguments.size()) ka_set_argc(host_, static_cast<std::int32_t>(call.arguments.size()) + 1);
        ASSERT_EQ(ka_call(host_, &call.code), KA_DONE) << ka_last_error(host_)->message;
        for (std::size_t i = 0; i < sent; i++)
            take(call.arguments[i], static_cast<std::int32_t>(i) + 1);
    }
    std::uint32_t scratch() const { return *static_cast<std::uint32_t *>(ka_scratch(host_, nullptr)); }

private:
    void add(Argument &a, std::int32_t number)
    {
        std::vector<ka_text> texts;
        for (const std::string &text : a.texts)
            texts.push_back({text.data(), static_cast<std::int32_t>(text.size())});
        const std::int32_t count = a.elements();
        if (a.is_unusual()) {
            const std::string bytes = placed(a);
            ka_add_string(host_, bytes.data(), static_cast<std::int32_t>(bytes.size()), 0, KA_BY_REFERENCE);
        } else if (a.form == KA_TEST_INT32) {
            ka_add_integers(host_, first_of(a.integers), count, a.by_reference);
        } else if (a.form == KA_TEST_DOUBLE) {
            ka_add_doubles(host_, first_of(a.doubles), count, a.by_reference);
        } else if (a.form == KA_TEST_REAL) {
            ka_add_reals(host_, first_of(a.reals), count, a.by_reference);
        } else {
            ka_add_strings(host_, first_of(texts), count, a.room, a.by_reference);
        }
        if (!a.is_unusual() && a.count >= 0) return;
        ka_descriptor descriptor;
        ASSERT_EQ(ka_get_descriptor(host_, number, &descriptor), KA_DONE) << ka_last_error(host_)->message;
        descriptor.elcnt = a.count;
        if (a.is_unusual()) {
            descriptor.type = a.form == KA_TEST_INT32    ? DLL_INTEGER
                              : a.form == KA_TEST_STRING ? DLL_STRING
                                                         : DLL_REAL;
            descriptor.ref = a.by_reference;
            descriptor.offset += 4 + a.shift;
            descriptor.maxlen = a.count > 0 ? a.room : 0;
            descriptor.elsz = a.elsz;
        }
        ka_set_descriptor(host_, number, &descriptor);
    }

    void take(Argument &a, std::int32_t number)
    {
        a.gives_back = ka_gives_back(host_, number);
        if (a.gives_back == 0) return;
        std::int32_t length = 0;
        if (a.is_unusual()) {
            std::string bytes = placed(a);
            ka_get_string(host_, number, 0, bytes.data(), static_cast<std::int32_t>(bytes.size()), &length);
            return take_placed(a, bytes);
        }
        const std::int32_t count = a.elements();
        if (a.form == KA_TEST_INT32) ka_get_integers(host_, number, first_of(a.integers), count);
        if (a.form == KA_TEST_DOUBLE) ka_get_doubles(host_, number, first_of(a.doubles), count);
        if (a.form == KA_TEST_REAL) ka_get_reals(host_, number, first_of(a.reals), count);
        for (std::int32_t k = 0; a.form == KA_TEST_STRING && k < count; k++) {
            std::string &text = a.texts[static_cast<std::size_t>(k)];
            ka_get_string(host_, number, k, nullptr, 0, &length);
            text.resize(static_cast<std::size_t>(length));
            ka_get_string(host_, number, k, text.data(), length, &length);
        }
    }

    ka_host *host_ = nullptr;
    Call *call_ = nullptr;
};

void compare_random_calls(std::int32_t layout)
{
    const std::uint64_t seed = setting("KA_SEED", std::random_device()());
    const std::uint64_t calls = setting("KA_CALLS", 10000) / 2; // in each layout
    std::cout << "KA_SEED=" << seed << " KA_CALLS=" << 2 * calls << std::endl;
    testing::Test::RecordProperty("seed", std::to_string(seed));
    Calls random(seed);
    Here here(layout);
    There there(layout);
    std::uint64_t called = 0, asked = 0, refused[3] = {};
    for (std::uint64_t i = 0; i < calls && !testing::Test::HasFatalFailure(); i++) {
        Call one = random.next();
        Call other = one;
        here.make(one);
        there.make(other);
        const std::string which =
            "call " + std::to_string(i) + " of " + one.function + ", KA_SEED=" + std::to_string(seed);
        ASSERT_EQ(one.code, other.code) << which;
        ASSERT_EQ(one.asked, other.asked) << which;
        ASSERT_EQ(here.scratch(), there.scratch()) << which;
        for (std::size_t n = 0; one.code != KA_TOO_MANY_ARGS && n < one.arguments.size(); n++)
            ASSERT_EQ(shown(one.arguments[n]), shown(other.arguments[n])) << which << ", argument " << n + 1;
        refused[0] += one.code == KA_WRONG_TYPE;
        refused[1] += one.code == KA_WRONG_COUNT;
        refused[2] += one.code == KA_TOO_FEW_ELEMENTS;
        called += one.code > KA_TOO_MANY_ARGS;
        asked += one.asked.size();
    }
    if (calls < 1000) return;
    EXPECT_GT(called, calls / 3);
    EXPECT_GT(asked, calls / 20);
    for (const std::uint64_t each : refused)
        EXPECT_GT(each, 0u);
}

TEST(BothWays, random_calls_do_the_same_in_layout_32)
{
    compare_random_calls(32);
}

TEST(BothWays, random_calls_do_the_same_in_layout_64)
{
    compare_random_calls(64);
}

} // namespace
