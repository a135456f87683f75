// SPDX-License-Identifier: MIT
//
// What is on top's screen, as text and escape sequences, and what the keys do to it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "output/fit.h"
#include "top/model.h"
#include "top/terminal.h"

namespace Zorbe::Tool {

class TopScreen {
 public:
  TopScreen(TopModel& model, bool coloured) : model_(model), coloured_(coloured) {}

  /// What a key asks of the program.
  enum class Wish { kNothing, kSample, kQuit };

  /// Bytes as the terminal sends them. The last wish counts, but nothing follows kQuit.
  Wish handleKeys(const std::string& bytes);

  /// The whole screen, from its first line on.
  std::string frame(Terminal::Size size);

 private:
  Wish handleKey(const std::string& key);
  void move(long lines);
  void sortByNext();
  std::vector<const Item*> sorted() const;
  std::string title(std::size_t tables) const;
  Rows tableRows(const std::vector<const Item*>& items) const;
  Rows readerRowsWithRates() const;
  std::vector<std::string> linesOfTables(Terminal::Size size);
  std::vector<std::string> linesOfReaders(Terminal::Size size) const;

  TopModel& model_;
  bool coloured_;
  std::size_t key_ = 0;  // of the names of the sort keys
  bool reverse_ = false;
  std::string selected_;
  std::size_t pageLines_ = 1;
  std::size_t offset_ = 0;  // of the first table that is shown
  std::optional<std::string> inside_;
};

}  // namespace Zorbe::Tool
