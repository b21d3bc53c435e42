/* SPDX-License-Identifier: MIT
 *
 * The type Steps: a call for an event loop, which watches a descriptor and takes a step when it is readable. First
 * the call waits for its turn, behind threads and other calls, then it is sent; the host is in use until the end.
 * Dropped before that, the call is cancelled. A step that may take long, since a process starts or ends, can be taken
 * in another thread; call-backs are answered in the thread of the loop alone. */
#define _GNU_SOURCE
#include <time.h>

#include "extension.h"

enum t_STAGE { QUEUED, ITS_TURN, SENT, ASKED, OVER };

typedef struct t_STEPS {
    PyObject_HEAD t_CALL call;
    enum t_STAGE stage;
    t_WAITER *waiter; /* QUEUED: in the host's queue */
    int32_t value;    /* ASKED: what the module sent */
    bool sending;     /* ITS_TURN: a step of another thread is in ka_send, which may start a process */
    bool cancelled;
    double late_at; /* SENT: when the deadline is over */
    PyObject *results;
    PyObject *failure[3]; /* or the exception */
} t_STEPS;

static double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

/* Without results there is an exception. */
static void end(t_STEPS *steps, PyObject *results)
{
    steps->stage = OVER;
    steps->results = results;
    if (!results) PyErr_Fetch(&steps->failure[0], &steps->failure[1], &steps->failure[2]);
    end_call(&steps->call);
}

/* Of a call whose turn it was. */
static void finish(t_STEPS *steps, int status)
{
    PyObject *results = call_results(&steps->call, status);
    leave_host(steps->call.host);
    end(steps, results);
}

PyObject *begin_steps(t_FUNCTION *function, PyObject *positional, PyObject *named)
{
    t_HOST *host = function->host;
    PyTypeObject *type = (PyTypeObject *)host->state->steps_type;
    const allocfunc allocate = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    t_STEPS *steps = (t_STEPS *)allocate(type, 0);
    if (!steps) return NULL;
    steps->stage = OVER;
    init_call(&steps->call, function);
    Py_INCREF((PyObject *)function);
    if (take_arguments(&steps->call, positional, named) == 0 && enter_host_later(host, &steps->waiter) == 0) {
        steps->stage = steps->waiter ? QUEUED : ITS_TURN;
        return (PyObject *)steps;
    }
    PyObject *error_type, *value, *traceback;
    PyErr_Fetch(&error_type, &value, &traceback);
    Py_DECREF((PyObject *)steps);
    PyErr_Restore(error_type, value, traceback);
    return NULL;
}

/* ---- Steps ----------------------------------------------------------------------------------------------------- */

static void end_waiting(t_STEPS *steps)
{
    t_WAITER *waiter = steps->waiter;
    steps->waiter = NULL;
    if (waiter) drop_waiter(steps->call.host, waiter);
}

static void send(t_STEPS *steps)
{
    t_CALL *call = &steps->call;
    t_HOST *host = call->host;
    settle_evidence(host);
    int status = build_call(call);
    if (status == 0) status = need_wait_fd(host, call->function);
    if (status == 0) {
        steps->sending = host->inside = true;
        PyThreadState *state = PyEval_SaveThread(); /* a host that has ended is started again */
        const int32_t sent = ka_send(host->ka);
        PyEval_RestoreThread(state);
        steps->sending = host->inside = false;
        if (sent != KA_DONE) status = fail_library(host, call->function);
    }
    if (status < 0) {
        finish(steps, status);
        return;
    }
    steps->stage = SENT;
    const int32_t own = call->function->deadline_ms;
    steps->late_at = now() + (own != 0 ? own : host->options.deadline_ms) / 1e3;
}

/* At most timeout_ms later. */
static void look(t_STEPS *steps, int32_t timeout_ms)
{
    t_CALL *call = &steps->call;
    int32_t what = KA_WAITING, value = 0;
    call->host->inside = true;
    PyThreadState *state = PyEval_SaveThread();
    const int32_t status = ka_wait(call->host->ka, timeout_ms, &what, &value);
    PyEval_RestoreThread(state);
    call->host->inside = false;
    if (status != KA_DONE) {
        finish(steps, fail_library(call->host, call->function));
    } else if (what == KA_RETURNED) {
        call->code = value;
        finish(steps, 0);
    } else if (what == KA_CALLBACK) {
        steps->stage = ASKED;
        steps->value = value;
    }
}

static void answer(t_STEPS *steps)
{
    steps->stage = SENT;
    if (answer_callback(&steps->call, steps->value) < 0) finish(steps, -1);
}

static void take_turn(t_STEPS *steps)
{
    if (!steps->waiter->has_turn) return;
    end_waiting(steps);
    steps->stage = ITS_TURN;
}

static void leave_early(t_STEPS *steps)
{
    t_HOST *host = steps->call.host;
    const bool has_turn = steps->stage == ITS_TURN || steps->waiter->has_turn;
    end_waiting(steps);
    if (has_turn) leave_host(host);
    fail_host(host, KA_CANCELLED, "the call was cancelled before it was sent");
    end(steps, NULL);
}

/* In a child of the process that began it the host is closed; so it is when another thread closed it before its turn.
 */
static bool lost_its_host(t_STEPS *steps)
{
    t_HOST *host = steps->call.host;
    if (!is_closed(host) || (steps->stage == QUEUED && !steps->waiter->has_turn && !host->ka)) return false;
    fail_closed(host);
    end_waiting(steps);
    finish(steps, -1);
    return true;
}

