// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "commands/record_commands.h"
#include "output/columns.h"
#include "output/text.h"
#include "records/row.h"
#include "records/source.h"

namespace Zorbe::Tool {

namespace {

// Calls `use` with each record of the table, in the order of its slots.
template <class Use>
void forEachRecord(Zorbe::Table::TableReader& reader, Record& record, Use use) {
  Zorbe::Table::RecordOut out{record.key.data(), record.value.data(), reader.valueBytes()};
  for (uint32_t slot = 0; reader.readSlot(slot, out); ++slot) {
    if (out.state == Zorbe::Table::kLive) use();
  }
}

std::vector<Record> sortedRecords(Zorbe::Table::TableReader& reader, const Shape& shape) {
  std::vector<Record> records;
  Record record(shape.schema);
  forEachRecord(reader, record, [&] { records.push_back(record); });
  std::sort(records.begin(), records.end(),
            [&](const Record& a, const Record& b) { return isKeyLess(shape, a, b); });
  return records;
}

// Writes rows as they come.
class RowWriter {
 public:
  RowWriter(const Shape& shape, bool json, bool csv) : shape_(shape), json_(json), csv_(csv) {
    if (json_) return;
    appendRow(csvNames(shape_));
  }

  void add(const Record& record) {
    if (json_) {
      appendJsonLine(text_, shape_, Zorbe::Table::Kind::put, record);
    } else {
      appendRow(elementsOf(shape_, record));
    }
    if (text_.size() >= kBlock) flush();
  }

  void flush() {
    std::cout.write(text_.data(), static_cast<std::streamsize>(text_.size()));
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
    text_.clear();
  }

 private:
  static constexpr size_t kBlock = size_t{64} * 1024;

  void appendRow(const std::vector<std::string>& texts) {
    if (csv_) return appendCsvLine(text_, texts);
    const char* separator = "";
    for (const std::string& text : texts) {
      text_ += separator + word(text);
      separator = "  ";
    }
    text_ += '\n';
  }

  const Shape& shape_;
  bool json_;
  bool csv_;
  std::string text_;
};

std::vector<Cell> rowOf(const Shape& shape, const std::vector<std::string>& texts, Tone tone) {
  std::vector<Cell> cells;
  size_t next = 0;
  for (const Column& column : shape.columns) {
    const bool isNumber = column.type == 'i' || column.type == 'u' || column.type == 'f';
    for (uint32_t element = 0; element < column.elements(); ++element) {
      cells.push_back({word(texts[next++]), tone, isNumber});
    }
  }
  return cells;
}

void printAligned(const std::vector<Record>& records, const Shape& shape, bool coloured) {
  Columns columns;
  columns.add(rowOf(shape, csvNames(shape), Tone::kHeading));
  for (const Record& record : records) {
    columns.add(rowOf(shape, elementsOf(shape, record), Tone::kPlain));
  }
  columns.print(std::cout, coloured);
}

}  // namespace

int dump(Context& context, const DumpOptions& options) {
  const Source source = openSource(context.handler, options.table);
  if (!source.reader) {
    std::cerr << "zorbe: " + source.problem + "\n";
    return kNo;
  }
  const Shape shape = shapeOf(source.reader->schema());
  const bool isText = !context.json && !options.csv;
  if (isText && options.sorted) {
    printAligned(sortedRecords(*source.reader, shape), shape, context.coloured);
    return kYes;
  }
  RowWriter rows(shape, context.json, options.csv);
  if (options.sorted) {
    for (const Record& record : sortedRecords(*source.reader, shape)) rows.add(record);
  } else {
    Record record(shape.schema);
    forEachRecord(*source.reader, record, [&] { rows.add(record); });
  }
  rows.flush();
  return kYes;
}

}  // namespace Zorbe::Tool
