/* SPDX-License-Identifier: MIT
 *
 * A function module that fails at lines which the test of the backtrace knows by their comments. */
#include <pthread.h>
#include <unistd.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/real.h"

#define NOINLINE __attribute__((noinline))

static volatile int32_t done;

NOINLINE static int32_t write_to_nothing(volatile int32_t *nothing)
{
    *nothing = 7; /* the fault */
    return ++done;
}

NOINLINE static int32_t crash(void)
{
    const int32_t code = write_to_nothing((volatile int32_t *)16);
    return code + done;
}

static void *run_thread(void *argument)
{
    write_to_nothing(argument);
    return NULL;
}

NOINLINE static int32_t crash_in_a_thread(void)
{
    pthread_t thread;
    pthread_create(&thread, NULL, run_thread, (void *)16);
    pthread_join(thread, NULL);
    return done;
}

NOINLINE static int32_t spin(void)
{
    while (done == 0) /* the loop */
        ;
    return done;
}

NOINLINE static int32_t compute_with_null(void)
{
    const t_DECIMAL null = {0, DEC_NULL, 0, {0}};
    t_DECIMAL sum;
    m_add(&null, &null, &sum); /* the null REAL */
    return done;
}

NOINLINE static int32_t recurse(int32_t depth)
{
    volatile char space[4096];
    space[0] = (char)depth;
    return depth == done - 1 ? 0 : recurse(depth + 1) + space[0]; /* done - 1 is never reached */
}

NOINLINE static int32_t ask_odd(int32_t depth);

NOINLINE static int32_t ask_even(int32_t depth)
{
    return depth == done - 1 ? 0 : ask_odd(depth + 1) + done;
}

NOINLINE static int32_t ask_odd(int32_t depth)
{
    return depth == done - 1 ? 0 : ask_even(depth + 1) - done;
}

/* As deep as it can be known how deep. */
NOINLINE static int32_t descend(int32_t depth)
{
    return depth == 0 ? write_to_nothing((volatile int32_t *)16) : descend(depth - 1) + done;
}

static void *run_recursion(void *argument)
{
    (void)argument;
    done = recurse(1);
    return NULL;
}

NOINLINE static int32_t recurse_in_a_thread(void)
{
    pthread_t thread;
    pthread_create(&thread, NULL, run_recursion, NULL);
    pthread_join(thread, NULL);
    return done;
}

t_DLL_PROTO KaArgList[] = {{NULL, 0, 0}};
t_DLL_FUNC KaFuncList[] = {{"crash", 0, 0, NULL},     {"thread", 0, 0, NULL},         {"spin", 0, 0, NULL},
                           {"null_real", 0, 0, NULL}, {"recurse", 0, 0, NULL},        {"turns", 0, 0, NULL},
                           {"descend", 0, 0, NULL},   {"thread_recurse", 0, 0, NULL}, {NULL, 0, 0, NULL}};

int32_t KaCall(int32_t index, void **argv)
{
    (void)argv;
    switch (index) {
    case 0:
        return crash() + 1;
    case 1:
        return crash_in_a_thread() + 1;
    case 2:
        return spin() + 1;
    case 3:
        return compute_with_null() + 1;
    case 5:
        return ask_even(1) + 1;
    case 6:
        return descend(99) + 1;
    case 7:
        return recurse_in_a_thread() + 1;
    default:
        return recurse(1) + 1;
    }
}
