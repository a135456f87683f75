/* SPDX-License-Identifier: MIT */
#include "handle.h"

/* The fields are the handle's, which Python code may close: they are copied before any runs. */
static int read_fields(const Handle* self, const zorbe_info* info, Part* key, Part* value) {
  size_t n = 0;
  const zorbe_field* fields = zorbe_fields(self->table, &n);
  if (part_set(key, ZORBE_KEY, info->key_bytes, fields, n) < 0 ||
      part_set(value, ZORBE_VALUE, info->value_bytes, fields, n) < 0) {
    PyErr_NoMemory();
    return -1;
  }
  if (part_make_class(key, self->state, "Key", 1) < 0) return -1;
  return part_make_class(value, self->state, "Record", 0);
}

static int set_parts(Handle* self, const zorbe_info* info) {
  Part key = {0};
  Part value = {0};
  const int result = read_fields(self, info, &key, &value);
  if (result == 0 && !self->is_described) {
    self->key = key;
    self->value = value;
    self->is_described = 1;
  } else {
    part_clear(&key);
    part_clear(&value);
  }
  return result == 0 && handle_enter(self) ? 1 : -1;
}

/* A key has at least one byte: without any there is no table yet. */
int handle_describe_now(Handle* self) {
  zorbe_info info = {.size = sizeof info};
  const int code = zorbe_get_info(self->table, &info);
  if (code < 0) {
    (void)handle_error(self, code);
    return -1;
  }
  return info.key_bytes == 0 ? 0 : set_parts(self, &info);
}

PyObject* handle_info(PyObject* object, PyObject* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return NULL;
  zorbe_info info = {.size = sizeof info};
  const int code = zorbe_get_info(self->table, &info);
  if (code < 0) return handle_error(self, code);
  return Py_BuildValue("iiIIKKKKKLL", info.state, info.origin, (unsigned)info.key_bytes,
                       (unsigned)info.value_bytes, (unsigned long long)info.incarnation,
                       (unsigned long long)info.published, (unsigned long long)info.position,
                       (unsigned long long)info.lag, (unsigned long long)info.records,
                       (long long)info.published_at, (long long)info.origin_since);
}

static PyObject* type_of(const Field* field) {
  if (field->count == 0) return PyUnicode_FromFormat("%c%u", field->type, (unsigned)field->bytes);
  return PyUnicode_FromFormat("%c%u[%u]", field->type, (unsigned)field->bytes,
                              (unsigned)field->count);
}

/* Appends (part, name, type, offset) of each. */
static int append_fields(const Handle* self, PyObject* list, const Part* part, const char* name) {
  for (Py_ssize_t i = 0; i < part->count; ++i) {
    const Field* field = &part->fields[i];
    PyObject* type = type_of(field);
    PyObject* item = type ? PyObject_CallFunction(self->state->field_class, "ssOI", name,
                                                  field->name, type, (unsigned)field->offset)
                          : NULL;
    const int result = item ? PyList_Append(list, item) : -1;
    Py_XDECREF(type);
    Py_XDECREF(item);
    if (result < 0) return -1;
  }
  return 0;
}

PyObject* handle_fields(PyObject* object, void* unused) {
  (void)unused;
  Handle* self = (Handle*)object;
  if (!handle_enter(self)) return NULL;
  const int is_described = handle_describe(self);
  PyObject* list = is_described < 0 ? NULL : PyList_New(0);
  if (!list) return NULL;
  PyObject* fields = NULL;
  if (is_described == 0 || (append_fields(self, list, &self->key, "key") == 0 &&
                            append_fields(self, list, &self->value, "value") == 0)) {
    fields = PyList_AsTuple(list);
  }
  Py_DECREF(list);
  return fields;
}
