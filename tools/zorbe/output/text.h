// SPDX-License-Identifier: MIT
//
// File names, command lines and notes may contain any bytes. These functions make them safe to
// print: on one line, in one column, in a valid encoding.
#pragma once

#include <string>

namespace Zorbe::Tool {

/// `bytes` with everything but printable ASCII as \n, \r, \t or \xNN, and \ as \\. The
/// result cannot move a cursor or end a line.
std::string printable(const std::string& bytes);

/// The printable form of a name as one word: in double quotes when it is empty or contains a
/// blank or a double quote.
std::string word(const std::string& name);

/// A name as one word of a shell's command line, as $'...' where it needs quotes. Safe to paste.
std::string shellWord(const std::string& name);

/// `bytes` as UTF-8; bytes that are not valid UTF-8 become \xNN.
std::string utf8(const std::string& bytes);

/// The text of an errno.
std::string reason(int error);

/// Permission bits as four octal digits.
std::string octal(unsigned mode);

}  // namespace Zorbe::Tool
