// SPDX-License-Identifier: MIT
#include "stress/fuzz/fuzzer.h"

#include <poll.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace Zorbe::Test::Fuzz {

Case::Case() : before_(open()) {}

Case::~Case() {
  Fault::reset();
  EXPECT_EQ(before_, open()) << "descriptors were left open, or closed that are not the input's";
}

// Asks about all with one call.
Case::Descriptors Case::open() {
  const Fault::Bypass bypass;
  std::array<pollfd, Descriptors().size()> entries;
  for (size_t fd = 0; fd < entries.size(); ++fd) entries[fd] = {static_cast<int>(fd), 0, 0};
  EXPECT_GE(::poll(entries.data(), entries.size(), 0), 0);
  Descriptors found;
  for (size_t fd = 0; fd < entries.size(); ++fd) {
    found[fd] = (entries[fd].revents & POLLNVAL) == 0;
  }
  return found;
}

// libFuzzer counts an aborted process as a finding.
class AbortOnFailure : public testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.failed()) std::abort();
  }
};

}  // namespace Zorbe::Test::Fuzz

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  testing::InitGoogleTest(argc, *argv);
  auto listener = std::make_unique<Zorbe::Test::Fuzz::AbortOnFailure>();
  testing::UnitTest::GetInstance()->listeners().Append(listener.release());
  return 0;
}
