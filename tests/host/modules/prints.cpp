// SPDX-License-Identifier: MIT
//
// A module whose static constructor prints without flushing, and whose dll_setup opens files that get the numbers of
// what was closed. By the environment:
//   PRINTS=n         n times 'o' on standard output
//   PRINTS_BUFFER=n  into a buffer of n bytes
//   PRINTS_WIDE=1    as wide characters
//   PRINTS_INTO=f    n times 'f' into the file f, opened by the constructor
//   PRINTS_ERRORS=n  n times 'e' on standard error, into a buffer
//   PRINTS_READER=1  a thread of the constructor's has standard input locked for ever, as one that reads there does
//   PRINTS_RAISES=n  before all that, signal n
//   SETUP_FOLDER=d   dll_setup opens the files 0, 1, 2 and 3 in the folder d
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <wchar.h>

#include "ka/dll_module.h"

namespace {

int number(const char *name)
{
    const char *text = getenv(name);
    return text == nullptr ? 0 : atoi(text);
}

void print(FILE *file, char character, int count)
{
    for (int i = 0; i < count; i++)
        fputc(character, file);
}

void print_wide(int count)
{
    for (int i = 0; i < count; i++)
        putwchar(L'o');
}

pthread_barrier_t reading;

void *read_for_ever(void *)
{
    flockfile(stdin);
    pthread_barrier_wait(&reading);
    for (;;)
        pause();
}

void start_reader()
{
    pthread_t thread;
    pthread_barrier_init(&reading, nullptr, 2);
    if (pthread_create(&thread, nullptr, read_for_ever, nullptr) != 0) abort();
    pthread_barrier_wait(&reading);
}

__attribute__((constructor)) void print_early()
{
    if (number("PRINTS_RAISES") != 0) raise(number("PRINTS_RAISES"));
    if (number("PRINTS_READER") != 0) start_reader();
    static char errors[4096];
    const int buffer = number("PRINTS_BUFFER");
    if (buffer > 0)
        setvbuf(stdout, static_cast<char *>(malloc(static_cast<size_t>(buffer))), _IOFBF,
                static_cast<size_t>(buffer));
    if (number("PRINTS_WIDE") != 0) {
        print_wide(number("PRINTS"));
    } else {
        print(stdout, 'o', number("PRINTS"));
    }
    const char *into = getenv("PRINTS_INTO");
    if (into != nullptr) print(fopen(into, "w"), 'f', number("PRINTS"));
    if (number("PRINTS_ERRORS") == 0) return;
    setvbuf(stderr, errors, _IOFBF, sizeof errors);
    print(stderr, 'e', number("PRINTS_ERRORS"));
}

} // namespace

void dll_setup(void)
{
    const char *folder = getenv("SETUP_FOLDER");
    for (int i = 0; folder != nullptr && i < 4; i++) {
        char path[200];
        snprintf(path, sizeof path, "%s/%d", folder, i);
        if (open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600) == -1) abort();
    }
}
