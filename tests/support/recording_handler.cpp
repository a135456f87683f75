// SPDX-License-Identifier: MIT
#include "support/recording_handler.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace Zorbe::Test {

bool operator==(const Message& left, const Message& right) {
  return left.level == right.level && left.text == right.text;
}

void PrintTo(const Message& message, std::ostream* out) {
  *out << "level " << message.level << ": \"" << message.text << '"';
}

bool RecordingHandler::isEnabled(int level) {
  queries_.push_back(level);
  const bool enabled = level <= maxLevel_;
  if (enabled) enabled_.insert(level);
  leaveErrno();
  return enabled;
}

void RecordingHandler::emit(std::ostringstream& message, int level) {
  const auto grant = enabled_.find(level);
  if (grant == enabled_.end()) {
    ADD_FAILURE() << "emitted at level " << level << " without being asked: " << message.str();
  } else {
    enabled_.erase(grant);
  }
  if (outOfMemory_) throw std::bad_alloc();
  if (messagesToThrow_ != 0 && --messagesToThrow_ == 0) throw std::logic_error(message.str());
  precision_ = message.precision();
  messages_.push_back({level, message.str()});
  if (level == 0) failures_.push_back(message.str());
  leaveErrno();
}

std::vector<std::string> RecordingHandler::texts(int level) const {
  std::vector<std::string> found;
  for (const Message& message : messages_) {
    if (message.level == level) found.push_back(message.text);
  }
  return found;
}

std::vector<Message> RecordingHandler::take() {
  return std::exchange(messages_, {});
}

unsigned RecordingHandler::queries(int level) const {
  return static_cast<unsigned>(std::count(queries_.begin(), queries_.end(), level));
}

void RecordingHandler::verifyFailures() const {
  if (announced_ == Announced::kExpected && failures_.empty()) {
    ADD_FAILURE() << "a message of level 0 was announced but never came";
  }
  if (announced_ == Announced::kNone && !failures_.empty()) {
    ADD_FAILURE() << "unannounced messages of level 0: " << testing::PrintToString(failures_);
  }
}

void RecordingHandler::leaveErrno() const {
  if (clobberedErrno_) errno = *clobberedErrno_;
}

}  // namespace Zorbe::Test
