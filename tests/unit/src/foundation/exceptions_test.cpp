// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <zorbe/exceptions.h>

#include <exception>
#include <string>
#include <type_traits>

namespace Zorbe::Test {
namespace {

template <class Thrown>
struct Family;

template <>
struct Family<Brask::RuntimeException> {
  static constexpr const char* name = "Brask::RuntimeException";
};
template <>
struct Family<Brask::InvalidInitializeException> {
  static constexpr const char* name = "Brask::InvalidInitializeException";
};
template <>
struct Family<ConnectionException> {
  static constexpr const char* name = "Zorbe::ConnectionException";
};
template <>
struct Family<CorruptionDetectedException> {
  static constexpr const char* name = "Zorbe::CorruptionDetectedException";
};
template <>
struct Family<DuplicateWriterException> {
  static constexpr const char* name = "Zorbe::DuplicateWriterException";
};

template <class Thrown>
Thrown make(const std::string& text) {
  if constexpr (std::is_same_v<Thrown, DuplicateWriterException>) {
    return {text, 7, "/bin/writer", "note"};
  } else {
    return Thrown(text);
  }
}

template <class Thrown>
class ExceptionTest : public testing::Test {};

using Classes =
    testing::Types<Brask::RuntimeException, Brask::InvalidInitializeException, ConnectionException,
                   CorruptionDetectedException, DuplicateWriterException>;
TYPED_TEST_SUITE(ExceptionTest, Classes, );

TYPED_TEST(ExceptionTest, NamesItsClass) {
  EXPECT_STREQ(make<TypeParam>("why").name(), Family<TypeParam>::name);
}

TYPED_TEST(ExceptionTest, WhatIsTheTextAlone) {
  EXPECT_STREQ(make<TypeParam>("why: \"x\"").what(), "why: \"x\"");
  EXPECT_STREQ(make<TypeParam>("").what(), "");
}

TYPED_TEST(ExceptionTest, MsgPutsTheNameAroundTheText) {
  const std::string name = Family<TypeParam>::name;
  EXPECT_EQ(make<TypeParam>("no writer").msg(), name + "(\"no writer\")");
  EXPECT_EQ(make<TypeParam>("").msg(), name + "(\"\")");
}

TYPED_TEST(ExceptionTest, IsCaughtAsItsBase) {
  try {
    throw make<TypeParam>("why");
  } catch (const Brask::Exception& caught) {
    EXPECT_STREQ(caught.name(), Family<TypeParam>::name);
    EXPECT_EQ(caught.msg(), std::string(Family<TypeParam>::name) + "(\"why\")");
  }
}

TYPED_TEST(ExceptionTest, IsCaughtAsAStandardException) {
  try {
    throw make<TypeParam>("why");
  } catch (const std::exception& caught) {
    EXPECT_STREQ(caught.what(), "why");
  }
}

TYPED_TEST(ExceptionTest, IsNotCaughtAsAnyOfItsSiblings) {
  int caughtAs = 0;
  try {
    throw make<TypeParam>("why");
  } catch (const Brask::RuntimeException&) {
    caughtAs = 0;
  } catch (const Brask::InvalidInitializeException&) {
    caughtAs = 1;
  } catch (const ConnectionException&) {
    caughtAs = 2;
  } catch (const CorruptionDetectedException&) {
    caughtAs = 3;
  } catch (const DuplicateWriterException&) {
    caughtAs = 4;
  }
  constexpr bool kOrder[] = {std::is_same_v<TypeParam, Brask::RuntimeException>,
                             std::is_same_v<TypeParam, Brask::InvalidInitializeException>,
                             std::is_same_v<TypeParam, ConnectionException>,
                             std::is_same_v<TypeParam, CorruptionDetectedException>,
                             std::is_same_v<TypeParam, DuplicateWriterException>};
  EXPECT_TRUE(kOrder[caughtAs]);
}

TYPED_TEST(ExceptionTest, CopiesAndAssignsItsText) {
  const TypeParam original = make<TypeParam>("why");
  TypeParam copy = original;
  EXPECT_STREQ(copy.what(), "why");
  copy = make<TypeParam>("other");
  EXPECT_STREQ(copy.what(), "other");
  EXPECT_STREQ(original.what(), "why");
}

TEST(DuplicateWriterExceptionTest, KeepsItsFieldsWhenItIsThrown) {
  try {
    const DuplicateWriterException original("text", 0xfffffffe, "/bin/writer", "Pid 7 was here\n");
    throw original;  // a copy
  } catch (const DuplicateWriterException& caught) {
    EXPECT_EQ(caught.pid, 0xfffffffeu);
    EXPECT_EQ(caught.owner, "/bin/writer");
    EXPECT_EQ(caught.lastOwner, "Pid 7 was here\n");
    EXPECT_STREQ(caught.what(), "text");
  }
}

TEST(BaseExceptionTest, NamesItselfForAnyFlag) {
  EXPECT_STREQ(Brask::Exception("why", false).what(), "why");
  EXPECT_EQ(Brask::Exception("why", true).msg(), "Brask::Exception(\"why\")");
}

}  // namespace
}  // namespace Zorbe::Test
