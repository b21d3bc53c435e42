/* SPDX-License-Identifier: MIT
 *
 * The block of a unit test's calls. Between the values, and after a call over all of them, AddressSanitizer is told
 * that nobody may read or write there, if it is in the program. */
#ifndef KA_TEST_BLOCK_H
#define KA_TEST_BLOCK_H

#include "ka/module_test.h"
#include "ka/real_text.h"

struct ka_test {
    ka_test_settings settings;
    char *block;
    int32_t segment_bytes; /* as they were when it was opened */
    int32_t scratch_bytes;
};

enum : int32_t { VALUES_START = sizeof(t_DLL_INFO64) };

void create_block(ka_test *test);
int32_t scratch_offset(const ka_test *test);

/* The following are for the caller whose block the host has. */
void write_header(ka_test *test);
void place_call(ka_test *test, const char *function, const ka_test_argument *arguments);
void take_results(ka_test *test, ka_test_argument *arguments);

#endif
