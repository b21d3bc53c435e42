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
 *     else fprintf(stderr, "%s\n", ka_last_error(host)->message);
 *     ka_close(host);
 *
 * What holds for every function:
 *  - The result is KA_DONE or the class of an error; ka_last_error tells the rest. The return code of the called
 *    function is never an error of this library.
 *  - Arguments are counted from 1, elements from 0. Lengths and sizes are bytes. Pointers must not be null unless it
 *    is said; the data they point to is copied before the function returns.
 *  - A host is used by one thread at a time, not always the same; different hosts by different threads at the same
 *    time. In a child that the program forks, the hosts of its parent have ended: it may close them, which does not
 *    touch the parent's, and open its own.
 *  - A thread that is cancelled (pthread_cancel) inside a function of this library ends after it, not inside it.
 *  - A call is checked against the module's tables before it is sent (KA_REFUSED), so the return code is the
 *    function's own. Two codes can still be the host's: 2, no memory for the arguments, and -1, a value that the
 *    function left in its arguments could not be given back. See ka_options.checking.
 *  - While a host is open, the library handles SIGUSR2: it installs a handler, and hands on to the program's earlier
 *    handler what does not come from a host; where there was none, such a signal is dropped. No thread needs to block
 *    SIGUSR2. See ka_options.waiting for the other way.
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

/* Classes of errors. After KA_REFUSED, KA_TOO_BIG and KA_ARGUMENT the host can be used further, after the others it
   has ended; see ka_options.restart. A trace level that cannot be set is KA_SYSTEM too, and ends nothing. */
enum {
    KA_DONE = 0,
    KA_START = 1,    /* the module could not be started, or ended at start */
    KA_REFUSED = 2,  /* the call does not suit the module's tables; nothing was sent */
    KA_DIED = 3,     /* the host ended by itself, or was killed */
    KA_DEADLINE = 4, /* no answer in time; the host was ended */
    KA_TOO_BIG = 5,  /* the call does not fit the segment; needed_bytes says what would */
    KA_CLOSED = 6,   /* the host has ended earlier, or belongs to the parent process */
    KA_SYSTEM = 7,   /* the system refused something; sys_errno says why */
    KA_ARGUMENT = 8, /* a bad argument, or a function out of turn */
    KA_CANCELLED = 9 /* cancel_fd became readable; the host was ended */
};

/* The name of a class: "refused", "died". "unknown" for any other number. */
KA_API const char *ka_error_name(int32_t error_class);

/* May the call that failed be made again, on a host that still lives or on a new one? */
enum {
    KA_RETRY_NO = 0,    /* it would fail again: KA_START, KA_REFUSED, KA_TOO_BIG, KA_ARGUMENT */
    KA_RETRY_YES = 1,   /* the function was not called */
    KA_RETRY_UNSURE = 2 /* the function may have been called, and have had effects */
};

/* Owned by the library; fields may be added at the end. */
typedef struct ka_error {
    int32_t error_class;
    int32_t retry;        /* KA_RETRY_NO, KA_RETRY_YES, KA_RETRY_UNSURE */
    int32_t sys_errno;    /* KA_START, KA_SYSTEM: errno, or 0 */
    int32_t exit_status;  /* of a host that exited by itself; else -1 */
    int32_t signal;       /* that ended the host; else 0 */
    int32_t return_code;  /* KA_REFUSED: with which the host would have refused; else 0 */
    int32_t argument;     /* KA_REFUSED, KA_ARGUMENT: the argument that is wrong; 0 for none in particular */
    int64_t needed_bytes; /* KA_TOO_BIG: the segment_bytes with which the call would fit */
    char message[512];    /* one line without line end, names what was wrong; empty when there was no error */
} ka_error;

/* Layout of the shared block; every module serves both, and both serve 32- and 64-bit callers. */
enum { KA_LAYOUT_NATIVE = 0, KA_LAYOUT_64 = 64 };

/* Called for each call-back; returns the answer. It may use ka_scratch and
   ka_set_trace, nothing else of the host, and must return. */
typedef int32_t ka_callback(ka_host *host, int32_t value, void *user);

/* ka_options.checking */
enum {
    KA_CHECKED = 0, /* what the host would refuse is refused here, with a text that says why */
    KA_RAW = 1      /* calls are sent as they were built; the host's refusals come back as return codes */
};

/* ka_options.waiting */
enum {
    KA_WAIT_SAFE = 0, /* for every program, with threads and SIGUSR2 handlers of its own */
    KA_WAIT_FAST = 1 /* for programs in which SIGUSR2 is blocked in every thread as long as a host is open, those with
                        one thread above all: the library blocks it in the thread that opens a host, drops what others
                        send there, and starts no thread. The host belongs to that thread: when the thread ends, the
                        kernel sends the host SIGTERM. All open hosts of a program wait in the same way. */
};

/* ka_options.restart: what becomes of a host that has ended otherwise than by ka_close. Its scratch area, trace level
   and options stay what they were; the module's own memory is new. */
