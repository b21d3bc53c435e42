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

// The code of a call that is sent unchecked, in which an argument is said to have that many elements.
template <typename... Arguments>
std::int32_t code_with_elements(const std::string &module, ka::Options options, const char *function,
                                std::int32_t argument, std::int32_t elements, const Arguments &...arguments)
{
    options.checking = KA_RAW;
    ka::Host host(module, options);
    host.begin(function);
    (host.add(arguments), ...);
    ka_descriptor descriptor = host.descriptor(argument);
    descriptor.elcnt = elements;
    host.set_descriptor(argument, descriptor);
    return host.send();
}

#endif
