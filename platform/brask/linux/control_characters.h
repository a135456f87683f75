// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace Brask::Linux {

/// `text` as one line that has no effect on a terminal: the control
/// characters (those below 0x20, 0x7f, and U+0080 to U+009F in UTF-8) and the bytes that
/// are not well-formed UTF-8 become \n, \r, \t or \xNN. Everything else stays as it is.
std::string escapeControls(const std::string& text);

}  // namespace Brask::Linux
