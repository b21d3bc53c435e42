/* SPDX-License-Identifier: MIT
 *
 * What a call gave back, as Python's values in a named tuple. */

#include "extension.h"

/* ---- One value ------------------------------------------------------------------------------------------------- */

static PyObject *take_integer(t_CALL *call, int i)
{
    int32_t value = 0;
    ka_get_integers(call->host->ka, i, &value, 1);
    return PyLong_FromLong(value);
}

static PyObject *take_real(t_CALL *call, int i)
{
    if (call->reals_as_floats) {
        double value = 0;
        ka_get_doubles(call->host->ka, i, &value, 1);
        return PyFloat_FromDouble(value);
    }
    t_DECIMAL real = {0, DEC_NULL, 0, {0}};
    ka_get_reals(call->host->ka, i, &real, 1);
    return decimal_from_real(call->host->state, &real);
}

static PyObject *make_text(t_CALL *call, const t_ARGUMENT *argument, const char *characters, int32_t length)
{
    const t_HOST *host = call->host;
    if (argument->as_bytes) return PyBytes_FromStringAndSize(characters, length);
    const char *errors = PyBytes_AsString(host->errors);
    if (host->utf8) return PyUnicode_DecodeUTF8(characters, length, errors);
    return PyUnicode_Decode(characters, length, PyBytes_AsString(host->encoding), errors);
}

static PyObject *take_string(t_CALL *call, int i, int32_t element)
{
    const t_ARGUMENT *argument = &call->arguments[i];
    int32_t length = 0;
    char *buffer = arena(call->host, (size_t)argument->room + 1);
    if (!buffer) return NULL;
    ka_get_string(call->host->ka, i, element, buffer, argument->room, &length);
    return make_text(call, argument, buffer, length);
}

/* ---- Lists ----------------------------------------------------------------------------------------------------- */

/* Takes the reference to item; null when it is null. */
static int set_item(PyObject *list, int32_t place, PyObject *item)
{
    return item ? PyList_SetItem(list, place, item) : -1;
}

static int fill_with_integers(t_CALL *call, int i, PyObject *list, int32_t count)
{
    int32_t *values = arena(call->host, (size_t)count * sizeof *values);
    if (!values && count > 0) return -1;
    ka_get_integers(call->host->ka, i, values, count);
    for (int32_t k = 0; k < count; k++)
        if (set_item(list, k, PyLong_FromLong(values[k])) < 0) return -1;
    return 0;
}

static int fill_with_floats(t_CALL *call, int i, PyObject *list, int32_t count)
{
    double *values = arena(call->host, (size_t)count * sizeof *values);
    if (!values && count > 0) return -1;
    ka_get_doubles(call->host->ka, i, values, count);
    for (int32_t k = 0; k < count; k++)
        if (set_item(list, k, PyFloat_FromDouble(values[k])) < 0) return -1;
    return 0;
}

static int fill_with_reals(t_CALL *call, int i, PyObject *list, int32_t count)
{
    if (call->reals_as_floats) return fill_with_floats(call, i, list, count);
    t_DECIMAL *values = arena(call->host, (size_t)count * sizeof *values);
    if (!values && count > 0) return -1;
    ka_get_reals(call->host->ka, i, values, count);
    for (int32_t k = 0; k < count; k++)
        if (set_item(list, k, decimal_from_real(call->host->state, &values[k])) < 0) return -1;
    return 0;
}

static int fill_with_strings(t_CALL *call, int i, PyObject *list, int32_t count)
{
    for (int32_t k = 0; k < count; k++)
        if (set_item(list, k, take_string(call, i, k)) < 0) return -1;
    return 0;
}

static PyObject *take_list(t_CALL *call, int i, int (*fill)(t_CALL *, int, PyObject *, int32_t))
{
    const int32_t count = call->arguments[i].count;
    PyObject *list = PyList_New(count);
    if (list && fill(call, i, list, count) < 0) Py_CLEAR(list);
    return list;
}

/* ---- Buffers --------------------------------------------------------------------------------------------------- */

static void get_numbers(t_CALL *call, int i, void *to)
{
    const t_ARGUMENT *argument = &call->arguments[i];
    if (argument->shape == INTEGER_BUFFER)
        ka_get_integers(call->host->ka, i, to, argument->count);
    else
        ka_get_doubles(call->host->ka, i, to, argument->count);
}

