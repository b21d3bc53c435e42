/* SPDX-License-Identifier: MIT
 *
 * kahost._kahost, the extension under the Python package: a host, its functions, the conversions and the call. It is
 * built for the stable interface of CPython 3.11, so that one file serves every later version.
 *
 * Everything here runs with the GIL, which guards all records; it is released only around functions of libkacall
 * that wait. Functions return 0, or -1 with an exception set; those that return an object return null for that. */
#ifndef KAHOST_EXTENSION_H
#define KAHOST_EXTENSION_H

#ifndef Py_LIMITED_API
#define Py_LIMITED_API 0x030B0000
#endif
#ifndef PY_SSIZE_T_CLEAN
#define PY_SSIZE_T_CLEAN
#endif
#include <Python.h>

#pragma GCC diagnostic ignored "-Wpedantic" /* slots of types hold functions as void * */

#include <stdbool.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "ka/caller.h"
#include "ka/dll_module.h"

enum { MAX_ARGUMENTS = 51 }; /* one more than a call can have: libkacall refuses that one */

/* ---- The module's state ---------------------------------------------------------------------------------------- */

/* What the package hands over, once, by name (setup). The names are the attributes that it is called with. */
#define KAHOST_HANDED_OVER(X)                                                                                      \
    X(library_error)   /* (class, message, numbers, function, place, evidence): an exception made from ka_error */ \
    X(argument_error)  /* (class, message, function, place): an exception for an argument that was not sent */     \
    X(lost_digits)     /* (value, nearest, function, place): LostDigits */                                         \
    X(returned_code)   /* (function, code, results): ReturnedCode */                                               \
    X(answer_on_error) /* (): what a module hears after an exception */                                            \
    X(result_type)     /* (function): the class of its results */                                                  \
    X(Returned)        /* the class of (code, results) */                                                          \
    X(Text)            /* the classes of wrapped arguments */                                                      \
    X(Ref)                                                                                                         \
    X(InPlace)                                                                                                     \
    X(exact_text)  /* (number): decimal text of a number of a seldom type, or NotImplemented */                    \
    X(copy_buffer) /* (object): a new object of its type */                                                        \
    X(LossyKind)

typedef struct t_STATE {
    PyObject *evidence_type;
    PyObject *scratch_type;
    PyObject *steps_type;
    PyObject *decimal_type;
    PyObject *make_decimal; /* bound create_decimal of a context */
    reprfunc decimal_text;  /* str() of a Decimal, not of a class derived from it */
#define KAHOST_FIELD(name) PyObject *name;
    KAHOST_HANDED_OVER(KAHOST_FIELD)
#undef KAHOST_FIELD
} t_STATE;

t_STATE *state_of(PyObject *module);
bool is_instance(PyObject *object, PyObject *type); /* type: a class */
void replace(PyObject **field, PyObject *object);   /* takes object over, drops what was there; either may be null */

/* ---- Hosts ----------------------------------------------------------------------------------------------------- */

typedef struct t_EVIDENCE t_EVIDENCE;

/* A thread that waits for its turn, or a call of an event loop that does. */
typedef struct t_WAITER {
    struct t_WAITER *next;
    unsigned long thread;
    PyThread_type_lock lock; /* of a thread: held until it is its turn */
    int event_fd;            /* of a call: readable when it is its turn; else -1 */
    bool has_turn;
} t_WAITER;

typedef struct t_HOST {
    PyObject_HEAD PyObject *module; /* the extension */
    t_STATE *state;                 /* of module */
    ka_host *ka;                    /* null before it is opened, and once it is closed */
    ka_host **starting;             /* while it is started: where libkacall puts it; else null */
    PyObject *path;                 /* bytes */
    PyObject *callback;
    ka_options options;
    char **environment; /* or null */
    char *directory;
    PyObject *encoding; /* bytes, as errors */
    PyObject *errors;
    bool utf8; /* encoding is UTF-8 */
    bool reals_as_floats;
    int32_t room;
    unsigned forks; /* fork_count() where it was opened */

    unsigned long owner; /* the thread that uses ka, or 0 */
    bool inside;         /* it is in a function of libkacall, without the GIL */
    bool in_callback;
    int wait_fd;       /* ka_wait_fd's, if need_wait_fd says so */
    unsigned wait_fds; /* how many there were when it was asked for; 0: never */
    bool awaited;      /* by a call in steps: the owner is the thread of its event loop */
    t_WAITER *first;   /* in the order in which they came */
    t_WAITER *last;

    t_EVIDENCE *evidence; /* of the last error, not yet asked for: before ka is used again */
    char *arena;          /* for values on their way */
    size_t arena_size;
    void *scratch; /* the scratch area, null for none: as long as ka */
    int32_t scratch_size;
    Py_ssize_t exports;            /* of the scratch area */
    struct t_HOST *next_exporting; /* of all hosts with exports */
} t_HOST;

