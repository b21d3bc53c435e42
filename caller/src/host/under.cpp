/* SPDX-License-Identifier: MIT
 *
 * See under.h. */
#include "under.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "surroundings.h"

void forget_under(ka_host *host)
{
    for (int32_t i = 0; i < host->life.word_count; i++)
        free(host->life.words[i]);
    free(host->life.words);
    host->life.words = nullptr;
    host->life.word_count = 0;
}

static bool add_word(ka_host *host, const char *folder, const char *word)
{
    const size_t size = strlen(folder) + strlen(word) + 1;
    char *copy = static_cast<char *>(malloc(size));
    if (!copy) return false;
    snprintf(copy, size, "%s%s", folder, word);
    host->life.words[host->life.word_count++] = copy;
    return true;
}

/* A command looks for a name without a slash in PATH, as the library does not. */
static bool copy_words(ka_host *host, const char *const *words, size_t count)
{
    const char *folder = strchr(host->module, '/') ? "" : "./";
    host->life.words =
        static_cast<char **>(calloc(count + 3, sizeof host->life.words[0])); /* an argument, and null */
    bool copied = host->life.words != nullptr;
    for (size_t i = 0; i < count && copied; i++)
        copied = add_word(host, "", words[i]);
    return copied && add_word(host, folder, host->module);
}

int32_t take_under(ka_host *host)
{
    const char *const *words = host->options.under;
    size_t count = 0;
    if (!words) return KA_DONE;
    while (words[count])
        count++;
    if (count == 0) return fail(host, KA_ARGUMENT, "under has no words; the first is the name of a command");
    host->options.under = nullptr; /* the program's own memory */
    if (!copy_words(host, words, count)) return fail_system(host, ENOMEM, "cannot keep the words of under");
    return strchr(words[0], '/') ? fix_path(host, &host->life.words[0]) : int32_t{KA_DONE};
}