static void take_step(t_STEPS *steps, int32_t timeout_ms, bool in_loop)
{
    if (steps->stage == OVER || lost_its_host(steps)) return;
    if (steps->cancelled && steps->stage < SENT) {
        leave_early(steps);
        return;
    }
    if (steps->stage == QUEUED) take_turn(steps);
    if (steps->stage == ITS_TURN) {
        if (in_loop) steps->call.host->owner = PyThread_get_thread_ident();
        send(steps);
    }
    if (steps->stage == SENT) look(steps, timeout_ms);
    if (steps->stage == ASKED && in_loop) answer(steps);
}

/* ---- Methods --------------------------------------------------------------------------------------------------- */

/* The next step may wait for a process that starts or ends. */
static bool takes_long(const t_STEPS *steps)
{
    const t_HOST *host = steps->call.host;
    if (is_closed(host) || steps->stage == OVER || steps->stage == ASKED) return false;
    if (steps->stage == SENT) return steps->cancelled || now() >= steps->late_at;
    const bool has_turn = steps->stage == ITS_TURN || steps->waiter->has_turn;
    return has_turn && !steps->cancelled && may_start(host);
}

static PyObject *steps_step(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_STEPS *steps = (t_STEPS *)self;
    if (takes_long(steps)) Py_RETURN_NONE;
    take_step(steps, 0, true);
    return PyBool_FromLong(steps->stage == OVER);
}

static PyObject *steps_long_step(PyObject *self, PyObject *unused)
{
    (void)unused;
    take_step((t_STEPS *)self, 0, false);
    return PyBool_FromLong(((t_STEPS *)self)->stage == OVER);
}

static PyObject *steps_result(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_STEPS *steps = (t_STEPS *)self;
    if (steps->failure[0]) {
        PyErr_Restore(steps->failure[0], steps->failure[1], steps->failure[2]);
        steps->failure[0] = steps->failure[1] = steps->failure[2] = NULL;
        return NULL;
    }
    PyObject *results = steps->results;
    steps->results = NULL;
    if (results) return finish_call(&steps->call, results, false);
    PyErr_SetString(PyExc_RuntimeError, steps->stage == OVER ? "the result has been taken" : "the call is under way");
    return NULL;
}

static PyObject *steps_fileno(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_STEPS *steps = (t_STEPS *)self;
    t_HOST *host = steps->call.host;
    if (steps->stage == QUEUED) return PyLong_FromLong(steps->waiter->event_fd);
    if (is_closed(host)) return fail_closed(host), NULL;
    return need_wait_fd(host, steps->call.function) < 0 ? NULL : PyLong_FromLong(host->wait_fd);
}

static PyObject *steps_cancel(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_STEPS *steps = (t_STEPS *)self;
    if (steps->stage == OVER) Py_RETURN_NONE;
    steps->cancelled = true;
    if ((steps->stage >= SENT || steps->sending) && !is_closed(steps->call.host)) ka_cancel(steps->call.host->ka);
    Py_RETURN_NONE;
}

static int steps_traverse(PyObject *self, visitproc visit, void *arg)
{
    t_STEPS *steps = (t_STEPS *)self;
    Py_VISIT(Py_TYPE(self));
    Py_VISIT((PyObject *)steps->call.function);
    Py_VISIT(steps->results);
    for (int i = 0; i < 3; i++) {
        Py_VISIT(steps->failure[i]);
        Py_VISIT(steps->call.raised[i]);
    }
    for (int i = 1; i <= steps->call.count; i++)
        Py_VISIT(steps->call.arguments[i].value);
    return 0;
}

static int steps_clear(PyObject *self)
{
    t_STEPS *steps = (t_STEPS *)self;
    Py_CLEAR(steps->results);
    for (int i = 0; i < 3; i++)
        Py_CLEAR(steps->failure[i]);
    return 0;
}

static void steps_dealloc(PyObject *self)
{
    t_STEPS *steps = (t_STEPS *)self;
    PyTypeObject *type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    PyObject *error_type, *value, *traceback;
    PyErr_Fetch(&error_type, &value, &traceback);
    if (steps->stage != OVER) {
        steps->cancelled = true;
        if (steps->stage >= SENT && !is_closed(steps->call.host)) ka_cancel(steps->call.host->ka);
    }
    while (steps->stage != OVER)
        take_step(steps, -1, true);
    PyErr_Restore(error_type, value, traceback);
    steps_clear(self);
    end_call(&steps->call);
    Py_XDECREF((PyObject *)steps->call.function);
    PyObject_GC_Del(self);
    Py_DECREF(type);
}

static PyMethodDef steps_methods[] = {
    {"fileno", steps_fileno, METH_NOARGS, "The descriptor to wait for now; another one the next time, perhaps."},
    {"step", steps_step, METH_NOARGS,
     "Does what can be done now: whether the call is over. None: the step may wait for a process; nothing is done."},
    {"long_step", steps_long_step, METH_NOARGS, "That step, in another thread; without answers to call-backs."},
    {"result", steps_result, METH_NOARGS, "What the call gave back, once; or raises its error."},
    {"cancel", steps_cancel, METH_NOARGS, "Ends the call: a step will find that."},
    {NULL, NULL, 0, NULL},
};

static PyType_Slot steps_slots[] = {
    {Py_tp_dealloc, steps_dealloc},
    {Py_tp_traverse, steps_traverse},
    {Py_tp_clear, steps_clear},
    {Py_tp_methods, steps_methods},
    {0, NULL},
};

PyType_Spec steps_spec = {
    .name = "kahost._kahost.Steps",
    .basicsize = sizeof(t_STEPS),
    .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION,
    .slots = steps_slots,
};
