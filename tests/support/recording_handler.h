// SPDX-License-Identifier: MIT
//
// A DebugHandler that keeps the messages, to be compared whole:
//
//     EXPECT_THAT(handler.take(), ElementsAre(Logged(3, "RootPath::cleanup() ...")));
#pragma once

#include <brask/platform.h>
#include <gmock/gmock.h>

#include <ios>
#include <iosfwd>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Zorbe::Test {

struct Message {
  int level;
  std::string text;
};

bool operator==(const Message& left, const Message& right);
void PrintTo(const Message& message, std::ostream* out);

/// Matches a message of this level whose text is, or matches, `text`.
template <class Text>
auto Logged(int level, Text text) {
  return testing::AllOf(testing::Field("level", &Message::level, level),
                        testing::Field("text", &Message::text, text));
}

class RecordingHandler : public Brask::Platform::DebugHandler {
 public:
  static constexpr int kEverything = 9;
  static constexpr int kNothing = -1;

  bool isEnabled(int level) override;

  /// Fails the test unless `isEnabled(level)` was called, and returned true, before.
  void emit(std::ostringstream& message, int level) override;

  /// Messages above this level are disabled; `kEverything` at first.
  void setMaxLevel(int level) { maxLevel_ = level; }

  /// From now on every call sets errno to this, as a client's handler might.
  void clobberErrno(int value) { clobberedErrno_ = value; }

  /// From now on `emit` throws std::bad_alloc.
  void failWithBadAlloc() { outOfMemory_ = true; }

  /// The message of that number from now on, 1 being the next, makes `emit` throw
  /// std::logic_error.
  void throwAt(unsigned message) { messagesToThrow_ = message; }

  const std::vector<Message>& messages() const { return messages_; }
  std::vector<std::string> texts(int level) const;

  /// Returns the messages so far, and clears them.
  std::vector<Message> take();
  void clear() { messages_.clear(); }

  /// How often `isEnabled` was called: at all, and for one level.
  unsigned queries() const { return static_cast<unsigned>(queries_.size()); }
  unsigned queries(int level) const;

  /// The floating-point precision of the last message's stream.
  std::streamsize precision() const { return precision_; }

  /// The test logs at level 0, and fails if it does not.
  void expectFailures() { announced_ = Announced::kExpected; }

  /// The test may log at level 0.
  void allowFailures() { announced_ = Announced::kAllowed; }

  /// Fails the test when messages of level 0 (taken or not) contradict what was announced.
  void verifyFailures() const;

 private:
  enum class Announced { kNone, kAllowed, kExpected };

  void leaveErrno() const;

  int maxLevel_ = kEverything;
  std::optional<int> clobberedErrno_;
  bool outOfMemory_ = false;
  unsigned messagesToThrow_ = 0;
  std::vector<Message> messages_;
  std::vector<std::string> failures_;
  std::vector<int> queries_;
  std::multiset<int> enabled_;
  std::streamsize precision_ = 0;
  Announced announced_ = Announced::kNone;
};

}  // namespace Zorbe::Test
