// SPDX-License-Identifier: MIT
//
// Hosts of the modules of these tests.
#ifndef TESTS_MODULE_HOSTS_OF_H
#define TESTS_MODULE_HOSTS_OF_H

#include "caller/hosts.h"
#include "ka/caller.hpp"

class ModuleTest : public testing::TestWithParam<int32_t> {
protected:
    static ka::Options in_layout()
    {
        ka::Options options;
        options.layout = GetParam();
        return options;
    }
};

#endif
