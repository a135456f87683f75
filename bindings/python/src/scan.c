/* SPDX-License-Identifier: MIT
 *
 * The type zorbe._table.Scan: an iterator over the records of a table, each whole. */
#include "handle.h"

enum { kKeys = 1, kValues = 2 }; /* both: pairs */

typedef struct {
  PyObject_HEAD Handle* table; /* NULL: at its end */
  uint64_t cursor;
  int what;
} Scan;

static PyObject* pair(PyObject* key, PyObject* value) {
  PyObject* both = key && value ? PyTuple_Pack(2, key, value) : NULL;
  Py_XDECREF(key);
  Py_XDECREF(value);
  return both;
}

static PyObject* decode(const Scan* self, const Scratch* key, const Scratch* value) {
  if (self->what == kKeys) return part_decode(&self->table->key, key->bytes);
  if (self->what == kValues) return part_decode(&self->table->value, value->bytes);
  return pair(part_decode(&self->table->key, key->bytes),
              part_decode(&self->table->value, value->bytes));
}

/* The next record; NULL without an exception after the last one. */
static PyObject* advance(Scan* self, Scratch* key, Scratch* value) {
  Handle* table = self->table;
  const int code = zorbe_scan(table->table, &self->cursor, self->what & kKeys ? key->bytes : NULL,
                              self->what & kValues ? value->bytes : NULL);
  if (code == 0) return decode(self, key, value);
  if (code < 0) handle_error(table, code);
  return NULL;
}

static PyObject* scan_next(PyObject* object) {
  Scan* self = (Scan*)object;
  if (!self->table || !handle_enter(self->table)) return NULL;
  const int known = handle_describe(self->table);
  if (known < 0) return NULL;
  Scratch key;
  Scratch value;
  PyObject* result = NULL;
  if (known > 0 && scratch_open(&key, self->table->key.bytes) == 0) {
    if (scratch_open(&value, self->table->value.bytes) == 0) {
      result = advance(self, &key, &value);
      scratch_close(&value);
    }
    scratch_close(&key);
  }
  if (!result && !PyErr_Occurred()) Py_CLEAR(self->table);
  return result;
}

static int scan_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(Py_TYPE(self));
  Py_VISIT(((Scan*)self)->table);
  return 0;
}

static int scan_clear(PyObject* self) {
  Py_CLEAR(((Scan*)self)->table);
  return 0;
}

static void scan_dealloc(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  PyObject_GC_UnTrack(self);
  (void)scan_clear(self);
  PyObject_GC_Del(self);
  Py_DECREF(type);
}

static PyObject* new_scan(Handle* table, int what) {
  if (!handle_enter(table)) return NULL;
  Scan* scan = PyObject_GC_New(Scan, table->state->scan_type);
  if (!scan) return NULL;
  scan->table = (Handle*)Py_NewRef((PyObject*)table);
  scan->cursor = 0;
  scan->what = what;
  PyObject_GC_Track(scan);
  return (PyObject*)scan;
}

PyObject* handle_iterate(PyObject* self) {
  return new_scan((Handle*)self, kKeys);
}

PyObject* handle_scan(PyObject* self, PyObject* what) {
  const long number = PyLong_AsLong(what);
  if (number == -1 && PyErr_Occurred()) return NULL;
  return new_scan((Handle*)self, (int)number & (kKeys | kValues));
}

static PyType_Slot slots[] = {{Py_tp_doc, "Iterates over the records of a table."},
                              {Py_tp_dealloc, (void*)scan_dealloc},
                              {Py_tp_traverse, (void*)scan_traverse},
                              {Py_tp_clear, (void*)scan_clear},
                              {Py_tp_iter, (void*)PyObject_SelfIter},
                              {Py_tp_iternext, (void*)scan_next},
                              {0, NULL}};

PyType_Spec scan_spec = {
    "zorbe._table.Scan", sizeof(Scan), 0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
