// SPDX-License-Identifier: MIT
//
// File names, command lines and notes are whatever somebody made them: here they become
// text that stays on its line, in its column and in its encoding.
#pragma once

#include <string>

namespace Zorbe::Tool {

/// `bytes` with everything but printable ASCII as \n, \r, \t or \xNN, and \ as \\. Nothing in
/// it can move a cursor or end a line.
std::string printable(const std::string& bytes);

/// The printable form of a name, in double quotes when it is empty or has a blank or a double
/// quote in it, so that it is always one word.
std::string word(const std::string& name);

/// A name as one word of a shell's command line, whatever is in it, as $'...' where that takes
/// quotes. Safe to paste.
std::string shellWord(const std::string& name);

/// `bytes` as UTF-8: those that are none become \xNN.
std::string utf8(const std::string& bytes);

/// The text of an errno.
std::string reason(int error);

/// Permission bits as four octal digits.
std::string octal(unsigned mode);

}  // namespace Zorbe::Tool
