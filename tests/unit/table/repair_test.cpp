// SPDX-License-Identifier: MIT
//
// The words of the header that a writer stores again when another process has overwritten them.
#include "unit/table/damage.h"

#include "support/table_fixture.h"

namespace Zorbe::Test {
namespace {

using Table::Prologue;
using Table::SlotsHeader;

TEST_F(TableTest, EachWordOfTheHeaderThatAWriterKnowsIsStoredAgain) {
  options.maxRecords = 50;
  options.firstSequence = 70;
  const auto table = openWriter();
  put(*table, 1, 10);
  table->publish();
  for (const size_t offset :
       {offsetof(Prologue, magic), offsetof(Prologue, byteOrder), offsetof(Prologue, version),
        offsetof(Prologue, incarnation), offsetof(Prologue, bootLow), offsetof(Prologue, bootHigh),
        offsetof(SlotsHeader, keyBytes), offsetof(SlotsHeader, valueBytes),
        offsetof(SlotsHeader, maxRecords), offsetof(SlotsHeader, descriptionBytes),
        offsetof(SlotsHeader, published), offsetof(SlotsHeader, indexGeneration),
        offsetof(SlotsHeader, logGeneration), offsetof(SlotsHeader, capacity),
        offsetof(SlotsHeader, retired)}) {
    const uint64_t before = overwriteWord(path("slots"), offset, 0x1234);
    table->repairHeaders();
    EXPECT_EQ(overwriteWord(path("slots"), offset, before), before) << offset;
  }
  EXPECT_EQ(get(*openReader(), 1), 10u);
}

}  // namespace
}  // namespace Zorbe::Test
