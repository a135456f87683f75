// SPDX-License-Identifier: MIT
#pragma once

/// Marks what the shared library exports; everything else stays inside it.
#define ZORBE_EXPORT __attribute__((visibility("default")))