/* Into a new object of the same type and shape. */
static PyObject *take_new_buffer(t_CALL *call, int i)
{
    const t_ARGUMENT *argument = &call->arguments[i];
    PyObject *copy = PyObject_CallFunctionObjArgs(call->host->state->copy_buffer, argument->value, NULL);
    Py_buffer view;
    if (!copy || PyObject_GetBuffer(copy, &view, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE) < 0) {
        Py_XDECREF(copy);
        return NULL;
    }
    const Py_ssize_t size = argument->shape == INTEGER_BUFFER ? 4 : 8;
    if (view.len == argument->count * size)
        get_numbers(call, i, view.buf);
    else
        PyErr_SetString(PyExc_BufferError, "the copy of a buffer has another size");
    PyBuffer_Release(&view);
    if (PyErr_Occurred()) Py_CLEAR(copy);
    return copy;
}

/* number: of the InPlace among the arguments. */
static PyObject *take_buffer(t_CALL *call, int i, int number)
{
    const t_ARGUMENT *argument = &call->arguments[i];
    if (!argument->in_place) return take_new_buffer(call, i);
    get_numbers(call, i, call->in_place[number].buf);
    return Py_NewRef(argument->value);
}

/* ---- All of them ----------------------------------------------------------------------------------------------- */

/* null without an exception: nothing is given back in this argument. */
static PyObject *take_result(t_CALL *call, int i, int in_place)
{
    if (!ka_gives_back(call->host->ka, i)) return Py_NewRef(Py_None);
    switch (call->arguments[i].shape) {
    case AN_INTEGER:
        return take_integer(call, i);
    case INTEGERS:
        return take_list(call, i, fill_with_integers);
    case A_REAL:
        return take_real(call, i);
    case REALS:
        return take_list(call, i, fill_with_reals);
    case A_STRING:
        return take_string(call, i, 0);
    case STRINGS:
        return take_list(call, i, fill_with_strings);
    case INTEGER_BUFFER:
    case REAL_BUFFER:
        return take_buffer(call, i, in_place);
    case GIVES_NOTHING:
        break;
    }
    return Py_NewRef(Py_None);
}

/* Of all arguments of a range that give something back. values: room for as many. */
static int take_results(t_CALL *call, int first, int last, PyObject **values, int *in_place)
{
    int count = 0;
    for (int i = first; i <= last; i++) {
        if (call->arguments[i].shape == GIVES_NOTHING) continue;
        PyObject *value = take_result(call, i, *in_place);
        if (!value) {
            while (count > 0)
                Py_DECREF(values[--count]);
            return -1;
        }
        if (call->arguments[i].in_place) ++*in_place;
        values[count++] = value;
    }
    return count;
}

static PyObject *make_tuple(PyTypeObject *type, PyObject **values, int count)
{
    const allocfunc allocate = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    PyObject *tuple =
        type == &PyTuple_Type ? PyTuple_New(count) : allocate(type, count); /* there is one empty tuple */
    for (int i = 0; i < count; i++)
        if (!tuple || PyTuple_SetItem(tuple, i, values[i]) < 0) Py_CLEAR(tuple);
    return tuple;
}

static PyObject *result_class(t_FUNCTION *function)
{
    if (!function->result_class)
        function->result_class =
            PyObject_CallFunctionObjArgs(function->host->state->result_type, (PyObject *)function, NULL);
    return function->result_class;
}

PyObject *make_results(t_CALL *call)
{
    t_FUNCTION *function = call->function;
    PyObject *values[MAX_ARGUMENTS + 1], *more[MAX_ARGUMENTS + 1];
    PyObject *type = result_class(function);
    if (!type) return NULL;
    int in_place = 0;
    int count = take_results(call, 1, function->count, values, &in_place);
    if (count < 0) return NULL;
    if (function->takes_more) {
        const int others = take_results(call, function->count + 1, call->count, more, &in_place);
        PyObject *tuple = others >= 0 ? make_tuple(&PyTuple_Type, more, others) : NULL;
        if (!tuple) {
            while (count > 0)
                Py_DECREF(values[--count]);
            return NULL;
        }
        values[count++] = tuple;
    }
    return make_tuple((PyTypeObject *)type, values, count);
}
