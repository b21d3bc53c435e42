/* SPDX-License-Identifier: MIT
 *
 * Decimal arithmetic on small records of base-100 digits. The record is also the interpreter's REAL value.
 *
 * Rules for every operation, unless its own comment says otherwise:
 *  - Value: 0.d1 d2 ... dn * 100^dec_exp, the di being the first n = dec_ndgts bytes of dec_dgts. Only those n bytes
 *    are read; the bytes after them may hold anything.
 *  - Normal form, which every arithmetic result has: first and last digit not 0, at most 8 digits, dec_exp -64 to 63.
 *  - Zero has no digits. The library's own zero is dec_exp 0, dec_pos 1; a zero with dec_pos 0 can come from text.
 *  - Null (no value) is dec_pos 255, and only dec_pos decides.
 *  - A result record may be the same object as an operand. No operation allocates, none keeps state except the digit
 *    strings: dececvt, decfcvt and decefcvt share one static buffer, which dectoasc uses too, and in 32-bit programs
 *    deccvdbl and deccvflt use that of the C library's ecvt. Pointers must not be null.
 *  - Rounding is half away from zero, truncation is toward zero.
 *  - Error bounds are in units of a result's eighth digit: one is at most 1e-14 of the result.
 *    They hold for operands whose first digit is not 0. Zero digits at the end never matter; zero digits in front
 *    cost precision or meaning, but only a broken packed field has them.
 *  - The digit bytes past dec_ndgts of a result may hold anything. They stay as they were if a result is null, and in
 *    decmul and decdiv if an operand without digits gives the zero.
 *  - The return value is DEC_OK or one of the negative codes below. On DEC_OVERFLOW and DEC_UNDERFLOW of an operation
 *    that rounds, the result is still written, with its exponent clamped to 63 or -64. */
#ifndef KA_DECIMAL_H
#define KA_DECIMAL_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "ka/api.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    DEC_BASE = 100,   /* each digit is 0 to 99: two decimals */
    DEC_DIGITS = 8,   /* digits in a record */
    DEC_EXP_MAX = 63, /* largest base-100 exponent */
    DEC_EXP_MIN = -64 /* smallest base-100 exponent */
};

/* dec_pos */
enum { DEC_NEGATIVE = 0, DEC_POSITIVE = 1, DEC_NULL = 255 };

/* Result codes. */
enum {
    DEC_OK = 0,
    DEC_NEGATIVE_PLACES = -1,     /* a negative number of decimal places */
    DEC_NOT_COMPARABLE = -2,      /* comparison: an operand is null */
    DEC_OVERFLOW = -1200,         /* exponent above 63, or outside the range of the integer asked for */
    DEC_UNDERFLOW = -1201,        /* exponent below -64 */
    DEC_DIVISION_BY_ZERO = -1202, /* the divisor has no digits */
    DEC_BAD_TEXT = -1213,         /* text is not a number */
    DEC_BAD_EXPONENT = -1216      /* exponent in the text above 999 */
};

typedef struct t_DECIMAL {
    int16_t dec_exp;              /* base-100 exponent */
    uint8_t dec_pos;              /* DEC_POSITIVE, DEC_NEGATIVE or DEC_NULL */
    int8_t dec_ndgts;             /* digits in use, 0 to 8 */
    uint8_t dec_dgts[DEC_DIGITS]; /* most significant first, each 0 to 99 */
} t_DECIMAL;

static_assert(sizeof(t_DECIMAL) == 12, "t_DECIMAL");
static_assert(offsetof(t_DECIMAL, dec_exp) == 0, "t_DECIMAL.dec_exp");
static_assert(offsetof(t_DECIMAL, dec_pos) == 2, "t_DECIMAL.dec_pos");
static_assert(offsetof(t_DECIMAL, dec_ndgts) == 3, "t_DECIMAL.dec_ndgts");
static_assert(offsetof(t_DECIMAL, dec_dgts) == 4, "t_DECIMAL.dec_dgts");

