// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Zorbe::Tool {

/// What a user wrote cannot be stored: a row, a key, a column. The text says why, and is
/// printable.
class BadInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The beginning of a text, in quotes, for a message.
std::string quoted(std::string_view text);

}  // namespace Zorbe::Tool
