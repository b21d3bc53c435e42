/* SPDX-License-Identifier: MIT
 *
 * One call: its turn, the arguments, the wait, the answers to call-backs, the results. The GIL is released around the
 * wait alone. In the main thread the wait is looked up from every 50 ms, and Python's signal handlers run: libkacall
 * notices a handler that ran just before its sleep only then. */
#include "extension.h"

enum { LOOK_MS = 50 };

/* ---- Beginning and end ----------------------------------------------------------------------------------------- */

static void init_call(t_CALL *call, t_FUNCTION *function)
{
    t_HOST *host = function->host;
    call->function = function;
    call->host = host;
    call->in_place = NULL;
    call->in_place_count = 0;
    call->raised[0] = call->raised[1] = call->raised[2] = NULL;
    call->warned = call->cancelled = false;
    call->reals_as_floats = function->reals_as_floats >= 0 ? function->reals_as_floats != 0 : host->reals_as_floats;
    call->room = function->room >= 0 ? function->room : host->room;
    call->code = 0;
    call->count = 0;
}

static void end_call(t_CALL *call)
{
    for (int i = 0; i < call->in_place_count; i++)
        PyBuffer_Release(&call->in_place[i]);
    PyMem_Free(call->in_place);
    for (int i = 1; i <= call->count; i++)
        Py_XDECREF(call->arguments[i].value);
    call->in_place = NULL;
    call->in_place_count = call->count = 0;
}

/* The deadline of this function's calls, while one is made. */
static int set_deadline(t_CALL *call, bool own)
{
    const int32_t deadline_ms = call->function->deadline_ms;
    if (deadline_ms == 0 || is_closed(call->host)) return 0;
    const int32_t wanted = own ? deadline_ms : call->host->options.deadline_ms;
    return ka_set_deadline(call->host->ka, wanted) == KA_DONE ? 0 : fail_library(call->host, call->function);
}

/* Errors of libkacall while the call is built come out of ka_send. */
static int send(t_CALL *call)
{
    ka_host *ka = call->host->ka;
    if (ka_begin(ka, PyBytes_AsString(call->function->name)) != KA_DONE)
        return fail_library(call->host, call->function);
    if (add_arguments(call) < 0) return -1;
    PyThreadState *state = PyEval_SaveThread(); /* a host that has ended is started again */
    const int32_t status = ka_send(ka);
    PyEval_RestoreThread(state);
    return status == KA_DONE ? 0 : fail_library(call->host, call->function);
}

/* ---- Exceptions out of call-backs and signal handlers ---------------------------------------------------------- */

/* The first counts. */
static void keep_raised(t_CALL *call)
{
    if (call->raised[0]) {
        PyErr_Clear();
        return;
    }
    PyErr_Fetch(&call->raised[0], &call->raised[1], &call->raised[2]);
}

/* Instead of what became of the call. */
static int raise_kept(t_CALL *call)
{
    PyErr_Clear();
    PyErr_Restore(call->raised[0], call->raised[1], call->raised[2]);
    call->raised[0] = call->raised[1] = call->raised[2] = NULL;
    return -1;
}

/* ---- Call-backs ------------------------------------------------------------------------------------------------ */

static int read_answer(PyObject *result, int32_t *answer)
{
    if (!PyIndex_Check(result)) {
        PyObject *name = PyType_GetName(Py_TYPE(result));
        PyErr_Format(PyExc_TypeError, "a call-back returns an int of 32 bits, not %U", name);
        Py_XDECREF(name);
        return -1;
    }
    PyObject *integer = PyNumber_Index(result);
    if (!integer) return -1;
    int overflow = 0;
    const long value = PyLong_AsLongAndOverflow(integer, &overflow);
    if (overflow != 0 || value < INT32_MIN || value > INT32_MAX)
        PyErr_Format(PyExc_OverflowError, "a call-back returned %S, which is not an int of 32 bits", integer);
    Py_DECREF(integer);
    *answer = (int32_t)value;
    return PyErr_Occurred() ? -1 : 0;
}

static int32_t answer_on_error(t_CALL *call)
{
    PyObject *result = PyObject_CallNoArgs(call->host->state->answer_on_error);
    int32_t answer = 0;
    if (!result || read_answer(result, &answer) < 0) answer = 0;
    PyErr_Clear();
    Py_XDECREF(result);
    return answer;
}

static int ask(PyObject *callback, int32_t value, int32_t *answer)
{
    PyObject *result = PyObject_CallFunction(callback, "i", (int)value);
    if (!result) return -1;
    const int status = read_answer(result, answer);
    Py_DECREF(result);
    return status;
}

