/* SPDX-License-Identifier: MIT
 *
 * Numbers as arguments: one, a sequence of them, or a buffer, which is passed at once. */
#include <limits.h>

#include "extension.h"

/* ---- Buffers --------------------------------------------------------------------------------------------------- */

/* Whether format is the native code of one type: also with a byte order that says the same. */
static bool is_format(const char *format, char code)
{
    if (!format) return false;
    const char *orders = PY_LITTLE_ENDIAN ? "@=<" : "@=>!";
    if (format[0] != '\0' && strchr(orders, format[0])) format++;
    return format[0] == code && format[1] == '\0';
}

/* 1 when value has a buffer of the format, which is then in view; 0 when it has none. */
static int get_buffer(PyObject *value, char code, Py_ssize_t size, bool writable, Py_buffer *view)
{
    if (PyList_Check(value) || PyTuple_Check(value) || !PyObject_CheckBuffer(value)) return 0;
    const int flags = PyBUF_C_CONTIGUOUS | PyBUF_FORMAT | (writable ? PyBUF_WRITABLE : 0);
    if (PyObject_GetBuffer(value, view, flags) < 0) {
        if (writable || !PyErr_ExceptionMatches(PyExc_BufferError)) return -1;
        PyErr_Clear(); /* not contiguous: its elements one by one */
        return 0;
    }
    if (view->itemsize == size && is_format(view->format, code)) return 1;
    PyBuffer_Release(view);
    return 0;
}

static int keep_in_place(t_CALL *call, const Py_buffer *view)
{
    Py_buffer *more = PyMem_Realloc(call->in_place, (size_t)(call->in_place_count + 1) * sizeof *more);
    if (!more) return PyErr_NoMemory() ? 0 : -1;
    call->in_place = more;
    more[call->in_place_count++] = *view; /* a Py_buffer may be moved */
    return 0;
}

static int add_buffer(t_CALL *call, int i, bool integers, Py_buffer *view, int32_t passing)
{
    t_ARGUMENT *argument = &call->arguments[i];
    const Py_ssize_t count = view->len / view->itemsize;
    int status = 0;
    if (count > INT32_MAX)
        status = fail_argument(call->function, i, KA_ARGUMENT, "has more elements than a call can have");
    else if (integers)
        ka_add_integers(call->host->ka, view->buf, (int32_t)count, passing);
    else
        ka_add_doubles(call->host->ka, view->buf, (int32_t)count, passing);
    argument->shape = passing != KA_BY_REFERENCE ? GIVES_NOTHING : integers ? INTEGER_BUFFER : REAL_BUFFER;
    argument->count = (int32_t)count;
    if (status == 0 && argument->in_place) return keep_in_place(call, view);
    PyBuffer_Release(view);
    return status;
}

/* 1 when it was a buffer, and was added. */
static int add_as_buffer(t_CALL *call, int i, bool integers)
{
    t_ARGUMENT *argument = &call->arguments[i];
    Py_buffer view;
    const int found = get_buffer(argument->value, integers ? 'i' : 'd', integers ? 4 : 8, argument->in_place, &view);
    if (found < 0) return -1;
    if (found) return add_buffer(call, i, integers, &view, KA_BY_REFERENCE) < 0 ? -1 : 1;
    if (!argument->in_place) return 0;
    return fail_type(call->function, i,
                     integers ? "a C-contiguous buffer of format i in InPlace"
                              : "a C-contiguous buffer of format d in InPlace",
                     argument->value);
}

/* ---- INTEGER --------------------------------------------------------------------------------------------------- */

/* Python may refuse to write a number of thousands of digits. */
static int fail_wide(t_FUNCTION *function, int argument, PyObject *number)
{
    PyObject *text = PyNumber_ToBase(number, 10);
    PyErr_Clear();
    PyErr_Format(PyExc_OverflowError, "%s: argument %d (%U) is %V, which is not an integer of 32 bits",
                 PyBytes_AsString(function->name), argument, parameter_name(function, argument), text, "an int");
    Py_XDECREF(text);
    return -1;
}

static int integer_from_long(t_CALL *call, int argument, PyObject *number, int32_t *integer)
{
    int overflow = 0;
    const long value = PyLong_AsLongAndOverflow(number, &overflow);
    if (value == -1 && PyErr_Occurred()) return -1;
    if (overflow != 0 || value < INT32_MIN || value > INT32_MAX) return fail_wide(call->function, argument, number);
    *integer = (int32_t)value;
    return 0;
}

static int integer_from(t_CALL *call, int argument, PyObject *number, int32_t *integer)
{
    if (PyLong_Check(number)) return integer_from_long(call, argument, number, integer);
    if (!PyIndex_Check(number)) return fail_type(call->function, argument, "int", number);
    PyObject *index = PyNumber_Index(number);
    if (!index) return -1;
    const int status = integer_from_long(call, argument, index, integer);
    Py_DECREF(index);
    return status;
}

