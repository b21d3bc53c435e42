// SPDX-License-Identifier: MIT
#include "say.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "ka/dll_host.h"

namespace driver {
namespace {

int32_t said = 0; // bytes in the scratch area

}

void start_saying()
{
    said = 0;
    void *const area = dll_scratch(4);
    if (area != nullptr) memcpy(area, &said, sizeof said);
}

void say(const char *format, ...)
{
    char text[400];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    char *const area = static_cast<char *>(dll_scratch(4 + said + length));
    if (area == nullptr) {
        (void)!write(2, text, static_cast<size_t>(length));
        return;
    }
    memcpy(area + 4 + said, text, static_cast<size_t>(length));
    said += length;
    memcpy(area, &said, sizeof said);
}

} // namespace driver
