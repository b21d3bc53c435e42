// SPDX-License-Identifier: MIT
//
// What tests see and set of the module tested.cpp, beside its functions.
#ifndef TESTS_MODULE_TEST_TESTED_H
#define TESTS_MODULE_TEST_TESTED_H

#include <string>

extern std::string hooks_that_ran;
extern bool calls_back_in_setup; // from the next dll_setup on
extern bool prints_its_end;

#endif
