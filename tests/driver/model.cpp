// SPDX-License-Identifier: MIT
#include "driver/model.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace driver {
namespace {

enum Conversion { REFUSED, IN_BLOCK, DOUBLES_OF_INTS, INTS_OF_REALS, DOUBLES, TEXT, RECORDS };

struct Kind {
    Conversion by_type[3]; // INTEGER, REAL, STRING
    bool array;
    bool goes_back;
};

// clang-format off
const Kind kinds[] = {
    //                   INTEGER          REAL           STRING      array  goes back
    /* VarArg          */ {{IN_BLOCK,        DOUBLES,       RECORDS}, false, true},
    /* IntByValue      */ {{IN_BLOCK,        INTS_OF_REALS, REFUSED}, false, false},
    /* IntByReference  */ {{IN_BLOCK,        REFUSED,       REFUSED}, false, true},
    /* IntArray        */ {{IN_BLOCK,        REFUSED,       REFUSED}, true,  true},
    /* RealByValue     */ {{DOUBLES_OF_INTS, DOUBLES,       REFUSED}, false, false},
    /* RealByReference */ {{REFUSED,         DOUBLES,       REFUSED}, false, true},
    /* RealArray       */ {{REFUSED,         DOUBLES,       REFUSED}, true,  true},
    /* zString         */ {{REFUSED,         REFUSED,       TEXT},    false, false},
    /* String          */ {{REFUSED,         REFUSED,       RECORDS}, false, true},
    /* StringArray     */ {{REFUSED,         REFUSED,       RECORDS}, true,  true},
};
// clang-format on

struct Record {
    int32_t len;
    int32_t at; // offset of the characters
};

// An argument between conversion and giving back.
struct Slot {
    Conversion conversion;
    std::vector<double> doubles = {};
    std::vector<int32_t> ints = {};
    std::vector<Record> records = {};
    std::string text = {};
};

__attribute__((format(printf, 1, 2))) std::string print(const char *format, ...)
{
    char text[200];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string quoted(const char *from, size_t count)
{
    std::string text = "\"";
    for (size_t i = 0; i < count; i++) {
        const auto c = static_cast<unsigned char>(from[i]);
        text += std::isprint(c) ? std::string(1, from[i]) : print("\\%02x", c);
    }
    return text + "\"";
}

int32_t edited(int32_t value)
{
    return static_cast<int32_t>(2 * static_cast<uint32_t>(value) + 1);
}

class Call {
public:
    explicit Call(Block &block) : block_(block) {}
    Outcome run(const std::vector<Step> &script, const std::vector<int32_t> &answers);

private:
    int field(int n, Arg which) const { return static_cast<int>(block_.get(n, which)); }
    int32_t start(int n) const { return block_.offset_of(block_.get(n, Arg::ptr)); }
    int32_t element(int n, int32_t k) const { return start(n) + 4 * k * field(n, Arg::elsz); }

    int32_t find();
    int32_t match();
    int32_t match_one(const t_DLL_PROTO &proto, int n);
    int32_t convert(Conversion conversion, int n);
    Slot make(Conversion conversion, int n) const;
    void perform(const std::vector<Step> &script, const std::vector<int32_t> &answers);
    void see();
    std::string seen(int n) const;
    void edit();
    void edit_record(int n, Record &record);
    void give_back();

    Block &block_;
    const Function *function_ = nullptr;
    int arguments_ = 0;
    std::vector<const t_DLL_PROTO *> matched_; // prototype of each argument
    std::vector<Slot> slots_;
    Outcome outcome_;
};

int32_t Call::find()
{
    const int64_t argc = block_.get(Head::argc);
    if (argc <= 0) return KA_WRONG_COUNT;
    if (argc > 51) return KA_TOO_MANY_ARGS;
    if (field(0, Arg::type) != DLL_STRING) return KA_WRONG_TYPE;
    const auto length = block_.load<int32_t>(start(0));
    if (length < 0) return KA_NO_FUNCTION;
    for (function_ = functions; function_->name != nullptr; function_++) {
        const std::string_view name = function_->name;
        if (static_cast<int32_t>(name.size()) != length) continue;
        if (name == std::string_view(block_.at(start(0) + 4), name.size())) break;
    }
    arguments_ = static_cast<int>(argc) - 1;
    return function_->name == nullptr ? KA_NO_FUNCTION : KA_OK;
}

int32_t Call::match()
{
    int position = 0;
    for (int n = 1; n <= arguments_; n++) {
        if (position >= function_->count) return KA_WRONG_COUNT; // one argument too many
        matched_.push_back(&function_->prototypes[position]);
        const int32_t code = match_one(*matched_.back(), n);
        if (code != KA_OK) return code;
        if (matched_.back()->type != 0) position++;
    }
    if (position == function_->count || function_->prototypes[position].type == 0) return KA_OK;
    return KA_WRONG_COUNT; // too few
}

int32_t Call::match_one(const t_DLL_PROTO &proto, int n)
{
    if (proto.type < 0 || proto.type > 9) return KA_BAD_PROTOTYPE;
    const Kind &kind = kinds[proto.type];
    const int elcnt = field(n, Arg::elcnt);
    if (kind.array && (elcnt < 0 || elcnt < proto.min_elcnt)) return KA_TOO_FEW_ELEMENTS;
    const int type = field(n, Arg::type);
    if (type < 1 || type > 3 || kind.by_type[type - 1] == REFUSED) return KA_WRONG_TYPE;
    return convert(kind.by_type[type - 1], n);
}

int32_t Call::convert(Conversion conversion, int n)
{
    if (conversion == TEXT && block_.load<int32_t>(start(n)) < 0) return KA_NO_MEMORY;
    if (conversion != TEXT && conversion != IN_BLOCK) {
        const int elcnt = field(n, Arg::elcnt);
        if (elcnt < 0 || elcnt > 0x10000000) return KA_NO_MEMORY;
    }
    slots_.push_back(make(conversion, n));
    return KA_OK;
}

Slot Call::make(Conversion conversion, int n) const
{
    Slot slot = {.conversion = conversion};
    if (conversion == TEXT) slot.text = {block_.at(start(n) + 4), block_.load<uint32_t>(start(n))};
    for (int32_t k = 0; conversion != TEXT && conversion != IN_BLOCK && k < field(n, Arg::elcnt); k++) {
        const int32_t at = element(n, k);
        if (conversion == RECORDS)
            slot.records.push_back({block_.load<int32_t>(at), at + 4});
        else if (conversion == DOUBLES_OF_INTS)
            slot.doubles.push_back(block_.load<int32_t>(at));
        else if (conversion == DOUBLES)
            slot.doubles.push_back(double_of(block_.load<t_DECIMAL>(at)));
        else
            slot.ints.push_back(integer_of(block_.load<t_DECIMAL>(at)));
    }
    return slot;
}

std::string Call::seen(int n) const
{
    const Slot &slot = slots_[static_cast<size_t>(n) - 1];
    std::string text;
    if (slot.conversion == TEXT) return "text " + quoted(slot.text.c_str(), slot.text.size() + 1);
    if (slot.conversion == IN_BLOCK) {
        text = "block" + print("%+d", start(n));
        for (int32_t k = 0; k < field(n, Arg::elcnt); k++)
            text += print(" %d", block_.load<int32_t>(element(n, k)));
        return text;
    }
    text = slot.conversion == RECORDS ? "records" : slot.conversion == INTS_OF_REALS ? "ints" : "doubles";
    for (const double value : slot.doubles)
        text += print(" %.17g", value);
    for (const int32_t value : slot.ints)
        text += print(" %d", value);
    for (const Record &record : slot.records) {
        text += print(" %d/%d%+d", record.len, field(n, Arg::maxlen), record.at);
        text += quoted(block_.at(record.at), static_cast<size_t>(record.len));
    }
    return text;
}

void Call::see()
{
    outcome_.said += print("%s #%d\n", function_->name, static_cast<int>(function_ - functions));
    for (int n = 1; n <= arguments_; n++)
        outcome_.said += print("%d: ", n) + seen(n) + "\n";
}

void Call::edit_record(int n, Record &record)
{
    if (record.len < field(n, Arg::maxlen))
        *block_.at(record.at + record.len++) = '+';
    else if (record.len > 0)
        record.len--;
    if (record.len > 0) *block_.at(record.at) = 'E';
}

void Call::edit()
{
    for (int n = 1; n <= arguments_; n++) {
        Slot &slot = slots_[static_cast<size_t>(n) - 1];
        for (double &value : slot.doubles)
            value *= 2;
        for (int32_t &value : slot.ints)
            value = edited(value);
        for (Record &record : slot.records)
            edit_record(n, record);
        slot.text.assign(slot.text.size(), 'X');
        for (int32_t k = 0; slot.conversion == IN_BLOCK && k < field(n, Arg::elcnt); k++)
            block_.store(element(n, k), edited(block_.load<int32_t>(element(n, k))));
    }
}

void Call::perform(const std::vector<Step> &script, const std::vector<int32_t> &answers)
{
    for (const Step &step : script) {
        if (step.op == SEE) {
            see();
        } else if (step.op == EDIT) {
            edit();
        } else if (step.op == RETURN) {
            outcome_.code = step.a;
        } else if (step.op == CALL_BACK) {
            block_.set(Head::cbval, step.a);
            outcome_.said += print("answer %d\n", answers.at(outcome_.cbvals.size()));
            outcome_.cbvals.push_back(step.a);
        } else {
            throw std::logic_error("the model does not know this step");
        }
    }
}

void Call::give_back()
{
    for (int n = 1; n <= arguments_; n++) {
        const Slot &slot = slots_[static_cast<size_t>(n) - 1];
        if (field(n, Arg::ref) == 0) continue;
        if (!kinds[matched_[static_cast<size_t>(n) - 1]->type].goes_back) {
            block_.set(n, Arg::ref, 0);
            continue;
        }
        for (size_t k = 0; k < slot.records.size(); k++)
            block_.store(element(n, static_cast<int32_t>(k)), slot.records[k].len);
        for (size_t k = 0; k < slot.doubles.size(); k++)
            block_.store(element(n, static_cast<int32_t>(k)), real_of(slot.doubles[k]));
    }
}

Outcome Call::run(const std::vector<Step> &script, const std::vector<int32_t> &answers)
{
    outcome_.code = find();
    if (outcome_.code == KA_OK) outcome_.code = match();
    outcome_.called = outcome_.code == KA_OK;
    if (outcome_.called) {
        perform(script, answers);
        give_back();
    }
    block_.set(Head::retcode, outcome_.code);
    return outcome_;
}

} // namespace

Outcome predict(Block &block, const std::vector<Step> &script, const std::vector<int32_t> &answers)
{
    return Call(block).run(script, answers);
}

std::string difference(const Block &block, const Block &expected, int32_t limit)
{
    if (limit == 0) limit = block.size();
    if (std::memcmp(block.at(0), expected.at(0), static_cast<size_t>(limit)) == 0) return "";
    for (int32_t i = 0; i < limit; i++) {
        if (*block.at(i) == *expected.at(i)) continue;
        const int32_t word = i / 4 * 4;
        return print("word at %d is %08x, expected %08x", word, block.load<uint32_t>(word),
                     expected.load<uint32_t>(word));
    }
    return "";
}

} // namespace driver
