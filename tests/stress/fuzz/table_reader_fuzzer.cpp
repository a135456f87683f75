// SPDX-License-Identifier: MIT
//
// A reader of files that hold anything: it ends, stays inside of what it has mapped, fills no
// memory, and throws nothing but the two kinds of exceptions that it promises.
#include "stress/fuzz/fuzzer.h"
#include "stress/fuzz/hostile_table.h"
#include "support/table_fixture.h"

namespace Zorbe::Test::Fuzz {
namespace {

constexpr unsigned kMostChanges = 5000;  // of files that no process writes any more
constexpr uint64_t kMostKilobytes = 16;

class Reading {
 public:
  explicit Reading(Input& input) : input_(input) {}

  void run() {
    underAMapping();
    fromTheStart();
  }

 private:
  // The words change under a follower that has read everything before.
  void underAMapping() {
    table().restoreEarlier();
    const auto reader = table().openReader();
    Table::Follower follower(*reader);
    EXPECT_LT(drain(follower), kMostChanges);
    table().advance();
    table().damage(input_, HostileTable::Damage::kWords);
    allowErrors([&] { EXPECT_LT(drain(follower), kMostChanges); });
    allowErrors([&] { lookUp(*reader); });
    allowErrors([&] { lookUp(*reader->clone()); });
  }

  void fromTheStart() {
    table().restoreLater();
    table().damage(input_, HostileTable::Damage::kAnything);
    const uint64_t before = table().kilobytes();
    allowErrors([&] {
      const auto reader = table().openReader();
      if (!reader || reader->schema().keyBytes != 8) return;  // a client would refuse it
      if (reader->schema().valueBytes != kValueBytes) return;
      lookUp(*reader);
      Table::Follower follower(*reader);
      EXPECT_LT(drain(follower), kMostChanges);
    });
    EXPECT_LT(table().kilobytes(), before + kMostKilobytes) << "holes were filled by reading";
  }

  static unsigned drain(Table::Follower& follower) {
    unsigned changes = 0;
    uint64_t key = 0;
    for (Value value; changes < kMostChanges && follower.next(&key, &value);) ++changes;
    return changes;
  }

  static void lookUp(Table::TableReader& reader) {
    Value value;
    for (uint64_t key = 0; key <= HostileTable::kKeys; ++key) {
      static_cast<void>(reader.get(&key, &value));
      const auto slot = reader.find(&key);
      if (slot) static_cast<void>(reader.read(*slot, &key, &value));
    }
    static_cast<void>(reader.capacity());
    static_cast<void>(reader.isInPlace());
  }

  Input& input_;
};

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER_OF(Reading)
