/* SPDX-License-Identifier: MIT
 *
 * A module that misleads the kernel about itself: it gives the number of its program headers as the environment says,
 * in KA_TEST_HEADERS. Everything else stays as it is. */
#define _GNU_SOURCE
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <linux/prctl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "ka/dll_module.h"

t_DLL_PROTO KaArgList[] = {{"number", KA_INT_BY_VALUE, 0}};
t_DLL_FUNC KaFuncList[] = {{"same", 0, 1, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    return *(int32_t *)argv[0];
}

static long read_all(const char *path, void *bytes, size_t size)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    const long length = read(fd, bytes, size);
    if (fd == -1 || length <= 0) abort();
    close(fd);
    return length;
}

/* The fields of /proc/self/stat after the name, which are numbered from 3. */
static void read_places(unsigned long long fields[53])
{
    char text[2048];
    const long length = read_all("/proc/self/stat", text, sizeof text - 1);
    text[length] = '\0';
    char *at = strrchr(text, ')') + 3; /* after the state */
    for (int i = 4; i < 53; i++)
        fields[i] = strtoull(at, &at, 10);
}

/* As a 64-bit kernel reads it of programs of both word sizes: code, data, heap, stack, arguments and environment, and
 * where the new values are. */
struct t_MAP {
    uint64_t places[12];
    uint32_t size;
    uint32_t program_fd; /* -1 for the same */
};

void dll_setup(void)
{
    const char *wish = getenv("KA_TEST_HEADERS");
    ElfW(auxv_t) entries[64];
    unsigned long long fields[53] = {0};
    if (!wish) return;
    const long size = read_all("/proc/self/auxv", entries, sizeof entries);
    for (size_t i = 0; i < (size_t)size / sizeof entries[0]; i++)
        if (entries[i].a_type == AT_PHNUM) entries[i].a_un.a_val = (uint32_t)strtol(wish, NULL, 10);
    read_places(fields);
    const struct t_MAP map = {{fields[26], fields[27], fields[45], fields[46], fields[47], (uintptr_t)sbrk(0),
                               fields[28], fields[48], fields[49], fields[50], fields[51], (uintptr_t)entries},
                              (uint32_t)size,
                              ~0u};
    if (syscall(SYS_prctl, PR_SET_MM, PR_SET_MM_MAP, &map, sizeof map, 0) != 0) abort();
}
