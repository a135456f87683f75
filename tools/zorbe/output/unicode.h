// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace Zorbe::Tool {

/// The length of the well-formed UTF-8 sequence at `position`, 0 when there is none.
std::size_t sequenceAt(std::string_view bytes, std::size_t position);

/// The character of a well-formed sequence.
char32_t decode(const char* bytes, std::size_t length);

/// False for characters that control a terminal, or reorder, hide or separate text.
bool isHarmless(char32_t code);

}  // namespace Zorbe::Tool