enum {
    KA_RESTART_NEVER = 0,     /* every further call fails with KA_CLOSED */
    KA_RESTART_NEXT_CALL = 1, /* the next call starts it again */
    KA_RESTART_AT_ONCE = 2    /* the call that fails starts it again, unless that would be too soon; else the next */
};

/* Trace levels of a host: 0 for none to KA_TRACE_MAX for everything. */
enum { KA_TRACE_MAX = 4 };

/* ka_options.error_output: where standard error of the host goes. */
enum {
    KA_STDERR_INHERIT = 0, /* where the program's own goes; who reads that slowly slows the host */
    KA_STDERR_FILE = 1,    /* to error_fd */
    KA_STDERR_RING = 2 /* into memory of the library, which keeps the last ring_bytes and never makes the host wait */
};

/* Called by the library in a thread of its own while the host is stopped, right before it ends by a signal, or is
   ended for its deadline or a cancellation: pid can be looked at with ptrace, which the thread holds already. signal
   is what ends it. Writes lines about what it finds, a backtrace, zero-terminated, into text, which has room for size
   bytes; and must return. Where a thread of the module fails, pid is that thread's.
   For this a host is traced from its start on, which makes every call slower and sends the program a SIGCHLD each
   time. The program must not wait for any child (wait, waitpid(-1)) while such a host is open: that would take the
   stops away from the tracer, and the host would stand still until its deadline. Not called where the system forbids
   tracing. */
typedef void ka_inspector(int32_t pid, int32_t signal, char *text, int32_t size, void *user);

/* Filled by ka_options_init. Fields may be added at the end: size tells the library which ones it was given. */
typedef struct ka_options {
    uint32_t size;
    int32_t layout;           /* KA_LAYOUT_NATIVE */
    int32_t segment_bytes;    /* the whole shared segment: 1 MiB */
    int32_t scratch_bytes;    /* of it, the scratch area at its end: 64 KiB; 0 for none */
    int32_t deadline_ms;      /* for the start, and for each call with its call-backs: 30 s */
    int32_t grace_ms;         /* from SIGTERM to SIGKILL when the host is ended: 2 s */
    int32_t cancel_fd;        /* a descriptor that ends a waiting start or call once it is readable; -1 for none */
    ka_callback *callback;    /* null: every call-back is answered 0 */
    void *user;               /* handed to callback and inspector */
    int32_t checking;         /* KA_CHECKED */
    int32_t waiting;          /* KA_WAIT_SAFE */
    int32_t restart;          /* KA_RESTART_NEVER */
    int32_t restart_pause_ms; /* from one start to the next at least, doubled by each death in a row: 100 ms... */
    int32_t restart_pause_max_ms; /* ...up to this: 10 s. A pause is part of the next call, and of its deadline */
    int32_t trace_level;          /* dll_debug of the host, set before its first call unless 0: 0 */
    int32_t error_output;         /* KA_STDERR_INHERIT */
    int32_t error_fd;             /* KA_STDERR_FILE: duplicated by ka_open; -1 */
    int32_t ring_bytes;           /* KA_STDERR_RING: 64 KiB */
    ka_inspector *inspector;      /* null: deaths are reported without a backtrace, and hosts are not traced */
} ka_options;

/* Sets every field to the default named beside it. size is sizeof(ka_options). */
KA_API void ka_options_init(ka_options *options, uint32_t size);

/* Starts the executable at the path module, which is not searched for. options may be null: all defaults. *host is
   set also when the start failed, for ka_last_error and ka_close; it is null only when there is no memory. */
KA_API int32_t ka_open(ka_host **host, const char *module, const ka_options *options);

/* Ends the host: SIGTERM, and SIGKILL when it outlives the grace time; what it has forked gets SIGKILL after it,
   where it is still in the host's process group. Frees everything; host may be null. KA_ARGUMENT, and nothing is
   done, inside a call-back. KA_SYSTEM when a process of this host could not be ended: ka_last_error names it, and the
   host must be closed once more, which frees it. */
KA_API int32_t ka_close(ka_host *host);

/* The host's last error; valid until the next function is called on the host. A null host: no memory. */
KA_API const ka_error *ka_last_error(const ka_host *host);

/* What is known about the last error, as lines of text or as one JSON object: module, process, function, the
   arguments as the block holds them, how and when the host ended, the last lines of its standard error
   (KA_STDERR_RING), what the inspector wrote. Zero-terminated, owned by the host, valid until the next function is
   called on it; null when there was no error or no memory. */
KA_API const char *ka_report_text(ka_host *host);
KA_API const char *ka_report_json(ka_host *host);

/* Copies the last bytes of the host's standard error, at most size of them, as far as the ring keeps them; returns
   how many. 0 when there is no ring. After an error they are those of the host that failed. */
KA_API int32_t ka_error_output(ka_host *host, char *buffer, int32_t size);

/* Ends the host, when it lives, and starts it again, whatever the restart policy; a call that was begun is forgotten.
   KA_ARGUMENT inside a call-back. */
KA_API int32_t ka_restart(ka_host *host);

