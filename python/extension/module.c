/* SPDX-License-Identifier: MIT
 *
 * The extension module: its types, its few functions, and what the package hands over to it. */
#include <stddef.h>

#include "extension.h"

/* ---- State ----------------------------------------------------------------------------------------------------- */

t_STATE *state_of(PyObject *module)
{
    return PyModule_GetState(module);
}

bool is_instance(PyObject *object, PyObject *type)
{
    return (PyObject *)Py_TYPE(object) == type || PyType_IsSubtype(Py_TYPE(object), (PyTypeObject *)type);
}

void replace(PyObject **field, PyObject *object)
{
    PyObject *old = *field;
    *field = object;
    Py_XDECREF(old);
}

static const struct {
    const char *name;
    size_t offset;
} handed_over[] = {
#define KAHOST_ROW(name) {#name, offsetof(t_STATE, name)},
    KAHOST_HANDED_OVER(KAHOST_ROW)
#undef KAHOST_ROW
};

enum { HANDED_OVER = sizeof handed_over / sizeof handed_over[0] };

static PyObject **field(t_STATE *state, int i)
{
    return (PyObject **)(void *)((char *)state + handed_over[i].offset);
}

/* setup(name=object, ...): all of them. */
static PyObject *setup(PyObject *module, PyObject *args, PyObject *named)
{
    (void)args;
    t_STATE *state = state_of(module);
    for (int i = 0; i < HANDED_OVER; i++) {
        PyObject *object = named ? PyDict_GetItemString(named, handed_over[i].name) : NULL;
        if (!object) return PyErr_Format(PyExc_TypeError, "setup() needs %s", handed_over[i].name);
        replace(field(state, i), Py_NewRef(object));
    }
    Py_RETURN_NONE;
}

static PyObject *version(PyObject *module, PyObject *unused)
{
    (void)module;
    (void)unused;
    return PyUnicode_FromString(ka_version());
}

/* ---- Decimals -------------------------------------------------------------------------------------------------- */

/* A context of its own makes every REAL exactly, whatever the program's contexts are, and takes less time than the
   class: Context(prec, rounding, Emin, Emax, capitals, clamp, flags, traps). */
static int find_decimals(t_STATE *state)
{
    PyObject *module = PyImport_ImportModule("decimal");
    if (!module) return -1;
    state->decimal_type = PyObject_GetAttrString(module, "Decimal");
    PyObject *context = PyObject_CallMethod(module, "Context", "iOiiii[][]", 40, Py_None, -9999, 9999, 1, 0);
    state->make_decimal = context ? PyObject_GetAttrString(context, "create_decimal") : NULL;
    Py_XDECREF(context);
    Py_DECREF(module);
    if (!state->decimal_type || !state->make_decimal) return -1;
    state->decimal_text = (reprfunc)PyType_GetSlot((PyTypeObject *)state->decimal_type, Py_tp_str);
    return 0;
}

/* ---- The module ------------------------------------------------------------------------------------------------ */

static PyObject *add_type(PyObject *module, PyType_Spec *description)
{
    PyObject *type = PyType_FromModuleAndSpec(module, description, NULL);
    if (type && PyModule_AddType(module, (PyTypeObject *)type) < 0) Py_CLEAR(type);
    return type;
}

static int execute(PyObject *module)
{
    t_STATE *state = state_of(module);
    state->evidence_type = add_type(module, &evidence_spec);
    state->scratch_type = add_type(module, &scratch_spec);
    state->steps_type = add_type(module, &steps_spec);
    PyObject *host = add_type(module, &host_spec);
    PyObject *function = add_type(module, &function_spec);
    const bool made = state->evidence_type && state->scratch_type && state->steps_type && host && function;
    Py_XDECREF(host);
    Py_XDECREF(function);
    if (!made || watch_forks() < 0) return -1;
    return find_decimals(state);
}

static int traverse(PyObject *module, visitproc visit, void *arg)
{
    t_STATE *state = state_of(module);
    Py_VISIT(state->evidence_type);
    Py_VISIT(state->scratch_type);
    Py_VISIT(state->steps_type);
    Py_VISIT(state->decimal_type);
    Py_VISIT(state->make_decimal);
    for (int i = 0; i < HANDED_OVER; i++)
        Py_VISIT(*field(state, i));
    return 0;
}

static int clear(PyObject *module)
{
    t_STATE *state = state_of(module);
    Py_CLEAR(state->evidence_type);
    Py_CLEAR(state->scratch_type);
    Py_CLEAR(state->steps_type);
    Py_CLEAR(state->decimal_type);
    Py_CLEAR(state->make_decimal);
    for (int i = 0; i < HANDED_OVER; i++)
        Py_CLEAR(*field(state, i));
    return 0;
}

static PyMethodDef methods[] = {
    {"setup", (PyCFunction)(void (*)(void))setup, METH_VARARGS | METH_KEYWORDS, "Takes what the package hands over."},
    {"read_tables", read_tables, METH_O, "(tables, filled at start) of the file at a path, or the reason for none."},
    {"kinds", list_kinds, METH_NOARGS, "(name, what it takes, whether it comes back) of each kind."},
    {"version", version, METH_NOARGS, "Of libkacall."},
    {"round_to_real", round_to_real, METH_O, "The REAL nearest to decimal text, or None."},
    {NULL, NULL, 0, NULL},
};

static PyModuleDef_Slot slots[] = {
    {Py_mod_exec, execute},
    {0, NULL},
};

static PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,     .m_name = "kahost._kahost", .m_doc = "Hosts and calls, for the package kahost.",
    .m_size = sizeof(t_STATE), .m_methods = methods,       .m_slots = slots,
    .m_traverse = traverse,    .m_clear = clear,
};

PyMODINIT_FUNC PyInit__kahost(void)
{
    return PyModuleDef_Init(&definition);
}
