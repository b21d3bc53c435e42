/* SPDX-License-Identifier: MIT
 *
 * How a host is started, started again, and closed. */
#include "extension.h"

/* ---- Start ----------------------------------------------------------------------------------------------------- */

/* A start, and the host that it makes or starts again. */
typedef struct t_START {
    ka_host *ka;
    const char *path;
    const ka_options *options;
    const ka_tables *tables;
} t_START;

/* The tables tell that the module runs. */
static int32_t start_work(void *subject)
{
    t_START *start = subject;
    const int32_t status = start->ka ? ka_restart(start->ka) : ka_open(&start->ka, start->path, start->options);
    start->tables = status == KA_DONE ? ka_host_tables(start->ka) : NULL;
    return start->tables ? KA_DONE : KA_SYSTEM;
}

/* Null before ka_open has made it. */
static ka_host *made(ka_host *const *ka)
{
    return __atomic_load_n(ka, __ATOMIC_ACQUIRE);
}

static void cancel_start(void *subject)
{
    ka_cancel(made(&((t_START *)subject)->ka));
}

ka_host *ka_to_cancel(const t_HOST *host)
{
    if (host->forks != fork_count()) return NULL;
    return host->starting ? made(host->starting) : host->ka;
}

/* Null after an error, when a signal handler raised, and in a child that one has made. */
static const ka_tables *start(t_HOST *host)
{
    t_START start = {host->ka, PyBytes_AsString(host->path), &host->options, NULL};
    int32_t status;
    host->starting = &start.ka;
    host->inside = true;
    const int waited = run_waiting(start_work, &start, cancel_start, &status);
    host->inside = false;
    host->starting = NULL;
    if (host->forks != fork_count()) {
        if (!PyErr_Occurred()) fail_closed(host);
        return NULL;
    }
    host->ka = start.ka;
    if (waited == 0 && status != KA_DONE) fail_library(host, NULL);
    return waited == 0 ? start.tables : NULL;
}

/* ---- End ------------------------------------------------------------------------------------------------------- */

/* Frees it; when its process could not be ended, the second time. */
static int32_t close_waiting(ka_host *ka)
{
    PyThreadState *state = PyEval_SaveThread();
    const int32_t status = ka_close(ka);
    PyEval_RestoreThread(state);
    return status;
}

void forget_ka(t_HOST *host)
{
    ka_host *ka = host->ka;
    settle_evidence(host);
    host->ka = NULL;
    if (close_waiting(ka) != KA_DONE) close_waiting(ka);
}

/* ---- What Host has for both ------------------------------------------------------------------------------------ */

/* open(): starts the module, and gives its tables. */
PyObject *host_open(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    if (host->ka || host->owner != 0) return fail_host(host, KA_ARGUMENT, "is opened already"), NULL;
    host->owner = PyThread_get_thread_ident();
    host->forks = fork_count();
    const ka_tables *tables = start(host);
    if (tables) host->scratch = ka_scratch(host->ka, &host->scratch_size);
    PyObject *result = tables ? make_tables(tables) : NULL;
    if (!result && host->ka) {
        PyObject *type, *value, *traceback;
        PyErr_Fetch(&type, &value, &traceback);
        forget_ka(host);
        PyErr_Restore(type, value, traceback);
    }
    leave_host(host);
    return result;
}

PyObject *host_restart(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    if (enter_host(host) < 0) return NULL;
    const ka_tables *tables = start(host);
    leave_host(host);
    return tables ? Py_NewRef(Py_None) : NULL;
}

/* close(let_go): let_go() is called once it is this thread's turn, and drops the caller's own view of the scratch
   area. Nothing more in a child of the process that opened it: there it is closed. */
PyObject *host_close(PyObject *self, PyObject *let_go)
{
    t_HOST *host = (t_HOST *)self;
    if (is_closed(host)) return PyObject_CallNoArgs(let_go);
    if (enter_host(host) < 0) {
        if (!is_closed(host)) return NULL; /* it was closed while this thread waited */
        PyErr_Clear();
        Py_RETURN_NONE;
    }
    PyObject *done = PyObject_CallNoArgs(let_go);
    Py_XDECREF(done);
    if (done && host->exports > 0) PyErr_SetString(PyExc_BufferError, "views of the scratch area are in use");
    if (!done || host->exports > 0) {
        leave_host(host);
        return NULL;
    }
    ka_host *ka = host->ka;
    host->ka = NULL;
    int status = 0;
    if (close_waiting(ka) != KA_DONE) {
        host->ka = ka;
        status = fail_library(host, NULL);
        settle_evidence(host);
        host->ka = NULL;
        close_waiting(ka);
    }
    leave_host(host);
    return status == 0 ? Py_NewRef(Py_None) : NULL;
}
