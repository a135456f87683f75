// SPDX-License-Identifier: MIT
#include "commands/reader_rows.h"

#include <pwd.h>

#include "output/text.h"
#include "output/time.h"

namespace Zorbe::Tool {

namespace {

Cell number(const std::optional<uint64_t>& value) {
  return {value ? std::to_string(*value) : "-", Tone::kPlain, true};
}

Cell processCell(const ReaderRow& row) {
  if (!row.stopped) return {"hidden"};
  return *row.stopped ? Cell{"stopped", Tone::kBad} : Cell{"running"};
}

std::vector<Cell> cells(const ReaderRow& row) {
  return {{row.pid ? std::to_string(*row.pid) : "-", Tone::kPlain, true},
          {row.uid ? printable(userName(*row.uid)) : "-"},
          {word(row.state), row.state == ReaderState::kBehind ? Tone::kWarning : Tone::kPlain},
          number(row.reported),
          number(row.lagRecords),
          {row.sinceSeconds ? duration(*row.sinceSeconds) : "-", Tone::kPlain, true},
          processCell(row),
          {row.executable.empty() ? "-" : word(row.executable)}};
}

}  // namespace

std::string userName(uid_t uid) {
  const passwd* const user = getpwuid(uid);
  return user == nullptr ? std::to_string(uid) : user->pw_name;
}

Rows readerRows(const ReaderList& list) {
  const auto title = [](const char* text, bool isNumber = false) {
    return Cell{text, Tone::kHeading, isNumber};
  };
  Rows rows{{title("PID", true), title("USER"), title("STATE"), title("REPORTED", true),
             title("LAG", true), title("SINCE", true), title("PROCESS"), title("EXECUTABLE")}};
  for (const ReaderRow& row : list.rows) rows.push_back(cells(row));
  return rows;
}

}  // namespace Zorbe::Tool
