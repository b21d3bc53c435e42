/* SPDX-License-Identifier: MIT
 *
 * The caller's side: starts a function module in a process of its own, calls its functions, answers its call-backs,
 * reads what it gives back, and ends it. Nothing is left over, whichever of the two processes dies. Caller and module
 * are programs of 32 or of 64 bits each; which, makes no difference to either.
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
 * Rules for every function:
 *  - The result is KA_DONE or the class of an error; ka_last_error has the rest. The return code of the called
 *    function is never an error of this library.
 *  - Arguments are counted from 1, elements from 0. Lengths and sizes are in bytes. A pointer must not be null unless
 *    the function allows it. Data is copied before the function returns.
 *  - A host is used by one thread at a time, not always the same one. Different threads can use different hosts
 *    at the same time. A function that finds another thread inside a function with the same host does nothing
 *    and touches nothing: it gives KA_ARGUMENT, "used by another thread", or null, 0 or -1 where it gives no
 *    class. Only ka_pid, ka_last_error, ka_cancel and ka_retire can be used beside another thread. In a child
 *    that the program forks, the hosts of its parent have ended: the child may close them, which does not touch
 *    the parent's, and may open its own.
 *  - pthread_cancel takes effect after the function of this library that the thread is in, not inside it.
 *  - A call is checked against the module's tables before it is sent (KA_REFUSED), so the return code is the
 *    function's own. Two codes can still be the call host's: 2, no memory for the arguments, and -1, the function
 *    changed its own prototypes while it ran, so not all results went back. See ka_options.checking.
 *  - While a host is open, the library handles SIGUSR2: it installs a handler, and hands on to the program's
 *    earlier handler every signal that does not come from a host; without an earlier handler such a signal is
 *    dropped. No thread needs to block SIGUSR2. A handler, SIG_DFL or SIG_IGN that the program installs later is
 *    found before each request whose reply is a signal, and the library's is put before it again.
 *    ka_options.waiting has the other way.
 *  - The library learns how a host process ended only if the program lets it reap its own children. With SIGCHLD
 *    ignored, or a handler that waits for any child, a death is still noticed at once, but not its cause. */
#ifndef KA_CALLER_H
#define KA_CALLER_H

#include <stdint.h>

#include "ka/api.h"
#include "ka/decimal.h"
#include "ka/real_text.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A module and the process that it runs in, the host process. */
typedef struct ka_host ka_host;

/* ---- The library ----------------------------------------------------------------------------------------------- */

/* The version of the library that runs: "1.2.3". For those who cannot include this header, share/kahost/caller.json
   has its constants, records and functions. */
KA_API const char *ka_version(void);

/* ---- Error classes --------------------------------------------------------------------------------------------- */

/* After KA_REFUSED, KA_TOO_BIG and KA_ARGUMENT the host can be used further. After the others it has ended; see
   ka_options.restart. But KA_SYSTEM because of a trace level or of unreadable tables ends nothing. */
enum {
    KA_DONE = 0,
    KA_START = 1,    /* the module could not be started, or ended at start */
    KA_REFUSED = 2,  /* the call does not suit the module's tables; nothing was sent */
    KA_DIED = 3,     /* the host process ended by itself, or was killed */
    KA_DEADLINE = 4, /* no answer in time; the host process was ended */
    KA_TOO_BIG = 5,  /* the call does not fit the segment; ka_error.needed_bytes would; nothing was sent */
    KA_CLOSED = 6,   /* the host has ended earlier, was closed, or belongs to the parent process */
    KA_SYSTEM = 7,   /* the system refused something; ka_error.sys_errno says why */
    KA_ARGUMENT = 8, /* a bad argument, or a function out of turn */
    KA_CANCELLED = 9 /* by ka_cancel or cancel_fd; the host process was ended */
};

/* The name of a class: "refused", "died"; "unknown" for any other number. Never null, never freed. */
KA_API const char *ka_error_name(int32_t error_class);

