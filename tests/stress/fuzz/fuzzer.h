// SPDX-License-Identifier: MIT
//
// What the fuzzers share. Each is a program with one function
//
//     ZORBE_FUZZER(input) { ... EXPECT_EQ(naive(input), Library::call(input)); }
//
// that is called with one input after the other. A failing EXPECT ends the process, and the
// input is kept; so do a descriptor that was left open, and what the sanitizers find.
#pragma once

#include "fault/fault.h"
#include "stress/fuzz/input.h"
#include "support/noncopyable.h"
#include "support/recording_handler.h"

#include <gtest/gtest.h>

#include <bitset>

namespace Zorbe::Test::Fuzz {

/// Around each input: every fault is disarmed afterwards, and no descriptor is left.
class Case : private NonCopyable {
 public:
  Case();
  ~Case();

 private:
  using Descriptors = std::bitset<64>;
  static Descriptors open();

  Descriptors before_;
};

/// Any input may make the library log failures.
class FailureHandler : public RecordingHandler {
 public:
  FailureHandler() { allowFailures(); }
};

}  // namespace Zorbe::Test::Fuzz

#define ZORBE_FUZZER(input)                                                 \
  static void fuzz(::Zorbe::Test::Fuzz::Input& input);                      \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { \
    ::Zorbe::Test::Fuzz::Input all(data, size);                             \
    const ::Zorbe::Test::Fuzz::Case around;                                 \
    fuzz(all);                                                              \
    return 0;                                                               \
  }                                                                         \
  static void fuzz(::Zorbe::Test::Fuzz::Input& input)

/// A fuzzer whose cases are constructed from an input and then run.
#define ZORBE_FUZZER_OF(CaseOfInput)   \
  ZORBE_FUZZER(input) {                \
    using namespace Zorbe::Test::Fuzz; \
    CaseOfInput(input).run();          \
  }
