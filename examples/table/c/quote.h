/* SPDX-License-Identifier: MIT */
#pragma once

#include <zorbe/table.h>

typedef struct {
  char text[8];
  uint8_t length;
} symbol;

typedef struct {
  double bid, ask;
} quote;
