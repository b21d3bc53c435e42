/* SPDX-License-Identifier: MIT
 *
 * The library that borrowed.c has a name from. */
#include "ka/api.h"

KA_API extern const char borrowed_name[];
const char borrowed_name[] = "borrowed";
