// SPDX-License-Identifier: MIT
#include <zorbe/table.h>

#include "table/store.h"

namespace Bench {

namespace {

using Writer = Zorbe::Table::Writer<uint64_t, Record>;
using Reader = Zorbe::Table::Reader<uint64_t, Record>;

Zorbe::Table::Options optionsOf(const std::string& directory, uint64_t records) {
  Zorbe::Table::Options options;
  options.root = directory;
  options.records = static_cast<size_t>(records);
  return options;
}

class TableSource : public Source {
 public:
  explicit TableSource(const std::string& directory) : reader_("bench", optionsOf(directory, 0)) {}

  void getAll(const uint64_t* keys, size_t count) override {
    getEach(keys, count, [this](uint64_t key) {
      const auto found = reader_.get(key);
      if (found) use(*found);
      return found.has_value();
    });
  }

 private:
  Reader reader_;
};

class TableStore : public Store {
 public:
  TableStore(std::string directory, uint64_t records)
      : directory_(std::move(directory)), writer_("bench", optionsOf(directory_, records)) {
    for (uint64_t number = 0; number < records; ++number) {
      writer_.put(keyOf(number), recordOf(number));
    }
    writer_.publish();
  }

  std::string name() const override { return "libZorbe"; }
  std::unique_ptr<Source> open() override { return std::make_unique<TableSource>(directory_); }

  bool put(uint64_t key, const Record& record) override {
    writer_.put(key, record);
    return true;
  }

 private:
  std::string directory_;
  Writer writer_;
};

}  // namespace

std::unique_ptr<Store> makeTable(const std::string& directory, uint64_t records) {
  return std::make_unique<TableStore>(directory, records);
}

}  // namespace Bench
