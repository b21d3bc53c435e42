// SPDX-License-Identifier: MIT
//
// The module of ordinary functions, with a host of it in either layout.
#ifndef TESTS_MODULE_ORDINARY_H
#define TESTS_MODULE_ORDINARY_H

#include "module/hosts_of.h"

inline const std::string ordinary_module = module_path("ordinary");

class Ordinary : public ModuleTest {
protected:
    // The result behind one argument; the return code is expected to be 0.
    template <typename T>
    double result_of(const char *function, const T &argument)
    {
        double result = 0;
        EXPECT_EQ(host.call(function, argument, ka::ref(result)), 0);
        return result;
    }
    template <typename T>
    std::int32_t length_in(const char *function, const T &argument)
    {
        std::int32_t result = 0;
        EXPECT_EQ(host.call(function, argument, ka::ref(result)), 0);
        return result;
    }

    ka::Host host{ordinary_module, in_layout()};
};

class Parameters : public Ordinary {};
class Returns : public Ordinary {};

#endif