int add_integer(t_CALL *call, int i, int32_t passing)
{
    int32_t value;
    if (integer_from(call, i, call->arguments[i].value, &value) < 0) return -1;
    ka_add_integer(call->host->ka, value, passing);
    call->arguments[i].shape = passing == KA_BY_REFERENCE ? AN_INTEGER : GIVES_NOTHING;
    return 0;
}

int add_integer_elements(t_CALL *call, int i, PyObject *elements, int32_t passing)
{
    const int32_t count = call->arguments[i].count;
    int32_t *values = arena(call->host, (size_t)count * sizeof *values);
    if (!values && count > 0) return -1;
    for (int32_t k = 0; k < count; k++)
        if (integer_from(call, i, PyTuple_GetItem(elements, k), &values[k]) < 0) return -1;
    ka_add_integers(call->host->ka, values, count, passing);
    call->arguments[i].shape = passing == KA_BY_REFERENCE ? INTEGERS : GIVES_NOTHING;
    return 0;
}

/* ---- REAL ------------------------------------------------------------------------------------------------------ */

int add_real(t_CALL *call, int i, int32_t passing)
{
    t_DECIMAL real;
    if (real_from_number(call, i, call->arguments[i].value, &real) < 0) return -1;
    ka_add_reals(call->host->ka, &real, 1, passing);
    call->arguments[i].shape = passing == KA_BY_REFERENCE ? A_REAL : GIVES_NOTHING;
    return 0;
}

/* RealByValue: an int of 32 bits goes as what it is. */
int add_number(t_CALL *call, int i)
{
    PyObject *value = call->arguments[i].value;
    int overflow = 0;
    const long integer = PyLong_Check(value) ? PyLong_AsLongAndOverflow(value, &overflow) : LONG_MAX;
    if (integer < INT32_MIN || integer > INT32_MAX || overflow != 0) return add_real(call, i, KA_BY_VALUE);
    ka_add_integer(call->host->ka, (int32_t)integer, KA_BY_VALUE);
    call->arguments[i].shape = GIVES_NOTHING;
    return 0;
}

int add_real_elements(t_CALL *call, int i, PyObject *elements, int32_t passing)
{
    const int32_t count = call->arguments[i].count;
    t_DECIMAL *values = arena(call->host, (size_t)count * sizeof *values);
    if (!values && count > 0) return -1;
    for (int32_t k = 0; k < count; k++)
        if (real_from_number(call, i, PyTuple_GetItem(elements, k), &values[k]) < 0) return -1;
    ka_add_reals(call->host->ka, values, count, passing);
    call->arguments[i].shape = passing == KA_BY_REFERENCE ? REALS : GIVES_NOTHING;
    return 0;
}

/* ---- Arrays ---------------------------------------------------------------------------------------------------- */

/* Out of its InPlace. */
static int unwrap_in_place(t_CALL *call, int i)
{
    t_ARGUMENT *argument = &call->arguments[i];
    argument->in_place = is_instance(argument->value, call->host->state->InPlace);
    if (!argument->in_place) return 0;
    PyObject *value = PyObject_GetAttrString(argument->value, "value");
    if (!value) return -1;
    replace(&argument->value, value);
    return 0;
}

int add_numbers(t_CALL *call, int i, bool integers)
{
    if (unwrap_in_place(call, i) < 0) return -1;
    const int added = add_as_buffer(call, i, integers);
    if (added != 0) return added < 0 ? -1 : 0;
    return integers ? add_sequence(call, i, "a sequence of int, or a buffer of format i", add_integer_elements)
                    : add_sequence(call, i, "a sequence of numbers, or a buffer of format d", add_real_elements);
}

/* A buffer by its format, if it is one: 1 when it was added. */
int add_any_buffer(t_CALL *call, int i, int32_t passing)
{
    if (unwrap_in_place(call, i) < 0) return -1;
    for (int integers = 0; integers <= 1; integers++) {
        Py_buffer view;
        const bool in_place = call->arguments[i].in_place;
        const int found =
            get_buffer(call->arguments[i].value, integers ? 'i' : 'd', integers ? 4 : 8, in_place, &view);
        if (found < 0) return -1;
        if (found) return add_buffer(call, i, integers, &view, in_place ? KA_BY_REFERENCE : passing) < 0 ? -1 : 1;
    }
    if (!call->arguments[i].in_place) return 0;
    return fail_type(call->function, i, "a C-contiguous buffer of format i or d in InPlace",
                     call->arguments[i].value);
}
