// SPDX-License-Identifier: MIT
//
// A table without an event loop, when calls for its thread, its waits and its children fail.
#include "unit/table/table_program.h"

#include "support/sanitized.h"
#include "support/table_errors.h"

#include "fault/fault.h"

#include <pthread.h>

#include <cerrno>
#include <limits>

namespace Zorbe::Test {
namespace {

using Table::ErrorCode;

class TableProgramFaults : public TableProgram {
 protected:
  void expectNoLockInChild() {
    auto writer = std::make_unique<Writer>("t", options);
    const Reader waiting("none", options);  // has no connection to leave
    besideAChild([&] {
      writer.reset();
      EXPECT_NO_THROW(Writer("t", options));
    });
  }

  bool hasConnections(Reader& reader, uint64_t count) {
    return waitUntil(reader, [&] {
      const auto status = reader.status();
      return status && status->connections == count;
    });
  }
};

// Greater than any address space.
class EndlessStacks {
 public:
  EndlessStacks() {
    pthread_attr_t endless;
    EXPECT_EQ(::pthread_getattr_default_np(&before_), 0);
    EXPECT_EQ(::pthread_getattr_default_np(&endless), 0);
    EXPECT_EQ(::pthread_attr_setstacksize(&endless, std::numeric_limits<size_t>::max() / 4 * 3), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&endless), 0);
    EXPECT_EQ(::pthread_attr_destroy(&endless), 0);
  }
  ~EndlessStacks() {
    EXPECT_EQ(::pthread_setattr_default_np(&before_), 0);
    EXPECT_EQ(::pthread_attr_destroy(&before_), 0);
  }
  EndlessStacks(const EndlessStacks&) = delete;
  EndlessStacks& operator=(const EndlessStacks&) = delete;

 private:
  pthread_attr_t before_;
};

TEST_F(TableProgramFaults, AWriterWithoutADescriptorForItsEndIsNone) {
  Fault::arm("eventfd", 1, EMFILE);
  expectError(
      ErrorCode::system,
      "table 't': eventfd() t: Too many open files; raise the limit of descriptors (ulimit -n)",
      [&] { Writer("t", options); });
  EXPECT_NO_THROW(Writer("t", options));
}

TEST_F(TableProgramFaults, AWriterWithoutAThreadIsNone) {
  if (kIsSanitized) GTEST_SKIP() << "the sanitizer has stacks of its own";
  {
    const EndlessStacks stacks;
    expectError(ErrorCode::system,
                "table 't': pthread_create() t: Resource temporarily unavailable",
                [&] { Writer("t", options); });
  }
  EXPECT_NO_THROW(Writer("t", options));
}

TEST_F(TableProgramFaults, AWaitThatFailsIsAnError) {
  Reader reader("t", options);
  Fault::arm("ppoll", 1, ENOMEM);
  expectError(ErrorCode::system, "table 't': ppoll() t: Cannot allocate memory",
              [&] { reader.wait(std::chrono::nanoseconds::max()); });
  Fault::arm("ppoll", 1, EINTR);
  EXPECT_FALSE(reader.wait(std::chrono::nanoseconds::max()));
}

TEST_F(TableProgramFaults, AChildKeepsNoConnectionOfAReader) {
  const Writer writer("t", options);
  auto ended = std::make_unique<Reader>("t", options);
  Reader observer("t", options);
  ASSERT_TRUE(hasConnections(observer, 2));
  besideAChild([&] {
    ended.reset();
    EXPECT_TRUE(hasConnections(observer, 1));
  });
}

TEST_F(TableProgramFaults, AChildWithoutNullDevicesKeepsNoLock) {
  allowUnfiredFaults();  // the child has rules of its own
  Fault::arm("open", 1, ENOENT, Fault::kForever).onPath("/dev/null");
  expectNoLockInChild();
}

TEST_F(TableProgramFaults, AChildWhoseDescriptorsCannotBeReplacedKeepsNoLock) {
  allowUnfiredFaults();
  Fault::arm("dup3", 1, EMFILE, Fault::kForever);
  expectNoLockInChild();
}

}  // namespace
}  // namespace Zorbe::Test
