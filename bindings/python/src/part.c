/* SPDX-License-Identifier: MIT */
#include "part.h"

#include <string.h>

int scratch_open(Scratch* scratch, uint32_t bytes) {
  if (bytes <= sizeof scratch->small) {
    scratch->bytes = memset(scratch->small, 0, bytes);
    return 0;
  }
  scratch->bytes = PyMem_Calloc(1, bytes);
  if (!scratch->bytes) PyErr_NoMemory();
  return scratch->bytes ? 0 : -1;
}

void scratch_close(Scratch* scratch) {
  if (scratch->bytes != (unsigned char*)scratch->small) PyMem_Free(scratch->bytes);
}

static char* copy_of(const char* text) {
  char* copy = PyMem_Malloc(strlen(text) + 1);
  return copy ? strcpy(copy, text) : NULL;
}

static int is_length_of(const zorbe_field* field, const Field* text) {
  const size_t size = strlen(text->name);
  return text->type == 'S' && text->count == 0 && text->length_bytes == 0 && field->type == 'u' &&
         field->count == 0 && field->bytes <= 2 && strncmp(field->name, text->name, size) == 0 &&
         strcmp(field->name + size, ".length") == 0;
}

static int append(Part* part, const zorbe_field* field) {
  Field* last = part->count == 0 ? NULL : &part->fields[part->count - 1];
  if (last && is_length_of(field, last)) {
    last->length_bytes = field->bytes;
    last->length_at = field->offset;
    return 0;
  }
  Field* next = &part->fields[part->count];
  next->name = copy_of(field->name);
  if (!next->name) return -1;
  next->type = field->type;
  next->bytes = field->bytes;
  next->count = field->count;
  next->offset = field->offset;
  field_choose(next);
  ++part->count;
  return 0;
}

static PyObject* names_of(const Part* part) {
  PyObject* names = PyTuple_New(part->count);
  for (Py_ssize_t i = 0; names && i < part->count; ++i) {
    const char* name = part->fields[i].name;
    PyObject* text = PyUnicode_DecodeUTF8(name, (Py_ssize_t)strlen(name), "surrogateescape");
    if (!text || PyTuple_SetItem(names, i, text) < 0) Py_CLEAR(names);
  }
  return names;
}

int part_set(Part* part, int which, uint32_t bytes, const zorbe_field* fields, size_t n) {
  part->bytes = bytes;
  part->fields = PyMem_Calloc(n + 1, sizeof *part->fields);
  if (!part->fields) return -1;
  for (size_t i = 0; i < n; ++i) {
    if (fields[i].part == which && append(part, &fields[i]) < 0) return -1;
  }
  return 0;
}

/* A key of one field is that field, a value of one field a named tuple: it may get more. */
int part_make_class(Part* part, const State* state, const char* name, int is_key) {
  if (part->count == 0) {
    part->form = PART_BYTES;
    return 0;
  }
  if (is_key && part->count == 1) {
    const Field* field = part->fields;
    const int is_text = field->type == 'S' && field->count == 0 && field->offset == 0;
    part->form = is_text ? PART_TEXT : PART_PLAIN;
    return 0;
  }
  part->form = PART_RECORD;
  part->make = state->make_tuple;
  part->names = names_of(part);
  if (!part->names) return -1;
  part->record = PyObject_CallFunction(state->record_class, "sO", name, part->names);
  part->python_names = part->record ? PyObject_GetAttrString(part->record, "_fields") : NULL;
  part->keys = PyUnicode_InternFromString("keys");
  return part->python_names && part->keys ? 0 : -1;
}

void part_clear(Part* part) {
  for (Py_ssize_t i = 0; i < part->count; ++i) PyMem_Free(part->fields[i].name);
  PyMem_Free(part->fields);
  part->fields = NULL;
  part->count = 0;
  Py_CLEAR(part->record);
  Py_CLEAR(part->names);
  Py_CLEAR(part->python_names);
  Py_CLEAR(part->keys);
}

int part_traverse(const Part* part, visitproc visit, void* arg) {
  Py_VISIT(part->record);
  Py_VISIT(part->names);
  return 0;
}

PyObject* record_make(newfunc make_tuple, PyObject* class, PyObject* fields) {
  if (!fields) return NULL;
  PyObject* arguments = PyTuple_New(1);
  if (!arguments) {
    Py_DECREF(fields);
    return NULL;
  }
  PyTuple_SetItem(arguments, 0, fields);
  PyObject* record = make_tuple((PyTypeObject*)class, arguments, NULL);
  Py_DECREF(arguments);
  return record;
}

static PyObject* decode_fields(const Part* part, const unsigned char* bytes) {
  PyObject* fields = PyTuple_New(part->count);
  for (Py_ssize_t i = 0; fields && i < part->count; ++i) {
    PyObject* field = field_decode(&part->fields[i], bytes);
    if (!field || PyTuple_SetItem(fields, i, field) < 0) Py_CLEAR(fields);
  }
  return fields;
}

PyObject* part_decode(const Part* part, const unsigned char* bytes) {
  switch (part->form) {
    case PART_BYTES:
      return PyBytes_FromStringAndSize((const char*)bytes, (Py_ssize_t)part->bytes);
    case PART_RECORD:
      return record_make(part->make, part->record, decode_fields(part, bytes));
    default:
      return field_decode(part->fields, bytes);
  }
}
