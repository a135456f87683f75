/* SPDX-License-Identifier: MIT
 *
 * The module zorbe._table. What is not done often is Python, in the package beside it. */
#include <string.h>

#include "handle.h"

static int import_from(const char* module_name, const char* name, PyObject** to) {
  PyObject* module = PyImport_ImportModule(module_name);
  if (!module) return -1;
  *to = PyObject_GetAttrString(module, name);
  Py_DECREF(module);
  return *to ? 0 : -1;
}

static int import_all(State* state) {
  if (import_from("zorbe._errors", "make_error", &state->make_error) < 0 ||
      import_from("zorbe._records", "record_class", &state->record_class) < 0 ||
      import_from("zorbe._records", "Field", &state->field_class) < 0) {
    return -1;
  }
  return import_from("zorbe._records", "Change", &state->change_class);
}

static int make_kinds(State* state) {
  static const char* const names[] = {NULL, "put", "erased", "reset", "complete"};
  for (int kind = ZORBE_PUT; kind <= ZORBE_COMPLETE; ++kind) {
    state->kinds[kind] = PyUnicode_InternFromString(names[kind]);
    if (!state->kinds[kind]) return -1;
  }
  return 0;
}

static PyTypeObject* make_type(PyObject* module, PyType_Spec* spec, PyTypeObject* base) {
  PyObject* type = PyType_FromModuleAndSpec(module, spec, (PyObject*)base);
  if (type && PyModule_AddType(module, (PyTypeObject*)type) < 0) Py_CLEAR(type);
  return (PyTypeObject*)type;
}

/* The module keeps the types that only it needs. */
static int make_subclass(PyObject* module, PyType_Spec* spec, PyTypeObject* base) {
  PyTypeObject* type = make_type(module, spec, base);
  Py_XDECREF((PyObject*)type);
  return type ? 0 : -1;
}

static int make_types(PyObject* module, State* state) {
  state->table_type = make_type(module, &handle_spec, NULL);
  if (!state->table_type || make_subclass(module, &reader_spec, state->table_type) < 0 ||
      make_subclass(module, &writer_spec, state->table_type) < 0) {
    return -1;
  }
  state->scan_type = make_type(module, &scan_spec, NULL);
  state->memory_type = make_type(module, &memory_spec, NULL);
  return state->scan_type && state->memory_type ? 0 : -1;
}

static int execute(PyObject* module) {
  State* state = PyModule_GetState(module);
  memset(state, 0, sizeof *state);
  state->make_tuple = (newfunc)PyType_GetSlot(&PyTuple_Type, Py_tp_new);
  if (import_all(state) < 0 || make_kinds(state) < 0) return -1;
  return make_types(module, state);
}

static int traverse(PyObject* module, visitproc visit, void* arg) {
  const State* state = PyModule_GetState(module);
  if (!state) return 0;
  Py_VISIT(state->make_error);
  Py_VISIT(state->record_class);
  Py_VISIT(state->field_class);
  Py_VISIT(state->change_class);
  Py_VISIT(state->table_type);
  Py_VISIT(state->scan_type);
  Py_VISIT(state->memory_type);
  return 0;
}

/* There is no function that clears the module before: handles and iterators that are collected with
 * it may still be used by other objects' finalizers. */
static void release(void* module) {
  State* state = PyModule_GetState(module);
  if (!state) return;
  Py_CLEAR(state->make_error);
  Py_CLEAR(state->record_class);
  Py_CLEAR(state->field_class);
  Py_CLEAR(state->change_class);
  Py_CLEAR(state->table_type);
  Py_CLEAR(state->scan_type);
  Py_CLEAR(state->memory_type);
  for (size_t i = 0; i < sizeof state->kinds / sizeof *state->kinds; ++i) {
    Py_CLEAR(state->kinds[i]);
  }
}

static PyModuleDef_Slot slots[] = {{Py_mod_exec, (void*)execute}, {0, NULL}};

static PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                                 "zorbe._table",
                                 "Tables in shared memory, by the C interface of the library.",
                                 sizeof(State),
                                 NULL,
                                 slots,
                                 traverse,
                                 NULL,
                                 release};

PyMODINIT_FUNC PyInit__table(void);
PyMODINIT_FUNC PyInit__table(void) {
  return PyModuleDef_Init(&definition);
}
