/* SPDX-License-Identifier: MIT
 *
 * The type Function: a function of a module, with all that its calls need to know. The package derives its own from
 * it, with names, signatures and documentation. */
#include "extension.h"

PyObject *parameter_name(const t_FUNCTION *function, int argument)
{
    const int last = function->takes_more ? function->count : function->count - 1;
    const int place = argument - 1 < last ? argument - 1 : last;
    return place >= 0 ? function->parameters[place].name : NULL;
}

static void free_parameters(t_PARAMETER *parameters, Py_ssize_t count)
{
    for (Py_ssize_t i = 0; parameters && i < count; i++) {
        Py_XDECREF(parameters[i].name);
        Py_XDECREF(parameters[i].default_value);
    }
    PyMem_Free(parameters);
}

/* list: of (name, kind, default or NotImplemented). */
static t_PARAMETER *take_parameters(PyObject *list, Py_ssize_t count)
{
    t_PARAMETER *parameters = PyMem_Calloc((size_t)count + 1, sizeof *parameters);
    if (!parameters) {
        PyErr_NoMemory();
        return NULL;
    }
    for (Py_ssize_t i = 0; i < count; i++) {
        PyObject *name, *default_value;
        int kind;
        if (!PyArg_ParseTuple(PyTuple_GetItem(list, i), "UiO", &name, &kind, &default_value)) {
            free_parameters(parameters, i);
            return NULL;
        }
        parameters[i].name = Py_NewRef(name);
        parameters[i].kind = kind;
        parameters[i].default_value = default_value == Py_NotImplemented ? NULL : Py_NewRef(default_value);
    }
    return parameters;
}

/* Function(host, name as bytes, parameters, takes_more): a VarArg is the last of the parameters. */
static PyObject *function_new(PyTypeObject *type, PyObject *args, PyObject *named)
{
    PyObject *host, *name, *list;
    int takes_more, deadline_ms = 0, room = -1, floats = -1;
    static char *names[] = {"host", "name", "parameters", "takes_more", "deadline_ms", "room", "floats", NULL};
    if (!PyArg_ParseTupleAndKeywords(args, named, "OSO!p|iii", names, &host, &name, &PyTuple_Type, &list, &takes_more,
                                     &deadline_ms, &room, &floats))
        return NULL;
    const Py_ssize_t count = PyTuple_Size(list);
    if (count > MAX_ARGUMENTS || (takes_more && count == 0)) {
        PyErr_SetString(PyExc_ValueError, "too many parameters, or none");
        return NULL;
    }
    t_PARAMETER *parameters = take_parameters(list, count);
    if (!parameters) return NULL;
    const allocfunc allocate = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    t_FUNCTION *function = (t_FUNCTION *)allocate(type, 0);
    if (!function) {
        free_parameters(parameters, count);
        return NULL;
    }
    function->host = (t_HOST *)Py_NewRef(host);
    function->name = Py_NewRef(name);
    function->parameters = parameters;
    function->takes_more = takes_more != 0;
    function->count = (int)count - takes_more;
    function->deadline_ms = deadline_ms;
    function->room = room;
    function->reals_as_floats = floats;
    return (PyObject *)function;
}

static int function_traverse(PyObject *self, visitproc visit, void *arg)
{
    Py_VISIT(Py_TYPE(self));
    Py_VISIT((PyObject *)((t_FUNCTION *)self)->host);
    Py_VISIT(((t_FUNCTION *)self)->result_class);
    return 0;
}

static int function_clear(PyObject *self)
{
    Py_CLEAR(((t_FUNCTION *)self)->result_class);
    return 0; /* the host lets go of what could hold this function: its callback */
}

static void function_dealloc(PyObject *self)
{
    t_FUNCTION *function = (t_FUNCTION *)self;
    PyTypeObject *type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    function_clear(self);
    free_parameters(function->parameters, function->count + (function->takes_more ? 1 : 0));
    Py_XDECREF(function->name);
    Py_XDECREF((PyObject *)function->host);
    PyObject_GC_Del(self);
    Py_DECREF(type);
}

static PyObject *function_call(PyObject *self, PyObject *args, PyObject *named)
{
    return call_function((t_FUNCTION *)self, args, named, false);
}

static PyObject *function_raw(PyObject *self, PyObject *args, PyObject *named)
{
    return call_function((t_FUNCTION *)self, args, named, true);
}

static PyObject *function_begin(PyObject *self, PyObject *args, PyObject *named)
{
    return begin_steps((t_FUNCTION *)self, args, named);
}

static PyObject *get_host(PyObject *self, void *unused)
{
    (void)unused;
    return Py_NewRef((PyObject *)((t_FUNCTION *)self)->host);
}

static PyMethodDef function_methods[] = {
    {"raw", (PyCFunction)(void (*)(void))function_raw, METH_VARARGS | METH_KEYWORDS,
     "The call's return code and results: no exception for a code that is not 0."},
    {"_begin", (PyCFunction)(void (*)(void))function_begin, METH_VARARGS | METH_KEYWORDS,
     "The call in steps, for an event loop."},
    {NULL, NULL, 0, NULL},
};

static PyGetSetDef function_attributes[] = {
    {"_host", get_host, NULL, NULL, NULL},
    {NULL, NULL, NULL, NULL, NULL},
};

static PyType_Slot function_slots[] = {
    {Py_tp_new, function_new},           {Py_tp_dealloc, function_dealloc},
    {Py_tp_traverse, function_traverse}, {Py_tp_clear, function_clear},
    {Py_tp_call, function_call},         {Py_tp_methods, function_methods},
    {Py_tp_getset, function_attributes}, {0, NULL},
};

PyType_Spec function_spec = {
    .name = "kahost._kahost.Function",
    .basicsize = sizeof(t_FUNCTION),
    .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_BASETYPE,
    .slots = function_slots,
};
