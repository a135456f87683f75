// SPDX-License-Identifier: MIT
#pragma once

#include "support/record.h"

#include "support/fixture.h"

#include <zorbe/table.h>

#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace Zorbe::Test {

/// A handle that is closed at the end.
class CTable : private NonCopyable {
 public:
  CTable() = default;
  ~CTable() { close(); }

  operator zorbe_table*() const { return table_; }
  zorbe_table** out() {
    close();
    return &table_;
  }
  void close() {
    zorbe_close(table_);
    table_ = nullptr;
  }

 private:
  zorbe_table* table_ = nullptr;
};

/// Tables in C, with uint32_t keys and Record values unless a test says otherwise.
class CInterface : public ZorbeTest {
 protected:
  CInterface() {
    options.root = rootPath().c_str();
    options.log = [](void*, int, const char*) {};
    options.log_level = -1;
  }

  static std::vector<zorbe_field> recordFields() {
    return {{"key", ZORBE_KEY, 'u', 4, 0, 0},
            {"a", ZORBE_VALUE, 'i', 8, 0, 0},
            {"b", ZORBE_VALUE, 'i', 4, 0, 8}};
  }

  int openWriter(CTable& table, const std::vector<zorbe_field>& fields) {
    return zorbe_writer_open(table.out(), "t", fields.data(), fields.size(), &options);
  }
  int openWriter(CTable& table) {
    options.value_bytes = sizeof(Record);
    return openWriter(table, recordFields());
  }
  int openReader(CTable& table) { return zorbe_reader_open(table.out(), "t", &options); }

  static int put(zorbe_table* table, uint32_t key, int64_t a) {
    const Record record{a, 7};
    return zorbe_put(table, &key, sizeof key, &record, sizeof record);
  }
  static int erase(zorbe_table* table, uint32_t key) {
    return zorbe_erase(table, &key, sizeof key);
  }
  static int get(zorbe_table* table, uint32_t key, Record& record) {
    return zorbe_get(table, &key, sizeof key, &record, sizeof record);
  }
  /// The value of a key, or a negative result of zorbe_get().
  static int64_t valueOf(zorbe_table* table, uint32_t key) {
    Record record{};
    const int result = get(table, key, record);
    return result == 0 ? record.a : -result;
  }

  static constexpr int64_t kDeadline = 20'000'000'000;  // nanoseconds

  /// The next change, for which it waits.
  static int nextOf(zorbe_table* table, zorbe_change& change) {
    const int waited = zorbe_wait(table, kDeadline);
    return waited == 0 ? zorbe_next(table, &change) : waited;
  }

  /// As expected: a failing call with this code, and a text with this in it.
  // By reference: opening may have replaced the handle.
  static void expectFailure(const CTable& table, int result, int code, std::string_view part) {
    EXPECT_EQ(result, code) << zorbe_error_text(table);
    EXPECT_EQ(zorbe_error(table), code);
    EXPECT_NE(std::string_view(zorbe_error_text(table)).find(part), std::string_view::npos)
        << zorbe_error_text(table);
  }

  zorbe_options options = ZORBE_OPTIONS_INIT;
};

}  // namespace Zorbe::Test
