/* SPDX-License-Identifier: MIT
 *
 * The type Host: a host of libkacall with its options, and what can be asked of it. */
#define _GNU_SOURCE
#include "extension.h"

/* ---- The arena ------------------------------------------------------------------------------------------------- */

void *arena(t_HOST *host, size_t size)
{
    if (size <= host->arena_size) return host->arena;
    char *larger = PyMem_Realloc(host->arena, size);
    if (!larger) return PyErr_NoMemory();
    host->arena = larger;
    host->arena_size = size;
    return larger;
}

/* ---- Making and ending ----------------------------------------------------------------------------------------- */

/* What the system takes ends at its first zero. */
static const char *without_zero(PyObject *bytes)
{
    char *characters;
    return PyBytes_AsStringAndSize(bytes, &characters, NULL) == 0 ? characters : NULL;
}

static char **copy_environment(PyObject *list)
{
    const Py_ssize_t count = PyList_Size(list);
    if (count < 0) return NULL;
    char **environment = PyMem_Calloc((size_t)count + 1, sizeof *environment);
    for (Py_ssize_t i = 0; environment && i < count; i++) {
        const char *entry = without_zero(PyList_GetItem(list, i));
        environment[i] = entry ? strdup(entry) : NULL;
        if (entry && !environment[i]) PyErr_NoMemory();
        if (!environment[i]) break;
    }
    if (!environment) PyErr_NoMemory();
    return environment;
}

static void free_environment(char **environment)
{
    for (char **entry = environment; entry && *entry; entry++)
        free(*entry);
    PyMem_Free(environment);
}

/* Null for None. */
static int take_environment(t_HOST *host, PyObject *environment, PyObject *directory)
{
    if (environment != Py_None && !(host->environment = copy_environment(environment))) return -1;
    if (directory != Py_None) {
        const char *path = without_zero(directory);
        host->directory = path ? strdup(path) : NULL;
        if (path && !host->directory) PyErr_NoMemory();
    }
    return PyErr_Occurred() ? -1 : 0;
}

static PyObject *host_new(PyTypeObject *type, PyObject *args, PyObject *named)
{
    static char *names[] = {"path",      "deadline_ms",  "grace_ms",  "restart",   "segment",  "scratch",
                            "pause_ms",  "pause_max_ms", "output",    "output_fd", "ring",     "trace",
                            "transport", "spin_us",      "room",      "floats",    "encoding", "errors",
                            "callback",  "environment",  "directory", NULL};
    ka_options options;
    ka_options_init(&options, sizeof options);
    PyObject *path, *encoding, *errors, *callback, *environment, *directory;
    int room, floats;
    if (!PyArg_ParseTupleAndKeywords(args, named,
                                     "Siiiiiiiiiiiiiip"
                                     "SSOOO",
                                     names, &path, &options.deadline_ms, &options.grace_ms, &options.restart,
                                     &options.segment_bytes, &options.scratch_bytes, &options.restart_pause_ms,
                                     &options.restart_pause_max_ms, &options.error_output, &options.error_fd,
                                     &options.ring_bytes, &options.trace_level, &options.transport, &options.spin_us,
                                     &room, &floats, &encoding, &errors, &callback, &environment, &directory))
        return NULL;
    PyObject *module = PyType_GetModule(type);
    if (!module || !without_zero(path)) return NULL;
    const allocfunc allocate = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    t_HOST *host = (t_HOST *)allocate(type, 0);
    if (!host) return NULL;
    host->module = Py_NewRef(module);
    host->state = state_of(module);
    host->options = options;
    host->room = room;
    host->reals_as_floats = floats != 0;
    host->path = Py_NewRef(path);
    host->callback = Py_NewRef(callback);
    host->encoding = Py_NewRef(encoding);
    host->errors = Py_NewRef(errors);
    host->utf8 = strcmp(PyBytes_AsString(encoding), "utf-8") == 0;
    host->forks = fork_count();
    if (take_environment(host, environment, directory) < 0) {
        Py_DECREF(host);
        return NULL;
    }
    host->options.environment = (const char *const *)host->environment;
    host->options.directory = host->directory;
    return (PyObject *)host;
}

static int host_traverse(PyObject *self, visitproc visit, void *arg)
{
    t_HOST *host = (t_HOST *)self;
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(host->module);
    Py_VISIT(host->callback);
    return 0;
}

/* A host that is cleared may still be called. */
static int host_clear(PyObject *self)
{
    replace(&((t_HOST *)self)->callback, Py_NewRef(Py_None));
    return 0;
}

static void host_dealloc(PyObject *self)
{
    t_HOST *host = (t_HOST *)self;
    PyTypeObject *type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    PyObject *error_type, *value, *traceback;
    PyErr_Fetch(&error_type, &value, &traceback);
    if (host->ka) forget_ka(host);
    PyErr_Restore(error_type, value, traceback);
    Py_XDECREF(host->callback);
    free_environment(host->environment);
    free(host->directory);
    PyMem_Free(host->arena);
    Py_XDECREF(host->path);
    Py_XDECREF(host->encoding);
    Py_XDECREF(host->errors);
    Py_XDECREF(host->module);
    PyObject_GC_Del(self);
    Py_DECREF(type);
}

/* ---- Attributes ------------------------------------------------------------------------------------------------ */

/* Any thread, any signal handler. */
static PyObject *host_cancel(PyObject *self, PyObject *unused)
{
    (void)unused;
    return PyBool_FromLong(ka_cancel(ka_to_cancel((t_HOST *)self)));
}

