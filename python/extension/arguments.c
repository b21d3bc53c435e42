/* SPDX-License-Identifier: MIT
 *
 * Python's values into arguments of a call. take_arguments finds one value for each parameter; add_arguments converts
 * them, each as the kind of its parameter asks, and only those of a VarArg by their own type. */
#include "extension.h"

/* ---- Which value for which parameter --------------------------------------------------------------------------- */

static int fail_missing(t_FUNCTION *function, int argument)
{
    return fail_argument(function, argument, KA_REFUSED, "is missing");
}

static int fail_too_many(t_FUNCTION *function, Py_ssize_t count)
{
    return fail_argument(function, 0, KA_REFUSED, "takes at most %d arguments, got %zd", function->count, count);
}

static int take_named(t_CALL *call, PyObject *named)
{
    t_FUNCTION *function = call->function;
    Py_ssize_t place = 0;
    PyObject *name, *value;
    while (PyDict_Next(named, &place, &name, &value)) {
        int i = 0;
        while (i < function->count && PyUnicode_Compare(function->parameters[i].name, name) != 0)
            i++;
        if (PyErr_Occurred()) return -1;
        if (i == function->count) return fail_argument(function, 0, KA_REFUSED, "has no argument %R", name);
        if (call->arguments[i + 1].value) return fail_argument(function, i + 1, KA_REFUSED, "is given twice");
        call->arguments[i + 1].value = Py_NewRef(value);
    }
    return 0;
}

static int take_defaults(t_CALL *call)
{
    t_FUNCTION *function = call->function;
    for (int i = 0; i < function->count; i++) {
        if (call->arguments[i + 1].value) continue;
        if (!function->parameters[i].default_value) return fail_missing(function, i + 1);
        call->arguments[i + 1].value = Py_NewRef(function->parameters[i].default_value);
    }
    return 0;
}

/* call->count says which values are there, to be dropped, whatever the result is. */
int take_arguments(t_CALL *call, PyObject *positional, PyObject *named)
{
    t_FUNCTION *function = call->function;
    const Py_ssize_t given = PyTuple_Size(positional);
    if (given > function->count && !function->takes_more) return fail_too_many(function, given);
    int count = given < MAX_ARGUMENTS ? (int)given : MAX_ARGUMENTS;
    for (int i = 0; i < count; i++)
        call->arguments[i + 1].value = Py_NewRef(PyTuple_GetItem(positional, i));
    for (int i = count; i < function->count; i++)
        call->arguments[i + 1].value = NULL;
    call->count = count > function->count ? count : function->count;
    if (named && take_named(call, named) < 0) return -1;
    return given < function->count ? take_defaults(call) : 0;
}

/* ---- Sequences ------------------------------------------------------------------------------------------------- */

/* The elements, as a tuple that nobody changes; they are counted. */
PyObject *elements_of(t_CALL *call, int i, const char *takes)
{
    PyObject *value = call->arguments[i].value;
    if (PyUnicode_Check(value) || !PySequence_Check(value)) {
        fail_type(call->function, i, takes, value);
        return NULL;
    }
    PyObject *elements = PySequence_Tuple(value);
    const Py_ssize_t count = elements ? PyTuple_Size(elements) : 0;
    if (count < INT32_MAX / (Py_ssize_t)sizeof(ka_text)) {
        call->arguments[i].count = (int32_t)count;
        return elements;
    }
    fail_argument(call->function, i, KA_ARGUMENT, "has more elements than a call can have");
    Py_DECREF(elements);
    return NULL;
}

int add_sequence(t_CALL *call, int i, const char *takes, t_ADD_ELEMENTS *add)
{
    PyObject *elements = elements_of(call, i, takes);
    if (!elements) return -1;
    const int status = add(call, i, elements, KA_BY_REFERENCE);
    Py_DECREF(elements);
    return status;
}

/* ---- VarArg: by the type of the value -------------------------------------------------------------------------- */

typedef enum t_TYPE { AN_INT, A_NUMBER, A_TEXT, NO_TYPE } t_TYPE;

