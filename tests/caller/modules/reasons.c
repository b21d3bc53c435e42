// SPDX-License-Identifier: MIT
//
// A module that says why: each function writes its text on standard error as it is, and returns its code. Of other
// names there are more.
#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"
#include <signal.h>
#include <stddef.h>
#include <unistd.h>

t_DLL_PROTO KaArgList[] = {{"code", KA_INT_BY_VALUE, 0}, {"text", KA_STRING, 0}};
t_DLL_FUNC KaFuncList[] = {
    {"say", 0, 2, NULL},         {"say_more", 0, 2, NULL},     {"a \x1b[31mname: ", 0, 2, NULL},
    {"say_and_die", 0, 2, NULL}, {"say_and_hang", 0, 2, NULL}, {NULL, 0, 0, NULL},
};

int32_t KaCall(int32_t index, void **argv)
{
    const KaStr *text = argv[1];
    for (int32_t at = 0; at < text->len;) {
        const ssize_t count = write(STDERR_FILENO, text->data + at, (size_t)(text->len - at));
        if (count < 0) return -2;
        at += (int32_t)count;
    }
    if (index == 3) raise(SIGKILL);
    if (index == 4) dll_callback(0);
    while (index == 4)
        pause();
    return *(int32_t *)argv[0];
}
