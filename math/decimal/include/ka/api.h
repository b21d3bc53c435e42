/* SPDX-License-Identifier: MIT
 *
 * KA_API marks the names that a library or a module exports. Everything is built with hidden visibility; only marked
 * names are seen from outside, also in a module that is built with -fvisibility=hidden. */
#ifndef KA_API_H
#define KA_API_H

#define KA_API __attribute__((visibility("default")))

#endif
