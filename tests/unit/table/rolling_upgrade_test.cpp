// SPDX-License-Identifier: MIT
//
// Writers and readers of different versions of a record, as they meet during an upgrade.
#include <zorbe/table.h>

#include "support/fixture.h"
#include "support/timeout.h"

#include "unit/table/record.h"

#include <vector>

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;
using Table::Kind;
using testing::ElementsAre;

class RollingUpgrade : public ZorbeTest {
 protected:
  RollingUpgrade() {
    options.root = rootPath();
    options.log = &quiet_;
  }

  /// What comes up to the next `complete`.
  template <class Reader>
  std::vector<Kind> kindsUntilComplete(Reader& reader) {
    std::vector<Kind> kinds;
    const auto end = std::chrono::steady_clock::now() + kTimeout;
    while (std::chrono::steady_clock::now() < end) {
      reader.wait(50ms);
      while (const auto change = reader.next()) {
        kinds.push_back(change->kind);
        if (change->kind == Kind::complete) return kinds;
      }
    }
    return kinds;
  }

  Table::Options options;

 private:
  /// Called by the threads of writers, too.
  class Quiet : public Brask::Platform::DebugHandler {
   public:
    bool isEnabled(int) override { return false; }
    void emit(std::ostringstream&, int) override {}
  };

  Quiet quiet_;
};

TEST_F(RollingUpgrade, AReaderOfTheOldRecordFollowsTheWriterOfTheNewOne) {
  auto old = std::make_unique<Table::Writer<uint32_t, Record>>("t", options);
  old->put(1, {10, 11});
  Table::Reader<uint32_t, Record> reader("t", options);
  EXPECT_THAT(kindsUntilComplete(reader), ElementsAre(Kind::reset, Kind::put, Kind::complete));
  old.reset();

  using NewWriter = Table::Writer<uint32_t, LargerRecord>;
  EXPECT_THROW(NewWriter("t", options), Table::Error);
  EXPECT_EQ(reader.get(1)->a, 10) << "a writer that is refused changes nothing";
  options.replaceOtherSchema = true;
  NewWriter writer("t", options);
  EXPECT_EQ(writer.size(), 0u);
  writer.put(2, {20, 21, 22});
  const auto end = std::chrono::steady_clock::now() + kTimeout;
  while (!reader.contains(2) && std::chrono::steady_clock::now() < end) {
    kindsUntilComplete(reader);
  }
  EXPECT_EQ(reader.get(2)->a, 20);
  EXPECT_EQ(reader.get(2)->b, 21);
  EXPECT_FALSE(reader.contains(1)) << "the new writer begins with an empty table";
}

TEST_F(RollingUpgrade, AReaderOfTheNewRecordIsRefusedUntilTheWriterFollows) {
  auto old = std::make_unique<Table::Writer<uint32_t, Record>>("t", options);
  Table::Reader<uint32_t, LargerRecord> reader("t", options);
  EXPECT_EQ(reader.state(), Table::State::refused);
  EXPECT_THROW(reader.next(), Table::Error);
  old.reset();
  options.replaceOtherSchema = true;
  Table::Writer<uint32_t, LargerRecord> writer("t", options);
  writer.put(1, {10, 11, 12});
  const auto end = std::chrono::steady_clock::now() + kTimeout;
  while (!reader.contains(1) && std::chrono::steady_clock::now() < end) {
    kindsUntilComplete(reader);
  }
  EXPECT_EQ(reader.get(1)->c, 12);
}

}  // namespace
}  // namespace Zorbe::Test
