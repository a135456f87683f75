// SPDX-License-Identifier: MIT
#include <cxxabi.h>
#include <gtest/gtest.h>
#include <zorbe/exceptions.h>

#include <typeinfo>

namespace Zorbe::Test {
namespace {

// C++ libraries that compare types by their address catch by the base only what has the same.
TEST(ExceptionsOfTheSharedLibraryTest, HaveTheBaseThatTheProgramKnows) {
  for (const std::type_info* const type :
       {&typeid(Brask::RuntimeException), &typeid(Brask::InvalidInitializeException),
        &typeid(ConnectionException), &typeid(CorruptionDetectedException),
        &typeid(DuplicateWriterException)}) {
    const auto* const derived = dynamic_cast<const abi::__si_class_type_info*>(type);
    ASSERT_NE(derived, nullptr) << type->name();
    EXPECT_EQ(derived->__base_type, &typeid(Brask::Exception)) << type->name();
  }
}

}  // namespace
}  // namespace Zorbe::Test
