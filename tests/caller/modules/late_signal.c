/* SPDX-License-Identifier: MIT
 *
 * A module whose host takes its time between what it writes and the signal that tells it: the host's kill is this
 * one. */
#define _GNU_SOURCE
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ka/dll_host.h>
#include <ka/dll_module.h>

t_DLL_PROTO KaArgList[] = {{"code", KA_INT_BY_VALUE, 0}};
t_DLL_FUNC KaFuncList[] = {{"give_code", 0, 1, NULL}, {NULL, 0, 0, NULL}};

__attribute__((visibility("default"))) int kill(pid_t process, int number)
{
    usleep(10000);
    return (int)syscall(SYS_kill, process, number);
}

int32_t KaCall(int32_t index, void **argv)
{
    (void)index;
    return *(int32_t *)argv[0];
}
