// SPDX-License-Identifier: MIT
//
// See rows.h: the codes that calls, string functions, REAL operations and the decimal library return.
#include "ka/dll_codes.h"
#include "ka/kastring.h"
#include "ka/real.h"
#include "rows.h"

namespace {

constexpr const char *call = "return code of a call";
constexpr const char *string = "return code of a string function";
constexpr const char *real = "status of a REAL operation";
constexpr const char *decimal = "result of the decimal library";

constexpr Explanation rows[] = {
    // ---- Return codes of a call: the host's own
    {call, KA_OK, "KA_OK", "", "the function returned 0", "by custom: it succeeded", "nothing to do"},
    {call, KA_NO_MEMORY, "KA_NO_MEMORY", "", "the host has no memory for a converted argument",
     "an element count or a string length is huge or negative, or the process has no memory left",
     "pass less at once; look at the descriptors with ka dump; restart a module that loses memory"},
    {call, KA_NO_FUNCTION, "KA_NO_FUNCTION", "", "the module has no function of that name",
     "the name is misspelt, or differs in letter case or by a blank; or another module runs",
     "compare it with ka list MODULE"},
    {call, KA_WRONG_TYPE, "KA_WRONG_TYPE", "", "the type of an argument does not suit its prototype",
     "an INTEGER, REAL or STRING was passed where the kind takes another; or the function name is not a STRING",
     "compare the call with ka list MODULE; a trace of level 3 shows the argument last"},
    {call, KA_WRONG_COUNT, "KA_WRONG_COUNT", "", "too many or too few arguments, or no function name",
     "the call does not have the arguments that the prototypes name, or argc in the block is 0 or less",
     "compare the call with ka list MODULE; a stray SIGUSR2 between calls is answered so and does no harm"},
    {call, KA_TOO_FEW_ELEMENTS, "KA_TOO_FEW_ELEMENTS", "", "an array has fewer elements than its prototype asks for",
     "the array is shorter than the minimum, or its element count is negative",
     "pass more elements; ka list MODULE shows the minimum"},
    {call, KA_TOO_MANY_ARGS, "KA_TOO_MANY_ARGS", "", "more than 50 arguments",
     "argc in the block is above 51, the function name counted", "pass many values as one array"},
    {call, KA_BAD_PROTOTYPE, "KA_BAD_PROTOTYPE", "",
     "the module's own tables are wrong, or what came back could not be stored",
     "a prototype's kind is not 0 to 9, or the function changed its prototypes during the call",
     "mend the module: ka check MODULE names the prototype"},

    // ---- String functions, REAL operations, the decimal library
    {string, KASTR_OK, "KASTR_OK", "", "done", "none", "nothing to do"},
    {string, KASTR_NO_ROOM, "KASTR_NO_ROOM", "", "the text does not fit the string, which is left unchanged",
     "it is longer than the room that the caller gave (maxlen)",
     "give the argument more room: 'text':80 or str:80 with ka call"},
    {real, REAL_OK, "REAL_OK", "", "done", "none", "nothing to do"},
    {real, REAL_NOT_INTEGER, "REAL_NOT_INTEGER", "",
     "the REAL does not fit a 32-bit integer; the nearer of 2147483647 and -2147483648 is stored",
     "its whole part is beyond those limits", "test the range before, or take it as a double"},
    {real, REAL_RANGE, "REAL_RANGE", "",
     "the result is out of range: too large stores the largest REAL with its sign, too small stores zero",
     "the result is above about 1e126 or below about 1e-130; or a double is infinite or no number",
     "check the operands; use the stored substitute where that is good enough"},
    {real, REAL_DIVISION_BY_ZERO, "REAL_DIVISION_BY_ZERO", "",
     "division by zero; the largest REAL with a sign is stored", "the divisor is zero", "test the divisor before"},
    {real, REAL_NOT_NUMBER, "REAL_NOT_NUMBER", "", "the text is not a number; zero is stored",
     "letters or a second point in it, or an exponent above 999", "check the text"},
    {real, REAL_NULL_FIELD, "REAL_NULL_FIELD", "", "a packed field holds null; zero is stored",
     "the field was never filled, or was stored from a null", "treat it as missing, or use the zero"},
    {decimal, DEC_OK, "DEC_OK", "", "done", "none", "nothing to do"},
    {decimal, DEC_NEGATIVE_PLACES, "DEC_NEGATIVE_PLACES", "", "a negative number of decimal places was asked for",
     "the places given to rounding or truncation are below 0", "give 0 or more places"},
    {decimal, DEC_NOT_COMPARABLE, "DEC_NOT_COMPARABLE", "", "the numbers cannot be compared", "one of them is null",
     "test for null before"},
    {decimal, DEC_OVERFLOW, "DEC_OVERFLOW", "", "the result is too large",
     "its base-100 exponent is above 63 (about 1e126), or it is outside the integer asked for",
     "check the operands; the REAL layer stores the largest REAL in its place"},
    {decimal, DEC_UNDERFLOW, "DEC_UNDERFLOW", "", "the result is too small",
     "its base-100 exponent is below -64 (about 1e-130)", "check the operands; the REAL layer stores zero"},
    {decimal, DEC_DIVISION_BY_ZERO, "DEC_DIVISION_BY_ZERO", "", "division by zero", "the divisor has no digits",
     "test the divisor before"},
    {decimal, DEC_BAD_TEXT, "DEC_BAD_TEXT", "", "the text is not a number", "a character that no number has",
     "check the text"},
    {decimal, DEC_BAD_EXPONENT, "DEC_BAD_EXPONENT", "", "the exponent in the text is above 999",
     "a number that no REAL can hold", "check the text"},
};

} // namespace

std::span<const Explanation> code_rows()
{
    return rows;
}
