// SPDX-License-Identifier: MIT
//
// File names, command lines and notes may contain any bytes. These functions make them safe to
// print: on one line, in one column, in a valid encoding.
#pragma once

#include <string>

namespace Zorbe::Tool {

/// `bytes` with everything but printable characters as \n, \r, \t or \xNN, and \ as \\.
/// Characters beyond ASCII are printable in a UTF-8 locale alone, and never those that control,
/// reorder or hide text. The result cannot move a cursor or end a line.
std::string printable(const std::string& bytes);

/// The printable form of a name as one word: in double quotes when it is empty or contains a
/// blank or a double quote.
std::string word(const std::string& name);

/// A name as one word of a shell's command line, as $'...' where it needs quotes. Safe to paste.
std::string shellWord(const std::string& name);

/// `bytes` as UTF-8: bytes that are not valid UTF-8 become \xNN, and \ becomes \\, so that no two
/// texts have the same result.
std::string utf8(const std::string& bytes);

/// The same, and characters that control, reorder or hide text as \r, \t or \xNN, too. Line breaks
/// stay, which the text exposition format of metrics escapes by itself.
std::string labelText(const std::string& bytes);

/// A text in JSON with characters that control, reorder or hide text as \uNNNN: the same value.
std::string withoutHarmful(const std::string& json);

/// The columns of a terminal that a printable text takes.
std::size_t displayWidth(const std::string& text);

/// "1 table", "2 tables", "2 directories".
std::string counted(std::size_t number, const std::string& noun);

/// The text of an errno.
std::string reason(int error);

/// Permission bits as four octal digits.
std::string octal(unsigned mode);

}  // namespace Zorbe::Tool