/* Constants. */
KA_API extern const t_DECIMAL c_dec_zero;  /* 0 */
KA_API extern const t_DECIMAL c_dec_one;   /* 1 */
KA_API extern const t_DECIMAL c_dec_huge;  /* fourteen nines at exponent 63, the largest REAL */
KA_API extern const t_DECIMAL c_int32_max; /* 2147483647 */
KA_API extern const t_DECIMAL c_int32_min; /* -2147483648 */

/* ---- Packed storage: one byte of exponent and sign, then length - 1 digit bytes -------------------------------- */

/* Writes value into the length bytes at field, rounded to length - 1 digits. Packed fields of normal values other
   than zero compare with memcmp as the values do; null is all zero bytes. length: 2 or more for a value with digits.
   The exponent is stored modulo 256: rounding up at exponent 63, or a negative value with exponent 63, does not load
   back. Returns DEC_OK. */
KA_API int stdecimal(const t_DECIMAL *value, void *field, int length);

/* Reads a field written by stdecimal. A first byte of 0 gives null. Digit bytes past the eighth are ignored; for null
   the digit bytes of value are left as they were. Returns DEC_OK. */
KA_API int lddecimal(const void *field, int length, t_DECIMAL *value);

/* ---- Addition, sign, comparison -------------------------------------------------------------------------------- */

/* result = a + b, rounded to 8 digits from a ninth (guard) digit. Digits of the smaller operand below the guard digit
   are cut off first: a sum of equal signs is off by at most 0.5 units, one of different signs by less than 1, and
   a sum that needs no more than nine digits is rounded exactly. A zero operand gives the other one unchanged, even an
   unnormalised one; a null operand gives null; a cancellation gives the positive zero. Returns DEC_OK, DEC_OVERFLOW
   or DEC_UNDERFLOW. */
KA_API int decadd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);

/* result = a - b, as decadd of a and b with its sign changed; a zero b gives a unchanged. */
KA_API int decsub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);

/* result = a * b, rounded to 8 digits from a ninth. Parts of the product below the ninth digit are left out one by
   one: the magnitude is too small by less than 6.5 units or too large by at most 0.5, and exact where the
   operands have no more than 8 digits together. A zero operand gives the positive zero, a null one null. Returns
   DEC_OK, DEC_OVERFLOW or DEC_UNDERFLOW. */
KA_API int decmul(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);

/* result = a / b, from a remainder that is kept to nine digits. Where the digits of a, seen as a fraction, are at
   least those of b, it is rounded from a ninth digit and off by less than 0.7 units. Where they are less it has no
   ninth digit: it is cut off (2 / 3 ends in 6), and off by less than 19 units (searches found 8.2 too large and 5.6
   too small). One exception: for a divisor whose first digit is 99 the magnitude may, rarely, be up to 1e10
   units too small (98.99999999999999 / 99.99999999999999 gives 0.989999). A null operand gives null, a zero
   dividend the positive zero. Returns DEC_OK, DEC_OVERFLOW or DEC_UNDERFLOW; for a zero divisor DEC_DIVISION_BY_ZERO
   with the positive zero stored. */
KA_API int decdiv(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);

/* -1, 0 or +1 if a is below, equal to or above b; DEC_NOT_COMPARABLE if either is null. Trailing zero digits make
   no difference, and all zeros are equal. Out of normal form: the exponents decide before leading zero digits are
   seen, and a zero with dec_pos 0 is below every negative value of another exponent. */
KA_API int deccmp(const t_DECIMAL *a, const t_DECIMAL *b);

/* Changes the sign of x in place; zero keeps its sign byte, null stays null (dec_exp and dec_ndgts become 0).
   Returns DEC_OK. */
KA_API int decchs(t_DECIMAL *x);

/* ---- Decimal places -------------------------------------------------------------------------------------------- */

