/* SPDX-License-Identifier: MIT
 *
 * Between the bytes of one field of a record and a Python object. */
#pragma once

#include <stdint.h>

#include "python_api.h"

typedef struct Field Field;

struct Field {
  char* name;            /* as in the description */
  char type;             /* NumPy's letter: i, u, f, b, S, V */
  uint32_t bytes;        /* of one element */
  uint32_t count;        /* of elements; 0 when it is no array */
  uint32_t offset;       /* from the beginning of key or value */
  uint32_t length_bytes; /* of the length that a text has; 0: the text ends with its zero bytes */
  uint32_t length_at;    /* the offset of that length */

  /* One element, from its bytes. */
  PyObject* (*decode_element)(const Field*, const unsigned char*);
  /* One element, to its bytes, which are zero; -1 with an exception that names the field. */
  int (*encode_element)(const Field*, PyObject*, unsigned char*);
};

/* Chooses the functions of a field by its type. What is of no known type becomes bytes. */
void field_choose(Field* field);

/* The field of a key or value that begins at `part`. */
PyObject* field_decode(const Field* field, const unsigned char* part);

/* Stores `object` in a key or value of zero bytes that begins at `part`. Returns -1 with
 * OverflowError, ValueError or TypeError, which names the field. */
int field_encode(const Field* field, PyObject* object, unsigned char* part);
