// SPDX-License-Identifier: MIT
//
// A disk that is full or read-only. Each test runs in a child with its own mount namespace.
#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>

#include <fstream>

#include "stress/sweep/exhaustion_fixture.h"
#include "support/small_disk.h"

namespace Zorbe::Test {

namespace {

class ExhaustedDiskTest : public ExhaustionTest {
 protected:
  const SmallDisk disk{rootPath()};
};

TEST_F(ExhaustedDiskTest, AFileThatAFullDiskHasNoRoomForIsFoundOutWhenItIsRead) {
  disk.run("size=64k", [this] {
    const RootPath onDisk(handler, "quotes", true);
    disk.fill();
    FenixFile::write(handler, onDisk.path, 7);
    EXPECT_THROW(FenixFile::validate(handler, onDisk.path, 7), CorruptionDetectedException);
    disk.relieve();
    FenixFile::write(handler, onDisk.path, 7);
    EXPECT_TRUE(FenixFile::validate(handler, onDisk.path, 7));
  });
}

TEST_F(ExhaustedDiskTest, AFullDiskKeepsNoProcessFromBecomingTheWriter) {
  disk.run("size=64k", [this] {
    const RootPath onDisk(handler, "quotes", true);
    disk.fill();
    const int lock = Util::acquireWriterLock(handler, onDisk);
    EXPECT_THROW(Util::acquireWriterLock(handler, onDisk), DuplicateWriterException);
    EXPECT_EQ(0, Util::releaseWriterLock(handler, lock));
  });
}

TEST_F(ExhaustedDiskTest, ADirectoryThatThereIsNoRoomForIsAnErrorUntilThereIs) {
  disk.run("nr_inodes=2", [this] {
    std::ofstream(inRoot("filler")) << 'x';
    EXPECT_THROW(RootPath(handler, "quotes", true), Brask::InvalidInitializeException);
    EXPECT_TRUE(isReported("No space left on device"));
    disk.relieve();
    EXPECT_TRUE(RootPath(handler, "quotes", true).exists());
  });
}

TEST_F(ExhaustedDiskTest, AReadOnlyRootIsReportedAndLeftWhenItCanBeWritten) {
  disk.run("size=64k", [this] {
    const RootPath onDisk(handler, "quotes", true);
    disk.makeReadOnly();
    EXPECT_THROW(FenixFile::write(handler, onDisk.path, 7), Brask::RuntimeException);
    EXPECT_FALSE(Util::touch(handler, onDisk.fullPath("slots")));
    EXPECT_THROW(RootPath(handler, "other", true), Brask::InvalidInitializeException);
    EXPECT_EQ(0, Util::releaseWriterLock(handler, Util::acquireWriterLock(handler, onDisk)));
    EXPECT_TRUE(isReported("last-owner reason: Read-only file system"));
    disk.makeWritable();
    EXPECT_TRUE(Util::touch(handler, onDisk.fullPath("slots")));
  });
}

}  // namespace
}  // namespace Zorbe::Test