/* ka_error.retry: may the call that failed be made again? On this host, if it still lives or may start again
   (ka_options.restart); else on a new one. */
enum {
    KA_RETRY_NO = 0,    /* it would fail again: KA_START, KA_REFUSED, KA_TOO_BIG, KA_ARGUMENT; and KA_CLOSED of a host
                           that will not come back: with this host every call fails so */
    KA_RETRY_YES = 1,   /* the function was not called */
    KA_RETRY_UNSURE = 2 /* the function may have been called, and have had effects */
};

/* Owned by the library; fields may be added at the end. */
typedef struct ka_error {
    int32_t error_class;
    int32_t retry;        /* KA_RETRY_NO, KA_RETRY_YES, KA_RETRY_UNSURE */
    int32_t sys_errno;    /* KA_START, KA_SYSTEM: errno, or 0 */
    int32_t exit_status;  /* of a host process that exited by itself; else -1 */
    int32_t signal;       /* that killed the host process; else 0 */
    int32_t return_code;  /* KA_REFUSED: with which the call host would have refused; else 0 */
    int32_t argument;     /* KA_REFUSED, KA_ARGUMENT: the argument that is wrong; 0 if no particular one is */
    int64_t needed_bytes; /* KA_TOO_BIG: the segment_bytes with which the call would fit */
    char message[512];    /* one line without a line end that names what was wrong; empty when there was no error */
} ka_error;

/* ---- Options --------------------------------------------------------------------------------------------------- */

/* ka_options.layout: of the shared segment. Nobody has to choose one: every module serves both, and both serve
   callers and modules of 32 and 64 bits. */
enum { KA_LAYOUT_NATIVE = 0, KA_LAYOUT_64 = 64 };

/* ka_options.callback: called for each call-back, in the thread that is in ka_call; returns the answer. Of its own
   host it may use ka_scratch, ka_wait_fd, ka_host_tables, ka_set_trace, ka_set_deadline (for the next call), ka_pid,
   ka_last_error, the reports, ka_error_output, ka_cancel and ka_retire; every other function gives KA_ARGUMENT, null
   or 0. Of other hosts it may use everything. It must return: no exception and no longjmp may leave it, and it must
   not end its thread. */
typedef int32_t ka_callback(ka_host *host, int32_t value, void *user);

/* ka_options.checking */
enum {
    KA_CHECKED = 0, /* a call that the call host would refuse is refused here, with a message that says why */
    KA_RAW = 1      /* calls are sent as they were built; the call host's refusals come back as return codes */
};

/* ka_options.waiting. All open hosts of a program wait in the same way. */
enum {
    KA_WAIT_SAFE = 0, /* for every program, with threads and SIGUSR2 handlers of its own */
    KA_WAIT_FAST = 1 /* for programs in which SIGUSR2 is blocked in every thread while a host is open, above all those
                        with one thread. The library blocks it in the thread that opens a host, drops SIGUSR2 of other
                        senders there, and starts no thread but for KA_STDERR_RING and inspectors. The host belongs
                        to that thread: when the thread ends, the kernel sends the host process SIGTERM. */
};

/* ka_options.transport: how requests and replies travel between the library and its own call host. A call does the
   same in each. A call host that follows the protocol's document alone is always called as with KA_TRANSPORT_PLAIN.
 */
enum {
    KA_TRANSPORT_SIGNALS = 0, /* requests are signals; replies come through memory behind the shared block, which also
                                 tells whether the host lives */
    KA_TRANSPORT_FAST = 1,    /* both go through that memory. On two processors a call that follows another one within
                                 spin_us takes a small part of the time; so does a call-back. A first call after a pause
                                 gains nothing. With a cancel_fd calls are made as with KA_TRANSPORT_SIGNALS */
    KA_TRANSPORT_PLAIN = 2    /* both are signals, as the protocol's document has them */
};

