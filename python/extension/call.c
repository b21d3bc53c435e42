/* SPDX-License-Identifier: MIT
 *
 * One call: its turn, the arguments, the wait, the answers to call-backs, the results. The GIL is released around the
 * wait alone. In the main thread the wait is looked up from every 50 ms, and Python's signal handlers run: libkacall
 * notices a handler that ran just before its sleep only then. */
#define _GNU_SOURCE
#include <signal.h>
#include <sys/wait.h>

#include "extension.h"

/* ---- Beginning and end ----------------------------------------------------------------------------------------- */

void init_call(t_CALL *call, t_FUNCTION *function)
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

void end_call(t_CALL *call)
{
    for (int i = 0; i < call->in_place_count; i++)
        PyBuffer_Release(&call->in_place[i]);
    PyMem_Free(call->in_place);
    for (int i = 1; i <= call->count; i++)
        Py_XDECREF(call->arguments[i].value);
    call->in_place = NULL;
    call->in_place_count = call->count = 0;
}

/* The deadline of this function's calls. */
static int set_own_deadline(t_CALL *call)
{
    const int32_t deadline_ms = call->function->deadline_ms;
    if (deadline_ms == 0 || ka_set_deadline(call->host->ka, deadline_ms) == KA_DONE) return 0;
    return fail_library(call->host, call->function);
}

static void set_deadline_back(t_CALL *call)
{
    if (call->function->deadline_ms == 0 || is_closed(call->host)) return;
    ka_set_deadline(call->host->ka, call->host->options.deadline_ms);
}

/* Errors of libkacall while arguments are added come out of ka_send. */
int build_call(t_CALL *call)
{
    if (set_own_deadline(call) < 0) return -1;
    if (ka_begin(call->host->ka, PyBytes_AsString(call->function->name)) != KA_DONE)
        return fail_library(call->host, call->function);
    return add_arguments(call);
}

/* ---- Exceptions out of call-backs and signal handlers ---------------------------------------------------------- */

/* The first counts. */
void keep_raised(t_CALL *call)
{
    if (call->raised[0]) {
        PyErr_Clear();
        return;
    }
    PyErr_Fetch(&call->raised[0], &call->raised[1], &call->raised[2]);
}

static void raise_kept(t_CALL *call)
{
    PyErr_Restore(call->raised[0], call->raised[1], call->raised[2]);
    call->raised[0] = call->raised[1] = call->raised[2] = NULL;
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
static int32_t ask_callback(t_CALL *call, int32_t value)
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

/* The call-back may have forked, and this be the child. */
int answer_callback(t_CALL *call, int32_t value)
{
    const int32_t answer = ask_callback(call, value);
    if (is_closed(call->host)) return fail_closed(call->host);
    return ka_answer(call->host->ka, answer) == KA_DONE ? 0 : fail_library(call->host, call->function);
}

/* ---- The wait -------------------------------------------------------------------------------------------------- */

static int32_t send_work(void *subject)
{
    return ka_send(((t_HOST *)subject)->ka);
}

static void cancel_start(void *subject)
{
    ka_cancel(((t_HOST *)subject)->ka);
}

/* A host that may start again takes its time for that. One that has just died is noticed by ka_send first. */
bool may_start(const t_HOST *host)
{
    if (host->options.restart == KA_RESTART_NEVER) return false;
    const int32_t pid = ka_pid(host->ka);
    siginfo_t end = {0};
    return pid == 0 || waitid(P_PID, (id_t)pid, &end, WEXITED | WNOHANG | WNOWAIT) != 0 || end.si_pid != 0;
}

/* Another thread than the main one has no signal handlers to run, and waits until there is something. */
static int32_t wait_for_reply(ka_host *ka, bool main_thread, bool send, int32_t *what, int32_t *value)
{
    PyThreadState *state = PyEval_SaveThread();
    int32_t status = send ? ka_send(ka) : KA_DONE;
    while (status == KA_DONE) {
        status = ka_wait(ka, main_thread ? LOOK_MS : -1, what, value);
        if (main_thread || *what != KA_WAITING) break;
    }
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

static int send_and_wait(t_CALL *call)
{
    t_HOST *host = call->host;
    const bool main_thread = in_main_thread();
    bool send = true;
    if (main_thread && may_start(host)) {
        int32_t sent = KA_DONE;
        host->inside = true;
        call->cancelled = run_waiting(send_work, host, cancel_start, &sent) < 0;
        host->inside = false;
        if (is_closed(host))
            return PyErr_Occurred() ? -1 : fail_closed(host); /* in a child that a handler has made */
        if (call->cancelled) keep_raised(call);
        if (sent != KA_DONE) return fail_library(host, call->function);
        if (call->cancelled) ka_cancel(host->ka);
        send = false;
    }
    for (;;) {
        int32_t what = KA_WAITING, value = 0;
        host->inside = true;
        const int32_t status = wait_for_reply(host->ka, main_thread, send, &what, &value);
        host->inside = send = false;
        if (status != KA_DONE) return fail_library(host, call->function);
        if (what == KA_RETURNED) {
            call->code = value;
            return 0;
        }
        if (what == KA_CALLBACK && answer_callback(call, value) < 0) return -1;
        if (what == KA_WAITING) run_signal_handlers(call);
    }
}

/* ---- The call -------------------------------------------------------------------------------------------------- */

/* What came out of a call-back or a handler is seen instead of what became of the call. */
PyObject *call_results(t_CALL *call, int status)
{
    PyObject *results = status == 0 && !call->raised[0] ? make_results(call) : NULL;
    set_deadline_back(call);
    if (!call->raised[0]) return results;
    PyErr_Clear();
    raise_kept(call);
    return NULL;
}

PyObject *finish_call(t_CALL *call, PyObject *results, bool raw)
{
    t_STATE *state = call->host->state;
    if (!results || (!raw && call->code == 0)) return results;
    PyObject *made = raw ? PyObject_CallFunction(state->Returned, "iO", (int)call->code, results)
                         : PyObject_CallFunction(state->returned_code, "OiO", (PyObject *)call->function,
                                                 (int)call->code, results);
    Py_DECREF(results);
    if (raw || !made) return made;
    PyErr_SetObject((PyObject *)Py_TYPE(made), made);
    Py_DECREF(made);
    return NULL;
}

PyObject *call_function(t_FUNCTION *function, PyObject *positional, PyObject *named, bool raw)
{
    t_CALL call;
    t_HOST *host = function->host;
    init_call(&call, function);
    PyObject *results = NULL;
    if (take_arguments(&call, positional, named) == 0 && enter_host(host) == 0) {
        const int status = build_call(&call) < 0 ? -1 : send_and_wait(&call);
        results = call_results(&call, status);
        leave_host(host);
    }
    end_call(&call);
    return finish_call(&call, results, raw);
}
