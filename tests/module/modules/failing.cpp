// SPDX-License-Identifier: MIT
//
// Functions that end with exceptions. FAILING_HANDLED: with a handler of the module's own. FAILING_TEXT: with the
// text of the last exception in the scratch area.
#include <ka/module.hpp>
#include <stdexcept>

namespace {

void fail(std::int32_t number, std::string_view text)
{
    throw ka::failure(number, std::string(text));
}
void fail_with_own_code()
{
    throw ka::failure(ka::own<77>, "seventy-seven");
}
void overflow(ka::string out)
{
    out = "a text that is too long";
}
void no_memory()
{
    throw std::bad_alloc();
}
void standard(std::string_view text)
{
    throw std::logic_error(std::string(text));
}
void unknown()
{
    throw 5;
}
std::int32_t result(std::int32_t a)
{
    if (a < 0) throw std::out_of_range("below zero");
    return a;
}
void divide(const ka::decimal &a, const ka::decimal &b, ka::decimal &q)
{
    q = a / b;
}

// What was changed before the exception comes back.
void change_and_fail(std::int32_t &a, double &b, ka::string c, ka::decimal &d)
{
    a = 7;
    b = 7.5;
    c = "seven";
    d += ka::decimal("0.01");
    throw ka::failure(ka::own<1005>, "after seven");
}

[[maybe_unused]] ka::code decide(const char *function, std::exception_ptr thrown)
{
    try {
        std::rethrow_exception(thrown);
    } catch (const std::logic_error &) {
        return ka::code(static_cast<std::int32_t>(2000 + std::string_view(function).size()));
    } catch (...) {
        throw; // as if there were no handler
    }
}

} // namespace

#ifdef FAILING_HANDLED
KA_ON_EXCEPTION(decide)
#endif
#ifdef FAILING_TEXT
KA_MODULE_TEXT(16)
#endif

KA_MODULE(KA_FN(fail, "code", "text"), KA_FN(fail_with_own_code), KA_FN(overflow, "out"), KA_FN(no_memory),
          KA_FN(standard, "text"), KA_FN(unknown), KA_FN(result, "a"), KA_FN(divide, "a", "b", "q"),
          KA_FN(change_and_fail, "a", "b", "c", "d"))
