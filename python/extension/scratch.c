/* SPDX-License-Identifier: MIT
 *
 * The scratch area as an object with the buffer protocol. Its views are counted: the area must not go before them. */
#define _GNU_SOURCE
#include <sys/mman.h>
#include <unistd.h>

#include "extension.h"

/* ---- Areas with views ------------------------------------------------------------------------------------------ */

static t_HOST *exporting;

static void count_export(t_HOST *host)
{
    if (host->exports++ > 0) return;
    host->next_exporting = exporting;
    exporting = host;
}

static void count_release(t_HOST *host)
{
    if (--host->exports > 0) return;
    t_HOST **link = &exporting;
    while (*link != host)
        link = &(*link)->next_exporting;
    *link = host->next_exporting;
}

/* The area itself is not in the child. Views that the child has inherited find zeros there, of its own. */
void replace_exported_areas(void)
{
    const uintptr_t page = (uintptr_t)sysconf(_SC_PAGESIZE);
    for (t_HOST *host = exporting; host; host = host->next_exporting) {
        const uintptr_t from = (uintptr_t)host->scratch / page * page;
        const uintptr_t to = (uintptr_t)host->scratch + (uintptr_t)host->scratch_size;
        if (host->scratch)
            mmap((void *)from, to - from, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE,
                 -1, 0);
    }
}

/* ---- The object ------------------------------------------------------------------------------------------------ */

typedef struct t_SCRATCH {
    PyObject_HEAD t_HOST *host; /* owned */
} t_SCRATCH;

PyObject *make_scratch(t_HOST *host)
{
    t_SCRATCH *scratch = PyObject_GC_New(t_SCRATCH, (PyTypeObject *)host->state->scratch_type);
    if (!scratch) return NULL;
    scratch->host = (t_HOST *)Py_NewRef((PyObject *)host);
    PyObject_GC_Track((PyObject *)scratch);
    return (PyObject *)scratch;
}

static int get_buffer(PyObject *self, Py_buffer *view, int flags)
{
    t_HOST *host = ((t_SCRATCH *)self)->host;
    static char none;
    if (is_closed(host)) {
        view->obj = NULL;
        return fail_closed(host);
    }
    void *area = host->scratch ? host->scratch : &none;
    if (PyBuffer_FillInfo(view, self, area, host->scratch_size, 0, flags) < 0) return -1;
    count_export(host);
    return 0;
}

static void release_buffer(PyObject *self, Py_buffer *view)
{
    (void)view;
    count_release(((t_SCRATCH *)self)->host);
}

/* There is nothing to clear: a cycle goes through the host's callback or through a view. */
static int scratch_traverse(PyObject *self, visitproc visit, void *arg)
{
    Py_VISIT(Py_TYPE(self));
    Py_VISIT((PyObject *)((t_SCRATCH *)self)->host);
    return 0;
}

static void scratch_dealloc(PyObject *self)
{
    PyTypeObject *type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    Py_DECREF((PyObject *)((t_SCRATCH *)self)->host);
    PyObject_GC_Del(self);
    Py_DECREF(type);
}

static PyType_Slot scratch_slots[] = {
    {Py_tp_dealloc, scratch_dealloc},
    {Py_tp_traverse, scratch_traverse},
    {Py_bf_getbuffer, get_buffer},
    {Py_bf_releasebuffer, release_buffer},
    {0, NULL},
};

PyType_Spec scratch_spec = {
    .name = "kahost._kahost.Scratch",
    .basicsize = sizeof(t_SCRATCH),
    .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION,
    .slots = scratch_slots,
};