extern PyType_Spec host_spec;
unsigned fork_count(void); /* how many times this process has been made by fork */
int watch_forks(void);

/* life.c: methods of Host; and its end without a word. */
PyObject *host_open(PyObject *self, PyObject *unused); /* starts the module, and gives its tables */
PyObject *host_restart(PyObject *self, PyObject *unused);
PyObject *host_close(PyObject *self, PyObject *let_go);
void forget_ka(t_HOST *host);
ka_host *ka_to_cancel(const t_HOST *host); /* also while it is started; or null */

/* turn.c */
bool is_closed(const t_HOST *host);
int check_open(t_HOST *host);
int enter_host(t_HOST *host); /* this thread's turn */
void leave_host(t_HOST *host);
int enter_host_later(t_HOST *host, t_WAITER **waiter); /* for a call in steps: null when it is its turn at once */
void drop_waiter(t_HOST *host, t_WAITER *waiter);      /* which has waited long enough; leaves its turn to it */
void *arena(t_HOST *host, size_t size);                /* until it is called again */
int fail_closed(t_HOST *host);

/* ---- Errors ---------------------------------------------------------------------------------------------------- */

/* The reports of an error, made when they are asked for, or before the host is used again. */
struct t_EVIDENCE {
    PyObject_HEAD t_HOST *host; /* that still has them, not owned; or null */
    int32_t error_class;
    PyObject *report; /* bytes or None, as the others */
    PyObject *json;
    PyObject *output;
};

typedef struct t_FUNCTION t_FUNCTION;

extern PyType_Spec evidence_spec;
void settle_evidence(t_HOST *host);

/* All return -1. function may be null; argument counts from 1, 0 for none. */
int fail_library(t_HOST *host, t_FUNCTION *function);
int fail_argument(t_FUNCTION *function, int argument, int32_t error_class, const char *format, ...);
int fail_type(t_FUNCTION *function, int argument, const char *takes, PyObject *value); /* RefusedError, wrong type */
int fail_lost_digits(t_FUNCTION *function, int argument, PyObject *value, const t_DECIMAL *nearest);
int fail_host(t_HOST *host, int32_t error_class, const char *text);

/* ---- Functions ------------------------------------------------------------------------------------------------- */

typedef struct t_PARAMETER {
    PyObject *name;          /* str */
    PyObject *default_value; /* or null */
    int32_t kind;
} t_PARAMETER;

struct t_FUNCTION {
    PyObject_HEAD t_HOST *host;
    PyObject *name;         /* bytes, as the table has it */
    PyObject *result_class; /* or null: not made yet */
    t_PARAMETER *parameters;
    int count;           /* of parameters before a VarArg */
    bool takes_more;     /* VarArg: parameters[count] */
    int32_t deadline_ms; /* of this function's calls; 0: the host's */
    int32_t room;        /* -1: the host's */
    int reals_as_floats; /* -1: as the host */
};

extern PyType_Spec function_spec;

/* The name of the parameter that takes an argument, counted from 1. Borrowed, or null. */
PyObject *parameter_name(const t_FUNCTION *function, int argument);

/* ---- A call ---------------------------------------------------------------------------------------------------- */

/* How an argument's result becomes an object. */
typedef enum t_SHAPE {
    GIVES_NOTHING,
    AN_INTEGER,
    INTEGERS,
    INTEGER_BUFFER,
    A_REAL,
    REALS,
    REAL_BUFFER,
    A_STRING,
    STRINGS
} t_SHAPE;

typedef struct t_ARGUMENT {
    PyObject *value; /* owned; what was passed, out of its Ref and Text */
    t_SHAPE shape;
    bool in_place;
    bool as_bytes;
    int32_t count;
    int32_t room;
} t_ARGUMENT;

