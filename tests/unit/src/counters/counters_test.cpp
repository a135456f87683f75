// SPDX-License-Identifier: MIT
#include <zorbe/counters.h>

#include "support/layout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace Zorbe::Test {
namespace {

const std::vector<const char*> readerNames = {
    "occupiedSlots",     "usedLookaside",   "chainRestarts",      "slotResizes",
    "syncerYields",      "syncerSequence",  "conquerRestarts",    "conquerProbes",
    "conquerEmpty",      "conquerEnd",      "conquerKicks",       "conquerTombed",
    "conquerNotified",   "conquerYields",   "conquerConnections", "conquerSequence",
    "keyShadowMismatch", "remountTimeouts", "invalidIterHints",   "shadowWrites",
    "shadowResyncs",     "keyMoves",        "inotifyTriggers"};

const std::vector<const char*> writerNames = {
    "slotAllocs",         "slotDeallocs",    "conquerTombstones", "conquerNotifications",
    "conquerCompactions", "conquerPrunings", "conquerSequence",   "kicksIssued",
    "connectedReaders",   "directWrite",     "directCommit",      "inotifyTriggers"};

// `values` has one character for each name.
std::string printed(const std::string& head, const std::vector<const char*>& names,
                    const std::string& values) {
  std::string text = head;
  for (size_t i = 0; i < names.size(); ++i) {
    text += (i == 0 ? "'" : ", '") + std::string(names[i]) + "':" + values[i];
  }
  return text + "})";
}

std::string printedReader(const std::string& values) {
  return printed("('Zorbe::Reader::Counters', {", readerNames, values);
}

std::string printedWriter(const std::string& values) {
  return printed("('Zorbe::Writer::Counters', ** {", writerNames, values);
}

// Gives each counter the letter of its place in the printed order, and more above the low 8
// bits, which is not printed.
template <class Counters, class... Types>
Counters lettered(Types Counters::*... counters) {
  uint64_t value = 0xfedcba9876543200 | 'a';
  Counters c{};
  ((c.*counters = static_cast<Types>(value++)), ...);
  return c;
}

Reader::Counters letteredReader() {
  using C = Reader::Counters;
  return lettered(
      &C::occupiedSlots, &C::usedLookaside, &C::chainRestarts, &C::slotResizes, &C::syncerYields,
      &C::syncerSequence, &C::conquerRestarts, &C::conquerProbes, &C::conquerEmpty, &C::conquerEnd,
      &C::conquerKicks, &C::conquerTombed, &C::conquerNotified, &C::conquerYields,
      &C::conquerConnections, &C::conquerSequence, &C::keyShadowMismatch, &C::remountTimeouts,
      &C::invalidIterHints, &C::shadowWrites, &C::shadowResyncs, &C::keyMoves, &C::inotifyTriggers);
}

Writer::Counters letteredWriter() {
  using C = Writer::Counters;
  return lettered(&C::slotAllocs, &C::slotDeallocs, &C::conquerTombstones, &C::conquerNotifications,
                  &C::conquerCompactions, &C::conquerPrunings, &C::conquerSequence, &C::kicksIssued,
                  &C::connectedReaders, &C::directWrite, &C::directCommit, &C::inotifyTriggers);
}

TEST(ReaderCountersTest, PrintsEveryCounterInItsPlace) {
  EXPECT_EQ(letteredReader().toString(), printedReader("abcdefghijklmnopqrstuvw"));
}

TEST(ReaderCountersTest, PrintsZerosAsZeroBytes) {
  const Reader::Counters zeros{};
  EXPECT_EQ(zeros.toString(), printedReader(std::string(readerNames.size(), '\0')));
  EXPECT_EQ(zeros.toString().size(), letteredReader().toString().size());
  EXPECT_EQ(zeros.toString().find('\0'), std::string("('Zorbe::Reader::Counters', {"
                                                     "'occupiedSlots':")
                                             .size());
}

TEST(ReaderCountersTest, PrintsTheLowEightBits) {
  Reader::Counters c{};
  const size_t place = c.toString().find('\0');
  for (const uint32_t value : {65u, 0x141u, 0xffffff41u}) {
    c.occupiedSlots = value;
    EXPECT_EQ(c.toString()[place], 'A') << value;
  }
  c.occupiedSlots = 256;
  EXPECT_EQ(c.toString()[place], '\0');
  c.occupiedSlots = 0xe9;
  EXPECT_EQ(c.toString()[place], '\xe9');
}

TEST(ReaderCountersTest, PrintsNoOtherMembers) {
  const Reader::Counters zeros{};
  Reader::Counters c{};
  c.slotProbes = c.lookasideProbes = c.chainSteps = c.tornRecords = 0x41;
  c.conquerOverruns = c.conquerRescans = 0x41;
  EXPECT_EQ(c.toString(), zeros.toString());
}

TEST(WriterCountersTest, PrintsEveryCounterInItsPlace) {
  EXPECT_EQ(letteredWriter().toString(), printedWriter("abcdefghijkl"));
}

TEST(WriterCountersTest, PrintsZerosAsZeroBytes) {
  const Writer::Counters zeros{};
  EXPECT_EQ(zeros.toString(), printedWriter(std::string(writerNames.size(), '\0')));
}

TEST(WriterCountersTest, BeginsWithItsMarkerAndNoComma) {
  EXPECT_THAT(letteredWriter().toString(),
              testing::StartsWith("('Zorbe::Writer::Counters', ** {'slotAllocs':a, 'slot"));
}

TEST(WriterCountersTest, PrintsNoOtherMembers) {
  const Writer::Counters zeros{};
  Writer::Counters c{};
  c.slotReuses = c.conquerOverruns = c.conquerReaderWaits = 0x41;
  EXPECT_EQ(c.toString(), zeros.toString());
}

template <class Counters>
void expectStreamedWhole(const Counters& counters) {
  std::ostringstream out;
  out.width(2000);  // an unformatted write neither pads nor takes the width away
  EXPECT_EQ(&(out << counters), &out);
  EXPECT_EQ(out.str(), counters.toString());
  EXPECT_EQ(out.width(), 2000);
}

TEST(CountersTest, AreStreamedWithTheirZeroBytesAndUnpadded) {
  expectStreamedWhole(Reader::Counters{});
  expectStreamedWhole(letteredReader());
  expectStreamedWhole(Writer::Counters{});
  expectStreamedWhole(letteredWriter());
}

template <class Counters>
void expectPlain() {
  EXPECT_TRUE(std::is_standard_layout_v<Counters>);
  EXPECT_TRUE(std::is_trivial_v<Counters>);
  EXPECT_TRUE(std::is_aggregate_v<Counters>);
}

TEST(CountersTest, ArePlainRecords) {
  expectPlain<Reader::Counters>();
  expectPlain<Writer::Counters>();
}

/// Collects members, which have to come at ascending offsets and be of the type `Value`.
template <class Counters>
class Order {
 public:
  template <class Value>
  void add(Value Counters::*member) {
    EXPECT_GT(offsetOf(member), last_) << "member " << count_;
    last_ = offsetOf(member);
    ++count_;
  }