/* ka_options.restart: may a host start again after it has ended other than by ka_close? Its scratch area, trace level
   and options stay what they were; the module's own memory is new. */
enum {
    KA_RESTART_NEVER = 0,     /* every further call fails with KA_CLOSED */
    KA_RESTART_NEXT_CALL = 1, /* the next call starts it again */
    KA_RESTART_AT_ONCE = 2    /* the call that fails starts it again, unless that would be too soon; else the next */
};

/* ka_options.trace_level: 0 for no trace to KA_TRACE_MAX for everything. */
enum { KA_TRACE_MAX = 4 };

/* ka_options.spin_us */
enum { KA_SPIN_MAX = 1000 };

/* ka_options.error_output: where standard error of the host process goes. */
enum {
    KA_STDERR_INHERIT = 0, /* where the program's own goes; a slow reader there slows the host process */
    KA_STDERR_FILE = 1,    /* to error_fd */
    KA_STDERR_RING = 2     /* into a buffer of the library, which keeps the last ring_bytes and never makes the host
                              process wait */
};

/* ka_options.reasons: does the library look for the reasons of return codes? See ka_reason. */
enum {
    KA_REASONS_OFF = 0,
    KA_REASONS_ON = 1 /* with KA_STDERR_RING only. Each call waits until what came before it is in the ring, and after
                         a code that is not 0 once more: each wait is a switch of threads and back */
};

/* ka_options.inspector: called by the library in a thread of its own, while the host process is stopped right before
   it ends by a signal, or is ended for its deadline or a cancellation. pid is stopped under ptrace by that thread, so
   it can be examined; if a thread of the module fails, pid is that thread's id. signal is the signal that ends it.
   Writes lines about what it finds, such as a backtrace, zero-terminated, into text, which has room for size bytes.
   It must return. Not called where the system forbids tracing.
   For this the host process is traced from its start on. That makes every call slower and sends the program a SIGCHLD
   each time. While such a host is open, the program must not wait for any child (wait, waitpid(-1)): that would take
   the stops away from the tracer, and the host process would stay stopped until its deadline. */
typedef void ka_inspector(int32_t pid, int32_t signal, char *text, int32_t size, void *user);

/* Filled by ka_options_init. Each default is named first, the allowed values after it; ka_open refuses others with
   KA_ARGUMENT. Fields may be added at the end: size tells the library which ones it was given. */
