// SPDX-License-Identifier: MIT
//
// A DebugHandler that keeps what was logged, to be compared whole:
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
  static constexpr int everything = 9;
  static constexpr int nothing = -1;

  bool isEnabled(int level) override;

  /// Fails the test when `isEnabled(level)` was not asked, and answered true, before.
  void emit(std::ostringstream& message, int level) override;

  /// Messages above this level are not wanted; `everything` at first.
  void setMaxLevel(int level) { maxLevel_ = level; }

  /// From now on every call leaves this in errno, as a client's handler might.
  void trashErrno(int value) { trash_ = value; }

  /// From now on `emit` throws std::bad_alloc.
  void beOutOfMemory() { outOfMemory_ = true; }

  const std::vector<Message>& messages() const { return messages_; }
  std::vector<std::string> texts(int level) const;

  /// The messages so far, which are then forgotten.
  std::vector<Message> take();
  void clear() { messages_.clear(); }

  /// How often `isEnabled` was asked: at all, and about one level.
  unsigned asked() const { return static_cast<unsigned>(questions_.size()); }
  unsigned asked(int level) const;

  /// The floating-point precision of the last message's stream.
  std::streamsize precision() const { return precision_; }

  /// The test logs at level 0, and fails if it does not.
  void expectFailures() { announced_ = Announced::expected; }

  /// The test may log at level 0.
  void allowFailures() { announced_ = Announced::allowed; }

  /// Fails the test when messages of level 0 (taken or not) and announcement differ.
  void verifyFailures() const;

 private:
  enum class Announced { none, allowed, expected };

  void leaveErrno() const;

  int maxLevel_ = everything;
  std::optional<int> trash_;
  bool outOfMemory_ = false;
  std::vector<Message> messages_;
  std::vector<std::string> failures_;
  std::vector<int> questions_;
  std::multiset<int> granted_;
  std::streamsize precision_ = 0;
  Announced announced_ = Announced::none;
};

}  // namespace Zorbe::Test
