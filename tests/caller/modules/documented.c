// SPDX-License-Identifier: MIT
//
// A module with tables by hand, whose functions have all kinds of words of their own: records of documentation, some
// of them not sound, and whatever else. What is named good_... has documentation.
#include "ka/dll_doc.h"
#include "ka/dll_module.h"
#include <stddef.h>

#define HEAD(VERSION, LENGTH) {DLL_DOC_MAGIC}, VERSION, LENGTH
enum { SIZE = sizeof(t_DLL_DOC) };

static const char *const arguments[] = {"the first", NULL, "the \x1b[31mthird\nof four\n", ""};
static const t_DLL_DOC good = {HEAD(1, SIZE), "adds, \xc3\xa4hnlich", arguments};
static const t_DLL_DOC good_alone = {HEAD(1, SIZE), "alone", NULL};
static const t_DLL_DOC good_arguments = {HEAD(1, SIZE), NULL, arguments};
static const struct {
    t_DLL_DOC doc;
    const char *more;
} good_later = {{HEAD(2, SIZE + sizeof(char *)), "a later version\nof two lines", NULL}, "more"};
static const t_DLL_DOC magic = {{"KA.DOX\0"}, 1, SIZE, "magic", NULL};
static const t_DLL_DOC version = {HEAD(0, SIZE), "version", NULL};
static const t_DLL_DOC short_one = {HEAD(1, SIZE - 1), "short", NULL};
static const t_DLL_DOC negative = {HEAD(1, -1), "negative", NULL};
static const t_DLL_DOC endless = {HEAD(1, INT32_MAX), "endless", NULL};
static const t_DLL_DOC wild = {HEAD(1, SIZE), (const char *)-16, (const char *const *)-16};
static const char text[] = "KA.DO, but no record";
static t_DLL_DOC late; // of memory that the file does not fill
#define X4 'x', 'x', 'x', 'x'
#define X32 X4, X4, X4, X4, X4, X4, X4, X4
#define X256 X32, X32, X32, X32, X32, X32, X32, X32
#define X2048 X256, X256, X256, X256, X256, X256, X256, X256
static const char long_text[DLL_DOC_TEXT_MAX + 1] = {X2048, X2048, '\0'};
static const t_DLL_DOC too_long = {HEAD(1, SIZE), long_text, NULL};
static const t_DLL_DOC good_longest = {HEAD(1, SIZE), long_text + 1, NULL};

t_DLL_PROTO KaArgList[] = {{"a", 1, 0}, {"b", 1, 0}, {"c", 1, 0}, {"d", 1, 0}};
t_DLL_FUNC KaFuncList[] = {
    {"good", 0, 4, (void *)&good},
    {"good_alone", 0, 4, (void *)&good_alone},
    {"good_arguments", 0, 3, (void *)&good_arguments},
    {"good_later", 0, 0, (void *)&good_later},
    {"good_longest", 0, 0, (void *)&good_longest},
    {"none", 0, 1, NULL},
    {"one", 0, 1, (void *)1},
    {"minus_one", 0, 1, (void *)-1},
    {"text", 0, 1, (void *)text},
    {"table", 0, 1, KaArgList},
    {"magic", 0, 1, (void *)&magic},
    {"version", 0, 1, (void *)&version},
    {"short", 0, 1, (void *)&short_one},
    {"negative", 0, 1, (void *)&negative},
    {"endless", 0, 1, (void *)&endless},
    {"wild", 0, 1, (void *)&wild},
    {"late", 0, 1, &late},
    {"too_long", 0, 1, (void *)&too_long},
    {NULL, 0, 0, NULL},
};

int32_t KaCall(int32_t index, void **argv)
{
    (void)argv;
    return index;
}

void dll_setup(void)
{
    late = good_alone;
}
