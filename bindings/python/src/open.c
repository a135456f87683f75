/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <unistd.h>

#include "handle.h"

/* Messages of the library, as it writes them by itself, but for those of an opening that is tried
 * again: a service thread calls this, too, and never takes the GIL. */
static void write_message(void* context, int level, const char* text) {
  Handle* self = context;
  (void)level;
  if (!atomic_load(&self->is_quiet)) (void)fprintf(stderr, "%s\n", text);
}

/* What opens a table, without the GIL. */
typedef struct {
  const char* name;
  zorbe_options options;
  zorbe_field* fields; /* of a writer; NULL: as found */
  size_t n;
  int is_writer;
} Opening;

static int can_open(Handle* self, PyTypeObject* defining) {
  if (self->table) {
    PyErr_SetString(PyExc_RuntimeError, "the table is open already");
    return 0;
  }
  self->state = PyType_GetModuleState(defining);
  PyObject* module = PyType_GetModule(defining);
  if (!self->state || !module) return 0;
  Py_XDECREF(self->module);
  self->module = Py_NewRef(module);
  return 1;
}

/* Another thread may have opened the same object meanwhile. */
static PyObject* keep(Handle* self, zorbe_table* table) {
  if (!self->table) {
    self->table = table;
    self->process = getpid();
    Py_RETURN_NONE;
  }
  zorbe_close(table);
  PyErr_SetString(PyExc_RuntimeError, "the table is open already");
  return NULL;
}

static PyObject* open_table(Handle* self, const Opening* opening) {
  zorbe_table* table = NULL;
  int code = 0;
  Py_BEGIN_ALLOW_THREADS code =
      opening->is_writer
          ? zorbe_writer_open(&table, opening->name, opening->fields, opening->n, &opening->options)
          : zorbe_reader_open(&table, opening->name, &opening->options);
  Py_END_ALLOW_THREADS if (code >= 0) return keep(self, table);
  (void)table_error(self->state, table, code);
  zorbe_close(table);
  return NULL;
}

static PyObject* tuple_of(PyObject* const* arguments, Py_ssize_t count) {
  PyObject* tuple = PyTuple_New(count);
  for (Py_ssize_t i = 0; tuple && i < count; ++i) {
    PyTuple_SetItem(tuple, i, Py_NewRef(arguments[i]));
  }
  return tuple;
}

PyObject* handle_open_reader(PyObject* object, PyTypeObject* defining, PyObject* const* arguments,
                             Py_ssize_t count, PyObject* names) {
  (void)names;
  Handle* self = (Handle*)object;
  PyObject* tuple = tuple_of(arguments, count);
  if (!tuple) return NULL;
  Opening opening = {.options = ZORBE_OPTIONS_INIT};
  zorbe_options* options = &opening.options;
  PyObject* result = NULL;
  if (PyArg_ParseTuple(tuple, "yyII", &opening.name, &options->root, &options->flags,
                       &options->owner) &&
      can_open(self, defining)) {
    result = open_table(self, &opening);
  }
  Py_DECREF(tuple);
  return result;
}

/* The names stay those of the tuples. */
static int parse_fields(Opening* opening, PyObject* fields) {
  const Py_ssize_t n = PyTuple_Size(fields);
  if (n <= 0) return (int)n;
  opening->fields = PyMem_Calloc((size_t)n, sizeof *opening->fields);
  if (!opening->fields) {
    PyErr_NoMemory();
    return -1;
  }
  for (opening->n = 0; opening->n < (size_t)n; ++opening->n) {
    zorbe_field* field = &opening->fields[opening->n];
    const char* type = NULL;
    if (!PyArg_ParseTuple(PyTuple_GetItem(fields, (Py_ssize_t)opening->n), "issIII", &field->part,
                          &field->name, &type, &field->bytes, &field->count, &field->offset)) {
      return -1;
    }
    field->type = *type;
  }
  return 0;
}

static PyObject* open_writer(Handle* self, PyTypeObject* defining, PyObject* tuple) {
  Opening opening = {.options = ZORBE_OPTIONS_INIT, .is_writer = 1};
  zorbe_options* options = &opening.options;
  PyObject* fields = NULL;
  unsigned long long records = 0;
  unsigned long long max_records = 0;
  unsigned long long log_entries = 0;
  long long wait = 0;
  int is_quiet = 0;
  if (!PyArg_ParseTuple(tuple, "yyIOIIIKKKLp", &opening.name, &options->root, &options->flags,
                        &fields, &options->mode, &options->key_bytes, &options->value_bytes,
                        &records, &max_records, &log_entries, &wait, &is_quiet)) {
    return NULL;
  }
  options->records = records;
  options->max_records = max_records;
  options->log_entries = log_entries;
  options->wait_for_lock = wait;
  options->log = write_message;
  options->log_context = self;
  atomic_store(&self->is_quiet, is_quiet);
  PyObject* result = NULL;
  if (parse_fields(&opening, fields) == 0 && can_open(self, defining)) {
    result = open_table(self, &opening);
  }
  atomic_store(&self->is_quiet, 0);
  PyMem_Free(opening.fields);
  return result;
}

PyObject* handle_open_writer(PyObject* object, PyTypeObject* defining, PyObject* const* arguments,
                             Py_ssize_t count, PyObject* names) {
  (void)names;
  Handle* self = (Handle*)object;
  PyObject* tuple = tuple_of(arguments, count);
  if (!tuple) return NULL;
  if (!self->idle) self->idle = PyThread_allocate_lock();
  PyObject* result = self->idle ? open_writer(self, defining, tuple) : PyErr_NoMemory();
  Py_DECREF(tuple);
  return result;
}