/* Rounds x, in place and exactly, to places decimals after the point; 0 rounds to an integer. The value is right, but
   zero digits may be left at its end. Null stays null (dec_exp and dec_ndgts become 0), and a value that rounds to
   zero becomes the positive zero. Nothing changes if all digits of x are within the places. Returns DEC_OK, or
   DEC_NEGATIVE_PLACES with x unchanged. (DEC_OVERFLOW is reserved: no record can be rounded out of range.) */
KA_API int decround(t_DECIMAL *x, int places);

/* As decround, but truncates, and drops zero digits at the end if digits were cut. A value below 0.01 keeps two more
   decimals for every pair of zeros after its point (dec_exp below 0 counts as 0): 0.00012 to 2 places is 0.0001.
   Returns DEC_OK, or DEC_NEGATIVE_PLACES with x unchanged. */
KA_API int dectrunc(t_DECIMAL *x, int places);

/* ---- Digit strings and text ------------------------------------------------------------------------------------ */

/* The significant decimals of value, rounded: ndigit of them in all (dececvt) or ndigit after the point (decfcvt);
   decefcvt does the first when mode is 0, else the second. At most 151 characters, zero-terminated, in one static
   buffer that the next call of any of them overwrites. *decpt becomes the number of decimals before the point
   (0.ddd... * 10^decpt), *sign 0 for positive and 1 for negative. An empty string when value is null (then *decpt and
   *sign are not written), when the count leaves no digit, or when the rounding leaves the range of records. */
KA_API char *dececvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign);
KA_API char *decfcvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign);
KA_API char *decefcvt(const t_DECIMAL *value, int ndigit, int *decpt, int *sign, int mode);

/* Lays value out in the length characters at field, blank-filled and never terminated: fixed notation with the given
   places after the point (negative: as many as the value needs) if the integer part fits, else exponent notation,
   else asterisks. Null leaves the field blank. Returns DEC_OK. */
KA_API int dectoasc(const t_DECIMAL *value, char *field, int length, int places);

/* Reads a number from the length characters at field, which need not be terminated. Leading blanks are skipped; an
   empty or blank field is a null result and DEC_OK. At most 18 significant decimals count. On DEC_BAD_TEXT and
   DEC_BAD_EXPONENT the result is null (dec_pos alone is written); DEC_OVERFLOW and DEC_UNDERFLOW store the clamped
   value. */
KA_API int deccvasc(const char *field, int length, t_DECIMAL *result);

/* ---- Binary numbers -------------------------------------------------------------------------------------------- */

/* Integer to record, exact. The most negative integer is the integer form of null and gives null (digit bytes left as
   they were). Returns DEC_OK. */
KA_API int deccvint16(int16_t value, t_DECIMAL *result);
KA_API int deccvint32(int32_t value, t_DECIMAL *result);

/* Record to integer, truncated toward zero; null gives the most negative integer. Returns DEC_OK, or DEC_OVERFLOW
   with *result unwritten if the integer part is out of range. A zero with dec_pos 0 and an exponent above 0 other
   than 5 counts as out of range too: the double -0.0 gives such a zero. */
KA_API int dectoint16(const t_DECIMAL *value, int16_t *result);
KA_API int dectoint32(const t_DECIMAL *value, int32_t *result);

/* Floating point to record, everywhere from the 15 (double) or 6 (float) decimals that the C library's ecvt gives in
   32-bit programs. Infinity and NaN give DEC_OVERFLOW and null. Returns DEC_OK, DEC_OVERFLOW or DEC_UNDERFLOW; the
   exponent is then clamped. */
KA_API int deccvdbl(double value, t_DECIMAL *result);
KA_API int deccvflt(float value, t_DECIMAL *result);

/* Record to floating point, everywhere computed step by step in 64 significant bits, and rounded to double at the
   end; the float uses the first 6 digits and is narrowed from the double. Null counts as positive. Returns DEC_OK. */
KA_API int dectodbl(const t_DECIMAL *value, double *result);
KA_API int dectoflt(const t_DECIMAL *value, float *result);

#ifdef __cplusplus
}
#endif

#endif
