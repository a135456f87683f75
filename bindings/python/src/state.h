/* SPDX-License-Identifier: MIT
 *
 * What belongs to one interpreter: nothing in this extension is static but constants. */
#pragma once

#include "python_api.h"

typedef struct {
  PyObject* make_error;   /* of zorbe._errors: (code, text, pid, owner) -> exception */
  PyObject* record_class; /* of zorbe._records: (name, field names) -> class */
  PyObject* field_class;  /* of zorbe._records: Field */
  PyObject* change_class; /* of zorbe._records: Change */
  PyObject* kinds[5];     /* of a change, by zorbe_kind */
  PyTypeObject* table_type;
  PyTypeObject* scan_type;
  PyTypeObject* memory_type;
  newfunc make_tuple; /* of tuple */
} State;

/* A named tuple of `class` with these fields, which it takes over, without calling the class; NULL
 * with an exception, also when `fields` is NULL. */
PyObject* record_make(newfunc make_tuple, PyObject* class, PyObject* fields);
