// SPDX-License-Identifier: MIT
//
// A module that uses a library of the distribution.
#include <zlib.h>

#include <ka/module.hpp>

std::string_view version()
{
    return zlibVersion();
}

std::int32_t checksum(std::string_view text)
{
    return static_cast<std::int32_t>(adler32(1, reinterpret_cast<const Bytef *>(text.data()), static_cast<uInt>(text.size())));
}

std::int32_t bits()
{
    return 8 * sizeof(void *);
}

KA_MODULE(KA_FN(version), KA_FN(checksum, "text"), KA_FN(bits))
