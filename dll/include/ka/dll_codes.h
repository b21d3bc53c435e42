/* SPDX-License-Identifier: MIT
 *
 * The call host's own return codes. They travel in the same field as the function's return code, and nothing else
 * distinguishes the two: a function that avoids these values can be understood by every caller. */
#ifndef KA_DLL_CODES_H
#define KA_DLL_CODES_H

enum {
    KA_OK = 0,
    KA_NO_MEMORY = 2,         /* the host has no memory for a converted argument */
    KA_NO_FUNCTION = 7,       /* no function of that name */
    KA_WRONG_TYPE = 8,        /* the value type does not suit the kind; or argument 0 is not a string */
    KA_WRONG_COUNT = 9,       /* no function name, too many or too few arguments */
    KA_TOO_FEW_ELEMENTS = 17, /* an array argument has fewer elements than its prototype asks for */
    KA_TOO_MANY_ARGS = 606,   /* more than 50 arguments */
    KA_BAD_PROTOTYPE = -1     /* a prototype's kind is not 0 to 9, or changed during the call */
};

/* Exit status of a host process that could not start. */
enum { KA_EXIT_START = 2 };

#endif
