/* SPDX-License-Identifier: MIT
 *
 * Python's values into arguments of a call. take_arguments finds one value for each parameter; add_arguments converts
 * them, each as the kind of its parameter asks, and only those of a VarArg by their own type. */
#include <limits.h>

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
    return fail_type(call->function, i, integers ? "a C-contiguous buffer of format i in InPlace"
                                                 : "a C-contiguous buffer of format d in InPlace", argument->value);
}

/* ---- Sequences ------------------------------------------------------------------------------------------------- */

/* The elements, as a tuple that nobody changes; they are counted. */
static PyObject *elements_of(t_CALL *call, int i, const char *takes)
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

/* ---- INTEGER --------------------------------------------------------------------------------------------------- */

static int fail_wide(t_FUNCTION *function, int argument, PyObject *number)
{
    PyErr_Format(PyExc_OverflowError, "%s: argument %d (%U) is %S, which is not an integer of 32 bits",
                 PyBytes_AsString(function->name), argument, parameter_name(function, argument), number);
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

static int add_integer(t_CALL *call, int i, int32_t passing)
{
    int32_t value;
    if (integer_from(call, i, call->arguments[i].value, &value) < 0) return -1;
    ka_add_integer(call->host->ka, value, passing);
    call->arguments[i].shape = passing == KA_BY_REFERENCE ? AN_INTEGER : GIVES_NOTHING;
    return 0;
}

static int add_integer_elements(t_CALL *call, int i, PyObject *elements, int32_t passing)
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

static int add_real(t_CALL *call, int i, int32_t passing)
{
    t_DECIMAL real;
    if (real_from_number(call, i, call->arguments[i].value, &real) < 0) return -1;
    ka_add_reals(call->host->ka, &real, 1, passing);
    call->arguments[i].shape = passing == KA_BY_REFERENCE ? A_REAL : GIVES_NOTHING;
    return 0;
}

/* RealByValue: an int of 32 bits goes as what it is. */
static int add_number(t_CALL *call, int i)
{
    PyObject *value = call->arguments[i].value;
    int overflow = 0;
    const long integer = PyLong_Check(value) ? PyLong_AsLongAndOverflow(value, &overflow) : LONG_MAX;
    if (integer < INT32_MIN || integer > INT32_MAX || overflow != 0) return add_real(call, i, KA_BY_VALUE);
    ka_add_integer(call->host->ka, (int32_t)integer, KA_BY_VALUE);
    call->arguments[i].shape = GIVES_NOTHING;
    return 0;
}

static int add_real_elements(t_CALL *call, int i, PyObject *elements, int32_t passing)
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

/* ---- STRING ---------------------------------------------------------------------------------------------------- */

/* Out of its Text, whose room is taken. */
static int unwrap_text(t_CALL *call, int i)
{
    t_ARGUMENT *argument = &call->arguments[i];
    if (!is_instance(argument->value, call->host->state->Text)) return 0;
    PyObject *value = PyObject_GetAttrString(argument->value, "value");
    PyObject *room = value ? PyObject_GetAttrString(argument->value, "room") : NULL;
    const long number = room ? PyLong_AsLong(room) : -1;
    Py_XDECREF(room);
    if (PyErr_Occurred()) {
        Py_XDECREF(value);
        return -1;
    }
    if (number >= 0) argument->room = number < INT32_MAX ? (int32_t)number : INT32_MAX;
    replace(&argument->value, value);
    return 0;
}

/* The characters are those of value, or of *held, which the caller drops. */
static int text_from(t_CALL *call, int i, PyObject *value, ka_text *text, PyObject **held)
{
    t_HOST *host = call->host;
    Py_ssize_t length = 0;
    const char *characters = NULL;
    *held = NULL;
    if (PyUnicode_Check(value) && host->utf8) {
        characters = PyUnicode_AsUTF8AndSize(value, &length);
        if (!characters && !PyErr_ExceptionMatches(PyExc_UnicodeEncodeError)) return -1;
        if (!characters) PyErr_Clear(); /* surrogates: the module's errors say how */
    } else if (!PyUnicode_Check(value) && !PyBytes_Check(value)) {
        return fail_type(call->function, i, "str or bytes", value);
    }
    if (!characters) {
        *held = PyBytes_Check(value) ? Py_NewRef(value)
                                     : PyUnicode_AsEncodedString(value, PyBytes_AsString(host->encoding),
                                                                 PyBytes_AsString(host->errors));
        if (!*held || PyBytes_AsStringAndSize(*held, (char **)&characters, &length) < 0) return -1;
    }
    if (length > INT32_MAX)
        return fail_argument(call->function, i, KA_ARGUMENT, "is longer than a call can have");
    text->data = characters;
    text->length = (int32_t)length;
    return 0;
}

static int32_t room_for(int32_t room, int32_t length)
{
    return room > length ? room : length;
}

/* zString: as the function sees it, it ends at its first zero. */
static int check_no_zero(t_CALL *call, int i, const ka_text *text)
{
    if (text->length == 0 || !memchr(text->data, '\0', (size_t)text->length)) return 0;
    return fail_argument(call->function, i, KA_ARGUMENT, "has a zero in it");
}

static int add_string(t_CALL *call, int i, int32_t passing, bool ends_at_zero)
{
    t_ARGUMENT *argument = &call->arguments[i];
    if (unwrap_text(call, i) < 0) return -1;
    ka_text text;
    PyObject *held;
    int status = text_from(call, i, argument->value, &text, &held);
    if (status == 0 && ends_at_zero) status = check_no_zero(call, i, &text);
    const int32_t room = passing == KA_BY_REFERENCE ? argument->room : 0;
    if (status == 0) ka_add_strings(call->host->ka, &text, 1, room_for(room, status == 0 ? text.length : 0), passing);
    Py_XDECREF(held);
    argument->shape = passing == KA_BY_REFERENCE ? A_STRING : GIVES_NOTHING;
    argument->as_bytes = PyBytes_Check(argument->value);
    argument->room = room_for(room, text.length);
    return status;
}

/* held: a list of what the characters belong to. */
static int texts_from(t_CALL *call, int i, PyObject *elements, ka_text *texts, int32_t *longest, PyObject *held)
{
    t_ARGUMENT *argument = &call->arguments[i];
    argument->as_bytes = argument->count > 0;
    for (int32_t k = 0; k < argument->count; k++) {
        PyObject *element = PyTuple_GetItem(elements, k);
        PyObject *kept;
        int status = text_from(call, i, element, &texts[k], &kept);
        if (status == 0 && kept && kept != element) status = PyList_Append(held, kept);
        Py_XDECREF(kept);
        if (status < 0) return -1;
        if (!PyBytes_Check(element)) argument->as_bytes = false;
        if (texts[k].length > *longest) *longest = texts[k].length;
    }
    return 0;
}

static int add_string_elements(t_CALL *call, int i, PyObject *elements, int32_t passing)
{
    t_ARGUMENT *argument = &call->arguments[i];
    ka_text *texts = arena(call->host, (size_t)argument->count * sizeof *texts);
    PyObject *held = texts || argument->count == 0 ? PyList_New(0) : NULL;
    int32_t longest = 0;
    int status = held ? texts_from(call, i, elements, texts, &longest, held) : -1;
    argument->room = room_for(passing == KA_BY_REFERENCE ? argument->room : 0, longest);
    if (status == 0) ka_add_strings(call->host->ka, texts, argument->count, argument->room, passing);
    argument->shape = passing == KA_BY_REFERENCE ? STRINGS : GIVES_NOTHING;
    Py_XDECREF(held);
    return status;
}

/* ---- Arrays ---------------------------------------------------------------------------------------------------- */

typedef int t_ADD_ELEMENTS(t_CALL *call, int i, PyObject *elements, int32_t passing);

static int add_sequence(t_CALL *call, int i, const char *takes, t_ADD_ELEMENTS *add)
{
    PyObject *elements = elements_of(call, i, takes);
    if (!elements) return -1;
    const int status = add(call, i, elements, KA_BY_REFERENCE);
    Py_DECREF(elements);
    return status;
}

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

static int add_numbers(t_CALL *call, int i, bool integers)
{
    if (unwrap_in_place(call, i) < 0) return -1;
    const int added = add_as_buffer(call, i, integers);
    if (added != 0) return added < 0 ? -1 : 0;
    return integers ? add_sequence(call, i, "a sequence of int, or a buffer of format i", add_integer_elements)
                    : add_sequence(call, i, "a sequence of numbers, or a buffer of format d", add_real_elements);
}

static int add_strings(t_CALL *call, int i)
{
    static const char takes[] = "a sequence of str or bytes";
    if (unwrap_text(call, i) < 0) return -1;
    if (PyBytes_Check(call->arguments[i].value)) return fail_type(call->function, i, takes, call->arguments[i].value);
    return add_sequence(call, i, takes, add_string_elements);
}

/* ---- VarArg: by the type of the value -------------------------------------------------------------------------- */

typedef enum t_TYPE { AN_INT, A_NUMBER, A_TEXT, NO_TYPE } t_TYPE;

static t_TYPE type_of(const t_STATE *state, PyObject *value)
{
    if (PyUnicode_Check(value) || PyBytes_Check(value)) return A_TEXT;
    if (PyLong_Check(value)) return AN_INT;
    if (PyFloat_Check(value) || is_instance(value, state->decimal_type)) return A_NUMBER;
    if (PyIndex_Check(value)) return AN_INT;
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
    if (unwrap_in_place(call, i) < 0) return -1;
    for (int integers = 0; integers <= 1; integers++) {
        Py_buffer view;
        const bool in_place = call->arguments[i].in_place;
        const int found = get_buffer(call->arguments[i].value, integers ? 'i' : 'd', integers ? 4 : 8, in_place, &view);
        if (found < 0) return -1;
        if (found) return add_buffer(call, i, integers, &view, in_place ? KA_BY_REFERENCE : passing);
    }
    if (!call->arguments[i].in_place) return add_list(call, i, passing);
    return fail_type(call->function, i, "a C-contiguous buffer of format i or d in InPlace", call->arguments[i].value);
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
    case AN_INT: return add_integer(call, i, passing);
    case A_NUMBER: return is_instance(argument->value, state->InPlace) || PyObject_CheckBuffer(argument->value)
                              ? add_array(call, i, passing) : add_real(call, i, passing);
    case A_TEXT: return add_string(call, i, passing, false);
    default: return add_array(call, i, passing);
    }
}

/* ---- All of them ----------------------------------------------------------------------------------------------- */

/* Of a kind that is not known, libkacall says what is wrong with it. */
static int add_argument(t_CALL *call, int i, int32_t kind)
{
    switch (kind) {
    case KA_INT_BY_VALUE: return add_integer(call, i, KA_BY_VALUE);
    case KA_INT_BY_REFERENCE: return add_integer(call, i, KA_BY_REFERENCE);
    case KA_INT_ARRAY: return add_numbers(call, i, true);
    case KA_REAL_BY_VALUE: return add_number(call, i);
    case KA_REAL_BY_REFERENCE: return add_real(call, i, KA_BY_REFERENCE);
    case KA_REAL_ARRAY: return add_numbers(call, i, false);
    case KA_ZSTRING: return add_string(call, i, KA_BY_VALUE, true);
    case KA_STRING: return add_string(call, i, KA_BY_REFERENCE, false);
    case KA_STRING_ARRAY: return add_strings(call, i);
    default: return add_more(call, i);
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
