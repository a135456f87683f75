// SPDX-License-Identifier: MIT
//
// The text form of the example's records.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <quote.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace {

using namespace Quotes;
using testing::ThrowsMessage;

std::string formatted(const Row& row) {
  return formatRow(row.symbol, row.quote);
}

TEST(QuotesRows, AreReadAndWrittenAlike) {
  for (const char* row : {"ABC,10.1250,300", "X,0.0000,0", "S,123456789012.9999,4294967295",
                          "FIFTEEN-LETTERS,1.0000,1"}) {
    EXPECT_EQ(formatted(parseRow(row)), row);
  }
  EXPECT_EQ(formatted(parseRow("A,7,1")), "A,7.0000,1");
  EXPECT_EQ(formatted(parseRow("A,7.5,1")), "A,7.5000,1");
}

TEST(QuotesRows, SayWhatIsWrongWithThem) {
  const std::pair<const char*, const char*> cases[] = {
      {"A,1", "row 'A,1' does not have the three fields symbol,price,size"},
      {"A,1,2,3", "row 'A,1,2,3' does not have the three fields symbol,price,size"},
      {",1,2", "symbol '' does not have 1 to 15 bytes"},
      {"SIXTEEN-LETTERS-,1,2", "symbol 'SIXTEEN-LETTERS-' does not have 1 to 15 bytes"},
      {"A,one,2", "price 'one' is not a decimal number"},
      {"A,-1,2", "price '-1' is not a decimal number"},
      {"A,1.,2", "price '1.' is not a decimal number"},
      {"A,1.23456,2", "price '1.23456' has more than 4 decimals"},
      {"A,1234567890123,2", "price '1234567890123' is too large"},
      {"A,1,2x", "size '2x' is not a whole number"},
      {"A,1,4294967296", "size '4294967296' is too large"}};
  for (const auto& [row, message] : cases) {
    EXPECT_THAT([row = row] { parseRow(row); }, ThrowsMessage<std::invalid_argument>(message));
  }
}

TEST(QuotesRows, OfAnyOrderHaveOneDigest) {
  const Row one = parseRow("A,1,1");
  const Row other = parseRow("B,2,2");
  Digest forwards;
  Digest backwards;
  forwards.add(one.symbol, one.quote);
  EXPECT_NE(forwards.text(), backwards.text());
  backwards.add(other.symbol, other.quote);
  EXPECT_NE(forwards.text(), backwards.text());
  forwards.add(other.symbol, other.quote);
  backwards.add(one.symbol, one.quote);
  EXPECT_EQ(forwards.text(), backwards.text());
}

}  // namespace
