/* SPDX-License-Identifier: MIT
 *
 * The calls of the guide in C, beside which a package for an interpreter is measured. Prints two medians in
 * microseconds: of a call with its arguments and results, and of the time inside ka_call.
 * usage: bench_python_guide MODULE WAY CALLS TRANSPORT IDLE-THREADS
 * MODULE is examples/adder for the way add, else examples/tour. */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "ka/caller.h"

enum { MANY = 1000, FEW = 10, WARM = 1000 };

static double begun, ended; /* around ka_call, in microseconds */

static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec * 1e6 + (double)t.tv_nsec / 1e3;
}

static void need(ka_host *host, int32_t status)
{
    if (status == KA_DONE) return;
    fprintf(stderr, "bench_python_guide: %s\n", ka_last_error(host)->message);
    exit(1);
}

static void call(ka_host *host)
{
    int32_t code = 0;
    begun = now();
    need(host, ka_call(host, &code));
    ended = now();
}

static void add(ka_host *host)
{
    int32_t sum = 0;
    ka_begin(host, "add");
    ka_add_integer(host, 2, KA_BY_VALUE);
    ka_add_integer(host, 40, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    call(host);
    need(host, ka_get_integers(host, 3, &sum, 1));
}

static void ask(ka_host *host)
{
    int32_t both[2];
    ka_begin(host, "ask");
    ka_add_integer(host, 7, KA_BY_VALUE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    call(host);
    need(host, ka_get_integers(host, 2, &both[0], 1));
    need(host, ka_get_integers(host, 3, &both[1], 1));
}

static void total(ka_host *host)
{
    static const int32_t values[FEW] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    int32_t back[FEW], sum = 0;
    ka_begin(host, "total");
    ka_add_integers(host, values, FEW, KA_BY_REFERENCE);
    ka_add_integer(host, 0, KA_BY_REFERENCE);
    call(host);
    need(host, ka_get_integers(host, 1, back, FEW));
    need(host, ka_get_integers(host, 2, &sum, 1));
}

static double doubles[MANY];

static void scale_doubles(ka_host *host)
{
    double back[MANY], largest = 0;
    ka_begin(host, "scale");
    ka_add_integer(host, 1, KA_BY_VALUE);
    ka_add_doubles(host, doubles, MANY, KA_BY_REFERENCE);
    ka_add_double(host, 0, KA_BY_REFERENCE);
    call(host);
    need(host, ka_get_doubles(host, 2, back, MANY));
    need(host, ka_get_doubles(host, 3, &largest, 1));
}

static t_DECIMAL reals[MANY];

static void scale_reals(ka_host *host)
{
    t_DECIMAL back[MANY], largest;
    ka_begin(host, "scale");
    ka_add_integer(host, 1, KA_BY_VALUE);
    ka_add_reals(host, reals, MANY, KA_BY_REFERENCE);
    ka_add_double(host, 0, KA_BY_REFERENCE);
    call(host);
    need(host, ka_get_reals(host, 2, back, MANY));
    need(host, ka_get_reals(host, 3, &largest, 1));
}

/* As bench/python/ways.py has them: 0.5, 1.75, 3 ... */
static void fill(void)
{
    for (int i = 0; i < MANY; i++) {
        char text[32];
        doubles[i] = 0.5 + 1.25 * i;
        const int length = snprintf(text, sizeof text, "%.2f", doubles[i]);
        if (ka_real_from_text(text, length, &reals[i]) != KA_DONE) exit(1);
    }
}

static int32_t answer(ka_host *host, int32_t value, void *user)
{
    (void)host;
    (void)user;
    return value;
}

static void *idle(void *which)
{
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static pthread_cond_t never = PTHREAD_COND_INITIALIZER;
    if (*(int *)which % 2 == 0)
        for (;;)
            pause();
    pthread_mutex_lock(&mutex);
    for (;;)
        pthread_cond_wait(&never, &mutex);
    return NULL;
}

static int compare(const void *a, const void *b)
{
    const double x = *(const double *)a, y = *(const double *)b;
    return (x > y) - (x < y);
}

static double median(double *values, int count)
{
    qsort(values, (size_t)count, sizeof *values, compare);
    return values[count / 2];
}

int main(int argc, char **argv)
{
    static const struct {
        const char *name;
        void (*run)(ka_host *host);
    } ways[] = {{"add", add}, {"ask", ask}, {"total", total}, {"doubles", scale_doubles}, {"reals", scale_reals}};
    if (argc != 6) return 2;
    void (*run)(ka_host *) = NULL;
    for (size_t i = 0; i < sizeof ways / sizeof *ways; i++)
        if (strcmp(ways[i].name, argv[2]) == 0) run = ways[i].run;
    const int calls = atoi(argv[3]);
    if (run == NULL || calls < 1) return 2;
    static int numbers[4] = {0, 1, 2, 3};
    for (int i = 0; i < atoi(argv[5]); i++) {
        pthread_t thread;
        if (pthread_create(&thread, NULL, idle, &numbers[i % 4]) != 0) return 1;
    }

    ka_options options;
    ka_options_init(&options, sizeof options);
    options.transport = strcmp(argv[4], "fast") == 0 ? KA_TRANSPORT_FAST : KA_TRANSPORT_SIGNALS;
    options.callback = answer;
    ka_host *host;
    need(host, ka_open(&host, argv[1], &options));
    fill();
    double *whole = calloc((size_t)calls, sizeof *whole);
    double *inside = calloc((size_t)calls, sizeof *inside);
    if (whole == NULL || inside == NULL) return 1;
    for (int i = 0; i < WARM && i < calls; i++)
        run(host);
    for (int i = 0; i < calls; i++) {
        const double start = now();
        run(host);
        whole[i] = now() - start;
        inside[i] = ended - begun;
    }
    printf("%.3f %.3f\n", median(whole, calls), median(inside, calls));
    ka_close(host);
    return 0;
}