typedef struct ka_options {
    uint32_t size; /* in bytes, as given to ka_options_init */

    /* Limits: of the shared segment, bytes */
    int32_t layout;        /* KA_LAYOUT_NATIVE */
    int32_t segment_bytes; /* 1 MiB: the whole segment; at least scratch_bytes + 1680 */
    int32_t scratch_bytes; /* 64 KiB: the scratch area at its end; 0 for none */

    /* Time */
    int32_t deadline_ms; /* 30 s, above 0: for the start, and for each call with its call-backs */
    int32_t grace_ms;    /* 2 s, not below 0: from SIGTERM to SIGKILL when the host process is ended */
    int32_t cancel_fd;   /* -1, none: a file descriptor that ends a waiting start or call once it is readable */

    /* Call-backs */
    ka_callback *callback; /* null: every call-back is answered with 0 */
    void *user;            /* null: passed to callback and inspector */

    /* Checking */
    int32_t checking; /* KA_CHECKED */

    /* Waiting */
    int32_t waiting; /* KA_WAIT_SAFE */

    /* Restart */
    int32_t restart;              /* KA_RESTART_NEVER */
    int32_t restart_pause_ms;     /* 100 ms, not below 0: least time between two starts, doubled by each death in */
    int32_t restart_pause_max_ms; /* a row up to this, 10 s. A pause is part of the next call and its deadline */

    /* Tracing */
    int32_t trace_level; /* 0: dll_debug of the host process; any other level is set before its first call */

    /* Standard error */
    int32_t error_output; /* KA_STDERR_INHERIT */
    int32_t error_fd;     /* -1: for KA_STDERR_FILE; ka_open duplicates it */
    int32_t ring_bytes;   /* 64 KiB, above 0: for KA_STDERR_RING */

    /* Backtraces */
    ka_inspector *inspector; /* null: deaths are reported without a backtrace, and host processes are not traced */

    /* Transport */
    int32_t transport; /* KA_TRANSPORT_SIGNALS */
    int32_t spin_us; /* 50, 0 to KA_SPIN_MAX: KA_TRANSPORT_FAST: so many microseconds each side looks for the other's
                        words before it sleeps, while that pays. 0: it sleeps at once, and spares processor time */

    /* Start */
    const char *const *under; /* null: the module is executed itself. Else the words of a command, a null behind them:
                                 the command, found as a shell finds it, gets the module's path and argument as
                                 further words, and becomes the host process (taskset, prlimit) or starts it
                                 (gdbserver, strace -f, perf record). The host process is the one that attaches the
                                 segment. ka_open waits for that; ka_pid, signals, deadlines and reports are about it.
                                 The command is ended after it: in the same way, if it does not end by itself within
                                 grace_ms. Then its process group gets SIGKILL. A copy of this process that the
                                 library keeps ends both when the program is killed, or with KA_WAIT_FAST when the
                                 thread ends. What has left the group and is not the host process is not ended */

    /* Reasons */
    int32_t reasons; /* KA_REASONS_OFF */

    /* Surroundings of the host process, and of its command: copied by ka_open, the same for every start */
    const char *const *environment; /* null: that of the program at each start. Else NAME=value, a null behind them:
                                       all that there is. The command is found by the PATH in it */
    const char *directory;          /* null: where the program is at each start. Else its working directory. The path
                                       of the module and a path of the command, if relative, begin where the program
                                       is at ka_open all the same. A directory that cannot be entered is KA_START */

    /* Growth */
    int32_t segment_max; /* 0: the segment stays as it is. Else, at least segment_bytes: it becomes as large as a call
                            needs, but no larger than this. Before the first call that is sent to a host process
                            ka_add_... makes room, and ka_call puts a new process in the place of that one, which can
                            wait; dll_setup runs again. Later such a call is KA_TOO_BIG, and ka_restart right after
                            it makes room. The scratch area keeps its place and its content. The addresses are
                            reserved from the start, the memory is not */
} ka_options;

/* Sets every field to its default. size is sizeof(ka_options). */
KA_API void ka_options_init(ka_options *options, uint32_t size);

/* Sets deadline_ms for the calls and starts that follow. KA_ARGUMENT unless it is above 0. */
KA_API int32_t ka_set_deadline(ka_host *host, int32_t deadline_ms);

/* ---- Life of a host -------------------------------------------------------------------------------------------- */

/* Starts the executable at the path module, without a search in PATH. options may be null: all defaults. *host is set
   even when the start fails, for ka_last_error; it is null only if there is no memory. Fails with KA_START (no such
   file, not a module, a missing loader), KA_ARGUMENT (a bad option), KA_SYSTEM, KA_DEADLINE or KA_CANCELLED. Call
   ka_close in every case. ka_open does not wait until the module is ready: a missing library (KA_START) or a module
   that ends at start (KA_START, KA_DIED) is reported by the first call. */
KA_API int32_t ka_open(ka_host **host, const char *module, const ka_options *options);

/* Ends the host process with SIGTERM, and with SIGKILL if it lives longer than grace_ms; processes that it has forked
   get SIGKILL after it, if they are still in its process group. Frees the host and everything it owns. host may be
   null. KA_ARGUMENT inside a call-back and between the steps of a call: nothing is done. KA_SYSTEM when the process
   could not be ended: ka_last_error names it, and the host must be closed once more, which frees it. */
