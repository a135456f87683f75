// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace Zorbe {

/// Appends "'name':" and the counter, which takes one character: its low 8 bits.
inline void appendCounter(std::string& text, const char* name, uint64_t value) {
  text += '\'';
  text += name;
  text += "':";
  text += static_cast<char>(value & 0xff);
}

/// One counter and its name in the printed form.
struct CounterText {
  const char* name;
  uint64_t value;
};

/// `head`, the counters between ", ", and the closing "})".
template <std::size_t count>
std::string counterText(const char* head, const CounterText (&counters)[count]) {
  std::string text;
  text.reserve(1024);
  text += head;
  const char* separator = "";
  for (const CounterText& counter : counters) {
    text += separator;
    appendCounter(text, counter.name, counter.value);
    separator = ", ";
  }
  return text += "})";
}

}  // namespace Zorbe
