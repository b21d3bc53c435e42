/* SPDX-License-Identifier: MIT
 *
 * A module's tables as tuples: for each function (name, count of prototypes, prototypes, documentation), for each
 * prototype (name, kind, least elements, documentation). Names and documentation are bytes, or None. */
#include "extension.h"

static PyObject *bytes_or_none(const char *text)
{
    return text ? PyBytes_FromString(text) : Py_NewRef(Py_None);
}

static PyObject *make_prototypes(const ka_tables *tables, const ka_function *function)
{
    const int32_t count = function->prototype_count > 0 ? function->prototype_count : 0;
    PyObject *list = PyTuple_New(count);
    for (int32_t i = 0; list && i < count; i++) {
        const ka_prototype *prototype = &function->prototypes[i];
        PyObject *item = Py_BuildValue("(NiiN)", bytes_or_none(prototype->name), (int)prototype->kind,
                                       (int)prototype->min_elements, bytes_or_none(ka_doc(tables, function, i + 1)));
        if (!item || PyTuple_SetItem(list, i, item) < 0) Py_CLEAR(list);
    }
    return list;
}

static PyObject *make_function(const ka_tables *tables, const ka_function *function)
{
    return Py_BuildValue("(NiNN)", bytes_or_none(function->name), (int)function->prototype_count,
                         make_prototypes(tables, function), bytes_or_none(ka_doc(tables, function, 0)));
}

PyObject *make_tables(const ka_tables *tables)
{
    PyObject *list = PyTuple_New(tables->function_count);
    for (int32_t i = 0; list && i < tables->function_count; i++) {
        PyObject *item = make_function(tables, &tables->functions[i]);
        if (!item || PyTuple_SetItem(list, i, item) < 0) Py_CLEAR(list);
    }
    return list;
}

/* (tables, filled at start) of the file at path; or the reason, a str, why there are none. */
PyObject *read_tables(PyObject *module, PyObject *path)
{
    (void)module;
    char why[300] = "";
    char *name;
    if (PyBytes_AsStringAndSize(path, &name, NULL) < 0) return NULL; /* also a zero in it */
    PyThreadState *state = PyEval_SaveThread();
    ka_tables *tables = ka_read_tables(name, why, sizeof why);
    PyEval_RestoreThread(state);
    if (!tables) return PyUnicode_DecodeUTF8(why, (Py_ssize_t)strlen(why), "replace");
    PyObject *result = Py_BuildValue("(Ni)", make_tables(tables), tables->filled_at_start != 0);
    ka_free_tables(tables);
    return result;
}

/* (name, what it takes, whether it comes back) of each kind, in the order of their numbers. */
PyObject *list_kinds(PyObject *module, PyObject *unused)
{
    (void)module;
    (void)unused;
    PyObject *list = PyList_New(KA_STRING_ARRAY + 1);
    for (int32_t kind = KA_VARARG; list && kind <= KA_STRING_ARRAY; kind++) {
        PyObject *item = Py_BuildValue("(ssN)", ka_kind_name(kind), ka_kind_takes(kind),
                                       PyBool_FromLong(ka_kind_gives_back(kind)));
        if (!item || PyList_SetItem(list, kind, item) < 0) Py_CLEAR(list);
    }
    return list;
}
