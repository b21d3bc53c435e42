// SPDX-License-Identifier: MIT
#include "driver/random_call.h"

#include <algorithm>
#include <cstdlib>

#include "ka/decimal.h"

namespace driver {

uint64_t setting(const char *name, uint64_t otherwise)
{
    const char *text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

int32_t RandomCalls::below(int32_t limit)
{
    return static_cast<int32_t>(random_() % static_cast<uint64_t>(limit));
}

int32_t RandomCalls::any()
{
    const auto value = static_cast<int32_t>(random_());
    return percent(50) ? value % 1000 : value;
}

// A value type that the kind takes, as a rule.
int32_t RandomCalls::type_for(int32_t kind)
{
    if (percent(4)) return below(6) - 1;
    switch (kind) {
    case KA_INT_BY_REFERENCE:
    case KA_INT_ARRAY:
        return DLL_INTEGER;
    case KA_REAL_BY_REFERENCE:
    case KA_REAL_ARRAY:
        return DLL_REAL;
    case KA_ZSTRING:
    case KA_STRING:
    case KA_STRING_ARRAY:
        return DLL_STRING;
    case KA_VARARG:
        return 1 + below(3);
    default:
        return 1 + below(2);
    }
}

int32_t RandomCalls::count_for(const t_DLL_PROTO &proto, bool many)
{
    const bool array = proto.type == KA_INT_ARRAY || proto.type == KA_REAL_ARRAY || proto.type == KA_STRING_ARRAY;
    const int32_t least = array && percent(90) ? std::max(proto.min_elcnt, 0) : 0;
    if (percent(40)) return std::max(least, 1);
    return least + (!many && percent(10) ? below(40) : below(6));
}

std::string RandomCalls::text()
{
    std::string made(static_cast<size_t>(below(13)), ' ');
    for (char &c : made)
        c = static_cast<char>(percent(80) ? 'a' + below(26) : below(256));
    return made;
}

// In normal form or zero; digit bytes after the last hold anything.
t_DECIMAL RandomCalls::real()
{
    t_DECIMAL made = {};
    made.dec_pos = percent(50) ? DEC_POSITIVE : DEC_NEGATIVE;
    for (uint8_t &digit : made.dec_dgts)
        digit = static_cast<uint8_t>(below(256));
    if (percent(5)) return made;
    made.dec_exp = static_cast<int16_t>(below(20) - 9);
    made.dec_ndgts = static_cast<int8_t>(1 + below(6));
    for (int i = 0; i < made.dec_ndgts; i++)
        made.dec_dgts[i] = static_cast<uint8_t>(percent(20) ? 0 : below(100));
    for (const int end : {0, made.dec_ndgts - 1})
        made.dec_dgts[end] = static_cast<uint8_t>(1 + below(99));
    return made;
}

Argument RandomCalls::values(int32_t type, int32_t count)
{
    const auto fill = [count](auto &&one) {
        std::vector<decltype(one())> made;
        for (int32_t i = 0; i < count; i++)
            made.push_back(one());
        return made;
    };
    if (type == DLL_REAL) return harness::reals(fill([this] { return real(); }));
    if (type == DLL_STRING) {
        const std::vector<std::string> texts = fill([this] { return text(); });
        Argument made = harness::strings(texts);
        if (!percent(30)) return made;
        return harness::strings(texts, std::max(0, made.maxlen + below(9) - 2));
    }
    Argument made = harness::integers(fill([this] { return any(); }));
    made.type = type;
    return made;
}

Argument RandomCalls::argument(const t_DLL_PROTO &proto, bool many)
{
    Argument made = values(type_for(proto.type), count_for(proto, many));
    if (percent(50)) made.ref = percent(80) ? 1 : any();
    if (percent(20)) made.elsz += below(4);
    if (percent(30)) made.shift = below(4);
    return made;
}

void RandomCalls::add_steps(Call &call)
{
    if (percent(90)) call.script.push_back(step(SEE));
    for (int32_t count = percent(10) ? 1 + below(3) : 0; count > 0; count--) {
        call.script.push_back(step(CALL_BACK, any()));
        call.answers.push_back(any());
    }
    if (percent(70)) call.script.push_back(step(EDIT));
    if (percent(30)) call.script.push_back(step(SEE));
    call.script.push_back(step(RETURN, any()));
}

RandomCalls::Call RandomCalls::next()
{
    const Function &function = functions[below(function_count)];
    Call call = {.function = function.name};
    const bool many = percent(3); // arguments; then few elements each
    const int32_t most = many ? 53 : 8;
    for (int32_t n = 0, position = 0; n < most; n++) {
        const t_DLL_PROTO &proto = function.prototypes[std::min(position, row_prototypes - 1)];
        const bool behind = position >= function.count;
        if ((behind || proto.type == KA_VARARG) ? !percent(many ? 98 : behind ? 3 : 70) : percent(2)) break;
        call.arguments.push_back(argument(proto, many));
        if (!behind && proto.type != KA_VARARG) position++;
    }
    if (percent(2)) call.function += percent(50) ? "x" : std::string(1, '\0');
    add_steps(call);
    return call;
}

bool RandomCalls::spoil(Block &block, const Call &call)
{
    if (!percent(4)) return false;
    const int32_t hostile[] = {-1, INT32_MIN, INT32_MAX, 0x20000000 + below(1000)};
    const int32_t value = hostile[below(4)];
    switch (below(call.arguments.empty() ? 3 : 6)) {
    case 0:
        block.set(Head::argc, -below(3));
        break;
    case 1:
        block.set(0, Arg::type, below(3));
        break;
    case 2:
        block.store(block.offset_of(block.get(0, Arg::ptr)), value);
        break;
    default:
        block.set(1 + below(static_cast<int32_t>(call.arguments.size())), Arg::elcnt, value);
        break;
    }
    return true;
}

} // namespace driver
