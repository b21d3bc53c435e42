/* SPDX-License-Identifier: MIT
 *
 * Strings as arguments: one, or a sequence of them, with their room. */
#include "extension.h"

/* ---- STRING ---------------------------------------------------------------------------------------------------- */

/* Out of its Text, whose room is taken. */
int unwrap_text(t_CALL *call, int i)
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
    if (length > INT32_MAX) return fail_argument(call->function, i, KA_ARGUMENT, "is longer than a call can have");
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

int add_string(t_CALL *call, int i, int32_t passing, bool ends_at_zero)
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

int add_string_elements(t_CALL *call, int i, PyObject *elements, int32_t passing)
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

int add_strings(t_CALL *call, int i)
{
    static const char takes[] = "a sequence of str or bytes";
    if (unwrap_text(call, i) < 0) return -1;
    if (PyBytes_Check(call->arguments[i].value)) return fail_type(call->function, i, takes, call->arguments[i].value);
    return add_sequence(call, i, takes, add_string_elements);
}