/* Sets dll_debug in the running host, between calls or from a call-back; takes effect at once. Also remembered for
   restarts. KA_ARGUMENT for a level that does not exist, and nothing is changed. KA_SYSTEM when the host's memory
   cannot be written: the host goes on. A ka_options.trace_level that cannot be set is told in the same way, by the
   first call, which is not sent. */
KA_API int32_t ka_set_trace(ka_host *host, int32_t level);

/* Sets deadline_ms for the calls and starts that follow. KA_ARGUMENT unless it is above 0. */
KA_API int32_t ka_set_deadline(ka_host *host, int32_t deadline_ms);

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

/* The same for a single value; ka_add_real reads decimal text (ka_real_read). */
KA_API int32_t ka_add_integer(ka_host *host, int32_t value, int32_t passing);
KA_API int32_t ka_add_real(ka_host *host, const char *text, int32_t passing);
KA_API int32_t ka_add_double(ka_host *host, double value, int32_t passing);
KA_API int32_t ka_add_string(ka_host *host, const char *data, int32_t length, int32_t room, int32_t passing);

/* A descriptor as the block holds it, for those who test modules and hosts. */
typedef struct ka_descriptor {
    int32_t type; /* DLL_INTEGER, DLL_REAL, DLL_STRING of ka/dll_block.h */
    int32_t ref;
    int64_t offset; /* of the value from the start of the segment; what is stored is the address */
    int32_t maxlen;
    int32_t elsz;
    int32_t elcnt;
} ka_descriptor;

/* Reads, and overwrites, the descriptor of an argument that was added, 0 for the function name; and the count of
   descriptors. Only with KA_RAW; between ka_begin and ka_call. Results are read as the argument was added, never as
   the descriptor says. KA_ARGUMENT when there is no such argument, or the host is checked. */
KA_API int32_t ka_get_descriptor(ka_host *host, int32_t argument, ka_descriptor *descriptor);
KA_API int32_t ka_set_descriptor(ka_host *host, int32_t argument, const ka_descriptor *descriptor);
KA_API int32_t ka_set_argc(ka_host *host, int32_t argc);

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

/* ---- The module's tables --------------------------------------------------------------------------------------- */

typedef struct ka_prototype {
    const char *name;
    int32_t kind;         /* KA_VARARG ... of ka/dll_module.h; any number when the module's table is wrong, and
                             INT32_MIN of a prototype that lies outside the module */
    int32_t min_elements; /* array kinds: the least number of elements */
} ka_prototype;

typedef struct ka_function {
    const char *name;
    int32_t prototype_count; /* at most 51: one more than a call can use; negative when the module's table is wrong */
    const ka_prototype *prototypes;
} ka_function;

typedef struct ka_tables {
    const ka_function *functions; /* in the module's order: of two with one name only the first can be called */
    int32_t function_count;
} ka_tables;

/* The tables of the running host, as they stand in its memory once it has started; waits for that, within the
   deadline. Where the system guards that memory, those of its file. Owned by the host, valid until it ends. Null,
   with ka_last_error set, when they cannot be read. */
KA_API const ka_tables *ka_host_tables(ka_host *host);

/* The tables in a module's file, which is not run: pointers and counts that the module computes as it starts are
   missing. Null when there are none, with the reason in why, which has room for size bytes. */
KA_API ka_tables *ka_read_tables(const char *module, char *why, int32_t size);
KA_API void ka_free_tables(ka_tables *tables); /* of ka_read_tables; may be null */

/* The function of that name in tables that this library has read, or null. */
KA_API const ka_function *ka_find_function(const ka_tables *tables, const char *name);

/* Reads dll_debug of any running host into *old, unless it is null, and sets it to *level, unless it is null: to any
   number, so that what a module has set can be put back.
   KA_DONE, KA_ARGUMENT when the process is no host, KA_SYSTEM; then why, which has room for size bytes, says what was
   wrong. */
KA_API int32_t ka_trace_process(int32_t pid, const int32_t *level, int32_t *old, char *why, int32_t size);

/* ---- REAL values and text -------------------------------------------------------------------------------------- */

/* Characters that the text of a REAL needs at most, terminator included. */
enum { KA_REAL_TEXT = 32 };

/* Reads a number such as -4.2 or 1e9 that takes up the whole text and stores the nearest REAL: 15 or 16 significant
   decimals, the last one rounded half away from zero; all decimals of the text count. *exact, unless exact is null,
   becomes 1 when the REAL is the very number, 0 when it was rounded or refused. KA_ARGUMENT, with a null REAL stored,
   when the text is no number, its exponent is above 999, or its magnitude is out of a REAL's range: above about
   1e126, or below 1e-130 without being zero. */
KA_API int32_t ka_real_read(const char *text, int32_t length, t_DECIMAL *value, int32_t *exact);

/* ka_real_read for those who do not ask whether the number was rounded. */
KA_API int32_t ka_real_from_text(const char *text, int32_t length, t_DECIMAL *value);

/* Writes value exactly, shortest form, zero-terminated: 4.2, 1E+20; "null" for null. Returns text. */
KA_API char *ka_real_to_text(const t_DECIMAL *value, char text[KA_REAL_TEXT]);

#ifdef __cplusplus
}
#endif

#endif
