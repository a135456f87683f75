/* SPDX-License-Identifier: MIT */
#include "handle.h"

#include <unistd.h>

static PyObject* state_raise(const State* state, int code, const char* text, uint32_t pid,
                             const char* owner) {
  if (!state) {
    PyErr_SetString(PyExc_RuntimeError, "the table was never opened: __init__ was not called");
    return NULL;
  }
  PyObject* error =
      PyObject_CallFunction(state->make_error, "iyky", code, text, (unsigned long)pid, owner);
  if (error) PyErr_SetObject((PyObject*)Py_TYPE(error), error);
  Py_XDECREF(error);
  return NULL;
}

PyObject* table_error(const State* state, const zorbe_table* table, int code) {
  if (code == ZORBE_E_NO_MEMORY) return PyErr_NoMemory();
  uint32_t pid = 0;
  const char* owner = "";
  if (code == ZORBE_E_DUPLICATE) (void)zorbe_duplicate(table, &pid, &owner);
  return state_raise(state, code, zorbe_error_text(table), pid, owner);
}

PyObject* handle_error(const Handle* self, int code) {
  return table_error(self->state, self->table, code);
}

static int refuse(const Handle* self, int code, const char* text) {
  (void)state_raise(self->state, code, text, 0, "");
  return 0;
}

/* In a child process, the thread that used the handle when it was forked does not exist: it will
 * never release the lock, which is lost. */
static void leave_to_parent(Handle* self) {
  if (self->process == getpid()) return;
  self->process = getpid();
  self->is_busy = 0;
  self->idle = NULL;
}

int handle_enter_slowly(Handle* self) {
  leave_to_parent(self);
  while (self->table && self->is_busy && self->idle) {
    Py_BEGIN_ALLOW_THREADS PyThread_acquire_lock(self->idle, WAIT_LOCK);
    PyThread_release_lock(self->idle);
    Py_END_ALLOW_THREADS
  }
  if (!self->table) return refuse(self, ZORBE_E_CLOSED, "the table is closed");
  if (!self->is_busy) return 1;
  return refuse(self, ZORBE_E_USAGE,
                "another thread uses this reader at the moment: open one for each thread");
}

void handle_begin_busy(Handle* self) {
  self->is_busy = 1;
  if (self->idle) PyThread_acquire_lock(self->idle, WAIT_LOCK);
}

void handle_end_busy(Handle* self) {
  if (self->idle) PyThread_release_lock(self->idle);
  self->is_busy = 0;
}

/* The handle is not reachable by others any more when the GIL is released: closing a writer joins
 * its thread. */
static void close_table(Handle* self) {
  zorbe_table* table = self->table;
  self->table = NULL;
  if (!table) return;
  Py_BEGIN_ALLOW_THREADS zorbe_close(table);
  Py_END_ALLOW_THREADS
}

static PyObject* handle_close(PyObject* object, PyObject* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (self->table && !handle_enter(self)) return NULL;
  close_table(self);
  Py_RETURN_NONE;
}

static PyObject* handle_closed(PyObject* self, void* unused) {
  (void)unused;
  return PyBool_FromLong(((Handle*)self)->table == NULL);
}

static int handle_traverse(PyObject* object, visitproc visit, void* arg) {
  Handle* self = (Handle*)object;
  Py_VISIT(Py_TYPE(object));
  Py_VISIT(self->module);
  const int result = part_traverse(&self->key, visit, arg);
  return result != 0 ? result : part_traverse(&self->value, visit, arg);
}

static void handle_dealloc(PyObject* object) {
  Handle* self = (Handle*)object;
  PyTypeObject* type = Py_TYPE(object);
  PyObject_GC_UnTrack(object);
  close_table(self);
  part_clear(&self->key);
  part_clear(&self->value);
  if (self->idle) PyThread_free_lock(self->idle);
  Py_CLEAR(self->module);
  freefunc release = (freefunc)PyType_GetSlot(type, Py_tp_free);
  release(object);
  Py_DECREF(type);
}

static PyObject* handle_reduce(PyObject* self, PyObject* unused) {
  (void)unused;
  PyErr_Format(PyExc_TypeError, "cannot pickle %R: a table belongs to the process that opened it",
               (PyObject*)Py_TYPE(self));
  return NULL;
}

static PyMethodDef methods[] = {
    {"get", (PyCFunction)(void (*)(void))handle_get, METH_FASTCALL,
     "get($self, key, default=None, /)\n--\n\nThe record of a key, or `default`."},
    {"close", handle_close, METH_NOARGS,
     "close($self, /)\n--\n\nReleases the table; every later call fails. A writer publishes "
     "before."},
    {"_info", handle_info, METH_NOARGS, NULL},
    {"_scan", handle_scan, METH_O, NULL},
    {"_copy_records", handle_copy_records, METH_NOARGS, NULL},
    {"__reduce__", handle_reduce, METH_NOARGS, NULL},
    {NULL, NULL, 0, NULL}};

static PyGetSetDef properties[] = {
    {"closed", handle_closed, NULL, "Whether close() was called.", NULL},
    {"fields", handle_fields, NULL,
     "The description of the records, a tuple of Field: empty while there is no table, and for one "
     "without a description.",
     NULL},
    {NULL, NULL, NULL, NULL, NULL}};

static PyType_Slot slots[] = {{Py_tp_doc, "A table: what Reader and Writer have in common."},
                              {Py_tp_dealloc, (void*)handle_dealloc},
                              {Py_tp_traverse, (void*)handle_traverse},
                              {Py_tp_methods, methods},
                              {Py_tp_getset, properties},
                              {Py_tp_iter, (void*)handle_iterate},
                              {Py_mp_subscript, (void*)handle_subscript},
                              {Py_mp_length, (void*)handle_length},
                              {Py_sq_contains, (void*)handle_contains},
                              {0, NULL}};

PyType_Spec handle_spec = {"zorbe._table.Table", sizeof(Handle), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, slots};
