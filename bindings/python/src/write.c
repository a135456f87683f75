/* SPDX-License-Identifier: MIT
 *
 * The type zorbe._table.WriterTable: what a writer has besides. Nothing here releases the GIL: a
 * store is short, and publishing is one system call for each reader that sleeps. */
#include "handle.h"

/* Encoding has run Python code, which may have closed the table. */
static int put_bytes(Handle* self, const Scratch* key, const Scratch* value) {
  if (!handle_enter(self)) return -1;
  const int code =
      zorbe_put(self->table, key->bytes, self->key.bytes, value->bytes, self->value.bytes);
  if (code >= 0) return 0;
  handle_error(self, code);
  return -1;
}

static int put_value(Handle* self, const Scratch* key, PyObject* value) {
  Scratch scratch;
  if (scratch_open(&scratch, self->value.bytes) < 0) return -1;
  int result = part_encode(&self->value, value, scratch.bytes);
  if (result == 0) result = put_bytes(self, key, &scratch);
  scratch_close(&scratch);
  return result;
}

static int erase_bytes(Handle* self, const Scratch* key, PyObject* object) {
  if (!handle_enter(self)) return -1;
  const int code = zorbe_erase(self->table, key->bytes, self->key.bytes);
  if (code == 0) return 0;
  if (code < 0) {
    handle_error(self, code);
  } else {
    handle_raise_key_error(object);
  }
  return -1;
}

static int store(Handle* self, PyObject* key, PyObject* value) {
  Scratch scratch;
  if (scratch_open(&scratch, self->key.bytes) < 0) return -1;
  int result = part_encode(&self->key, key, scratch.bytes);
  if (result < 0 && !value && handle_is_no_key() == 0) {
    handle_raise_key_error(key);
  } else if (result == 0) {
    result = value ? put_value(self, &scratch, value) : erase_bytes(self, &scratch, key);
  }
  scratch_close(&scratch);
  return result;
}

static int handle_store(PyObject* object, PyObject* key, PyObject* value) {
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return -1;
  return handle_describe(self) > 0 ? store(self, key, value) : -1;
}

static PyObject* publish(PyObject* object, PyObject* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return NULL;
  const int code = zorbe_publish(self->table);
  if (code < 0) return handle_error(self, code);
  Py_RETURN_NONE;
}

static PyMethodDef methods[] = {
    {"_open", (PyCFunction)(void (*)(void))handle_open_writer,
     METH_METHOD | METH_FASTCALL | METH_KEYWORDS, NULL},
    {"publish", publish, METH_NOARGS,
     "publish($self, /)\n--\n\nReports all that was put and erased to the readers that follow, and "
     "wakes those that sleep."},
    {NULL, NULL, 0, NULL}};

static PyType_Slot slots[] = {{Py_tp_doc, "The writer of a table."},
                              {Py_tp_methods, methods},
                              {Py_mp_ass_subscript, (void*)handle_store},
                              {0, NULL}};

PyType_Spec writer_spec = {"zorbe._table.WriterTable", sizeof(Handle), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, slots};
