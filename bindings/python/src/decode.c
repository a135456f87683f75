/* SPDX-License-Identifier: MIT */
#include <string.h>

#include "encode.h"

#define DECODE_NUMBER(name, type, make)                                \
  static PyObject* name(const Field* field, const unsigned char* at) { \
    type number;                                                       \
    (void)field;                                                       \
    memcpy(&number, at, sizeof number);                                \
    return make(number);                                               \
  }

DECODE_NUMBER(decode_i1, int8_t, PyLong_FromLong)
DECODE_NUMBER(decode_i2, int16_t, PyLong_FromLong)
DECODE_NUMBER(decode_i4, int32_t, PyLong_FromLong)
DECODE_NUMBER(decode_i8, int64_t, PyLong_FromLongLong)
DECODE_NUMBER(decode_u1, uint8_t, PyLong_FromLong)
DECODE_NUMBER(decode_u2, uint16_t, PyLong_FromLong)
DECODE_NUMBER(decode_u4, uint32_t, PyLong_FromUnsignedLong)
DECODE_NUMBER(decode_u8, uint64_t, PyLong_FromUnsignedLongLong)
DECODE_NUMBER(decode_f4, float, PyFloat_FromDouble)
DECODE_NUMBER(decode_f8, double, PyFloat_FromDouble)
DECODE_NUMBER(decode_b1, uint8_t, PyBool_FromLong)

static PyObject* decode_bytes(const Field* field, const unsigned char* at) {
  return PyBytes_FromStringAndSize((const char*)at, (Py_ssize_t)field->bytes);
}

/* Never longer than its room, also when the memory is corrupted. */
static uint32_t text_length(const Field* field, const unsigned char* at) {
  if (field->length_bytes == 0) {
    uint32_t length = field->bytes;
    while (length > 0 && at[length - 1] == 0) --length;
    return length;
  }
  const unsigned char* length_at = at - field->offset + field->length_at;
  uint16_t length = *length_at;
  if (field->length_bytes == 2) memcpy(&length, length_at, sizeof length);
  return length < field->bytes ? length : field->bytes;
}

static PyObject* decode_text(const Field* field, const unsigned char* at) {
  return PyUnicode_DecodeUTF8((const char*)at, (Py_ssize_t)text_length(field, at),
                              "surrogateescape");
}

static PyObject* decode_array(const Field* field, const unsigned char* at) {
  PyObject* elements = PyTuple_New((Py_ssize_t)field->count);
  for (uint32_t i = 0; elements && i < field->count; ++i, at += field->bytes) {
    PyObject* element = field->decode_element(field, at);
    if (!element || PyTuple_SetItem(elements, (Py_ssize_t)i, element) < 0) Py_CLEAR(elements);
  }
  return elements;
}

PyObject* field_decode(const Field* field, const unsigned char* part) {
  const unsigned char* at = part + field->offset;
  return field->count == 0 ? field->decode_element(field, at) : decode_array(field, at);
}

typedef PyObject* (*Decode)(const Field*, const unsigned char*);

static Decode decode_of(char type, uint32_t bytes) {
  static const struct {
    char type;
    uint32_t bytes;
    Decode decode;
  } numbers[] = {{'i', 1, decode_i1}, {'i', 2, decode_i2}, {'i', 4, decode_i4}, {'i', 8, decode_i8},
                 {'u', 1, decode_u1}, {'u', 2, decode_u2}, {'u', 4, decode_u4}, {'u', 8, decode_u8},
                 {'f', 4, decode_f4}, {'f', 8, decode_f8}, {'b', 1, decode_b1}};
  if (type == 'S') return decode_text;
  for (size_t i = 0; i < sizeof numbers / sizeof *numbers; ++i) {
    if (numbers[i].type == type && numbers[i].bytes == bytes) return numbers[i].decode;
  }
  return decode_bytes;
}

void field_choose(Field* field) {
  field->decode_element = decode_of(field->type, field->bytes);
  if (field->decode_element == decode_bytes) field->type = 'V';
  field->encode_element = encode_of(field->type);
}
