/* SPDX-License-Identifier: MIT
 *
 * The type zorbe._table.Memory: copies of all records one after the other, for the buffer protocol.
 */
#include <stdlib.h>

#include "handle.h"

typedef struct {
  PyObject_HEAD unsigned char* bytes;
  size_t size;
} Memory;

/* A record has the key, the value from the next multiple of 8 on, and ends at one. */
static size_t to_words(size_t bytes) {
  return (bytes + 7) / 8 * 8;
}

typedef struct {
  unsigned char* bytes;
  size_t size;
  size_t room;
  size_t value_at;
  size_t record;
} Copies;

/* Room for one more record; the bytes between the parts are zero. */
static int grow(Copies* copies) {
  if (copies->room - copies->size >= copies->record) return 0;
  const size_t room = copies->room * 2 + 64 * copies->record;
  unsigned char* bytes = realloc(copies->bytes, room);
  if (!bytes) return ZORBE_E_NO_MEMORY;
  for (size_t at = copies->room; at < room; ++at) bytes[at] = 0;
  copies->bytes = bytes;
  copies->room = room;
  return 0;
}

/* Without the GIL. */
static int copy_records(zorbe_table* table, Copies* copies) {
  uint64_t cursor = 0;
  for (;;) {
    int code = grow(copies);
    unsigned char* record = copies->bytes + copies->size;
    if (code == 0) code = zorbe_scan(table, &cursor, record, record + copies->value_at);
    if (code != 0) return code;
    copies->size += copies->record;
  }
}

static PyObject* new_memory(const Handle* table, const Copies* copies) {
  Memory* memory = PyObject_New(Memory, table->state->memory_type);
  if (!memory) {
    free(copies->bytes);
    return NULL;
  }
  /* What the records do not need is given back; they stay where they are if that fails. */
  unsigned char* bytes = realloc(copies->bytes, copies->size > 0 ? copies->size : 1);
  memory->bytes = bytes ? bytes : copies->bytes;
  memory->size = copies->size;
  return (PyObject*)memory;
}

/* `_copy_records()`: a Memory, the offset of the value, and the size of a record; None where there
 * is no table. */
PyObject* handle_copy_records(PyObject* object, PyObject* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return NULL;
  const int known = handle_describe(self);
  if (known < 0) return NULL;
  if (known == 0) Py_RETURN_NONE;
  Copies copies = {0};
  copies.value_at = to_words(self->key.bytes);
  copies.record = copies.value_at + to_words(self->value.bytes);
  int code = 0;
  handle_begin_busy(self);
  Py_BEGIN_ALLOW_THREADS code = copy_records(self->table, &copies);
  Py_END_ALLOW_THREADS handle_end_busy(self);
  if (code < 0) {
    free(copies.bytes);
    return handle_error(self, code);
  }
  PyObject* memory = new_memory(self, &copies);
  if (!memory) return NULL;
  return Py_BuildValue("Nnn", memory, (Py_ssize_t)copies.value_at, (Py_ssize_t)copies.record);
}

static int memory_buffer(PyObject* object, Py_buffer* view, int flags) {
  Memory* self = (Memory*)object;
  return PyBuffer_FillInfo(view, object, self->bytes, (Py_ssize_t)self->size, 0, flags);
}

static void memory_dealloc(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  free(((Memory*)self)->bytes);
  PyObject_Free(self);
  Py_DECREF(type);
}

static PyType_Slot slots[] = {{Py_tp_doc, "Copies of the records of a table."},
                              {Py_tp_dealloc, (void*)memory_dealloc},
                              {Py_bf_getbuffer, (void*)memory_buffer},
                              {0, NULL}};

PyType_Spec memory_spec = {"zorbe._table.Memory", sizeof(Memory), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
