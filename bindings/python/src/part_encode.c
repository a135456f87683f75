/* SPDX-License-Identifier: MIT */
#include <string.h>

#include "part.h"

static int encode_buffer(const Part* part, PyObject* object, unsigned char* bytes) {
  Py_buffer view;
  if (PyObject_GetBuffer(object, &view, PyBUF_FULL_RO) < 0) return -1;
  int result = -1;
  if (view.len == (Py_ssize_t)part->bytes) {
    result = PyBuffer_ToContiguous(bytes, &view, view.len, 'C');
  } else {
    PyErr_Format(PyExc_ValueError, "%zd bytes, and the table has %u", view.len,
                 (unsigned)part->bytes);
  }
  PyBuffer_Release(&view);
  return result;
}

static int encode_fields(const Part* part, PyObject* fields, unsigned char* bytes) {
  if (PyTuple_Size(fields) != part->count) {
    PyErr_Format(PyExc_ValueError, "%zd fields, and the table has %zd: %R", PyTuple_Size(fields),
                 part->count, part->names);
    return -1;
  }
  int result = 0;
  for (Py_ssize_t i = 0; result == 0 && i < part->count; ++i) {
    result = field_encode(&part->fields[i], PyTuple_GetItem(fields, i), bytes);
  }
  return result;
}

/* By the names of the named tuple, or of the description where they differ. */
static PyObject* take(const Part* part, Py_ssize_t i, PyObject* mapping) {
  PyObject* names[] = {PyTuple_GetItem(part->python_names, i), PyTuple_GetItem(part->names, i)};
  for (size_t which = 0; which < 2; ++which) {
    PyObject* field = PyObject_GetItem(mapping, names[which]);
    if (field || !PyErr_ExceptionMatches(PyExc_KeyError)) return field;
    PyErr_Clear();
  }
  PyErr_Format(PyExc_ValueError, "%s: missing", part->fields[i].name);
  return NULL;
}

static PyObject* fields_of(const Part* part, PyObject* mapping) {
  const Py_ssize_t size = PyMapping_Size(mapping);
  if (size < 0) return NULL;
  if (size > part->count) {
    PyErr_Format(PyExc_ValueError, "%zd fields, and the table has %zd: %R", size, part->count,
                 part->names);
    return NULL;
  }
  PyObject* fields = PyTuple_New(part->count);
  for (Py_ssize_t i = 0; fields && i < part->count; ++i) {
    PyObject* field = take(part, i, mapping);
    if (!field || PyTuple_SetItem(fields, i, field) < 0) Py_CLEAR(fields);
  }
  return fields;
}

static int is_mapping(const Part* part, PyObject* object) {
  return PyDict_Check(object) || (PyMapping_Check(object) && PyObject_HasAttr(object, part->keys));
}

static int encode_record(const Part* part, PyObject* object, unsigned char* bytes) {
  if (PyTuple_Check(object)) return encode_fields(part, object, bytes);
  if (PyObject_CheckBuffer(object)) return encode_buffer(part, object, bytes);
  PyObject* fields = NULL;
  if (is_mapping(part, object)) {
    fields = fields_of(part, object);
  } else if (PySequence_Check(object) && !PyUnicode_Check(object)) {
    fields = PySequence_Tuple(object);
  } else {
    PyErr_Format(PyExc_TypeError, "a tuple, a mapping or bytes with the fields %R, not %R",
                 part->names, object);
  }
  if (!fields) return -1;
  const int result = encode_fields(part, fields, bytes);
  Py_DECREF(fields);
  return result;
}

int part_encode(const Part* part, PyObject* object, unsigned char* bytes) {
  switch (part->form) {
    case PART_RECORD:
      return encode_record(part, object, bytes);
    case PART_BYTES:
      if (PyObject_CheckBuffer(object)) return encode_buffer(part, object, bytes);
      PyErr_Format(PyExc_TypeError, "bytes, since the table has no description, not %R", object);
      return -1;
    default:
      return field_encode(part->fields, object, bytes);
  }
}
