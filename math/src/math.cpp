/* SPDX-License-Identifier: MIT
 *
 * REAL values: the decimal library's operations under the interpreter's status codes. settle is the one place where a
 * library code becomes a status code, a substitute value or the end of the process. */
#include "ka/real.h"

#include <bit>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "general_at_once.h"
#include "math/decimal/src/decimal_string.h"
#include "nearest_double.h"
#include "wire/sure_real.h"

const t_DECIMAL c_min_int32 = {
    .dec_exp = 5, .dec_pos = DEC_NEGATIVE, .dec_ndgts = 5, .dec_dgts = {21, 47, 48, 36, 48}};

/* ---- Errors ---------------------------------------------------------------------------------------------------- */

/* What a null REAL is reported as. */
static constexpr int null_met = -2;

void fatal_math_error(int cc, int line)
{
    fprintf(stderr, "fatal math error cc #%d\n", cc);
    fprintf(stderr, "file = %s, line = %d\n", "math/src/math", line);
    abort();
}

/* The line of each of these is the caller's: the failing test is the call. */
static void refuse_null(const t_DECIMAL *x, int line = __builtin_LINE())
{
    if (x->dec_pos == DEC_NULL) fatal_math_error(null_met, line);
}

static void refuse_code(int code, int line = __builtin_LINE())
{
    if (code != DEC_OK) fatal_math_error(code, line); // GCOVR_EXCL_LINE: none of them has another code
}

static int store_huge(bool negative, t_DECIMAL *r)
{
    *r = c_dec_huge;
    return negative ? decchs(r) : DEC_OK;
}

/* The status for a library code, with the substitute for what r cannot hold. negative: the sign of the
   largest REAL. */
static int settle(int code, bool negative, t_DECIMAL *r, int line = __builtin_LINE())
{
    switch (code) {
    case DEC_OK:
        refuse_null(r, line);
        return REAL_OK;
    case DEC_OVERFLOW:
        store_huge(negative, r);
        return REAL_RANGE;
    case DEC_UNDERFLOW:
        m_zero(r);
        return REAL_RANGE;
    case DEC_DIVISION_BY_ZERO:
        store_huge(negative, r);
        return REAL_DIVISION_BY_ZERO;
    case DEC_BAD_TEXT:
    case DEC_BAD_EXPONENT:
        m_zero(r);
        return REAL_NOT_NUMBER;
    default:
        fatal_math_error(code, line);
    }
}

/* ---- Constants, sign, comparison ------------------------------------------------------------------------------- */

int m_zero(t_DECIMAL *r)
{
    *r = c_dec_zero;
    return REAL_OK;
}

int m_one(t_DECIMAL *r)
{
    *r = c_dec_one;
    return REAL_OK;
}

int m_huge(t_DECIMAL *r)
{
    *r = c_dec_huge;
    return REAL_OK;
}

int m_sgn(const t_DECIMAL *x)
{
    refuse_null(x);
    if (x->dec_ndgts <= 0) return 0;
    return x->dec_pos == DEC_NEGATIVE ? -1 : 1;
}

int m_chs(const t_DECIMAL *x, t_DECIMAL *r)
{
    *r = *x;
    return settle(decchs(r), false, r);
}

int m_cmp(const t_DECIMAL *a, const t_DECIMAL *b)
{
    const int order = deccmp(a, b);
    if (order == DEC_NOT_COMPARABLE) fatal_math_error(null_met, __LINE__);
    return order;
}

/* ---- Arithmetic ------------------------------------------------------------------------------------------------ */

/* Each takes the signs before it writes the result: a null operand is fatal while the operands are still whole. */

int m_add(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r)
{
    const int sa = m_sgn(a);
    const int sb = m_sgn(b);
    return settle(decadd(a, b, r), sa < 0 && sb < 0, r);
}

int m_sub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r)
{
    const int sa = m_sgn(a);
    const int sb = m_sgn(b);
    return settle(decsub(a, b, r), sa < 0 && sb >= 0, r);
}

int m_mpy(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r)
{
    const int sa = m_sgn(a);
    const int sb = m_sgn(b);
    return settle(decmul(a, b, r), (sa < 0) != (sb < 0), r);
}

int m_dvd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r)
{
    const int sa = m_sgn(a);
    const int sb = m_sgn(b);
    return settle(decdiv(a, b, r), (sa < 0) != (sb < 0), r);
}

/* ---- Places and precision -------------------------------------------------------------------------------------- */

int m_trunc(const t_DECIMAL *x, int places, t_DECIMAL *r)
{
    *r = *x;
    return settle(dectrunc(r, places), false, r);
}