KA_API int32_t ka_close(ka_host *host);

/* The same for a garbage collector, or at the end of a program: from any thread, at any moment, in a call-back too.
   While no thread is inside a function of the library with this host, it is closed at once, also between the steps of
   a call. Else the call or start that is under way is cancelled, and the thread inside closes the host as it comes
   out of the function. A function that was cut short gives KA_CANCELLED, which ka_last_error then tells that thread;
   every later one gives KA_CLOSED, in every thread, and does nothing, until 64 further hosts were closed: after that
   the pointer must not be used. All that the library has given out of the host (tables, reports, scratch area) ends
   with it. host may be null. KA_DONE: a process that cannot be ended is left. */
KA_API int32_t ka_retire(ka_host *host);

/* Ends the host process, if it lives, and starts a new one, whatever ka_options.restart says. A call that was begun
   is forgotten. After KA_TOO_BIG the segment becomes as large as that call needs, if ka_options.segment_max allows
   it. Fails like ka_open; KA_ARGUMENT inside a call-back and between the steps of a call. */
KA_API int32_t ka_restart(ka_host *host);

/* The id of the host process, 0 when it has ended. For people and tools: it does not prove that the process lives.
   From any thread, also while another one uses the host. */
KA_API int32_t ka_pid(const ka_host *host);

/* The scratch area; its size goes into *size, unless size is null. Null and 0 when there is none. Caller and module
   agree on its use. Valid until the host is closed, across restarts too. */
KA_API void *ka_scratch(ka_host *host, int32_t *size);

/* ---- Errors and reports ---------------------------------------------------------------------------------------- */

/* The host's last error; valid until the next function is called on the host. When this thread was refused last,
   because another thread is inside or because the host was closed or retired, that refusal, which does not touch the
   host. Of a null host: no memory. */
KA_API const ka_error *ka_last_error(const ka_host *host);

/* Everything known about the last error, as lines of text or as one JSON object: module, process, function, the
   arguments as the segment holds them, how and when the host process ended, the last lines of its standard error
   (KA_STDERR_RING), the inspector's lines. Zero-terminated, owned by the host, valid until the next function is
   called on it; null when there was no error, or no memory. */
KA_API const char *ka_report_text(ka_host *host);
KA_API const char *ka_report_json(ka_host *host);

/* Copies the last bytes of the host process's standard error (KA_STDERR_RING), at most size and not terminated, into
   buffer. Returns how many; 0 without KA_STDERR_RING. After an error they are those of the process that failed. */
KA_API int32_t ka_error_output(ka_host *host, char *buffer, int32_t size);

/* Why the last call had a return code other than 0, in the words of the function (KA_REASONS_ON): TEXT of the last
   line "ka: FUNCTION: TEXT" on the host process's standard error that was written during the call, and FUNCTION is
   the one that was called. Functions of ka/module.hpp write it when they end by an exception; any function may. One
   line, zero-terminated; what cannot be shown is \xHH in it. Null when there is none. Of a call that failed, the
   reports have it, too. Owned by the host, valid until the next call is begun. */
KA_API const char *ka_reason(const ka_host *host);

/* ---- Building a call ------------------------------------------------------------------------------------------- */

/* How an argument is passed: only an argument by reference can come back changed. */
enum { KA_BY_VALUE = 0, KA_BY_REFERENCE = 1 };

/* Characters of a string, not terminated. data may be null when length is 0. */
typedef struct ka_text {
    const char *data;
    int32_t length;
} ka_text;

/* Begins a call of function, a zero-terminated name; forgets the call before it, with its results. The first error
   while a call is built is kept, and ka_call returns it, so only ka_call need be checked. KA_ARGUMENT inside a
   call-back; KA_CLOSED when the host has ended and must not start again. */
KA_API int32_t ka_begin(ka_host *host, const char *function);

