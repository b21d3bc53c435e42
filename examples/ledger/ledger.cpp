// SPDX-License-Identifier: MIT
//
// Amounts of money in C++, exact to the last cent. A function that takes REALs gets doubles of 14 decimals, and a
// REAL that it gives back is made from a double again. So these functions read the decimal records themselves, from
// text or from the segment, and give text.
#include <cstring>
#include <ka/dll_host.h>
#include <ka/dll_module.h>
#include <ka/kastring.h>
#include <ka/real.hpp>

namespace {

// Whole cents, and at most 14 digits before the point: a REAL holds every such amount, so m_add and m_sub of two are
// exact if the result is such an amount again.
bool is_amount(const t_DECIMAL &x)
{
    t_DECIMAL cents;
    m_round(&x, 2, &cents);
    return m_cmp(&x, &cents) == 0 && x.dec_exp <= 14 / 2;
}

int32_t give_amount(const t_DECIMAL &x, KaStr *text)
{
    char buffer[32];
    return is_amount(x) ? str2KaStr(m_to_asc(&x, buffer, 30, 2), text) : REAL_RANGE;
}

// The sum of amounts given as text. 32: one is not a number; 23: one, or the sum, is not an amount.
int32_t sum_texts(void **argv)
{
    const auto *amounts = static_cast<const KaStr *>(argv[0]);
    t_DECIMAL total = c_dec_zero;
    for (int32_t k = 0; k < KaArgInfo(0)->elcnt; k++) {
        t_DECIMAL amount;
        bool exact;
        const std::string_view text(amounts[k].data, static_cast<size_t>(amounts[k].len));
        int status = ka::real_from_text(text, &amount, &exact);
        if (status == REAL_OK && !(exact && is_amount(amount))) status = REAL_RANGE;
        if (status == REAL_OK) status = m_add(&total, &amount, &total);
        if (status == REAL_OK && !is_amount(total)) status = REAL_RANGE;
        if (status != REAL_OK) return status;
    }
    return give_amount(total, static_cast<KaStr *>(argv[1]));
}

// Argument n as the caller passed it, exactly: RealByValue takes REAL and INTEGER.
t_DECIMAL exact(int32_t n)
{
    const t_DLL_ARG arg = u_get_arg(n);
    t_DECIMAL value;
    if (arg.type == DLL_REAL) {
        std::memcpy(&value, arg.ptr, sizeof value);
    } else {
        int32_t integer;
        std::memcpy(&integer, arg.ptr, sizeof integer);
        m_cv_int(integer, &value);
    }
    return value;
}

// a - b. 23: one of them, or the difference, is not an amount.
int32_t difference(void **argv)
{
    const t_DECIMAL a = exact(1), b = exact(2);
    t_DECIMAL result;
    if (!is_amount(a) || !is_amount(b)) return REAL_RANGE;
    const int status = m_sub(&a, &b, &result);
    return status == REAL_OK ? give_amount(result, static_cast<KaStr *>(argv[2])) : status;
}

// One year's interest, where a double is good enough.
int32_t interest(void **argv)
{
    auto *balance = static_cast<double *>(argv[0]);
    *balance += *balance * *static_cast<const double *>(argv[1]) / 100;
    return 0;
}

constexpr int32_t (*bodies[])(void **) = {sum_texts, difference, interest};

} // namespace

// clang-format off
t_DLL_PROTO KaArgList[] = {
    {"amounts", KA_STRING_ARRAY, 1},      {"sum", KA_STRING, 0},
    {"a", KA_REAL_BY_VALUE, 0},           {"b", KA_REAL_BY_VALUE, 0},       {"result", KA_STRING, 0},
    {"balance", KA_REAL_BY_REFERENCE, 0}, {"percent", KA_REAL_BY_VALUE, 0},
};
// clang-format on

t_DLL_FUNC KaFuncList[] = {
    {"sum_texts", 0, 2, nullptr},
    {"difference", 2, 3, nullptr},
    {"interest", 5, 2, nullptr},
    {nullptr, 0, 0, nullptr},
};

int32_t KaCall(int32_t index, void **argv)
{
    return bodies[index](argv);
}