int m_round(const t_DECIMAL *x, int places, t_DECIMAL *r)
{
    const bool negative = m_sgn(x) < 0;
    *r = *x;
    const int code = decround(r, places);
    /* Absorbed without a status, unlike the arithmetic's. No record that can be rounded has so large an exponent. */
    if (code == DEC_OVERFLOW) return store_huge(negative, r); // GCOVR_EXCL_LINE: see above
    return settle(code, negative, r);
}

/* Gives the fraction x, 0.d1d2..., back the exponent and sign that were taken from it. */
static void scale(t_DECIMAL *x, const t_DECIMAL *original)
{
    x->dec_exp = static_cast<int16_t>(x->dec_exp + original->dec_exp);
    x->dec_pos = original->dec_pos;
}

/* KEPT: null is not tested for: without digits it becomes zero, where the other operations end the process.
   Test: Mkprec.null_becomes_zero.
   A null that still has digits gets its sign byte back and stays null. */
int mkprec(t_DECIMAL *x, int ndigits)
{
    const t_DECIMAL original = *x;
    int places = ndigits < 2 * DEC_DIGITS ? ndigits : 2 * DEC_DIGITS;
    if (x->dec_ndgts > 0 && x->dec_dgts[0] <= 9) places++;

    x->dec_exp = 0;
    x->dec_pos = DEC_POSITIVE;
    settle(decround(x, places), false, x);
    if (x->dec_ndgts == 0) return REAL_OK; /* the header is that of zero already; no digit byte changes for it */
    scale(x, &original);
    if (x->dec_exp <= DEC_EXP_MAX) return REAL_OK;

    /* Nines at the top exponent, rounded up: the largest value of that precision instead. */
    *x = c_dec_huge;
    x->dec_exp = 0;
    settle(dectrunc(x, places), false, x);
    scale(x, &original);
    return REAL_RANGE;
}

/* ---- Storage --------------------------------------------------------------------------------------------------- */

int m_store(const t_DECIMAL *x, void *field, int length)
{
    refuse_null(x);
    refuse_code(stdecimal(x, field, length));
    return REAL_OK;
}

int m_load(const void *field, int length, t_DECIMAL *r)
{
    refuse_code(lddecimal(field, length, r));
    if (r->dec_pos != DEC_NULL) return REAL_OK;
    m_zero(r);
    return REAL_NULL_FIELD;
}

/* ---- Double ---------------------------------------------------------------------------------------------------- */

/* dececvt; where the rounding leaves the range of records, and so gives no decimals, what it would have come to: 1
   for nines at the top exponent, 0 for leading zeros at the bottom, which only a field out of normal form has. */
static char *rounded_decimals(const t_DECIMAL *x, int ndigit, int *decpt, int *sign)
{
    char *decimals = dececvt(x, ndigit, decpt, sign);
    if (decimals[0] != '\0') return decimals;
    decimals[0] = x->dec_exp >= DEC_EXP_MAX ? '1' : '0';
    decimals[1] = '\0';
    ++*decpt;
    return decimals;
}

/* For REALs of any kind. Not inlined beside the fast way, which it would take registers from. */
[[gnu::noinline]] static void convert_by_text(const t_DECIMAL *x, double *d)
{
    refuse_null(x);
    int decpt = 0;
    int sign = 0;
    const char *decimals = rounded_decimals(x, 14, &decpt, &sign);
    if (decimals[0] == '0') { /* as m_gcvt takes it: zero, without a sign */
        *d = 0;
        return;
    }
    /* The value that m_gcvt prints, as a whole number and an exponent: a text with a point would be read up to the
       point only, once a module has chosen a locale whose point is a comma. */
    char text[30];
    snprintf(text, sizeof text, "%s%.14se%d", sign != 0 ? "-" : "", decimals,
             decpt - static_cast<int>(strlen(decimals)));
    *d = strtod(text, nullptr);
}

/* As through text, so that 0.1 becomes the double nearest to 0.1.
   KEPT: 14 decimals count, fewer than a REAL or a double has: 1234567890123456 becomes 1234567890123500.
   Test: MToDbl.rounds_to_14_decimals_first. */
int m_to_dbl(const t_DECIMAL *x, double *d)
{
    if (!find_nearest_double(x, d)) convert_by_text(x, d);
    return REAL_OK;
}

/* KEPT: minus infinity stores zero, where one would expect the negative largest REAL.
   Test: MCvDbl.minus_infinity_and_nan_are_zero. */
int m_cv_dbl(double d, t_DECIMAL *r)
{
    const uint64_t bits = wire::bits_of_parameter(d);
    if (wire::store_sure_real(bits, 15, r)) return REAL_OK;
    d = std::bit_cast<double>(bits);
    if (isnan(d)) return settle(DEC_UNDERFLOW, false, r);
    if (isinf(d)) return settle(d > 0 ? DEC_OVERFLOW : DEC_UNDERFLOW, false, r);
    return settle(deccvdbl(d, r), d < 0, r);
}

