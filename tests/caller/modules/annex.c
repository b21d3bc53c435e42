/* SPDX-License-Identifier: MIT
 *
 * A module that writes behind the block, or leaves its process to another program. */
#define _GNU_SOURCE
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"

/* Zeros, ones or noise. */
static void fill(unsigned char *place, int32_t bytes, int32_t pattern)
{
    for (int32_t i = 0; i < bytes; i++)
        place[i] = (unsigned char)(pattern == 2 ? rand() : pattern == 1 ? 0xff : 0);
}

/* So many bytes of the segment from that offset on. */
static int32_t blot(void **argv)
{
    fill((unsigned char *)u_get_baseptr() + *(int32_t *)argv[0], *(int32_t *)argv[1], *(int32_t *)argv[2]);
    return 5;
}

static struct {
    unsigned char *place;
    int32_t bytes;
} stained;

static void *stain(void *unused)
{
    (void)unused;
    for (;;) {
        fill(stained.place, stained.bytes, 2);
        usleep(50);
    }
    return NULL;
}

/* The same again and again, from now on. */
static int32_t keep_blotting(void **argv)
{
    pthread_t thread;
    stained.place = (unsigned char *)u_get_baseptr() + *(int32_t *)argv[0];
    stained.bytes = *(int32_t *)argv[1];
    return pthread_create(&thread, NULL, stain, NULL);
}

static int32_t become(void **argv)
{
    (void)argv;
    execl("/bin/sleep", "sleep", "100", (char *)NULL);
    return 1;
}

static int32_t ask(void **argv)
{
    return dll_callback(*(int32_t *)argv[0]);
}

t_DLL_PROTO KaArgList[] = {
    {"offset", KA_INT_BY_VALUE, 0}, {"bytes", KA_INT_BY_VALUE, 0}, {"pattern", KA_INT_BY_VALUE, 0}};

t_DLL_FUNC KaFuncList[] = {
    {"blot", 0, 3, NULL}, {"keep_blotting", 0, 2, NULL}, {"become", 0, 0, NULL}, {"ask", 0, 1, NULL},
    {NULL, 0, 0, NULL},
};

int32_t KaCall(int32_t index, void **argv)
{
    static int32_t (*const functions[])(void **) = {blot, keep_blotting, become, ask};
    return functions[index](argv);
}