 private:
  std::ptrdiff_t last_ = -1;
  int count_ = 0;
};

TEST(CountersTest, ReaderDeclaresItsCountersInOrder) {
  using C = Reader::Counters;
  Order<C> order;
  for (const auto member : {&C::occupiedSlots, &C::usedLookaside, &C::slotProbes, &C::slotResizes,
                            &C::chainRestarts, &C::chainSteps, &C::syncerYields}) {
    order.add<uint32_t>(member);
  }
  order.add<uint64_t>(&C::syncerSequence);
  for (const auto member :
       {&C::conquerRestarts, &C::conquerProbes, &C::conquerEmpty, &C::conquerEnd, &C::conquerKicks,
        &C::conquerTombed, &C::conquerNotified, &C::conquerYields, &C::conquerConnections}) {
    order.add<uint32_t>(member);
  }
  order.add<uint64_t>(&C::conquerSequence);
  for (const auto member :
       {&C::conquerOverruns, &C::keyShadowMismatch, &C::invalidIterHints, &C::shadowWrites,
        &C::shadowResyncs, &C::keyMoves, &C::inotifyTriggers, &C::remountTimeouts}) {
    order.add<uint32_t>(member);
  }
}

TEST(CountersTest, WriterDeclaresItsCountersInOrder) {
  using C = Writer::Counters;
  Order<C> order;
  for (const auto member :
       {&C::slotAllocs, &C::slotDeallocs, &C::slotReuses, &C::conquerTombstones,
        &C::conquerNotifications, &C::conquerCompactions, &C::conquerPrunings, &C::conquerSequence,
        &C::conquerOverruns, &C::kicksIssued, &C::connectedReaders, &C::directWrite,
        &C::directCommit, &C::inotifyTriggers}) {
    order.add<uint64_t>(member);
  }
}

}  // namespace
}  // namespace Zorbe::Test