/* ---- Integer --------------------------------------------------------------------------------------------------- */

int m_to_int(const t_DECIMAL *x, int32_t *i)
{
    refuse_null(x);
    const int code = dectoint32(x, i);
    if (code == DEC_OVERFLOW) {
        *i = m_sgn(x) < 0 ? INT32_MIN : INT32_MAX;
        return REAL_NOT_INTEGER;
    }
    refuse_code(code);
    return REAL_OK;
}

int m_cv_int(int32_t i, t_DECIMAL *r)
{
    if (i == INT32_MIN) { /* for the library it means null */
        *r = c_min_int32;
        return REAL_OK;
    }
    return settle(deccvint32(i, r), false, r);
}

/* ---- Text ------------------------------------------------------------------------------------------------------ */

/* KEPT: an empty or blank text is null to the library and so ends the process, where one would expect
   REAL_NOT_NUMBER. Test: MCvAsc.blank_field_is_fatal. */
int m_cv_asc(const char *text, int length, t_DECIMAL *r)
{
    const int code = deccvasc(text, length, r);
    return settle(code, r->dec_pos == DEC_NEGATIVE, r);
}

char *m_to_asc(const t_DECIMAL *x, char *buf, int length, int places)
{
    refuse_null(x);
    refuse_code(dectoasc(x, buf, length, places));
    while (length > 1 && buf[length - 1] == ' ')
        length--;
    if (length >= 0) buf[length] = '\0';
    return buf;
}

/* A zero value has its point and sign at 0. */
static char *settle_zero(char *decimals, int *decpt, int *sign)
{
    if (decimals[0] == '0') {
        *decpt = 0;
        *sign = 0;
    }
    return decimals;
}

char *m_ecvt(const t_DECIMAL *x, int ndigit, int *decpt, int *sign)
{
    refuse_null(x);
    return settle_zero(dececvt(x, ndigit, decpt, sign), decpt, sign);
}

char *m_fcvt(const t_DECIMAL *x, int ndigit, int *decpt, int *sign)
{
    refuse_null(x);
    return settle_zero(decfcvt(x, ndigit, decpt, sign), decpt, sign);
}

/* The decimals of any x that is not null, without the zeros at the end, cut off in the library's buffer. */
static wire::t_SHOWN show(const t_DECIMAL *x, int ndigit)
{
    int point = 0;
    int sign = 0;
    char *decimals = rounded_decimals(x, ndigit, &point, &sign);
    size_t length = strlen(decimals);
    while (length > 1 && decimals[length - 1] == '0')
        length--;
    decimals[length] = '\0';
    /* Far outside the exponents of a REAL (point -128 to 126): an exponent of more than 3 decimals would not fit buf.
     */
    if (point > 999) point = 999;
    if (point < -998) point = -998;
    return {decimals, static_cast<int>(length), point, sign != 0};
}

#ifdef __SSE2__
/* False, and nothing is done, for what takes the long way. x is read before anything is written. */
static bool put_in_few_steps(const t_DECIMAL *x, int ndigit, char *buf)
{
    t_GENERAL_DECIMALS shown;
    if (ndigit < 1 || !show_decimals(x, ndigit, &shown)) return false;
    const bool negative = x->dec_pos == DEC_NEGATIVE;
    char characters[16]; /* the long way leaves them in the library's buffer, too */
    wire::store_sixteen(characters, wire::characters_of(shown.decimals));
    memcpy(decimal::string_buffer, characters, sizeof characters);
    decimal::string_buffer[shown.length] = '\0';
    if (put_general_at_once(shown, negative, ndigit, buf)) return true;
    const wire::t_SHOWN in_pieces = {characters, shown.length, shown.point, negative};
    wire::put_general(&in_pieces, ndigit, buf);
    return true;
}
#else
static bool put_in_few_steps(const t_DECIMAL *, int, char *)
{
    return false;
}
#endif

/* For REALs of any kind; not inlined beside the fast way. */
[[gnu::noinline]] static void put_by_decimals(const t_DECIMAL *x, int ndigit, char *buf)
{
    refuse_null(x);
    if (ndigit <= 0) {
        buf[0] = '\0';
        return;
    }
    const wire::t_SHOWN shown = show(x, ndigit);
    if (shown.decimals[0] == '0') {
        buf[0] = '0';
        buf[1] = '\0';
        return;
    }
    wire::put_general(&shown, ndigit, buf);
}

char *m_gcvt(const t_DECIMAL *x, int ndigit, char *buf)
{
    if (!put_in_few_steps(x, ndigit, buf)) put_by_decimals(x, ndigit, buf);
    return buf;
}
