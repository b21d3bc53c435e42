/* SPDX-License-Identifier: MIT
 *
 * REALs and Python's numbers. A number reaches the module as it is, or not at all; only a float is rounded, to the
 * REAL that is nearest to its shortest decimal text. */
#include <math.h>

#include "extension.h"

/* A function of a module gets doubles, which the call host makes of so many decimals. */
enum { DECIMALS_OF_DOUBLES = 14 };

static int significant_decimals(const t_DECIMAL *real)
{
    if (real->dec_ndgts < 1) return 0;
    const int first = real->dec_dgts[0] < 10 ? 1 : 0;
    const int last = real->dec_dgts[real->dec_ndgts - 1] % 10 == 0 ? 1 : 0;
    return 2 * real->dec_ndgts - first - last;
}

/* Once a call: a warning that is off costs a microsecond. */
static int warn_of_loss(t_CALL *call, const t_DECIMAL *real)
{
    if (call->warned || real->dec_ndgts < DECIMALS_OF_DOUBLES / 2 + 1) return 0;
    if (significant_decimals(real) <= DECIMALS_OF_DOUBLES) return 0;
    call->warned = true;
    char text[KA_REAL_TEXT];
    return PyErr_WarnFormat(call->host->state->LossyKind, 1,
                            "%s has more than 14 decimals: a function that computes with doubles gets fewer",
                            ka_real_to_text(real, text));
}

/* ---- To REALs -------------------------------------------------------------------------------------------------- */

/* Python refuses to write thousands of digits of an int. */
static int refuse_number(t_CALL *call, int argument, PyObject *number)
{
    PyObject *text = PyObject_Repr(number);
    if (!text && !PyErr_ExceptionMatches(PyExc_ValueError)) return -1;
    PyErr_Clear();
    fail_argument(call->function, argument, KA_ARGUMENT, "%V is not within the range of a REAL", text,
                  "a number of thousands of digits");
    Py_XDECREF(text);
    return -1;
}

/* text: of a Decimal or an int. */
static int read_exactly(t_CALL *call, int argument, PyObject *number, const char *text, Py_ssize_t length,
                        t_DECIMAL *real)
{
    int32_t exact = 0;
    if (length > INT32_MAX || ka_real_read(text, (int32_t)length, real, &exact) != KA_DONE)
        return refuse_number(call, argument, number);
    if (!exact) return fail_lost_digits(call->function, argument, number, real);
    return 0;
}

static int read_text(t_CALL *call, int argument, PyObject *number, PyObject *text, t_DECIMAL *real)
{
    Py_ssize_t length;
    const char *characters = PyUnicode_AsUTF8AndSize(text, &length);
    return characters ? read_exactly(call, argument, number, characters, length, real) : -1;
}

/* Seldom: a Fraction; a Decimal whose text ka_real_read refuses, although its value may be a REAL. */
static int read_slowly(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real)
{
    PyObject *text = PyObject_CallFunctionObjArgs(call->host->state->exact_text, number, NULL);
    if (!text) return -1;
    int status;
    if (text == Py_None)
        status = refuse_number(call, argument, number);
    else if (text == Py_NotImplemented)
        status = fail_type(call->function, argument, "int, Decimal, float or Fraction", number);
    else
        status = read_text(call, argument, number, text, real);
    Py_DECREF(text);
    return status;
}

static int real_from_decimal(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real)
{
    PyObject *text = call->host->state->decimal_text(number);
    if (!text) return -1;
    Py_ssize_t length;
    const char *characters = PyUnicode_AsUTF8AndSize(text, &length);
    int32_t exact = 0;
    int status = characters ? 0 : -1;
    if (characters && (length > INT32_MAX || ka_real_read(characters, (int32_t)length, real, &exact) != KA_DONE))
        status = read_slowly(call, argument, number, real);
    else if (characters && !exact)
        status = fail_lost_digits(call->function, argument, number, real);
    Py_DECREF(text);
    return status == 0 ? warn_of_loss(call, real) : -1;
}

static int real_from_float(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real)
{
    const double value = PyFloat_AsDouble(number);
    if (value == -1.0 && PyErr_Occurred()) return -1;
    if (!isfinite(value)) return refuse_number(call, argument, number);
    char *text = PyOS_double_to_string(value, 'r', 0, 0, NULL);
    if (!text) return -1;
    const int32_t status = ka_real_from_text(text, (int32_t)strlen(text), real);
    PyMem_Free(text);
    return status == KA_DONE ? 0 : refuse_number(call, argument, number);
}

static int real_from_long_integer(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real)
{
    PyObject *text = PyNumber_ToBase(number, 10);            /* a class derived from int may have another str() */
    if (!text && PyErr_ExceptionMatches(PyExc_ValueError)) { /* too many digits to be written */
        PyErr_Clear();
        return refuse_number(call, argument, number);
    }
    if (!text) return -1;
    const int status = read_text(call, argument, number, text, real);
    Py_DECREF(text);
    return status;
}

static int real_from_integer(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real)
{
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(number, &overflow);
    if (overflow != 0) return real_from_long_integer(call, argument, number, real);
    if (value == -1 && PyErr_Occurred()) return -1;
    char text[24];
    const int length = PyOS_snprintf(text, sizeof text, "%lld", value);
    return read_exactly(call, argument, number, text, length, real);
}

static int real_from_index(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real)
{
    PyObject *integer = PyNumber_Index(number);
    if (!integer) return -1;
    const int status = real_from_integer(call, argument, integer, real);
    Py_DECREF(integer);
    return status;
}

int real_from_number(t_CALL *call, int argument, PyObject *number, t_DECIMAL *real)
{
    if (is_instance(number, call->host->state->decimal_type)) return real_from_decimal(call, argument, number, real);
    if (PyLong_Check(number)) return real_from_integer(call, argument, number, real);
    if (PyFloat_Check(number)) return real_from_float(call, argument, number, real);
    if (number == Py_None)
        return fail_argument(call->function, argument, KA_ARGUMENT, "is None: a null REAL cannot be passed");
    if (PyIndex_Check(number)) return real_from_index(call, argument, number, real);
    return read_slowly(call, argument, number, real);
}

/* ---- From REALs ------------------------------------------------------------------------------------------------ */

PyObject *decimal_from_real(t_STATE *state, const t_DECIMAL *real)
{
    if (real->dec_pos == DEC_NULL) return Py_NewRef(Py_None);
    char characters[KA_REAL_TEXT];
    PyObject *text = PyUnicode_FromString(ka_real_to_text(real, characters));
    if (!text) return NULL;
    PyObject *number = PyObject_CallFunctionObjArgs(state->make_decimal, text, NULL);
    Py_DECREF(text);
    return number;
}

/* The nearest REAL of decimal text, as a Decimal; None where there is none. */
PyObject *round_to_real(PyObject *module, PyObject *text)
{
    Py_ssize_t length;
    const char *characters = PyUnicode_AsUTF8AndSize(text, &length);
    if (!characters) return NULL;
    t_DECIMAL real;
    if (length > INT32_MAX || ka_real_from_text(characters, (int32_t)length, &real) != KA_DONE)
        return Py_NewRef(Py_None);
    return decimal_from_real(state_of(module), &real);
}
