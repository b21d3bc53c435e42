/* SPDX-License-Identifier: MIT
 *
 * The tables of a module, read from an image and kept. */
#ifndef KA_CALLER_TABLES_H
#define KA_CALLER_TABLES_H

#include <stddef.h>
#include <stdint.h>

#include "ka/caller.h"

struct t_IMAGE;

/* Null, with the reason in why. */
ka_tables *read_image_tables(t_IMAGE *image, char *why, size_t size);

/* The function of that name, or null. */
const ka_function *look_up(const ka_tables *tables, const char *name, int32_t length);

enum { KIND_UNREADABLE = INT32_MIN }; /* of a prototype that lies outside the module */

#endif
