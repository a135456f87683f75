// SPDX-License-Identifier: MIT
//
// A disk that is full or read-only. Each test runs in a child with its own mount namespace.
#include <sched.h>
#include <sys/mount.h>
#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>

#include <fstream>
#include <utility>

#include "stress/sweep/exhaustion_fixture.h"
#include "support/child_process.h"

namespace Zorbe::Test {

namespace {

/// A small file system at `path`, in a new mount namespace of this process.
class SmallDisk {
 public:
  explicit SmallDisk(std::string path) : path_(std::move(path)) {}

  /// False when this process lacks the rights.
  bool mount(const char* options) const {
    return ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", path_.c_str(), "tmpfs", 0, options) == 0;
  }
  bool makeReadOnly() const { return remount(MS_REMOUNT | MS_RDONLY); }
  bool makeWritable() const { return remount(MS_REMOUNT); }

 private:
  bool remount(unsigned long flags) const {
    return ::mount("none", path_.c_str(), "tmpfs", flags, nullptr) == 0;
  }

  std::string path_;
};

class ExhaustedDiskTest : public ExhaustionTest {
 protected:
  /// Runs `body` in a child that has a disk with these options at $SHMEM_ROOT.
  void onDisk(const char* options, const std::function<void()>& body) {
    const SmallDisk disk(rootPath());
    const std::string result = resultInChild([&]() -> std::string {
      if (!disk.mount(options)) return "skip";
      body();
      return "done";
    });
    if (result == "skip") GTEST_SKIP() << "only root can mount a file system";
    EXPECT_EQ("done", result);
  }

  void fill() const {
    std::ofstream filler(inRoot("filler"));
    while (filler << std::string(4096, 'x') << std::flush) {
    }
  }
  void relieve() const { EXPECT_EQ(0, ::unlink(inRoot("filler").c_str())); }
};

TEST_F(ExhaustedDiskTest, AFileThatAFullDiskHasNoRoomForIsFoundOutWhenItIsRead) {
  onDisk("size=64k", [this] {
    const RootPath onDisk(handler, "quotes", true);
    fill();
    FenixFile::write(handler, onDisk.path, 7);
    EXPECT_THROW(FenixFile::validate(handler, onDisk.path, 7), CorruptionDetectedException);
    relieve();
    FenixFile::write(handler, onDisk.path, 7);
    EXPECT_TRUE(FenixFile::validate(handler, onDisk.path, 7));
  });
}

TEST_F(ExhaustedDiskTest, AFullDiskKeepsNoProcessFromBecomingTheWriter) {
  onDisk("size=64k", [this] {
    const RootPath onDisk(handler, "quotes", true);
    fill();
    const int lock = Util::acquireWriterLock(handler, onDisk);
    EXPECT_THROW(Util::acquireWriterLock(handler, onDisk), DuplicateWriterException);
    EXPECT_EQ(0, Util::releaseWriterLock(handler, lock));
  });
}

TEST_F(ExhaustedDiskTest, ADirectoryThatThereIsNoRoomForIsAnErrorUntilThereIs) {
  onDisk("nr_inodes=2", [this] {
    std::ofstream(inRoot("filler")) << 'x';
    EXPECT_THROW(RootPath(handler, "quotes", true), Brask::InvalidInitializeException);
    EXPECT_TRUE(isReported("No space left on device"));
    relieve();
    EXPECT_TRUE(RootPath(handler, "quotes", true).exists());
  });
}

TEST_F(ExhaustedDiskTest, AReadOnlyRootIsReportedAndLeftWhenItCanBeWritten) {
  onDisk("size=64k", [this] {
    const SmallDisk disk(rootPath());
    const RootPath onDisk(handler, "quotes", true);
    ASSERT_TRUE(disk.makeReadOnly());
    EXPECT_THROW(FenixFile::write(handler, onDisk.path, 7), Brask::RuntimeException);
    EXPECT_FALSE(Util::touch(handler, onDisk.fullPath("slots")));
    EXPECT_THROW(RootPath(handler, "other", true), Brask::InvalidInitializeException);
    EXPECT_EQ(0, Util::releaseWriterLock(handler, Util::acquireWriterLock(handler, onDisk)));
    EXPECT_TRUE(isReported("last-owner reason: Read-only file system"));
    ASSERT_TRUE(disk.makeWritable());
    EXPECT_TRUE(Util::touch(handler, onDisk.fullPath("slots")));
  });
}

}  // namespace
}  // namespace Zorbe::Test
