/* SPDX-License-Identifier: MIT
 *
 * A module that forges the loader's list of libraries, which debuggers rely on: it goes in circles, through addresses
 * where there is nothing. */
#include <elf.h>
#include <link.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "ka/dll_module.h"

t_DLL_PROTO KaArgList[] = {{"number", KA_INT_BY_VALUE, 0}};
t_DLL_FUNC KaFuncList[] = {{"same", 0, 1, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    return *(int32_t *)argv[0];
}

static struct link_map forged = {.l_addr = 4, .l_ld = (ElfW(Dyn) *)0x10, .l_next = &forged};
static struct r_debug list = {.r_version = 1, .r_map = &forged};

static void make_writable(void *address)
{
    const uintptr_t page = (uintptr_t)address & ~(uintptr_t)4095;
    if (mprotect((void *)page, 8192, PROT_READ | PROT_WRITE) != 0) abort();
}

void dll_setup(void)
{
    for (ElfW(Dyn) *entry = _DYNAMIC; entry->d_tag != DT_NULL; entry++) {
        if (entry->d_tag != DT_DEBUG) continue;
        make_writable(entry);
        entry->d_un.d_ptr = (ElfW(Addr)) & list;
        return;
    }
    abort();
}
