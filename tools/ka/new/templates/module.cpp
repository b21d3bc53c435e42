// The functions of the module @NAME@, which callers find by their names.
#include <ka/module.hpp>

#include <string>

// A code other than 0 is an error that the caller sees.
static ka::code divide(double a, double b, double &quotient)
{
    if (b == 0) return ka::own<1001>;
    quotient = a / b;
    return ka::ok;
}

static void scale(ka::array<double> values, double factor)
{
    for (double &value : values)
        value *= factor;
}

// What does not fit into out leaves it as it was, and is code 18.
static void greet(const char *who, ka::string out)
{
    out = "Hello, " + std::string(who);
}

KA_MODULE(KA_FN(divide, ka::doc("1001: b is 0"), "a", "b", "quotient"), KA_FN(scale, "values", "factor"),
          KA_FN(greet, "who", "out"))
