// SPDX-License-Identifier: MIT
//
// A program that talks to modules is run once for each word size that modules have. Which one this run is for, the
// environment says: KA_MODULE_BITS. By hand it can be left out, and is that of the program itself.
#ifndef TESTS_MODULE_BITS_H
#define TESTS_MODULE_BITS_H

#include <cstdlib>
#include <string>

inline int module_bits()
{
    static const int bits = [] {
        const char *const set = std::getenv("KA_MODULE_BITS");
        return set != nullptr ? std::atoi(set) : static_cast<int>(8 * sizeof(void *));
    }();
    return bits;
}

// Modules of a folder of the build lie in one folder below it for each word size.
inline std::string module_folder(const std::string &folder)
{
    return folder + "/" + std::to_string(module_bits());
}

// How a compiler is told so.
inline std::string module_flag()
{
    return " -m" + std::to_string(module_bits()) + " ";
}

// Where a build has the libraries for them.
inline std::string library_folder(const std::string &build)
{
    return build + (module_bits() == 64 ? "/lib64" : "/lib");
}

// The examples of the machine's own word size, which has ka's, lie beside the folder of the others.
inline std::string examples_folder(const std::string &folder)
{
    return module_bits() == static_cast<int>(8 * sizeof(void *)) ? folder
                                                                 : folder + "/" + std::to_string(module_bits());
}

#endif
