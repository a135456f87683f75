// SPDX-License-Identifier: MIT
//
// What every benchmark program's main does.
#pragma once

#include <cstdlib>
#include <exception>
#include <iostream>

#include "harness/results.h"

namespace Bench {

/// Runs `body`; a failure is reported on standard error and by the exit status.
inline int runProgram(int argc, char** argv, void (*body)(Results&)) {
  try {
    Results results(argc, argv);
    body(results);
    return EXIT_SUCCESS;
  } catch (const std::exception& problem) {
    std::cerr << argv[0] << ": " << problem.what() << "\n";
    return EXIT_FAILURE;
  }
}

}  // namespace Bench