static t_TYPE type_of(const t_STATE *state, PyObject *value)
{
    if (PyUnicode_Check(value) || PyBytes_Check(value)) return A_TEXT;
    if (PyLong_Check(value)) return AN_INT;
    if (PyFloat_Check(value) || is_instance(value, state->decimal_type)) return A_NUMBER;
    const bool array = PySequence_Check(value) && PyObject_CheckBuffer(value); /* which may have __index__, too */
    if (PyIndex_Check(value) && !array) return AN_INT;
    return PySequence_Check(value) || value == Py_None ? NO_TYPE : A_NUMBER; /* a Fraction, or refused as no number */
}

static t_TYPE type_of_all(const t_STATE *state, PyObject *elements, int32_t count)
{
    const t_TYPE first = count > 0 ? type_of(state, PyTuple_GetItem(elements, 0)) : NO_TYPE;
    for (int32_t k = 1; k < count; k++)
        if (type_of(state, PyTuple_GetItem(elements, k)) != first) return NO_TYPE;
    return first;
}

static int add_list(t_CALL *call, int i, int32_t passing)
{
    static const char takes[] = "int, Decimal, float, str, bytes, or a list of one of these";
    static t_ADD_ELEMENTS *const adds[] = {add_integer_elements, add_real_elements, add_string_elements};
    PyObject *elements = elements_of(call, i, takes);
    if (!elements) return -1;
    const t_TYPE type = type_of_all(call->host->state, elements, call->arguments[i].count);
    const int status = type != NO_TYPE ? adds[type](call, i, elements, passing)
                                       : fail_argument(call->function, i, KA_REFUSED,
                                                       "takes a list of one type, with an element at least");
    Py_DECREF(elements);
    return status;
}

static int add_array(t_CALL *call, int i, int32_t passing)
{
    const int added = add_any_buffer(call, i, passing);
    return added == 0 ? add_list(call, i, passing) : added < 0 ? -1 : 0;
}

static int add_more(t_CALL *call, int i)
{
    t_STATE *state = call->host->state;
    t_ARGUMENT *argument = &call->arguments[i];
    int32_t passing = KA_BY_VALUE;
    if (is_instance(argument->value, state->Ref)) {
        PyObject *value = PyObject_GetAttrString(argument->value, "value");
        if (!value) return -1;
        replace(&argument->value, value);
        passing = KA_BY_REFERENCE;
    }
    if (unwrap_text(call, i) < 0) return -1;
    switch (type_of(state, argument->value)) {
    case AN_INT:
        return add_integer(call, i, passing);
    case A_NUMBER:
        return is_instance(argument->value, state->InPlace) || PyObject_CheckBuffer(argument->value)
                   ? add_array(call, i, passing)
                   : add_real(call, i, passing);
    case A_TEXT:
        return add_string(call, i, passing, false);
    default:
        return add_array(call, i, passing);
    }
}

/* ---- All of them ----------------------------------------------------------------------------------------------- */

/* Of a kind that is not known, libkacall says what is wrong with it. */
static int add_argument(t_CALL *call, int i, int32_t kind)
{
    switch (kind) {
    case KA_INT_BY_VALUE:
        return add_integer(call, i, KA_BY_VALUE);
    case KA_INT_BY_REFERENCE:
        return add_integer(call, i, KA_BY_REFERENCE);
    case KA_INT_ARRAY:
        return add_numbers(call, i, true);
    case KA_REAL_BY_VALUE:
        return add_number(call, i);
    case KA_REAL_BY_REFERENCE:
        return add_real(call, i, KA_BY_REFERENCE);
    case KA_REAL_ARRAY:
        return add_numbers(call, i, false);
    case KA_ZSTRING:
        return add_string(call, i, KA_BY_VALUE, true);
    case KA_STRING:
        return add_string(call, i, KA_BY_REFERENCE, false);
    case KA_STRING_ARRAY:
        return add_strings(call, i);
    default:
        return add_more(call, i);
    }
}

int add_arguments(t_CALL *call)
{
    const t_FUNCTION *function = call->function;
    for (int i = 1; i <= call->count; i++) {
        call->arguments[i].in_place = false;
        call->arguments[i].room = call->room;
        const int32_t kind = i <= function->count ? function->parameters[i - 1].kind : KA_VARARG;
        if (add_argument(call, i, kind) < 0) return -1;
    }
    return 0;
}
