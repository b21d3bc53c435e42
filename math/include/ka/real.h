/* SPDX-License-Identifier: MIT
 *
 * REAL values of the interpreter: decimal records (ka/decimal.h) under one fixed error policy. A REAL is never null.
 *
 * Every operation returns one of the codes below, and stores a substitute value if the true result cannot be stored;
 * or it ends the process: a null operand, or a code of the decimal library that the operation does not expect, is a
 * fatal error (fatal_math_error). A result record may be the same object as an operand. */
#ifndef KA_REAL_H
#define KA_REAL_H

#include <stdint.h>

#include "ka/api.h"
#include "ka/decimal.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes: the interpreter's error numbers. */
enum {
    REAL_OK = 0,
    REAL_NOT_INTEGER = 20,      /* does not fit 32 bits; 2147483647 or -2147483648 stored */
    REAL_RANGE = 23,            /* overflow or underflow; the largest REAL with its sign, or zero, stored */
    REAL_DIVISION_BY_ZERO = 31, /* the largest REAL with a sign stored */
    REAL_NOT_NUMBER = 32,       /* text is not a number; zero stored */
    REAL_NULL_FIELD = 204       /* a packed field holds null; zero stored */
};

KA_API extern const t_DECIMAL c_min_int32; /* -2147483648 */

/* Prints "fatal math error cc #..." and the place on standard error, then aborts. cc is -2 for a null REAL, else the
   code that was not expected. */
KA_API __attribute__((noreturn)) void fatal_math_error(int cc, int line);

/* Store 0, 1 or the largest REAL (fourteen nines, about 1e126). Return REAL_OK. */
KA_API int m_zero(t_DECIMAL *r);
KA_API int m_one(t_DECIMAL *r);
KA_API int m_huge(t_DECIMAL *r);

/* -1, 0 or +1: the sign of x. */
KA_API int m_sgn(const t_DECIMAL *x);

/* r = -x; zero stays positive. Returns REAL_OK. */
KA_API int m_chs(const t_DECIMAL *x, t_DECIMAL *r);

/* -1, 0 or +1 if a is below, equal to or above b (deccmp). */
KA_API int m_cmp(const t_DECIMAL *a, const t_DECIMAL *b);

/* r = a + b, a - b, a * b, a / b, with the precision of decadd, decsub, decmul and decdiv. Return REAL_OK; REAL_RANGE
   with zero stored if the result is too small, or with the largest REAL, signed as the operands require, if it is too
   large. m_dvd by zero returns REAL_DIVISION_BY_ZERO and stores the largest REAL with the sign of a. */
KA_API int m_add(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r);
KA_API int m_sub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r);
KA_API int m_mpy(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r);
KA_API int m_dvd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *r);

/* r = x truncated or rounded to places decimals after the point, exactly, as dectrunc and decround do it: m_trunc of
   a value below 0.01 keeps more places. A negative places is fatal. Return REAL_OK. */
KA_API int m_trunc(const t_DECIMAL *x, int places, t_DECIMAL *r);
KA_API int m_round(const t_DECIMAL *x, int places, t_DECIMAL *r);

/* Rounds x in place to ndigits significant decimals, 1 or more; 16 and more change no value. Returns REAL_OK, or
   REAL_RANGE if that leaves the range: then the largest REAL, cut to ndigits decimals, is stored with the sign of x.
   A null is not refused: without digits, as operations leave it, it becomes zero, with digits it stays null. ndigits
   0 gives zero or the next power of ten; a negative ndigits is fatal for most values. */
KA_API int mkprec(t_DECIMAL *x, int ndigits);

/* Packed storage in length bytes (stdecimal, lddecimal). m_store returns REAL_OK; m_load REAL_OK, or REAL_NULL_FIELD
   with zero stored. */
KA_API int m_store(const t_DECIMAL *x, void *field, int length);
KA_API int m_load(const void *field, int length, t_DECIMAL *r);

/* The double nearest to x rounded to 14 significant decimals. Returns REAL_OK. */
KA_API int m_to_dbl(const t_DECIMAL *x, double *d);

/* The REAL of the first 15 decimals of d. Returns REAL_OK, or REAL_RANGE with a substitute stored: the signed largest
   REAL for overflow, zero for underflow, NaN and minus infinity. */
KA_API int m_cv_dbl(double d, t_DECIMAL *r);

/* x truncated toward zero. Returns REAL_OK, or REAL_NOT_INTEGER with the nearer limit stored. */
KA_API int m_to_int(const t_DECIMAL *x, int32_t *i);

/* The REAL of any 32-bit integer, -2147483648 included. Returns REAL_OK. */
KA_API int m_cv_int(int32_t i, t_DECIMAL *r);

/* dectoasc into length characters at buf, trailing blanks removed (the first character always stays) and terminated:
   buf needs length + 1 characters; length is 1 or more. Returns buf. */
KA_API char *m_to_asc(const t_DECIMAL *x, char *buf, int length, int places);

/* deccvasc: a number from length characters of text. Returns REAL_OK, REAL_RANGE or REAL_NOT_NUMBER with a substitute
   stored. An empty or blank text is fatal. */
KA_API int m_cv_asc(const char *text, int length, t_DECIMAL *r);

/* dececvt and decfcvt, with *decpt and *sign 0 for a zero value. The string is the decimal library's static buffer,
   which m_to_asc and m_gcvt use too, and m_to_dbl may. */
KA_API char *m_ecvt(const t_DECIMAL *x, int ndigit, int *decpt, int *sign);
KA_API char *m_fcvt(const t_DECIMAL *x, int ndigit, int *decpt, int *sign);

/* x to at most ndigit significant decimals, zero-terminated in buf: in fixed form if that shows no more than
   ndigit of them, zeros after the point counted, else as d.dddE+dd. buf needs room for ndigit + 8 characters (at
   least 2). ndigit 0 or less gives the empty string. Returns buf. */
KA_API char *m_gcvt(const t_DECIMAL *x, int ndigit, char *buf);

#ifdef __cplusplus
}
#endif

#endif
