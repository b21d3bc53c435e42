/* SPDX-License-Identifier: MIT
 *
 * Exceptions, which the package makes: their classes are in kahost/_errors.py. Here is what they are made from. The
 * reports of an error cost much more than a refusal, and most are never read: they wait in libkacall until somebody
 * asks, or until the host is used again while somebody could still ask. */
#include <stdarg.h>

#include "extension.h"

/* ---- Evidence -------------------------------------------------------------------------------------------------- */

static PyObject *bytes_or_none(const char *text)
{
    return text ? PyBytes_FromString(text) : Py_NewRef(Py_None);
}

static PyObject *read_output(t_HOST *host)
{
    const Py_ssize_t room = host->options.error_output == KA_STDERR_RING ? host->options.ring_bytes : 0;
    char *buffer = PyMem_Malloc((size_t)room + 1);
    if (!buffer) return PyErr_NoMemory();
    const int32_t length = ka_error_output(host->ka, buffer, (int32_t)room);
    PyObject *output = PyBytes_FromStringAndSize(buffer, length);
    PyMem_Free(buffer);
    return output;
}

static bool concerns_process(int32_t error_class)
{
    return error_class == KA_START || error_class == KA_DIED || error_class == KA_DEADLINE ||
           error_class == KA_CANCELLED || error_class == KA_SYSTEM;
}

/* What cannot be had, for lack of memory, is None. */
static void fetch(t_EVIDENCE *evidence)
{
    t_HOST *host = evidence->host;
    if (!host || !host->ka) return;
    evidence->host = NULL;
    PyObject *type, *value, *traceback;
    PyErr_Fetch(&type, &value, &traceback);
    evidence->report = bytes_or_none(ka_report_text(host->ka));
    evidence->json = bytes_or_none(ka_report_json(host->ka));
    evidence->output = concerns_process(evidence->error_class) ? read_output(host) : Py_NewRef(Py_None);
    PyErr_Restore(type, value, traceback);
}

void settle_evidence(t_HOST *host)
{
    t_EVIDENCE *evidence = host->evidence;
    if (!evidence) return;
    host->evidence = NULL;
    if (Py_REFCNT((PyObject *)evidence) > 1 && !is_closed(host)) fetch(evidence);
    evidence->host = NULL;
    Py_DECREF(evidence);
}

static t_EVIDENCE *new_evidence(t_HOST *host, int32_t error_class)
{
    settle_evidence(host);
    t_EVIDENCE *evidence = PyObject_New(t_EVIDENCE, (PyTypeObject *)host->state->evidence_type);
    if (!evidence) return NULL;
    evidence->report = evidence->json = evidence->output = NULL;
    evidence->error_class = error_class;
    evidence->host = host;
    host->evidence = (t_EVIDENCE *)Py_NewRef((PyObject *)evidence);
    return evidence;
}

static PyObject *evidence_take(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_EVIDENCE *evidence = (t_EVIDENCE *)self;
    t_HOST *host = evidence->host;
    if (host) settle_evidence(host); /* it has this evidence: another error would have settled it */
#define OR_NONE(object) ((object) ? (object) : Py_None)
    return PyTuple_Pack(3, OR_NONE(evidence->report), OR_NONE(evidence->json), OR_NONE(evidence->output));
}

static void evidence_dealloc(PyObject *self)
{
    t_EVIDENCE *evidence = (t_EVIDENCE *)self;
    PyTypeObject *type = Py_TYPE(self);
    Py_XDECREF(evidence->report);
    Py_XDECREF(evidence->json);
    Py_XDECREF(evidence->output);
    PyObject_Free(self);
    Py_DECREF(type);
}

static PyMethodDef evidence_methods[] = {
    {"take", evidence_take, METH_NOARGS, "(report, json, standard error), bytes or None each."},
    {NULL, NULL, 0, NULL},
};

static PyType_Slot evidence_slots[] = {
    {Py_tp_dealloc, evidence_dealloc},
    {Py_tp_methods, evidence_methods},
    {0, NULL},
};

