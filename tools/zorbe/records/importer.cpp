// SPDX-License-Identifier: MIT
#include "records/importer.h"

#include <zorbe/table/error.h>

#include <cstring>
#include <iostream>

#include "output/text.h"
#include "records/bad_input.h"

namespace Zorbe::Tool {

using Zorbe::Table::Kind;

namespace {

// Enough for every record of the table, each byte of which may be written as six characters, or
// as a number with its comma; and so small that a quotation mark too many costs few rows.
size_t longestRow(const Shape& shape) {
  constexpr size_t kNamesAndBlanks = size_t{64} * 1024;
  constexpr size_t kCharactersOfByte = 16;
  return kNamesAndBlanks +
         kCharactersOfByte * (size_t{shape.schema.keyBytes} + size_t{shape.schema.valueBytes});
}

std::variant<CsvReader, LineReader> readerOf(Format format, size_t longest) {
  if (format == Format::kCsv) return CsvReader(longest);
  return LineReader(longest);
}

std::string bytesOf(const std::vector<uint64_t>& key) {
  return {reinterpret_cast<const char*>(key.data()), key.size() * sizeof(uint64_t)};
}

}  // namespace

Importer::Importer(const Shape& shape, Zorbe::Table::WriterCore& writer, Format format)
    : shape_(shape),
      writer_(writer),
      record_(shape.schema),
      input_(readerOf(format, longestRow(shape))) {}

void Importer::add(std::string_view input) {
  std::visit(
      [&](auto& reader) {
        reader.add(input);
        storeRows(reader);
      },
      input_);
}

void Importer::end() {
  std::visit(
      [&](auto& reader) {
        reader.end();
        storeRows(reader);
      },
      input_);
}

void Importer::storeRows(CsvReader& rows) {
  for (CsvRow row; rows.next(row);) {
    attempt(row.line, [&] { storeRow(row); });
  }
}

void Importer::storeRows(LineReader& lines) {
  for (Line line; lines.next(line);) {
    attempt(line.number, [&] { storeLine(line); });
  }
}

// A row that does not fit, or for which there is no room, stops no other one.
template <class Store>
void Importer::attempt(uint64_t line, Store store) {
  try {
    store();
  } catch (const BadInput& failure) {
    report(line, failure.what());
  } catch (const Zorbe::Table::Error& failure) {
    report(line, printable(failure.what()));
  }
}

void Importer::storeRow(const CsvRow& row) {
  const bool isFirst = std::exchange(isFirst_, false);
  if (!row.error.empty()) throw BadInput(row.error);
  if (isFirst && row.fields == csvNames(shape_)) return;
  readCsvRow(shape_, row.fields, record_);
  apply(Kind::put);
}

void Importer::storeLine(const Line& line) {
  if (line.isTooLong) {
    throw BadInput("the line has more than " + std::to_string(line.text.size()) + " bytes");
  }
  apply(readJsonLine(shape_, line.text, record_));
}

void Importer::apply(Kind kind) {
  switch (kind) {
    case Kind::put:
      writer_.put(record_.key.data(), record_.value.data());
      break;
    case Kind::erased:
      static_cast<void>(writer_.erase(record_.key.data()));
      break;
    case Kind::reset:
      return beginTransfer();
    case Kind::complete:
      return endTransfer();
  }
  if (isTransfer_) missing_.erase(bytesOf(record_.key));
}

void Importer::beginTransfer() {
  isTransfer_ = true;
  missing_.clear();
  std::vector<uint64_t> key(record_.key.size());
  for (uint64_t cursor = 0; writer_.scan(cursor, key.data(), nullptr);) {
    missing_.insert(bytesOf(key));
  }
}

// Without a beginning nothing is known to be missing.
void Importer::endTransfer() {
  isTransfer_ = false;
  for (const std::string& bytes : missing_) {
    std::memcpy(record_.key.data(), bytes.data(), bytes.size());
    static_cast<void>(writer_.erase(record_.key.data()));
  }
  missing_.clear();
}

void Importer::report(uint64_t line, const std::string& what) {
  ++badRows_;
  const std::string text = "zorbe: line " + std::to_string(line) + ": " + what + "\n";
  std::cerr << text;
}

}  // namespace Zorbe::Tool
