// SPDX-License-Identifier: MIT
//
// Rounding and cutting to decimal places. An operand is seen as the whole number of its first digits up to the one
// that holds the last place, which counts wholly or, for an odd number of places, by its tens.
#include "model/exact.h"

#include <algorithm>

namespace model {

// The last place in units of the digit that is the first one not wholly kept.
static int place(int places)
{
    return places % 2 ? base / 10 : base;
}

static std::vector<int> digits_of(Int units, int width)
{
    std::vector<int> digits;
    for (; units != 0 || static_cast<int>(digits.size()) < width; units /= base)
        digits.insert(digits.begin(), static_cast<int>(Int(units % base)));
    return digits;
}

static Outcome done(const t_DECIMAL &x, int exp, const std::vector<int> &digits)
{
    return {DEC_OK, digits.empty() ? record(0, DEC_POSITIVE, {}) : record(exp, x.dec_pos, digits)};
}

Outcome to_places(const t_DECIMAL &x, int places)
{
    if (places < 0) return {DEC_NEGATIVE_PLACES, x};
    if (is_null(x)) return {DEC_OK, null_record()};
    const int whole = x.dec_exp + places / 2; // digits that are wholly kept
    if (x.dec_ndgts <= whole) return {DEC_OK, x};
    if (whole < 0) return done(x, 0, {});

    const Int units = in_units(x, x.dec_exp - whole - 1);
    const Int rounded = (units + place(places) / 2) / place(places) * place(places);
    const bool carried = rounded / base > units / base;
    std::vector<int> digits = digits_of(rounded, whole + 1);
    const bool grown = static_cast<int>(digits.size()) > whole + 1;
    // The last digit goes when nothing of it is left, and one more when the carry has turned that to 0; other zeros
    // stay.
    if (digits.back() == 0) digits.pop_back();
    if (carried && digits.back() == 0) digits.pop_back();
    return done(x, x.dec_exp + (grown ? 1 : 0), digits);
}

Outcome cut_to_places(const t_DECIMAL &x, int places)
{
    if (places < 0) return {DEC_NEGATIVE_PLACES, x};
    if (is_null(x)) return {DEC_OK, null_record()};
    const int whole = std::max<int>(x.dec_exp, 0) + places / 2;
    if (x.dec_ndgts <= whole) return {DEC_OK, x};

    const Int units = in_units(x, x.dec_exp - whole - 1);
    std::vector<int> digits = digits_of(units / place(places) * place(places), whole + 1);
    while (!digits.empty() && digits.back() == 0)
        digits.pop_back();
    return done(x, x.dec_exp, digits);
}

} // namespace model
