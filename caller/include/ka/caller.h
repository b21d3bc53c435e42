/* SPDX-License-Identifier: MIT
 *
 * The caller's side: starts a function module in a process of its own, calls its functions, answers its call-backs,
 * reads what it gives back, and ends it. Nothing is left behind, whichever of the two processes dies.
 *
 *     ka_host *host;
 *     int32_t code;
 *     int32_t sum;
 *     ka_open(&host, "./adder", NULL);
 *     ka_begin(host, "add");
 *     ka_add_integer(host, 2, KA_BY_VALUE);
 *     ka_add_integer(host, 3, KA_BY_VALUE);
 *     ka_add_integer(host, 0, KA_BY_REFERENCE);
 *     if (ka_call(host, &code) == KA_DONE) ka_get_integers(host, 3, &sum, 1);
 *     else fprintf(stderr, "%s\n", ka_last_error(host)->text);
 *     ka_close(host);
 *
 * What holds for every function:
 *  - The result is KA_DONE or the class of an error; ka_last_error tells the rest. The return code of the called
 *    function is never an error of this library.
 *  - Arguments are counted from 1, elements from 0. Lengths and sizes are bytes. Pointers must not be null unless it
 *    is said; the data they point to is copied before the function returns.
 *  - One thread opens, uses and closes a host. When that thread ends, the kernel sends the host SIGTERM, as it does
 * when the whole program dies.
 *  - While a host is open, SIGUSR2 is blocked in that thread, and restored when its last host is closed; what others
 *    send there meanwhile is dropped. A program with more threads keeps SIGUSR2 blocked in all of them, for a reply
 *    that met an unblocked thread would end the program.
 *  - The exit status of a host that died is only known when the program leaves its children to this library: with
 *    SIGCHLD ignored, or a handler that waits for any child, the death is still seen at once, its cause is not. */
#ifndef KA_CALLER_H
#define KA_CALLER_H

#include <stdint.h>

#include "ka/api.h"
#include "ka/decimal.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A module and the process it runs in. */
typedef struct ka_host ka_host;

/* Classes of errors. After KA_TOO_BIG and KA_ARGUMENT the host can be used further, after the others it has ended.
   2 is kept free. */
enum {
    KA_DONE = 0,
    KA_START = 1,    /* the module could not be started, or ended at start */
    KA_DIED = 3,     /* the host ended by itself, or was killed */
    KA_DEADLINE = 4, /* no answer in time; the host was ended */
    KA_TOO_BIG = 5,  /* the call does not fit the segment; needed_bytes says what would */
    KA_CLOSED = 6,   /* the host has ended earlier */
    KA_SYSTEM = 7,   /* the system refused something; sys_errno says why */
    KA_ARGUMENT = 8, /* a bad argument, or a function out of turn */
    KA_CANCELLED = 9 /* cancel_fd became readable; the host was ended */
};

/* Owned by the library; fields may be added at the end. */
typedef struct ka_error {
    int32_t error_class;
    int32_t sys_errno;    /* KA_START, KA_SYSTEM: errno, or 0 */
    int32_t exit_status;  /* of a host that exited by itself; else -1 */
    int32_t signal;       /* that ended the host; else 0 */
    int64_t needed_bytes; /* KA_TOO_BIG: the segment_bytes with which the call would fit */
    char text[512];       /* one line without line end, names what was wrong; empty when there was no error */
} ka_error;

/* Layout of the shared block; every module serves both, and both serve 32- and 64-bit callers. */
enum { KA_LAYOUT_NATIVE = 0, KA_LAYOUT_64 = 64 };

/* Called for each call-back; returns the answer. It may use ka_scratch, nothing else of the host, and must return. */
typedef int32_t ka_callback(ka_host *host, int32_t value, void *user);

/* Filled by ka_options_init. Fields may be added at the end: size tells the library which ones it was given. */
typedef struct ka_options {
    uint32_t size;
    int32_t layout;        /* KA_LAYOUT_NATIVE */
    int32_t segment_bytes; /* the whole shared segment: 1 MiB */
    int32_t scratch_bytes; /* of it, the scratch area at its end: 64 KiB; 0 for none */
    int32_t deadline_ms;   /* for the start, and for each call with its call-backs: 30 s */
    int32_t grace_ms;      /* from SIGTERM to SIGKILL when the host is ended: 2 s */
    int32_t cancel_fd;     /* a descriptor that ends a waiting start or call once it is readable; -1 for none */
    ka_callback *callback; /* null: every call-back is answered 0 */
    void *user;            /* handed to callback */
} ka_options;

/* Sets every field to the default named beside it. size is sizeof(ka_options). */
KA_API void ka_options_init(ka_options *options, uint32_t size);

