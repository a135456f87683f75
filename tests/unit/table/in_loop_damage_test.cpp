// SPDX-License-Identifier: MIT
//
// A writer and its readers while somebody damages what they share: neither ends, neither spins,
// and both recover when it is over.
#include "unit/table/damage.h"
#include "unit/table/in_loop_fixture.h"

#include "support/raw_peer.h"

#include "memory/layout.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <ostream>

namespace Zorbe::Test {
namespace {

using Table::Prologue;
using Table::SlotsHeader;

class InLoopDamage : public InLoop {
 protected:
  InLoopDamage() { handler.allowFailures(); }

  // Like drain(), but the reader may report what it has found.
  void drainDamaged(Reader& reader) {
    try {
      drain(reader);
    } catch (const CorruptionDetectedException& failure) {
      reports.emplace_back(failure.what());
    } catch (const Table::Error& failure) {
      reports.emplace_back(failure.what());
    }
  }

  uint64_t wordAt(uint64_t offset) const {
    uint64_t word = 0;
    const int fd = ::open(slots().c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(::pread(fd, &word, sizeof word, static_cast<off_t>(offset)), ssize_t{sizeof word});
    EXPECT_EQ(::close(fd), 0);
    return word;
  }

  std::string slots() const { return inRoot("t/slots"); }

  // A loop whose work is never done turns thousands of times meanwhile.
  void expectNoSpinning(Reader& reader) {
    unsigned turns = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(600);
    for (; std::chrono::steady_clock::now() < end; ++turns) {
      drainDamaged(reader);
      loop.turn(0.05);
    }
    EXPECT_LT(turns, 200u);
  }

  std::vector<std::string> reports;
};

struct Damage {
  const char* name;
  uint64_t offset;
  uint64_t word;
};

// Otherwise the test's full name has the bytes of the parameter, which differ between runs.
void PrintTo(const Damage& damage, std::ostream* out) {
  *out << damage.name;
}

class LiveHeader : public InLoopDamage, public testing::WithParamInterface<Damage> {};

TEST_P(LiveHeader, IsStoredAgainAndBothGoOn) {
  Writer writer("t", options);
  for (uint32_t key = 0; key < 10; ++key) writer.put(key, {key, 0});
  writer.publish();
  Reader reader("t", options);
  ASSERT_TRUE(sees(reader, 9, 9));
  ASSERT_TRUE(becomes(reader, State::connected));
  const uint64_t before = overwriteWord(slots(), GetParam().offset, GetParam().word);
  Reader late("t", options);
  EXPECT_EQ(reader.get(5)->a, 5);
  unsigned turns = 0;
  ASSERT_TRUE(turnUntil([&] {
    ++turns;
    drainDamaged(reader);
    drainDamaged(late);
    return wordAt(GetParam().offset) == before;
  }));
  EXPECT_LT(turns, 200u);
  writer.put(1, {11, 0});
  writer.publish();
  const auto isDone = [&](Reader& who) {
    drainDamaged(who);
    return who.get(1) && who.get(1)->a == 11 && who.state() == State::connected;
  };
  EXPECT_TRUE(turnUntil([&] { return isDone(reader) && isDone(late); }));
  writer.put(2, {22, 0});
  EXPECT_TRUE(sees(reader, 2, 22));
  EXPECT_EQ(copy.size(), 10u);
  EXPECT_EQ(reader.size(), 10u);
}

constexpr Damage kDamages[] = {
    {"CapacityZero", offsetof(SlotsHeader, capacity), 0},
    {"CapacityTooLarge", offsetof(SlotsHeader, capacity), 1u << 30},
    {"PublishedTooHigh", offsetof(SlotsHeader, published), uint64_t{1} << 63},
    {"PublishedZero", offsetof(SlotsHeader, published), 0},
    {"Retired", offsetof(SlotsHeader, retired), 1},
    {"Magic", offsetof(Prologue, magic), 1},
    {"NoMagic", offsetof(Prologue, magic), 0},
    {"Version", offsetof(Prologue, version), 2},
    {"ByteOrder", offsetof(Prologue, byteOrder), 0x0807060504030201},
    {"Incarnation", offsetof(Prologue, incarnation), 7},
    {"Boot", offsetof(Prologue, bootLow), 7},
    {"IndexGeneration", offsetof(SlotsHeader, indexGeneration), ~uint64_t{0}},
    {"LogGeneration", offsetof(SlotsHeader, logGeneration), ~uint64_t{0}},
    {"KeyBytes", offsetof(SlotsHeader, keyBytes), 0},
    {"Description", offsetof(SlotsHeader, descriptionBytes), 1},
};

INSTANTIATE_TEST_SUITE_P(Each, LiveHeader, testing::ValuesIn(kDamages),
                         [](const auto& damage) { return damage.param.name; });

TEST_F(InLoopDamage, ConnectionsThatComeAndGoDoNotPutOffTheRepair) {
  const Writer writer("t", options);
  const uint64_t offset = offsetof(SlotsHeader, retired);
  overwriteWord(slots(), offset, 1);
  EXPECT_TRUE(turnUntil([&] {
    static_cast<void>(RawPeer::connect(inRoot("t")));
    return wordAt(offset) == 0;
  }));
}

TEST_F(InLoopDamage, AnEntryOfTheLogThatNamesNoSlotIsReportedOnce) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  ASSERT_TRUE(sees(reader, 1, 10));
  writer.put(1, {11, 0});
  overwriteWord(inRoot("t/conquer.1"), Table::kLogEntries + 2 * 8, Table::packEntry(2, 1'000'000));
  writer.publish();
  expectNoSpinning(reader);
  EXPECT_THAT(reports,
              testing::ElementsAre(testing::HasSubstr("the change log names slot 1000000")));
  EXPECT_TRUE(sees(reader, 1, 11));
  writer.put(1, {12, 0});
  overwriteWord(inRoot("t/conquer.1"), Table::kLogEntries + 3 * 8, Table::packEntry(3, 1'000'000));
  writer.publish();
  expectNoSpinning(reader);
  EXPECT_EQ(reports.size(), 1u) << "it was reported before";
  EXPECT_TRUE(sees(reader, 1, 12));
}

TEST_F(InLoopDamage, AnOriginThatThereIsNotIsThisHost) {
  const Writer writer("t", options);
  const Reader reader("t", options);
  overwriteWord(slots(), offsetof(SlotsHeader, origin), 3);
  EXPECT_EQ(reader.info().origin, Table::Origin::local);
}

// Without a writer nobody stores it again.
TEST_F(InLoopDamage, AnOrphanOfADamagedTableKeepsWhatItHasAndDoesNotSpin) {
  std::make_unique<Writer>("t", options)->put(1, {10, 0});
  Reader reader("t", options);
  ASSERT_TRUE(sees(reader, 1, 10));
  for (const Damage& damage : kDamages) {
    SCOPED_TRACE(damage.name);
    const uint64_t before = overwriteWord(slots(), damage.offset, damage.word);
    drainDamaged(reader);
    EXPECT_EQ(reader.get(1)->a, 10);
    overwriteWord(slots(), damage.offset, before);
  }
  overwriteWord(slots(), offsetof(SlotsHeader, logGeneration), 77);
  overwriteWord(slots(), offsetof(SlotsHeader, published), 77);
  expectNoSpinning(reader);
  EXPECT_EQ(reader.get(1)->a, 10);
  Writer writer("t", options);
  writer.put(2, {20, 0});
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(copy[1], 10);
}

TEST_F(InLoopDamage, AnIndexThatSomebodyRemovesIsMadeAgain) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  ASSERT_EQ(::unlink(inRoot("t/buckets").c_str()), 0);
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
}

TEST_F(InLoopDamage, ADirectoryThatCannotBeMadeAgainForAWhileIsSurvived) {
  Clients clients(*this, "a/t");
  auto& [writer, reader, incarnation] = clients;
  std::filesystem::remove_all(inRoot("a"));
  ASSERT_EQ(::close(::creat(inRoot("a").c_str(), 0644)), 0);
  expectNoSpinning(reader);
  for (uint32_t key = 0; key < 20; ++key) writer.put(key, {key, 1});
  EXPECT_EQ(reader.get(5)->a, 5);
  ASSERT_EQ(::unlink(inRoot("a").c_str()), 0);
  EXPECT_TRUE(leaves(reader, incarnation));
  EXPECT_TRUE(sees(reader, 19, 19));
  EXPECT_EQ(copy.size(), 20u);
  size_t messages = 0;
  for (const std::string& text : handler.texts(0)) {
    messages += text.find("WriterCore::keep()") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(messages, 1u);
}

TEST_F(InLoopDamage, FilesThatSomebodyPutsInPlaceAreReplaced) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  ASSERT_TRUE(sees(reader, 1, 10));
  constexpr mode_t kTypes[] = {S_IFREG, S_IFIFO};
  for (const mode_t type : kTypes) {
    const uint64_t incarnation = reader.info().incarnation;
    ASSERT_EQ(::unlink(slots().c_str()), 0);
    ASSERT_EQ(::mknod(slots().c_str(), type | 0644, 0), 0);
    EXPECT_EQ(reader.get(1)->a, 10);
    EXPECT_TRUE(turnUntil([&] {
      drainDamaged(reader);
      return reader.info().incarnation != incarnation;
    }));
    EXPECT_TRUE(sees(reader, 1, 10));
  }
}

// As it is with a writer that is stopped, or that has no descriptors left.
TEST_F(InLoopDamage, AReaderDoesNotWaitForAWriterThatAcceptsNobody) {
  std::make_unique<Writer>("t", options)->put(1, {10, 0});
  RawPeer deaf = RawPeer::listen(inRoot("t"), 0);
  ASSERT_TRUE(deaf.isOpen());
  std::vector<RawPeer> pending;
  do {
    pending.push_back(RawPeer::connect(inRoot("t")));
  } while (pending.back().isOpen());
  Reader reader("t", options);
  EXPECT_EQ(reader.state(), State::orphaned);
  EXPECT_EQ(reader.get(1)->a, 10);
  expectNoSpinning(reader);
  EXPECT_EQ(reader.state(), State::orphaned);
  pending.clear();
  deaf.close();
  Writer writer("t", options);
  writer.put(2, {20, 0});
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_TRUE(becomes(reader, State::connected));
}

}  // namespace
}  // namespace Zorbe::Test
