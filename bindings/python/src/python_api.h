/* SPDX-License-Identifier: MIT
 *
 * The limited API of Python 3.11: one extension for every later version. The buffer protocol is in
 * it from 3.11 on. */
#pragma once

#define PY_SSIZE_T_CLEAN
#ifndef Py_LIMITED_API
#define Py_LIMITED_API 0x030B0000
#endif
#include <Python.h>