PyType_Spec evidence_spec = {
    .name = "kahost._kahost.Evidence",
    .basicsize = sizeof(t_EVIDENCE),
    .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION,
    .slots = evidence_slots,
};

/* ---- Exceptions ------------------------------------------------------------------------------------------------ */

static int raise_made(PyObject *exception)
{
    if (!exception) return -1;
    PyErr_SetObject((PyObject *)Py_TYPE(exception), exception);
    Py_DECREF(exception);
    return -1;
}

/* (position, name), or None. New. */
static PyObject *place_of(const t_FUNCTION *function, int argument)
{
    if (argument <= 0) return Py_NewRef(Py_None);
    PyObject *name = function ? parameter_name(function, argument) : NULL;
    return name ? Py_BuildValue("(iO)", argument, name) : Py_BuildValue("(is)", argument, "");
}

static PyObject *function_object(t_FUNCTION *function)
{
    return function ? (PyObject *)function : Py_None;
}

int fail_library(t_HOST *host, t_FUNCTION *function)
{
    const ka_error error = *ka_last_error(host->ka);
    if (!host->ka) return PyErr_NoMemory() ? 0 : -1;
    t_EVIDENCE *evidence = new_evidence(host, error.error_class);
    if (!evidence) return -1;
    PyObject *place = place_of(function, error.argument);
    PyObject *message = PyUnicode_DecodeUTF8(error.message, (Py_ssize_t)strlen(error.message), "backslashreplace");
    PyObject *exception =
        place && message
            ? PyObject_CallFunction(host->state->library_error, "iO(iiiiiL)OOO", (int)error.error_class, message,
                                    (int)error.retry, (int)error.sys_errno, (int)error.exit_status, (int)error.signal,
                                    (int)error.return_code, (long long)error.needed_bytes, function_object(function),
                                    place, (PyObject *)evidence)
            : NULL;
    Py_XDECREF(message);
    Py_XDECREF(place);
    Py_DECREF((PyObject *)evidence);
    return raise_made(exception);
}

static int fail_with_text(t_STATE *state, t_FUNCTION *function, int argument, int32_t error_class, PyObject *text)
{
    PyObject *place = text ? place_of(function, argument) : NULL;
    PyObject *exception = place ? PyObject_CallFunction(state->argument_error, "iOOO", (int)error_class, text,
                                                        function_object(function), place)
                                : NULL;
    Py_XDECREF(place);
    return raise_made(exception);
}

int fail_argument(t_FUNCTION *function, int argument, int32_t error_class, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    PyObject *text = PyUnicode_FromFormatV(format, values);
    va_end(values);
    fail_with_text(function->host->state, function, argument, error_class, text);
    Py_XDECREF(text);
    return -1;
}

int fail_type(t_FUNCTION *function, int argument, const char *takes, PyObject *value)
{
    PyObject *name = PyType_GetName(Py_TYPE(value));
    if (!name) return -1;
    fail_argument(function, argument, KA_REFUSED, "takes %s, not %U", takes, name);
    Py_DECREF(name);
    return -1;
}

int fail_host(t_HOST *host, int32_t error_class, const char *text)
{
    PyObject *message = PyUnicode_FromFormat("%s: %s", PyBytes_AsString(host->path), text);
    fail_with_text(host->state, NULL, 0, error_class, message);
    Py_XDECREF(message);
    return -1;
}

int fail_lost_digits(t_FUNCTION *function, int argument, PyObject *value, const t_DECIMAL *nearest)
{
    t_STATE *state = function->host->state;
    PyObject *decimal = decimal_from_real(state, nearest);
    PyObject *place = decimal ? place_of(function, argument) : NULL;
    PyObject *exception = place ? PyObject_CallFunctionObjArgs(state->lost_digits, value, decimal,
                                                               function_object(function), place, NULL)
                                : NULL;
    Py_XDECREF(place);
    Py_XDECREF(decimal);
    return raise_made(exception);
}