/* Starts the executable at the path module, which is not searched for. options may be null: all defaults. *host is
   set also when the start failed, for ka_last_error and ka_close; it is null only when there is no memory. */
KA_API int32_t ka_open(ka_host **host, const char *module, const ka_options *options);

/* Ends the host: SIGTERM, and SIGKILL when it outlives the grace time. Frees everything; host may be null.
   KA_ARGUMENT, and nothing is done, inside a call-back. */
KA_API int32_t ka_close(ka_host *host);

/* The host's last error; valid until the next function is called on the host. A null host: no memory. */
KA_API const ka_error *ka_last_error(const ka_host *host);

/* The host's process id, 0 when it has ended. For people and tools: it is no proof that the host still lives. */
KA_API int32_t ka_pid(const ka_host *host);

/* The scratch area and, unless size is null, its size. Null when there is none. Its use is agreed between caller and
   module. Valid until the host is closed. */
KA_API void *ka_scratch(ka_host *host, int32_t *size);

/* ---- Building a call ------------------------------------------------------------------------------------------- */

/* How an argument is passed: only what goes by reference can come back changed. */
enum { KA_BY_VALUE = 0, KA_BY_REFERENCE = 1 };

/* Characters of a string, not terminated. data may be null when length is 0. */
typedef struct ka_text {
    const char *data;
    int32_t length;
} ka_text;

/* Begins a call of function, a zero-terminated name; forgets the call before and its results. The first error while a
   call is built is kept, and ka_call answers with it, so only ka_call need be checked. */
KA_API int32_t ka_begin(ka_host *host, const char *function);

/* Add one argument each, of count elements. Strings get room for room characters each; 0 stands for the length of the
   longest. KA_ARGUMENT for a null REAL, a double that no REAL can hold, or a string longer than its room. */
KA_API int32_t ka_add_integers(ka_host *host, const int32_t *values, int32_t count, int32_t passing);
KA_API int32_t ka_add_reals(ka_host *host, const t_DECIMAL *values, int32_t count, int32_t passing);
KA_API int32_t ka_add_doubles(ka_host *host, const double *values, int32_t count, int32_t passing);
KA_API int32_t ka_add_strings(ka_host *host, const ka_text *values, int32_t count, int32_t room, int32_t passing);

/* The same for a single value; ka_add_real reads decimal text. */
KA_API int32_t ka_add_integer(ka_host *host, int32_t value, int32_t passing);
KA_API int32_t ka_add_real(ka_host *host, const char *text, int32_t passing);
KA_API int32_t ka_add_double(ka_host *host, double value, int32_t passing);
KA_API int32_t ka_add_string(ka_host *host, const char *data, int32_t length, int32_t room, int32_t passing);

/* Makes the call that was built, answers its call-backs, and stores the function's return code. */
KA_API int32_t ka_call(ka_host *host, int32_t *return_code);

/* ---- Results, from the end of a call until the next is begun --------------------------------------------------- */

/* 1 when the argument was passed by reference and the module gives it back; else 0. */
KA_API int32_t ka_gives_back(const ka_host *host, int32_t argument);

/* Store the first count elements of an argument that is given back. What a module left malformed is made safe: a REAL
   with impossible digits is read as null. ka_get_doubles gives NaN for null. */
KA_API int32_t ka_get_integers(ka_host *host, int32_t argument, int32_t *values, int32_t count);
KA_API int32_t ka_get_reals(ka_host *host, int32_t argument, t_DECIMAL *values, int32_t count);
KA_API int32_t ka_get_doubles(ka_host *host, int32_t argument, double *values, int32_t count);

/* Copies at most size characters of a string, not terminated, and stores its length, which is never below 0 nor above
   its room. buffer may be null when size is 0. */
KA_API int32_t ka_get_string(ka_host *host, int32_t argument, int32_t element, char *buffer, int32_t size,
                             int32_t *length);

/* ---- REAL values and text -------------------------------------------------------------------------------------- */

/* Characters that the text of a REAL needs at most, terminator included. */
enum { KA_REAL_TEXT = 32 };

/* Reads a number such as -4.2 or 1e9 that takes up the whole text. At most 18 significant decimals count.
   KA_ARGUMENT, with a null REAL stored, when it is no number or out of a REAL's range. */
KA_API int32_t ka_real_from_text(const char *text, int32_t length, t_DECIMAL *value);

/* Writes value exactly, shortest form, zero-terminated: 4.2, 1E+20; "null" for null. Returns text. */
KA_API char *ka_real_to_text(const t_DECIMAL *value, char text[KA_REAL_TEXT]);

#ifdef __cplusplus
}
#endif

#endif
