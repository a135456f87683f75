/* SPDX-License-Identifier: MIT
 *
 * The type zorbe._table.Table: one handle of the C interface, a writer or a reader. */
#pragma once

#include <stdatomic.h>
#include <sys/types.h>

#include "part.h"

typedef struct {
  PyObject_HEAD const State* state; /* of `module`; NULL: never opened */
  PyObject* module;
  zorbe_table* table; /* NULL: closed */
  Part key;
  Part value;
  int is_described;        /* key and value are set; they stay */
  pid_t process;           /* that opened it */
  int is_busy;             /* a call has released the GIL */
  PyThread_type_lock idle; /* of a writer: held meanwhile */
  atomic_int is_quiet;     /* of a writer: its messages are not written */
} Handle;

/* Raises what a negative code of the C interface says, with the text of the table; returns NULL. */
PyObject* handle_error(const Handle* self, int code);
PyObject* table_error(const State* state, const zorbe_table* table, int code);

/* Whether the handle may be used now: open, and not in use by a thread that has released the GIL.
 * Waits for that one if it is a writer's. 0 with an exception. To be called again after Python code
 * has run. */
int handle_enter_slowly(Handle* self);
static inline int handle_enter(Handle* self) {
  return (self->table && !self->is_busy) || handle_enter_slowly(self);
}

/* Around a call without the GIL, after handle_enter(). */
void handle_begin_busy(Handle* self);
void handle_end_busy(Handle* self);

/* Whether key and value are known: looks for the description where it was not there before. -1 with
 * an exception. See describe.c. */
int handle_describe_now(Handle* self);
static inline int handle_describe(Handle* self) {
  return self->is_described ? 1 : handle_describe_now(self);
}
PyObject* handle_info(PyObject* self, PyObject* unused);
PyObject* handle_fields(PyObject* self, void* unused);

/* See lookup.c. */
PyObject* handle_subscript(PyObject* self, PyObject* key);
int handle_contains(PyObject* self, PyObject* key);
Py_ssize_t handle_length(PyObject* self);
PyObject* handle_get(PyObject* self, PyObject* const* arguments, Py_ssize_t count);
void handle_raise_key_error(PyObject* key);

/* 0 after clearing the exception of a key that no record can have; -1 with any other one. */
int handle_is_no_key(void);

/* See scan.c and memory.c. */
PyObject* handle_iterate(PyObject* self);
PyObject* handle_scan(PyObject* self, PyObject* what);
PyObject* handle_copy_records(PyObject* self, PyObject* unused);

/* `_open(name, options)` of a reader, `_open(name, fields, options)` of a writer; see open.c. */
PyObject* handle_open_reader(PyObject* self, PyTypeObject* defining, PyObject* const* arguments,
                             Py_ssize_t count, PyObject* names);
PyObject* handle_open_writer(PyObject* self, PyTypeObject* defining, PyObject* const* arguments,
                             Py_ssize_t count, PyObject* names);

/* The types of the extension: see handle.c, follow.c, write.c, scan.c and memory.c. */
extern PyType_Spec handle_spec;
extern PyType_Spec reader_spec;
extern PyType_Spec writer_spec;
extern PyType_Spec scan_spec;
extern PyType_Spec memory_spec;
