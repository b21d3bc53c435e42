/* SPDX-License-Identifier: MIT
 *
 * REALs and decimal text, exactly, for callers and for unit tests of modules: these functions are in libkacall and in
 * libkahost_test. Modules have ka/real.h and ka/real.hpp. */
#ifndef KA_REAL_TEXT_H
#define KA_REAL_TEXT_H

#include <stdint.h>

#include "ka/api.h"
#include "ka/decimal.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The most characters that the text of a REAL needs, terminator included. */
enum { KA_REAL_TEXT = 32 };

/* Reads a number such as -4.2 or 1e9, which must be the whole text, and stores the nearest REAL: 15 or 16 significant
   decimals, the last one rounded half away from zero; all decimals of the text count. *exact, unless exact is null,
   becomes 1 when the REAL is the very number, 0 when it was rounded or refused. Returns 0, which is KA_DONE of
   ka/caller.h; or 8, KA_ARGUMENT, with a null REAL stored, when the text is not a number, its exponent is above 999,
   or its magnitude is out of a REAL's range: above about 1e126, or below 1e-130 without being zero. */
KA_API int32_t ka_real_read(const char *text, int32_t length, t_DECIMAL *value, int32_t *exact);

/* ka_real_read for those who need not know whether the number was rounded. */
KA_API int32_t ka_real_from_text(const char *text, int32_t length, t_DECIMAL *value);

/* Writes value exactly, in its shortest form, zero-terminated: 4.2, 1E+20; "null" for null. Returns text. */
KA_API char *ka_real_to_text(const t_DECIMAL *value, char text[KA_REAL_TEXT]);

#ifdef __cplusplus
}
#endif

#endif
