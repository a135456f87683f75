/* SPDX-License-Identifier: MIT
 *
 * The type zorbe._table.ReaderTable: what a reader has besides. */
#define _POSIX_C_SOURCE 200809L /* clock_gettime */
#include <math.h>
#include <time.h>

#include "handle.h"

/* A call of zorbe_wait() returns when a signal has interrupted it. One that another thread
 * received, or that came just before the call, has run no handler of Python's yet: the main thread
 * looks for it between two calls. */
static const int64_t kSlice = 100 * 1000 * 1000;
static const int64_t kForever = INT64_MAX;

static int64_t now(void) {
  struct timespec time;
  (void)clock_gettime(CLOCK_MONOTONIC, &time);
  return (int64_t)time.tv_sec * 1000000000 + time.tv_nsec;
}

/* When a timeout ends; -1 with an exception. */
static int64_t deadline_of(PyObject* timeout) {
  if (timeout == Py_None) return kForever;
  const double seconds = PyFloat_AsDouble(timeout);
  if (seconds == -1.0 && PyErr_Occurred()) return -1;
  if (isnan(seconds)) {
    PyErr_SetString(PyExc_ValueError, "timeout: not a number");
    return -1;
  }
  if (seconds > 1e9) return kForever;
  return now() + (seconds > 0 ? (int64_t)(seconds * 1e9) : 0);
}

static PyObject* change_of(Handle* self, const zorbe_change* change) {
  const int has_key = change->kind == ZORBE_PUT || change->kind == ZORBE_ERASED;
  PyObject* fields = PyTuple_New(4);
  if (!fields) return NULL;
  PyObject* key = has_key ? part_decode(&self->key, change->key) : Py_NewRef(Py_None);
  PyObject* value =
      change->kind == ZORBE_PUT ? part_decode(&self->value, change->value) : Py_NewRef(Py_None);
  PyObject* sequence = PyLong_FromUnsignedLongLong(change->sequence);
  PyTuple_SetItem(fields, 0, Py_NewRef(self->state->kinds[change->kind]));
  PyTuple_SetItem(fields, 1, key);
  PyTuple_SetItem(fields, 2, value);
  PyTuple_SetItem(fields, 3, sequence);
  if (!key || !value || !sequence) Py_CLEAR(fields);
  return record_make(self->state->make_tuple, self->state->change_class, fields);
}

/* The first change of a table is a reset: it needs no room, and there is a description after it. */
static PyObject* take(Handle* self) {
  Scratch key;
  Scratch value;
  if (handle_describe(self) < 0 || scratch_open(&key, self->key.bytes) < 0) return NULL;
  if (scratch_open(&value, self->value.bytes) < 0) {
    scratch_close(&key);
    return NULL;
  }
  zorbe_change change = {0, 0, self->is_described ? key.bytes : NULL,
                         self->is_described ? value.bytes : NULL};
  const int code = zorbe_next(self->table, &change);
  PyObject* result = NULL;
  if (code < 0) {
    handle_error(self, code);
  } else {
    result = code == 0 ? change_of(self, &change) : Py_NewRef(Py_None);
  }
  scratch_close(&value);
  scratch_close(&key);
  return result;
}

/* Sleeps without the GIL. 0 with an exception. */
static int sleep_until(Handle* self, int64_t deadline) {
  int64_t left = kSlice;
  if (deadline != kForever && deadline - now() < left) left = deadline - now();
  handle_begin_busy(self);
  int code = 0;
  Py_BEGIN_ALLOW_THREADS code = zorbe_wait(self->table, left > 0 ? left : 0);
  Py_END_ALLOW_THREADS handle_end_busy(self);
  if (code >= 0) return 1;
  handle_error(self, code);
  return 0;
}

/* `_next(timeout)`: the next change, None when there is none in time. The deadline is looked at
 * after zorbe_wait(), so that each call turns the reader's loop once where there is nothing. */
static PyObject* next(PyObject* object, PyObject* timeout) {
  Handle* self = (Handle*)object;
  const int64_t deadline = deadline_of(timeout);
  if (deadline < 0) return NULL;
  for (int is_last = 0;;) {
    if (!handle_enter(self)) return NULL;
    PyObject* change = take(self);
    if (change != Py_None || is_last) return change;
    Py_DECREF(change);
    if (PyErr_CheckSignals() < 0 || !handle_enter(self) || !sleep_until(self, deadline))
      return NULL;
    is_last = deadline != kForever && now() >= deadline;
  }
}

static PyObject* process(PyObject* object, PyObject* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return NULL;
  const int code = zorbe_process(self->table);
  if (code < 0) return handle_error(self, code);
  Py_RETURN_NONE;
}

static PyObject* refresh(PyObject* object, PyObject* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return NULL;
  const int code = zorbe_refresh(self->table);
  if (code < 0) return handle_error(self, code);
  return PyBool_FromLong(code == ZORBE_REPLACED);
}

static PyObject* fileno_of(PyObject* object, PyObject* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return NULL;
  const int descriptor = zorbe_fd(self->table);
  if (descriptor < 0) return handle_error(self, descriptor);
  return PyLong_FromLong(descriptor);
}

static PyMethodDef methods[] = {
    {"_open", (PyCFunction)(void (*)(void))handle_open_reader,
     METH_METHOD | METH_FASTCALL | METH_KEYWORDS, NULL},
    {"_next", next, METH_O, NULL},
    {"process", process, METH_NOARGS,
     "process($self, /)\n--\n\nFor another event loop: to be called when fileno() is readable, and "
     "then changes(timeout=0) until it ends."},
    {"refresh", refresh, METH_NOARGS,
     "refresh($self, /)\n--\n\nFor programs that only look up: checks whether another table has "
     "taken the place of this one, and reads that; returns whether it does."},
    {"fileno", fileno_of, METH_NOARGS,
     "fileno($self, /)\n--\n\nA descriptor that is readable when process() has something to do. It "
     "stays the reader's."},
    {NULL, NULL, 0, NULL}};

static PyType_Slot slots[] = {
    {Py_tp_doc, "A reader of a table."}, {Py_tp_methods, methods}, {0, NULL}};

PyType_Spec reader_spec = {"zorbe._table.ReaderTable", sizeof(Handle), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, slots};
