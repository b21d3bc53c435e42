/* SPDX-License-Identifier: MIT
 *
 * The version of the library, which the build knows. */
#include "ka/caller.h"

const char *ka_version(void)
{
    return KA_VERSION;
}
