// SPDX-License-Identifier: MIT
#pragma once

#include <hiredis/hiredis.h>

#include <cstdint>
#include <string_view>

namespace Zorbe::Relay {

/// What a server has answered; valid during the callback. No type is trusted: an answer of another
/// type than asked for is empty.
class Reply {
 public:
  explicit Reply(const redisReply* reply) : reply_(reply) {}

  bool isError() const { return is(REDIS_REPLY_ERROR); }

  /// A text, a status or the text of an error.
  std::string_view text() const {
    if (!is(REDIS_REPLY_STRING) && !is(REDIS_REPLY_STATUS) && !isError()) return {};
    return {reply_->str, reply_->len};
  }

  int64_t integer() const { return is(REDIS_REPLY_INTEGER) ? reply_->integer : 0; }

  size_t size() const { return is(REDIS_REPLY_ARRAY) ? reply_->elements : 0; }

  /// An element of an array; empty behind its end.
  Reply operator[](size_t index) const {
    return Reply(index < size() ? reply_->element[index] : nullptr);
  }

 private:
  bool is(int type) const { return reply_ != nullptr && reply_->type == type; }

  const redisReply* reply_;
};

}  // namespace Zorbe::Relay
