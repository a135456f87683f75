// SPDX-License-Identifier: MIT
//
// The root of every exception that the library throws.
#pragma once

#include <exception>
#include <string>

#pragma GCC visibility push(default)

namespace Brask {

/// Keeps the text that it was made with. Copyable, as thrown objects must be.
class Exception : public std::exception {
 public:
  /// `text` is what `what()` returns. Only the framework gives the flag a meaning; it is
  /// ignored here.
  Exception(const std::string& text, bool /*flag*/) : text_(text) {}

  /// The text alone. Valid for as long as the exception is.
  const char* what() const noexcept override { return text_.c_str(); }

  /// The qualified name of the class, which each derived class overrides.
  virtual const char* name() const { return "Brask::Exception"; }

  /// Name and text together: `Zorbe::ConnectionException("no writer")`.
  std::string msg() const { return std::string(name()) + "(\"" + text_ + "\")"; }

 private:
  std::string text_;
  std::string detail_;  // the framework's own; kept for its layout
};

}  // namespace Brask

#pragma GCC visibility pop
