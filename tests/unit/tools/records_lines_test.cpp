// SPDX-License-Identifier: MIT
#include "records/lines.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace Zorbe::Tool {
namespace {

using testing::ElementsAre;

// All lines of a text that arrives in pieces of that size; "+" follows one that is too long.
std::vector<std::string> linesOf(const std::string& text, size_t piece) {
  LineReader reader(4);
  std::vector<std::string> lines;
  const auto take = [&] {
    for (Line line; reader.next(line);) {
      lines.push_back(std::to_string(line.number) + line.text + (line.isTooLong ? "+" : ""));
    }
  };
  for (size_t at = 0; at < text.size(); at += piece) {
    reader.add(std::string_view(text).substr(at, piece));
    take();
  }
  reader.end();
  take();
  return lines;
}

TEST(LineReader, SplitsAtLineFeedsWhereverThePiecesEnd) {
  const std::string text("ab\n\n\0c\nlast", 11);
  for (size_t piece = 1; piece <= text.size(); ++piece) {
    EXPECT_THAT(linesOf(text, piece), ElementsAre("1ab", "2", std::string("3\0c", 3), "4last"))
        << piece;
  }
}

TEST(LineReader, KeepsTheBeginningOfALineThatIsTooLong) {
  for (size_t piece = 1; piece <= 8; ++piece) {
    EXPECT_THAT(linesOf("12345678\nabcd\nabcde", piece), ElementsAre("11234+", "2abcd", "3abcd+"))
        << piece;
  }
}

TEST(LineReader, AnEmptyInputHasNoLines) {
  EXPECT_TRUE(linesOf("", 1).empty());
  EXPECT_THAT(linesOf("a\n", 1), ElementsAre("1a"));
}

}  // namespace
}  // namespace Zorbe::Tool
