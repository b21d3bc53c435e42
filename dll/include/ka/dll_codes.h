/* SPDX-License-Identifier: MIT
 *
 * What a call returns besides the function's own return code: both travel in the same field, and the host does not
 * tell them apart. A function that avoids these values can be understood by every caller. */
#ifndef KA_DLL_CODES_H
#define KA_DLL_CODES_H

enum {
    KA_OK = 0,
    KA_NO_MEMORY = 2,         /* a converted argument does not fit the host's memory */
    KA_NO_FUNCTION = 7,       /* no function of that name */
    KA_WRONG_TYPE = 8,        /* the value type does not suit the kind; or argument 0 is not a string */
    KA_WRONG_COUNT = 9,       /* no function name, too many or too few arguments */
    KA_TOO_FEW_ELEMENTS = 17, /* an array argument is shorter than its prototype asks */
    KA_TOO_MANY_ARGS = 606,   /* more than 50 arguments */
    KA_BAD_PROTOTYPE = -1     /* a prototype's kind is not 0 to 9 */
};

/* Exit status of a host that could not start. */
enum { KA_EXIT_START = 2 };

#endif