/* After an exception the callable is not asked again. */
static int32_t answer_callback(t_CALL *call, int32_t value)
{
    t_HOST *host = call->host;
    int32_t answer = 0;
    if (call->raised[0]) return answer_on_error(call);
    if (host->callback == Py_None) return 0;
    PyObject *callback = Py_NewRef(host->callback);
    host->in_callback = true;
    if (ask(callback, value, &answer) < 0) {
        keep_raised(call);
        answer = answer_on_error(call);
    }
    host->in_callback = false;
    Py_DECREF(callback);
    return answer;
}

/* ---- The wait -------------------------------------------------------------------------------------------------- */

/* Another thread has no signal handlers to run, and waits until there is something. */
static int32_t wait(t_CALL *call, bool main_thread, int32_t *what, int32_t *value)
{
    ka_host *ka = call->host->ka;
    int32_t status;
    PyThreadState *state = PyEval_SaveThread();
    do {
        status = ka_wait(ka, main_thread ? LOOK_MS : -1, what, value);
    } while (!main_thread && status == KA_DONE && *what == KA_WAITING);
    PyEval_RestoreThread(state);
    return status;
}

/* A handler that raises ends the call; what it raised is seen once the call has ended. */
static void run_signal_handlers(t_CALL *call)
{
    if (call->cancelled || PyErr_CheckSignals() == 0) return;
    keep_raised(call);
    call->cancelled = true;
    ka_cancel(call->host->ka);
}

/* The answer, unless the call-back has forked and this is the child. */
static int answer(t_CALL *call, int32_t value)
{
    const int32_t number = answer_callback(call, value);
    if (is_closed(call->host)) return fail_closed(call->host);
    return ka_answer(call->host->ka, number) == KA_DONE ? 0 : fail_library(call->host, call->function);
}

/* One step: 1 when the call has returned, 0 when it goes on. */
static int step(t_CALL *call, int32_t status, int32_t what, int32_t value)
{
    if (status != KA_DONE) return fail_library(call->host, call->function);
    if (what == KA_CALLBACK) return answer(call, value);
    call->code = value;
    return what == KA_RETURNED ? 1 : 0;
}

static int wait_to_the_end(t_CALL *call)
{
    const bool main_thread = in_main_thread();
    for (;;) {
        int32_t what = KA_WAITING, value = 0;
        const int32_t status = wait(call, main_thread, &what, &value);
        if (main_thread && status == KA_DONE && what == KA_WAITING) run_signal_handlers(call);
        const int stepped = step(call, status, what, value);
        if (stepped != 0) return stepped < 0 ? -1 : 0;
    }
}

/* ---- The call -------------------------------------------------------------------------------------------------- */

/* What the function returned, as the caller gets it. results: taken over; null after an error. */
static PyObject *finish(t_CALL *call, PyObject *results, bool raw)
{
    t_STATE *state = call->host->state;
    if (!results) return NULL;
    if (!raw && call->code == 0) return results;
    PyObject *target = raw ? state->Returned : state->returned_code;
    PyObject *made = raw ? PyObject_CallFunction(target, "iO", (int)call->code, results)
                         : PyObject_CallFunction(target, "OiO", (PyObject *)call->function, (int)call->code, results);
    Py_DECREF(results);
    if (raw || !made) return made;
    PyErr_SetObject((PyObject *)Py_TYPE(made), made);
    Py_DECREF(made);
    return NULL;
}

static PyObject *make_call(t_CALL *call)
{
    int status = set_deadline(call, true);
    if (status == 0) status = send(call);
    if (status == 0) status = wait_to_the_end(call);
    PyObject *results = status == 0 && !call->raised[0] ? make_results(call) : NULL;
    if (call->raised[0]) raise_kept(call);
    if (call->function->deadline_ms != 0) {
        PyObject *type, *value, *traceback;
        PyErr_Fetch(&type, &value, &traceback);
        if (set_deadline(call, false) < 0) PyErr_Clear();
        PyErr_Restore(type, value, traceback);
    }
    return results;
}

PyObject *call_function(t_FUNCTION *function, PyObject *positional, PyObject *named, bool raw)
{
    t_CALL call;
    t_HOST *host = function->host;
    init_call(&call, function);
    PyObject *results = NULL;
    if (take_arguments(&call, positional, named) == 0 && enter_host(host) == 0) {
        results = make_call(&call);
        leave_host(host);
    }
    end_call(&call);
    return finish(&call, results, raw);
}
