// SPDX-License-Identifier: MIT
//
// Functions of scalars, and beside each one what is written by hand for it.
#include <ka/module.hpp>

static double area(double radius)
{
    return 3.14159265358979 * radius * radius;
}
static std::int32_t plus(std::int32_t a, std::int32_t b)
{
    return a + b;
}
static ka::code divide(std::int32_t a, std::int32_t b, std::int32_t &q)
{
    if (b == 0) return ka::own<1001>;
    q = a / b;
    return ka::ok;
}
static void turn(double &x, double &y, double angle)
{
    const double before = x;
    x = before - angle * y;
    y = y + angle * before;
}
static ka::code longer(const char *a, std::string_view b)
{
    return ka::code(a[0] != '\0' && b.size() > 1 ? 1 : 0);
}
std::int32_t elsewhere(std::int32_t a, double b) noexcept;

KA_MODULE(KA_FN(area, "radius"), KA_FN(plus, "a", "b"), KA_FN(divide, "a", "b", "q"), KA_FN(turn, "x", "y", "angle"),
          KA_FN(longer, "a", "b"), KA_FN(elsewhere, "a", "b"))

using Slots = void **;

extern "C" {
std::int32_t by_hand_area(Slots argv);
std::int32_t by_hand_area(Slots argv)
{
    const double radius = *static_cast<const double *>(argv[0]);
    *static_cast<double *>(argv[1]) = 3.14159265358979 * radius * radius;
    return 0;
}

std::int32_t by_hand_plus(Slots argv);
std::int32_t by_hand_plus(Slots argv)
{
    *static_cast<std::int32_t *>(argv[2]) =
        *static_cast<std::int32_t *>(argv[0]) + *static_cast<std::int32_t *>(argv[1]);
    return 0;
}

std::int32_t by_hand_divide(Slots argv);
std::int32_t by_hand_divide(Slots argv)
{
    const std::int32_t b = *static_cast<std::int32_t *>(argv[1]);
    if (b == 0) return 1001;
    *static_cast<std::int32_t *>(argv[2]) = *static_cast<std::int32_t *>(argv[0]) / b;
    return 0;
}

std::int32_t by_hand_turn(Slots argv);
std::int32_t by_hand_turn(Slots argv)
{
    double *const x = static_cast<double *>(argv[0]), *const y = static_cast<double *>(argv[1]);
    const double angle = *static_cast<double *>(argv[2]);
    const double before = *x;
    *x = before - angle * *y;
    *y = *y + angle * before;
    return 0;
}

std::int32_t by_hand_longer(Slots argv);
std::int32_t by_hand_longer(Slots argv)
{
    const char *const a = static_cast<const char *>(argv[0]);
    const KaStr *const b = static_cast<const KaStr *>(argv[1]);
    return a[0] != '\0' && b->len > 1 ? 1 : 0;
}

std::int32_t by_hand_elsewhere(Slots argv);
std::int32_t by_hand_elsewhere(Slots argv)
{
    *static_cast<std::int32_t *>(argv[2]) =
        elsewhere(*static_cast<std::int32_t *>(argv[0]), *static_cast<double *>(argv[1]));
    return 0;
}
}