/* Between the steps of a call, and in its call-backs, libkacall gives the output to other threads, too. */
static bool may_read_output(const t_HOST *host)
{
    if (host->owner == 0 || host->inside) return false;
    return host->owner != PyThread_get_thread_ident() || (host->awaited && !host->in_callback);
}

/* Standard error in its ring. */
static PyObject *host_output(PyObject *self, PyObject *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    if (check_open(host) < 0) return NULL;
    const int32_t size = host->options.error_output == KA_STDERR_RING ? host->options.ring_bytes : 0;
    char *buffer = PyMem_Malloc((size_t)size + 1);
    if (!buffer) return PyErr_NoMemory();
    PyObject *output = NULL;
    const bool at_once = may_read_output(host);
    if (at_once || enter_host(host) == 0) {
        const int32_t length = ka_error_output(host->ka, buffer, size);
        if (!at_once) leave_host(host);
        output = PyBytes_FromStringAndSize(buffer, length);
    }
    PyMem_Free(buffer);
    return output;
}

static PyObject *host_scratch(PyObject *self, PyObject *unused)
{
    (void)unused;
    return is_closed((t_HOST *)self) ? fail_closed((t_HOST *)self), NULL : make_scratch((t_HOST *)self);
}

static PyObject *get_callback(PyObject *self, void *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    return Py_NewRef(host->callback ? host->callback : Py_None);
}

static int set_callback(PyObject *self, PyObject *value, void *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    if (!value || (value != Py_None && !PyCallable_Check(value))) {
        PyErr_SetString(PyExc_TypeError, "callback must be callable or None");
        return -1;
    }
    PyObject *old = host->callback;
    host->callback = Py_NewRef(value);
    Py_XDECREF(old);
    return 0;
}

static int take_int(PyObject *value, int32_t *number)
{
    const long wide = value ? PyLong_AsLong(value) : -1;
    if (!value) PyErr_SetString(PyExc_AttributeError, "cannot be deleted");
    if (PyErr_Occurred()) return -1;
    *number = wide > INT32_MAX ? INT32_MAX : wide < INT32_MIN ? INT32_MIN : (int32_t)wide;
    return 0;
}

static PyObject *get_deadline(PyObject *self, void *unused)
{
    (void)unused;
    return PyLong_FromLong(((t_HOST *)self)->options.deadline_ms);
}

static int set_deadline(PyObject *self, PyObject *value, void *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    int32_t deadline_ms;
    if (take_int(value, &deadline_ms) < 0 || enter_host(host) < 0) return -1;
    int status = 0;
    if (ka_set_deadline(host->ka, deadline_ms) == KA_DONE)
        host->options.deadline_ms = deadline_ms;
    else
        status = fail_library(host, NULL);
    leave_host(host);
    return status;
}

static PyObject *get_trace(PyObject *self, void *unused)
{
    (void)unused;
    return PyLong_FromLong(((t_HOST *)self)->options.trace_level);
}

/* Also from a call-back of the host. */
static int set_trace(PyObject *self, PyObject *value, void *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    int32_t level;
    if (take_int(value, &level) < 0) return -1;
    const bool inside = host->in_callback && host->owner == PyThread_get_thread_ident();
    if (inside ? check_open(host) < 0 : enter_host(host) < 0) return -1;
    int status = 0;
    const int32_t set = ka_set_trace(host->ka, level);
    if (set == KA_DONE || set == KA_CLOSED)
        host->options.trace_level = level;
    else
        status = fail_library(host, NULL);
    if (!inside) leave_host(host);
    return status;
}

static PyObject *get_pid(PyObject *self, void *unused)
{
    (void)unused;
    t_HOST *host = (t_HOST *)self;
    const int32_t pid = is_closed(host) ? 0 : ka_pid(host->ka);
    return pid != 0 ? PyLong_FromLong(pid) : Py_NewRef(Py_None);
}

static PyObject *get_closed(PyObject *self, void *unused)
{
    (void)unused;
    return PyBool_FromLong(is_closed((t_HOST *)self));
}

static PyMethodDef host_methods[] = {
    {"open", host_open, METH_NOARGS, "Starts the module, and gives its tables."},
    {"restart", host_restart, METH_NOARGS, NULL},
    {"close", host_close, METH_O, NULL},
    {"cancel", host_cancel, METH_NOARGS, NULL},
    {"stderr", host_output, METH_NOARGS, NULL},
    {"scratch", host_scratch, METH_NOARGS, "An object with the buffer protocol."},
    {NULL, NULL, 0, NULL},
};

static PyGetSetDef host_attributes[] = {
    {"callback", get_callback, set_callback, NULL, NULL},
    {"deadline_ms", get_deadline, set_deadline, NULL, NULL},
    {"trace", get_trace, set_trace, NULL, NULL},
    {"pid", get_pid, NULL, NULL, NULL},
    {"closed", get_closed, NULL, NULL, NULL},
    {NULL, NULL, NULL, NULL, NULL},
};

static PyType_Slot host_slots[] = {
    {Py_tp_new, host_new},
    {Py_tp_dealloc, host_dealloc},
    {Py_tp_traverse, host_traverse},
    {Py_tp_clear, host_clear},
    {Py_tp_methods, host_methods},
    {Py_tp_getset, host_attributes},
    {0, NULL},
};

PyType_Spec host_spec = {
    .name = "kahost._kahost.Host",
    .basicsize = sizeof(t_HOST),
    .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC,
    .slots = host_slots,
};