typedef struct t_CALL {
    t_FUNCTION *function;
    t_HOST *host;
    Py_buffer *in_place; /* of all arguments that are InPlace: held until the results are there */
    int in_place_count;
    PyObject *raised[3]; /* what came out of a call-back or a signal handler: type, value, traceback */
    bool warned;
    bool cancelled;
    bool reals_as_floats;
    int32_t room;
    int32_t code;
    int count;
    t_ARGUMENT arguments[MAX_ARGUMENTS + 1]; /* from 1 */
} t_CALL;

/* arguments.c: takes the arguments in the order of the parameters, and adds them to the call that was begun. */
int take_arguments(t_CALL *call, PyObject *positional, PyObject *named);
int add_arguments(t_CALL *call);

/* What takes the elements of a sequence, a tuple. */
typedef int t_ADD_ELEMENTS(t_CALL *call, int i, PyObject *elements, int32_t passing);
PyObject *elements_of(t_CALL *call, int i, const char *takes); /* of argument i, counted; takes: what it takes */
int add_sequence(t_CALL *call, int i, const char *takes, t_ADD_ELEMENTS *add); /* by reference */

/* numbers.c: each adds the value of argument i. */
int add_integer(t_CALL *call, int i, int32_t passing);
int add_real(t_CALL *call, int i, int32_t passing);
int add_number(t_CALL *call, int i);                      /* RealByValue: an int as what it is */
int add_numbers(t_CALL *call, int i, bool integers);      /* an array of INTEGERs or REALs */
int add_any_buffer(t_CALL *call, int i, int32_t passing); /* 1 when it is one and was added, else 0 */
t_ADD_ELEMENTS add_integer_elements;
t_ADD_ELEMENTS add_real_elements;

/* strings.c: the same. */
int unwrap_text(t_CALL *call, int i); /* out of its Text, whose room is taken */
int add_string(t_CALL *call, int i, int32_t passing, bool ends_at_zero);
int add_strings(t_CALL *call, int i);
t_ADD_ELEMENTS add_string_elements;

/* results.c */
PyObject *make_results(t_CALL *call);

/* call.c: a call of a host whose turn it is. */
void init_call(t_CALL *call, t_FUNCTION *function);
void end_call(t_CALL *call); /* drops what it holds */
int build_call(t_CALL *call);
bool may_start(const t_HOST *host); /* ka_send starts it */
int answer_callback(t_CALL *call, int32_t value);
void keep_raised(t_CALL *call);                                   /* the exception that is set */
PyObject *call_results(t_CALL *call, int status);                 /* of a call that ended, with status; or null */
PyObject *finish_call(t_CALL *call, PyObject *results, bool raw); /* as the caller gets them; results: taken over */
PyObject *call_function(t_FUNCTION *function, PyObject *positional, PyObject *named, bool raw);

/* wait_fd.c: wait_fd can be waited for from now until the program closes descriptors. */
int need_wait_fd(t_HOST *host, t_FUNCTION *function);

/* steps.c: a call for an event loop. */
extern PyType_Spec steps_spec;
PyObject *begin_steps(t_FUNCTION *function, PyObject *positional, PyObject *named);

/* reals.c: REALs and Python's numbers. */
int real_from_number(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real);
PyObject *decimal_from_real(t_STATE *state, const t_DECIMAL *real); /* None for null */
PyObject *round_to_real(PyObject *module, PyObject *text);

/* ---- Waiting --------------------------------------------------------------------------------------------------- */

enum { LOOK_MS = 50 }; /* how long Python's signal handlers may have to wait */

bool in_main_thread(void); /* in which those run */

/* Runs work without the GIL; *result is what it returned. In the main thread signal handlers run meanwhile; when one
   raises, what waits is cancelled by cancel, which must be quick, and -1 is returned after work, whatever came of it.
   In a child that a handler has made -1 is returned at once, perhaps without an exception. */
typedef int32_t t_WORK(void *subject);
int run_waiting(t_WORK *work, void *subject, void (*cancel)(void *subject), int32_t *result);

/* ---- Tables, scratch area -------------------------------------------------------------------------------------- */

PyObject *make_tables(const ka_tables *tables);
PyObject *read_tables(PyObject *module, PyObject *path);
PyObject *list_kinds(PyObject *module, PyObject *unused);

extern PyType_Spec scratch_spec;
PyObject *make_scratch(t_HOST *host); /* an object with the buffer protocol */
void replace_exported_areas(void);    /* in a child that was forked */

#endif
