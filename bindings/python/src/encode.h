/* SPDX-License-Identifier: MIT */
#pragma once

#include "field.h"

typedef int (*Encode)(const Field*, PyObject*, unsigned char*);

/* What stores an element of a type. */
Encode encode_of(char type);
