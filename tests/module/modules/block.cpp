// SPDX-License-Identifier: MIT
//
// Functions that work on what lies in the block: strings and arrays, changed in every way. It is built with several
// levels of optimization and with the sanitizer of undefined behaviour.
#include <algorithm>
#include <ka/module.hpp>
#include <numeric>

namespace {

// ---- Arrays of INTEGERs ------------------------------------------------------------------------------------------

void twice(ka::array<std::int32_t> values)
{
    for (ka::integer &x : values)
        x *= 2;
}

std::int32_t total(ka::array<std::int32_t, 0> values)
{
    return std::accumulate(values.begin(), values.end(), 0);
}

void sort(ka::array<std::int32_t> values)
{
    std::sort(values.begin(), values.end());
}

// Every operator, each on an element of its own.
void every_operator(ka::array<std::int32_t, 14> values)
{
    values[0] += 2;
    values[1] -= 2;
    values[2] *= 2;
    values[3] /= 2;
    values[4] %= 2;
    values[5] &= 2;
    values[6] |= 2;
    values[7] ^= 2;
    values[8] <<= 2;
    values[9] >>= 2;
    ++values[10];
    --values[11];
    values[12] = values[13]++ + values[13]--;
}

void change(std::int32_t &value)
{
    value = -value;
}

// ---- Other arrays ------------------------------------------------------------------------------------------------

void sort_reals(ka::array<double> values)
{
    std::sort(values.begin(), values.end(), [](double a, double b) { return a > b; });
}

void sort_texts(ka::array<ka::string> values)
{
    std::sort(values.begin(), values.end());
}

void reverse_texts(ka::array<ka::string> values)
{
    std::reverse(values.begin(), values.end());
}

// By walking in each way that an iterator can.
ka::code walk(ka::array<std::string_view> texts, ka::string out)
{
    out = *texts.begin();
    for (auto i = texts.end(); i != texts.begin();)
        out += *--i;
    const auto first = texts.begin(), last = texts.end() - 1;
    if (last - first + 1 != static_cast<std::ptrdiff_t>(texts.size())) return ka::own<1001>;
    if (first->size() != first[0].size() || !(first <= last) || last < first) return ka::own<1002>;
    if (*(1 + first - 1) != *first) return ka::own<1003>;
    return ka::ok;
}

// ---- Strings -----------------------------------------------------------------------------------------------------

void assign(ka::string out, std::string_view text)
{
    out = text;
}
void append(ka::string out, std::string_view text)
{
    out += text;
}
void behead(ka::string out)
{
    out = out.view().substr(1);
}
void repeat(ka::string out)
{
    out.append(out);
}
void shift(ka::string out)
{
    out.append(out.view().substr(0, out.size() - 1));
}
void resize(ka::string out, std::int32_t size)
{
    out.resize(static_cast<std::size_t>(size));
}
void spell(ka::string out)
{
    out.clear();
    for (char c = 'a'; out.size() < out.room(); c++)
        out += c;
}
std::int32_t room(ka::string out)
{
    return static_cast<std::int32_t>(out.room());
}
bool is_kept(const ka::string &out, const std::string &before, std::size_t size)
{
    return out == before && out.size() == size;
}
ka::code try_to_assign(ka::string out, std::string_view text)
{
    const std::string before(out);
    const std::size_t size = out.size();
    if (out.try_assign(text)) return out == text ? ka::ok : ka::own<1001>;
    return is_kept(out, before, size) ? ka::own<1002> : ka::own<1003>;
}
ka::code compare(ka::string a, ka::string b)
{
    if ((a == b) == (a != b) || (a < b) != (b > a) || (a <= b) == (b < a) || (a >= b) != !(a < b))
        return ka::own<1001>;
    const std::string copy = a;
    if (a != copy || copy != a || a < copy || !(a == a.view())) return ka::own<1002>;
    return a == "same" ? ka::own<1003> : a < b ? ka::own<1004> : ka::ok;
}

} // namespace

KA_MODULE(KA_FN(twice, "values"), KA_FN(total, "values"), KA_FN(sort, "values"), KA_FN(every_operator, "values"),
          KA_FN(change, "value"), KA_FN(sort_reals, "values"), KA_FN(sort_texts, "values"),
          KA_FN(reverse_texts, "values"), KA_FN(walk, "texts", "out"), KA_FN(assign, "out", "text"),
          KA_FN(append, "out", "text"), KA_FN(behead, "out"), KA_FN(repeat, "out"), KA_FN(shift, "out"),
          KA_FN(resize, "out", "size"), KA_FN(spell, "out"), KA_FN(room, "out"), KA_FN(try_to_assign, "out", "text"),
          KA_FN(compare, "a", "b"))