/* Add one argument each, an array of count elements, which may be 0. Each string gets room for room characters;
   room 0 is the length of the longest. KA_ARGUMENT for a null REAL, a double that a REAL cannot hold, a string that
   is longer than its room, an argument after the 50th; KA_TOO_BIG; KA_CLOSED. */
KA_API int32_t ka_add_integers(ka_host *host, const int32_t *values, int32_t count, int32_t passing);
KA_API int32_t ka_add_reals(ka_host *host, const t_DECIMAL *values, int32_t count, int32_t passing);
KA_API int32_t ka_add_doubles(ka_host *host, const double *values, int32_t count, int32_t passing);
KA_API int32_t ka_add_strings(ka_host *host, const ka_text *values, int32_t count, int32_t room, int32_t passing);

/* The same for REALs in decimal text, each read as by ka_real_read. *rounded, unless rounded is null, becomes the
   first element that was rounded, or -1 when each REAL is the very number of its text, or nothing was added. */
KA_API int32_t ka_add_real_texts(ka_host *host, const ka_text *values, int32_t count, int32_t passing,
                                 int32_t *rounded);

/* The same for a single value; ka_add_real reads zero-terminated decimal text, as ka_real_read does. */
KA_API int32_t ka_add_integer(ka_host *host, int32_t value, int32_t passing);
KA_API int32_t ka_add_real(ka_host *host, const char *text, int32_t passing);
KA_API int32_t ka_add_double(ka_host *host, double value, int32_t passing);
KA_API int32_t ka_add_string(ka_host *host, const char *data, int32_t length, int32_t room, int32_t passing);

/* An argument's descriptor as the segment holds it, for those who test modules and call hosts. */
typedef struct ka_descriptor {
    int32_t type; /* DLL_INTEGER, DLL_REAL, DLL_STRING of ka/dll_block.h */
    int32_t ref;
    int64_t offset; /* of the value from the start of the segment; the descriptor holds the address */
    int32_t maxlen;
    int32_t elsz;
    int32_t elcnt;
} ka_descriptor;

/* Reads and overwrites the descriptor of an argument that was added, 0 for the function name; sets the number of
   descriptors that the call host sees. Only with KA_RAW, between ka_begin and ka_call. Results are read as the
   argument was added, never as the descriptor says. KA_ARGUMENT for no such argument, and with KA_CHECKED. */
KA_API int32_t ka_get_descriptor(ka_host *host, int32_t argument, ka_descriptor *descriptor);
KA_API int32_t ka_set_descriptor(ka_host *host, int32_t argument, const ka_descriptor *descriptor);
KA_API int32_t ka_set_argc(ka_host *host, int32_t argc);

/* Sends the call that was built, answers its call-backs, and stores the function's return code. KA_DONE; the first
   error since ka_begin; KA_REFUSED, KA_TOO_BIG (nothing was sent); KA_START (the host process could not start, or not
   again); KA_DIED, KA_DEADLINE, KA_CANCELLED, KA_SYSTEM (the host has ended); KA_CLOSED; KA_ARGUMENT without ka_begin
   or inside a call-back. *return_code is written on KA_DONE only. */
KA_API int32_t ka_call(ka_host *host, int32_t *return_code);

/* ---- A call in steps ------------------------------------------------------------------------------------------- */

/* What ka_wait stores in *what. */
enum {
    KA_RETURNED = 0, /* the call has ended; *value is the function's return code */
    KA_CALLBACK = 1, /* the function calls back with *value, and waits for ka_answer */
    KA_WAITING = 2   /* nothing yet: the time is over, or a signal handler interrupted the sleep */
};

