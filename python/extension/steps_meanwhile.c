/* SPDX-License-Identifier: MIT
 *
 * Until libkacall has ka_send: its steps, made of ka_call in a thread for each call. */
#define _GNU_SOURCE
#include <pthread.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include "steps_meanwhile.h"
#undef ka_open

typedef struct t_STEPS {
    ka_host *ka;
    pthread_mutex_t lock;
    pthread_cond_t changed;
    int what; /* KA_WAITING while the thread is at work */
    int32_t value, status;
    bool answered, under_way;
    int cancel;
    pthread_t thread;
    struct t_STEPS *next;
} t_STEPS;

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static t_STEPS *all;

static t_STEPS *steps_of(ka_host *ka)
{
    pthread_mutex_lock(&lock);
    t_STEPS *steps = all;
    while (steps->ka != ka)
        steps = steps->next;
    pthread_mutex_unlock(&lock);
    return steps;
}

static int32_t called_back(ka_host *ka, int32_t value, void *user)
{
    (void)ka;
    t_STEPS *steps = user;
    pthread_mutex_lock(&steps->lock);
    steps->what = KA_CALLBACK;
    steps->value = value;
    steps->answered = false;
    pthread_cond_broadcast(&steps->changed);
    while (!steps->answered)
        pthread_cond_wait(&steps->changed, &steps->lock);
    value = steps->value;
    pthread_mutex_unlock(&steps->lock);
    return value;
}

int32_t meanwhile_open(ka_host **ka, const char *path, ka_options *options)
{
    t_STEPS *steps = calloc(1, sizeof *steps);
    pthread_mutex_init(&steps->lock, NULL);
    pthread_cond_init(&steps->changed, NULL);
    steps->cancel = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    options->callback = called_back;
    options->user = steps;
    options->cancel_fd = steps->cancel;
    const int32_t status = ka_open(ka, path, options);
    steps->ka = *ka;
    pthread_mutex_lock(&lock);
    steps->next = all;
    all = steps;
    pthread_mutex_unlock(&lock);
    return status;
}

static void *work(void *argument)
{
    t_STEPS *steps = argument;
    int32_t code = 0;
    const int32_t status = ka_call(steps->ka, &code);
    pthread_mutex_lock(&steps->lock);
    steps->status = status;
    steps->value = code;
    steps->what = KA_RETURNED;
    pthread_cond_broadcast(&steps->changed);
    pthread_mutex_unlock(&steps->lock);
    return NULL;
}

int32_t ka_send(ka_host *ka)
{
    t_STEPS *steps = steps_of(ka);
    steps->what = KA_WAITING;
    steps->under_way = true;
    pthread_create(&steps->thread, NULL, work, steps);
    return KA_DONE;
}

int32_t ka_wait(ka_host *ka, int32_t timeout_ms, int32_t *what, int32_t *value)
{
    t_STEPS *steps = steps_of(ka);
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    if (timeout_ms < 0) timeout_ms = 3600 * 1000;
    until.tv_sec += timeout_ms / 1000;
    until.tv_nsec += timeout_ms % 1000 * 1000000L;
    if (until.tv_nsec >= 1000000000L) until.tv_sec++, until.tv_nsec -= 1000000000L;
    pthread_mutex_lock(&steps->lock);
    while (steps->what == KA_WAITING && pthread_cond_timedwait(&steps->changed, &steps->lock, &until) == 0)
        ;
    *what = steps->what;
    *value = steps->value;
    pthread_mutex_unlock(&steps->lock);
    if (*what != KA_RETURNED) return KA_DONE;
    pthread_join(steps->thread, NULL);
    steps->under_way = false;
    eventfd_t count;
    eventfd_read(steps->cancel, &count);
    return steps->status;
}

int32_t ka_answer(ka_host *ka, int32_t value)
{
    t_STEPS *steps = steps_of(ka);
    pthread_mutex_lock(&steps->lock);
    steps->value = value;
    steps->what = KA_WAITING;
    steps->answered = true;
    pthread_cond_broadcast(&steps->changed);
    pthread_mutex_unlock(&steps->lock);
    return KA_DONE;
}

int32_t ka_cancel(ka_host *ka)
{
    t_STEPS *steps = steps_of(ka);
    if (!steps->under_way) return 0;
    eventfd_write(steps->cancel, 1);
    return 1;
}
