/* SPDX-License-Identifier: MIT
 *
 * The key or the value of a table's records, as Python objects. */
#pragma once

#include <zorbe/table.h>

#include "field.h"
#include "state.h"

typedef enum {
  PART_BYTES, /* there is no description: bytes of the exact size */
  PART_PLAIN, /* a key of one field: that field */
  PART_TEXT,  /* a key that is one text: it may be passed without what follows it */
  PART_RECORD /* a named tuple */
} PartForm;

typedef struct {
  PartForm form;
  uint32_t bytes;
  Field* fields;
  Py_ssize_t count;
  PyObject* record;       /* the named tuple's class, of PART_RECORD */
  PyObject* names;        /* its fields' names in the description */
  PyObject* python_names; /* those of the named tuple */
  PyObject* keys;         /* the attribute that a mapping has */
  newfunc make;           /* that of tuple, which is faster than calling the class */
} Part;

/* Bytes of a key or value: on the stack unless they are many. Python code that runs between two
 * uses may call the same handle, so that none has bytes of its own. */
typedef struct {
  unsigned char* bytes;
  uint64_t small[64];
} Scratch;

/* Room for a part, filled with zeros; -1 with MemoryError. */
int scratch_open(Scratch* scratch, uint32_t bytes);
void scratch_close(Scratch* scratch);

/* The fields of `which` (ZORBE_KEY, ZORBE_VALUE) among these `n`. A text and its length become one.
 * Runs no Python code. `part` is zero, and is to be cleared also after -1: there is no memory, and
 * no exception yet. */
int part_set(Part* part, int which, uint32_t bytes, const zorbe_field* fields, size_t n);

/* Chooses the form of the objects, after part_set(); -1 with an exception. */
int part_make_class(Part* part, const State* state, const char* name, int is_key);
void part_clear(Part* part);
int part_traverse(const Part* part, visitproc visit, void* arg);

/* A new reference, or NULL with an exception. */
PyObject* part_decode(const Part* part, const unsigned char* bytes);

/* Stores `object` in bytes that are zero; -1 with an exception, which names the field. */
int part_encode(const Part* part, PyObject* object, unsigned char* bytes);
