// SPDX-License-Identifier: MIT
//
// The one way in which the library logs, builds the texts of its exceptions, and fails.
//
//     ZORBE_LOG(*handler, kStep, "WriterKickSm::doKickSleepers() sleepingReaders: " << count);
//
// The level is one of those below; what follows it is evaluated only when the handler wants the
// level. The handler may change `errno`: callers read it right after the call that failed, keep it
// in a variable, and print it with `reason(error)`.
//
// ZORBE_LOG_NOEXCEPT is the same for destructors, and for functions that have to finish a step
// after the message.
#pragma once

#include <brask/platform.h>

#include <cstring>
#include <locale>
#include <new>
#include <sstream>
#include <string>

namespace Zorbe::Log {

constexpr int kPrecision = 12;  // of floating-point numbers in messages

enum Level {
  kFailure = 0,
  kNotable = 1,
  kMilestone = 2,
  kRoutine = 3,
  kStep = 5,
  kItem = 9,
};

/// A stream that writes numbers alike in every process: not as the client's global locale
/// groups their digits.
inline std::ostringstream freshStream() {
  std::ostringstream message;
  message.imbue(std::locale::classic());
  message.precision(kPrecision);
  return message;
}

// Out of line, so that the code of the callers stays compact: most messages are disabled.
template <typename Words>
[[gnu::noinline, gnu::cold]] void compose(Brask::Platform::DebugHandler& handler, int level,
                                          Words words) {
  std::ostringstream message = freshStream();
  words(message);
  handler.emit(message, level);
}

template <typename Words>
void write(Brask::Platform::DebugHandler& handler, int level, Words words) {
  if (handler.isEnabled(level)) compose(handler, level, words);
}

/// Drops a message for which there is no memory instead of throwing. Other exceptions of the
/// handler pass through.
template <typename Words>
void writeNoexcept(Brask::Platform::DebugHandler& handler, int level, Words words) {
  try {
    write(handler, level, words);
  } catch (const std::bad_alloc&) {  // the message is lost
  }
}

/// The whole text. Throws std::bad_alloc when there is no memory for it, where a stream by itself
/// would cut the text short.
template <typename Words>
std::string text(Words words) {
  std::ostringstream message = freshStream();
  message.exceptions(std::ios_base::badbit);
  words(message);
  return message.str();
}

/// A C string that may be null: the stream then fails, since printing null is undefined.
struct CString {
  const char* text;
};

inline std::ostream& operator<<(std::ostream& out, CString string) {
  if (string.text == nullptr) {
    out.setstate(std::ios_base::failbit);
    return out;
  }
  return out << string.text;
}

/// The system's text for an errno value.
inline CString reason(int error) {
  return {std::strerror(error)};
}

/// Throws an `Exception` after logging the same text as a failure.
template <typename Exception>
[[noreturn]] void fail(Brask::Platform::DebugHandler& handler, const std::string& text) {
  write(handler, kFailure, [&](std::ostream& message) { message << text; });
  throw Exception(text);
}

}  // namespace Zorbe::Log

#define ZORBE_LOG(handler, level, words)              \
  ::Zorbe::Log::write((handler), ::Zorbe::Log::level, \
                      [&](std::ostream& zorbeMessage) { zorbeMessage << words; })

#define ZORBE_LOG_NOEXCEPT(handler, level, words)             \
  ::Zorbe::Log::writeNoexcept((handler), ::Zorbe::Log::level, \
                              [&](std::ostream& zorbeMessage) { zorbeMessage << words; })

#define ZORBE_TEXT(words) \
  ::Zorbe::Log::text([&](std::ostream& zorbeMessage) { zorbeMessage << words; })