/* The same as ka_call, for interpreters, event loops, and all who must not wait inside a library: ka_send sends the
   call that was built; then ka_wait, until it stores KA_RETURNED or fails, and ka_answer after each KA_CALLBACK.
   ka_call is the loop over these. The errors are those of ka_call, and end the call; the deadline counts from ka_send
   on. ka_options.callback is not called. Each step can be taken by another thread.
   Until the call has ended, the functions that build, send, restart, close or read results fail with KA_ARGUMENT;
   ka_set_trace and ka_host_tables only until it calls back. A call that is not wanted any more is ended by ka_cancel
   and one more step, ka_wait or the answer to a call-back, which fails with KA_CANCELLED.
   ka_send waits only for a start: of a host that has ended, if ka_options.restart allows it, and until the module is
   ready for its first call. No signal handler ends that wait, but for a ka_cancel in it, within 20 ms.
   ka_wait sleeps at most timeout_ms: -1 until the deadline, 0 not at all. *what and *value are written on KA_DONE
   only. A handler that runs right before the sleep does not interrupt it: who must see in time what a handler did
   gives a short timeout. KA_ARGUMENT for a timeout below -1. */
KA_API int32_t ka_send(ka_host *host);
KA_API int32_t ka_wait(ka_host *host, int32_t timeout_ms, int32_t *what, int32_t *value);
KA_API int32_t ka_answer(ka_host *host, int32_t value);

/* A descriptor for poll, epoll and event loops: readable when a call in steps has something for ka_wait, which is
   then called with timeout 0: a call-back, the end, the host's death, the deadline, a cancellation. It is seldom
   readable for anything else, and never while no call waits. Made when it is first asked for, also during a call; the
   host keeps it, across restarts, until it is closed: the program only waits for it, and asks again after it has
   closed all descriptors. Of a host with such a descriptor the library asks for replies by SIGUSR2 to calls in steps,
   in every transport, as with a cancel_fd. -1 when the system refuses it. */
KA_API int ka_wait_fd(ka_host *host);

/* Ends the call under way, or the start, also that of ka_open and ka_host_tables, with KA_CANCELLED. The thread that
   waits comes out at once, from a start within 20 ms; a call in steps fails with its next step; inside a call-back
   the call ends when that is answered. From any thread, also beside the one that uses the host, and from any signal
   handler. 1 when there was a call or a start to end, even one that would have failed otherwise. 0 when there was
   none, or it was cancelled before: nothing is left behind, so the next call is not cancelled. ka_open stores *host
   atomically before it waits. The host must not be closed before ka_cancel has returned. host may be null. */
KA_API int32_t ka_cancel(ka_host *host);

/* ---- Results --------------------------------------------------------------------------------------------------- */

/* All of these: from the end of a call until the next is begun, while the host lives. */

/* 1 when the argument was passed by reference and the module gives it back; else 0, also for no such argument. */
KA_API int32_t ka_gives_back(const ka_host *host, int32_t argument);

/* Store the first count elements of an argument that is given back, count at most as many as were passed. Values that
   a module left malformed are made safe: a REAL with impossible digits is read as null. ka_get_doubles stores the
   nearest double, NaN for null. KA_ARGUMENT when the argument does not exist, is not given back, has another type or
   fewer elements; KA_CLOSED when the host has ended. */
KA_API int32_t ka_get_integers(ka_host *host, int32_t argument, int32_t *values, int32_t count);
KA_API int32_t ka_get_reals(ka_host *host, int32_t argument, t_DECIMAL *values, int32_t count);
KA_API int32_t ka_get_doubles(ka_host *host, int32_t argument, double *values, int32_t count);

/* The same for one string: copies at most size of its characters into buffer, not terminated, and stores its whole
   length, which is never below 0 nor above its room. buffer may be null when size is 0. */
KA_API int32_t ka_get_string(ka_host *host, int32_t argument, int32_t element, char *buffer, int32_t size,
                             int32_t *length);

