/* SPDX-License-Identifier: MIT */
#include "encode.h"

#include <math.h>
#include <string.h>

static int does_not_fit(const Field* field, PyObject* object) {
  PyErr_Format(PyExc_OverflowError, "%s: %R does not fit into %c%u", field->name, object,
               field->type, (unsigned)field->bytes);
  return -1;
}

/* Raises TypeError, with the name of the field. */
static int is_no(const Field* field, PyObject* object, const char* wanted) {
  PyObject* type = PyObject_Type(object);
  PyObject* name = type ? PyType_GetName((PyTypeObject*)type) : NULL;
  if (name) PyErr_Format(PyExc_TypeError, "%s: %U is no %s", field->name, name, wanted);
  Py_XDECREF(name);
  Py_XDECREF(type);
  return -1;
}

static int store_integer(const Field* field, uint64_t number, unsigned char* at) {
#if PY_LITTLE_ENDIAN
  memcpy(at, &number, field->bytes);
#else
  memcpy(at, (const unsigned char*)&number + 8 - field->bytes, field->bytes);
#endif
  return 0;
}

static int encode_signed(const Field* field, PyObject* index, unsigned char* at) {
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(index, &overflow);
  if (number == -1 && PyErr_Occurred()) return -1;
  const unsigned bits = field->bytes * 8 - 1;
  const long long most = (long long)(UINT64_MAX >> (64 - bits));
  if (overflow != 0 || number > most || number < -most - 1) return does_not_fit(field, index);
  return store_integer(field, (uint64_t)number, at);
}

static int encode_unsigned(const Field* field, PyObject* index, unsigned char* at) {
  const unsigned long long number = PyLong_AsUnsignedLongLong(index);
  if (number == (unsigned long long)-1 && PyErr_Occurred()) {
    if (!PyErr_ExceptionMatches(PyExc_OverflowError)) return -1;
    PyErr_Clear();
    return does_not_fit(field, index);
  }
  if (number > UINT64_MAX >> (64 - field->bytes * 8)) return does_not_fit(field, index);
  return store_integer(field, number, at);
}

static int encode_integer(const Field* field, PyObject* object, unsigned char* at) {
  if (!PyIndex_Check(object)) return is_no(field, object, "integer");
  PyObject* index = PyNumber_Index(object);
  if (!index) return -1;
  const int result =
      field->type == 'i' ? encode_signed(field, index, at) : encode_unsigned(field, index, at);
  Py_DECREF(index);
  return result;
}

static int encode_float(const Field* field, PyObject* object, unsigned char* at) {
  const double number = PyFloat_AsDouble(object);
  if (number == -1.0 && PyErr_Occurred()) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) return -1;
    PyErr_Clear();
    return is_no(field, object, "number");
  }
  if (field->bytes == sizeof number) {
    memcpy(at, &number, sizeof number);
    return 0;
  }
  const float narrow = (float)number;
  if (isinf(narrow) && !isinf(number)) return does_not_fit(field, object);
  memcpy(at, &narrow, sizeof narrow);
  return 0;
}

/* NumPy's booleans are no bool; they equal one. */
static int encode_bool(const Field* field, PyObject* object, unsigned char* at) {
  const int is_true = PyObject_RichCompareBool(object, Py_True, Py_EQ);
  const int is_false = is_true == 0 ? PyObject_RichCompareBool(object, Py_False, Py_EQ) : 0;
  if (is_true < 0 || is_false < 0) return -1;
  if (!is_true && !is_false) return is_no(field, object, "bool");
  *at = (unsigned char)is_true;
  return 0;
}

static int copy_exactly(const Field* field, const Py_buffer* view, unsigned char* at) {
  if (view->len != (Py_ssize_t)field->bytes) {
    PyErr_Format(PyExc_ValueError, "%s: %zd bytes, and it has %u", field->name, view->len,
                 (unsigned)field->bytes);
    return -1;
  }
  return PyBuffer_ToContiguous(at, view, view->len, 'C');
}

static int encode_bytes(const Field* field, PyObject* object, unsigned char* at) {
  Py_buffer view;
  if (!PyObject_CheckBuffer(object)) return is_no(field, object, "bytes");
  if (PyObject_GetBuffer(object, &view, PyBUF_FULL_RO) < 0) return -1;
  const int result = copy_exactly(field, &view, at);
  PyBuffer_Release(&view);
  return result;
}

static void store_length(const Field* field, Py_ssize_t size, unsigned char* at) {
  unsigned char* length_at = at - field->offset + field->length_at;
  const uint16_t length = (uint16_t)size;
  if (field->length_bytes == 2) {
    memcpy(length_at, &length, sizeof length);
  } else if (field->length_bytes == 1) {
    *length_at = (unsigned char)length;
  }
}

static int encode_text(const Field* field, PyObject* object, unsigned char* at) {
  if (!PyUnicode_Check(object)) return is_no(field, object, "str");
  PyObject* bytes = PyUnicode_AsEncodedString(object, "utf-8", "surrogateescape");
  if (!bytes) return -1;
  const Py_ssize_t size = PyBytes_Size(bytes);
  int result = 0;
  if (size > (Py_ssize_t)field->bytes) {
    PyErr_Format(PyExc_ValueError, "%s: %R has %zd bytes, and there is room for %u", field->name,
                 object, size, (unsigned)field->bytes);
    result = -1;
  } else {
    memcpy(at, PyBytes_AsString(bytes), (size_t)size);
    store_length(field, size, at);
  }
  Py_DECREF(bytes);
  return result;
}

Encode encode_of(char type) {
  switch (type) {
    case 'i':
    case 'u':
      return encode_integer;
    case 'f':
      return encode_float;
    case 'b':
      return encode_bool;
    case 'S':
      return encode_text;
    default:
      return encode_bytes;
  }
}

/* A text is no array of its letters. */
static PyObject* sequence_of(const Field* field, PyObject* object) {
  if (!PySequence_Check(object) || PyUnicode_Check(object)) {
    is_no(field, object, "sequence");
    return NULL;
  }
  PyObject* elements = PySequence_Tuple(object);
  if (elements && PyTuple_Size(elements) != (Py_ssize_t)field->count) {
    PyErr_Format(PyExc_ValueError, "%s: %zd elements, and it has %u", field->name,
                 PyTuple_Size(elements), (unsigned)field->count);
    Py_CLEAR(elements);
  }
  return elements;
}

int field_encode(const Field* field, PyObject* object, unsigned char* part) {
  unsigned char* at = part + field->offset;
  if (field->count == 0) return field->encode_element(field, object, at);
  PyObject* elements = sequence_of(field, object);
  if (!elements) return -1;
  int result = 0;
  for (uint32_t i = 0; result == 0 && i < field->count; ++i, at += field->bytes) {
    result = field->encode_element(field, PyTuple_GetItem(elements, (Py_ssize_t)i), at);
  }
  Py_DECREF(elements);
  return result;
}
