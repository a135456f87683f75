/* SPDX-License-Identifier: MIT
 *
 * Lookups: nothing here releases the GIL but counting. */
#include "handle.h"

/* Of a reader, which may never have seen a table. */
static int is_known(Handle* self) {
  return handle_enter(self) ? handle_describe(self) : -1;
}

/* zorbe_get() with a key's bytes. The key may have run Python code, which may have closed the
 * table. */
static int look(Handle* self, const void* key, size_t size, void* value, size_t value_size) {
  if (!handle_enter(self)) return -1;
  const int code = zorbe_get(self->table, key, size, value, value_size);
  if (code >= 0) return code == 0;
  handle_error(self, code);
  return -1;
}

int handle_is_no_key(void) {
  if (!PyErr_ExceptionMatches(PyExc_OverflowError) && !PyErr_ExceptionMatches(PyExc_ValueError)) {
    return -1;
  }
  PyErr_Clear();
  return 0;
}

static int look_encoded(Handle* self, PyObject* key, void* value, size_t value_size) {
  Scratch scratch;
  if (scratch_open(&scratch, self->key.bytes) < 0) return -1;
  const int result = part_encode(&self->key, key, scratch.bytes) < 0
                         ? handle_is_no_key()
                         : look(self, scratch.bytes, self->key.bytes, value, value_size);
  scratch_close(&scratch);
  return result;
}

/* 1 with the value, 0 without a record, -1 with an exception. A text is passed as it lies in the
 * str; one with bytes that are no UTF-8 has to be encoded. */
static int find(Handle* self, PyObject* key, void* value, size_t value_size) {
  if (self->key.form == PART_TEXT && PyUnicode_Check(key)) {
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(key, &size);
    if (text) {
      if (size > (Py_ssize_t)self->key.fields->bytes) return 0;
      return look(self, text, (size_t)size, value, value_size);
    }
    PyErr_Clear();
  }
  return look_encoded(self, key, value, value_size);
}

/* The record of a key, or NULL; without an exception when there is none. */
static PyObject* record_of(Handle* self, PyObject* key) {
  if (is_known(self) <= 0) return NULL;
  Scratch scratch;
  const uint32_t bytes = self->value.bytes;
  scratch.bytes = (unsigned char*)scratch.small;
  if (bytes > sizeof scratch.small && scratch_open(&scratch, bytes) < 0) return NULL;
  PyObject* record = NULL;
  if (find(self, key, scratch.bytes, bytes) > 0) record = part_decode(&self->value, scratch.bytes);
  scratch_close(&scratch);
  return record;
}

/* A tuple would become the arguments of KeyError. */
void handle_raise_key_error(PyObject* key) {
  PyObject* arguments = PyTuple_Pack(1, key);
  if (!arguments) return;
  PyErr_SetObject(PyExc_KeyError, arguments);
  Py_DECREF(arguments);
}

PyObject* handle_subscript(PyObject* self, PyObject* key) {
  PyObject* record = record_of((Handle*)self, key);
  if (!record && !PyErr_Occurred()) handle_raise_key_error(key);
  return record;
}

PyObject* handle_get(PyObject* self, PyObject* const* arguments, Py_ssize_t count) {
  if (count != 1 && count != 2) {
    return PyErr_Format(PyExc_TypeError, "get() takes a key and a default, not %zd arguments",
                        count);
  }
  PyObject* record = record_of((Handle*)self, arguments[0]);
  if (record || PyErr_Occurred()) return record;
  return Py_NewRef(count == 2 ? arguments[1] : Py_None);
}

int handle_contains(PyObject* object, PyObject* key) {
  Handle* self = (Handle*)object;
  const int known = is_known(self);
  return known <= 0 ? known : find(self, key, NULL, 0);
}

/* A reader counts by reading every record. */
Py_ssize_t handle_length(PyObject* object) {
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return -1;
  size_t count = 0;
  handle_begin_busy(self);
  Py_BEGIN_ALLOW_THREADS count = zorbe_count(self->table);
  Py_END_ALLOW_THREADS const int code = count == 0 ? zorbe_error(self->table) : 0;
  handle_end_busy(self);
  if (code == 0) return (Py_ssize_t)count;
  handle_error(self, code);
  return -1;
}