/* Many strings, or REALs as ka_real_to_text writes them (a null REAL is an empty text), one behind the other in
   buffer, which has room for size bytes. Stores count + 1 offsets: element i is from buffer[offsets[i]] to
   buffer[offsets[i + 1]], not terminated. offsets[count] is the size that is needed; a smaller buffer, which may be
   null when size is 0, has the elements that fit as a whole. While threads of the module go on writing, the next call
   of these functions can find other strings. KA_ARGUMENT also for texts of 2 GiB and more. */
KA_API int32_t ka_get_strings(ka_host *host, int32_t argument, char *buffer, int32_t size, int32_t *offsets,
                              int32_t count);
KA_API int32_t ka_get_real_texts(ka_host *host, int32_t argument, char *buffer, int32_t size, int32_t *offsets,
                                 int32_t count);

/* ---- Tables ---------------------------------------------------------------------------------------------------- */

typedef struct ka_prototype {
    const char *name;
    int32_t kind;         /* KA_VARARG ... of ka/dll_module.h; any other number when the module's table is wrong, and
                             INT32_MIN when the prototype lies outside the module */
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
    int32_t filled_at_start; /* not 0 of a module's file when a part of its tables is filled as it starts, by the
                                module or with a name from a library: calls will meet other tables than these */
} ka_tables;

/* The tables as they are in the memory of the host process once it has started; waits for that, within deadline_ms.
   Where the system guards that memory, the tables of the module's file, if all of them are there. Owned by the host,
   valid until the host process ends. Null, with ka_last_error set, when they cannot be read. */
KA_API const ka_tables *ka_host_tables(ka_host *host);

/* The tables in a module's file, which is not run: pointers and counts that the module computes as it starts are
   missing, names from a library are empty, and filled_at_start says so. The caller frees them with ka_free_tables.
   Null when there are none; then why, which has room for size bytes, says the reason. */
KA_API ka_tables *ka_read_tables(const char *module, char *why, int32_t size);
KA_API void ka_free_tables(ka_tables *tables); /* of ka_read_tables only; may be null */

/* The function of that name in tables that this library has read, or null. Owned by the tables. */
KA_API const ka_function *ka_find_function(const ka_tables *tables, const char *name);

/* Of ka_prototype.kind, in the words of ka list: "IntByValue"; the types of values that it takes, "INTEGER or REAL",
   "anything"; and 1 when an argument by reference comes back changed, else 0. Of a number that is no kind "Unknown",
   "nothing" and 0. Never null, never freed. */
KA_API const char *ka_kind_name(int32_t kind);
KA_API const char *ka_kind_takes(int32_t kind);
KA_API int32_t ka_kind_gives_back(int32_t kind);

/* What the module's author has written (ka::doc of ka/module.hpp) about a function of these tables, argument 0, or
   about one of its prototypes, from 1 on. Any bytes without a zero. Null when there is nothing. Owned by the tables.
 */
KA_API const char *ka_doc(const ka_tables *tables, const ka_function *function, int32_t argument);

/* ---- Tracing --------------------------------------------------------------------------------------------------- */

/* Sets dll_debug in the running host process, between calls or from a call-back. Takes effect at once, and is kept
   for restarts. KA_ARGUMENT for a level that is not 0 to KA_TRACE_MAX: nothing is changed. KA_SYSTEM when the memory
   of the host process cannot be written: the host lives on. A ka_options.trace_level that cannot be set is reported
   in the same way by the first call, which is not sent. KA_CLOSED when the host has ended: the level is kept. */
KA_API int32_t ka_set_trace(ka_host *host, int32_t level);

/* Reads dll_debug of any running host process into *old, unless old is null, and then sets it to *level, unless level
   is null: to any number, so that a value of the module's own can be put back. KA_DONE; KA_ARGUMENT when the process
   is not a host process; KA_SYSTEM. On an error why, which has room for size bytes, says what was wrong. */
KA_API int32_t ka_trace_process(int32_t pid, const int32_t *level, int32_t *old, char *why, int32_t size);

#ifdef __cplusplus
}
#endif

#endif
