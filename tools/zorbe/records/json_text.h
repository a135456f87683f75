// SPDX-License-Identifier: MIT
//
// JSON as rows need it: objects without objects in them, whose texts may be any bytes. A byte that
// is no part of valid UTF-8 stands there as a surrogate without its other half, U+DC80 to U+DCFF,
// which general JSON libraries neither write nor read. Numbers keep their digits.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Zorbe::Tool {

/// Appends a text in quotes. Characters that act on a terminal are escaped.
void appendJsonText(std::string& out, std::string_view bytes);

struct JsonScalar {
  enum class Kind { kText, kNumber, kBoolean };
  Kind kind;
  std::string text;  ///< of a number its digits; "true" or "false"
};

struct JsonMember {
  std::string name;
  bool isArray = false;
  std::vector<JsonScalar> values;  ///< one, unless it is an array
};

/// The members of an object, in their order. Throws BadInput for what is not valid JSON, and for
/// null, objects and arrays in arrays, which no column can hold.
std::vector<JsonMember> parseJsonRow(std::string_view line);

}  // namespace Zorbe::Tool
