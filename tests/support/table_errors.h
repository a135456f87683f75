// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/exceptions.h>
#include <zorbe/table/error.h>

#include <gmock/gmock.h>

#include <string>

namespace Zorbe::Test {

/// The text of the exception of a table that `act` throws.
template <class Act>
std::string errorOf(Act act) {
  try {
    act();
  } catch (const Table::Error& error) {
    return error.what();
  } catch (const CorruptionDetectedException& corrupt) {
    return corrupt.what();
  } catch (const DuplicateWriterException& duplicate) {
    return duplicate.what();
  }
  return "nothing was thrown";
}

/// `act` throws a Table::Error of this code, whose text names the table "t" and is `text`.
template <class Act>
void expectErrorText(Table::ErrorCode code, const testing::Matcher<std::string>& text, Act act) {
  try {
    act();
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), code) << error.what();
    EXPECT_EQ(error.table(), "t");
    EXPECT_THAT(error.what(), testing::StartsWith("table 't': "));
    EXPECT_THAT(std::string(error.what()), text);
  }
}

/// The same with a text that contains `part`.
template <class Act>
void expectError(Table::ErrorCode code, const std::string& part, Act act) {
  expectErrorText(code, testing::HasSubstr(part), act);
}

}  // namespace Zorbe::Test
