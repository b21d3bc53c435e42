/* SPDX-License-Identifier: MIT
 *
 * The type Steps: a call for an event loop, which watches a descriptor and takes a step when it is readable. The host
 * is in use from its begin to its end; dropped before that, the call is cancelled. */
#include "extension.h"

typedef struct t_STEPS {
    PyObject_HEAD
    t_CALL call;
    bool under_way;
    int status; /* once it is over */
    PyObject *results;
    PyObject *failure[3]; /* or the exception */
} t_STEPS;

static void finish(t_STEPS *steps, int status)
{
    t_HOST *host = steps->call.host;
    steps->results = call_results(&steps->call, status);
    if (!steps->results) PyErr_Fetch(&steps->failure[0], &steps->failure[1], &steps->failure[2]);
    steps->under_way = false;
    host->awaited = false;
    leave_host(host);
    end_call(&steps->call);
}

/* NotImplemented when the host is in use: the loop must not wait for it here. */
PyObject *begin_steps(t_FUNCTION *function, PyObject *positional, PyObject *named)
{
    t_HOST *host = function->host;
    if (!is_closed(host) && host->owner != 0) return Py_NewRef(Py_NotImplemented);
    PyTypeObject *type = (PyTypeObject *)host->state->steps_type;
    const allocfunc allocate = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    t_STEPS *steps = (t_STEPS *)allocate(type, 0);
    if (!steps) return NULL;
    init_call(&steps->call, function);
    Py_INCREF((PyObject *)function);
    int status = take_arguments(&steps->call, positional, named);
    if (status == 0 && (status = enter_host(host)) == 0) {
        steps->under_way = true;
        host->awaited = true;
        status = build_call(&steps->call);
        if (status == 0 && ka_wait_fd(host->ka) < 0) status = fail_library(host, function);
        PyThreadState *state = PyEval_SaveThread(); /* a host that has ended is started again */
        const int32_t sent = status == 0 ? ka_send(host->ka) : KA_DONE;
        PyEval_RestoreThread(state);
        if (sent != KA_DONE) status = fail_library(host, function);
        if (status < 0) finish(steps, status);
    }
    if (status == 0) return (PyObject *)steps;
    if (steps->failure[0]) {
        PyErr_Restore(steps->failure[0], steps->failure[1], steps->failure[2]);
        steps->failure[0] = NULL;
    }
    PyObject *error_type, *value, *traceback;
    PyErr_Fetch(&error_type, &value, &traceback);
    Py_DECREF((PyObject *)steps);
    PyErr_Restore(error_type, value, traceback);
    return NULL;
}

/* Takes what there is, at most timeout_ms later. */
static void take_step(t_STEPS *steps, int32_t timeout_ms)
{
    t_CALL *call = &steps->call;
    t_HOST *host = call->host;
    int32_t what = KA_WAITING, value = 0;
    if (is_closed(host)) { /* in a child of the process that began it */
        finish(steps, fail_closed(host));
        return;
    }
    PyThreadState *state = PyEval_SaveThread();
    const int32_t status = ka_wait(host->ka, timeout_ms, &what, &value);
    PyEval_RestoreThread(state);
    if (status != KA_DONE) {
        finish(steps, fail_library(host, call->function));
    } else if (what == KA_RETURNED) {
        call->code = value;
        finish(steps, 0);
    } else if (what == KA_CALLBACK && answer_callback(call, value) < 0) {
        finish(steps, -1);
    }
}

static PyObject *steps_step(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_STEPS *steps = (t_STEPS *)self;
    if (steps->under_way) take_step(steps, 0);
    return PyBool_FromLong(!steps->under_way);
}

static PyObject *steps_result(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_STEPS *steps = (t_STEPS *)self;
    if (steps->under_way) {
        PyErr_SetString(PyExc_RuntimeError, "the call is under way");
        return NULL;
    }
    if (steps->failure[0]) {
        PyErr_Restore(steps->failure[0], steps->failure[1], steps->failure[2]);
        steps->failure[0] = steps->failure[1] = steps->failure[2] = NULL;
        return NULL;
    }
    if (!steps->results) {
        PyErr_SetString(PyExc_RuntimeError, "the result has been taken");
        return NULL;
    }
    PyObject *results = steps->results;
    steps->results = NULL;
    return finish_call(&steps->call, results, false);
}

static PyObject *steps_fileno(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_HOST *host = ((t_STEPS *)self)->call.host;
    if (is_closed(host)) return fail_closed(host), NULL;
    return PyLong_FromLong(ka_wait_fd(host->ka));
}

static PyObject *steps_cancel(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_STEPS *steps = (t_STEPS *)self;
    const bool can = steps->under_way && !is_closed(steps->call.host);
    return PyBool_FromLong(can && ka_cancel(steps->call.host->ka));
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
    if (steps->under_way && !is_closed(steps->call.host)) ka_cancel(steps->call.host->ka);
    while (steps->under_way)
        take_step(steps, -1);
    PyErr_Restore(error_type, value, traceback);
    steps_clear(self);
    end_call(&steps->call);
    Py_XDECREF((PyObject *)steps->call.function);
    PyObject_GC_Del(self);
    Py_DECREF(type);
}

static PyMethodDef steps_methods[] = {
    {"fileno", steps_fileno, METH_NOARGS, "The descriptor to wait for."},
    {"step", steps_step, METH_NOARGS, "Answers a call-back, or takes the end: whether the call is over."},
    {"result", steps_result, METH_NOARGS, "What the call gave back, once; or raises its error."},
    {"cancel", steps_cancel, METH_NOARGS, "Ends the call: a step will find that. Whether it was under way."},
    {NULL, NULL, 0, NULL},
};

static PyType_Slot steps_slots[] = {
    {Py_tp_dealloc, steps_dealloc}, {Py_tp_traverse, steps_traverse}, {Py_tp_clear, steps_clear},
    {Py_tp_methods, steps_methods}, {0, NULL},
};

PyType_Spec steps_spec = {
    .name = "kahost._kahost.Steps",
    .basicsize = sizeof(t_STEPS),
    .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION,
    .slots = steps_slots,
};
