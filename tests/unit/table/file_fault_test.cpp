// SPDX-License-Identifier: MIT
//
// One file of a table, and what its header says of where it is from.
#include "support/table_fixture.h"

#include "memory/identity.h"
#include "memory/mapping.h"

#include "fault/fault.h"
#include "support/sanitized.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>

namespace Zorbe::Test {
namespace {

using Table::Access;
using Table::File;
using Table::Identity;
using Table::Mapping;
using testing::HasSubstr;

class FileTest : public TableTest {
 protected:
  off_t lengthOf(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(::stat(path(name).c_str(), &status), 0);
    return status.st_size;
  }
  bool exists(const std::string& name) const { return ::access(path(name).c_str(), F_OK) == 0; }
};

TEST_F(FileTest, ANameThatIsTakenIsNotCreated) {
  ASSERT_TRUE(File::create(options.place, "a", 0644).has_value());
  EXPECT_FALSE(File::create(options.place, "a", 0644).has_value());
}

TEST_F(FileTest, HasTheNameThatItGotLast) {
  std::optional<File> file = File::createUnnamed(options.place, 0644);
  if (!file) GTEST_SKIP() << "the file system has no files without a name";
  EXPECT_TRUE(file->link("a"));
  EXPECT_EQ(file->path(), path("a"));
  EXPECT_TRUE(file->link("b"));
  EXPECT_EQ(file->path(), path("b"));
  EXPECT_FALSE(exists("a"));
  EXPECT_TRUE(file->isAt("b"));
  ASSERT_TRUE(File::create(options.place, "c", 0644).has_value());
  EXPECT_FALSE(file->link("c"));
  EXPECT_TRUE(file->isAt("b"));
  file->rename("c");
  EXPECT_EQ(file->path(), path("c"));
  EXPECT_TRUE(file->isAt("c"));
}

TEST_F(FileTest, IsAsLongAsWhatWasAllocated) {
  const auto file = File::create(options.place, "a", 0644);
  file->allocate(0, 4096);
  EXPECT_EQ(lengthOf("a"), 4096);
  file->allocate(4096, 12288);
  EXPECT_EQ(lengthOf("a"), 12288);
  EXPECT_GE(file->allocated(), 12288u);
  EXPECT_FALSE(file->isMostlyHoles(12288));
  ASSERT_EQ(::truncate(path("a").c_str(), off_t{1} << 20), 0);
  EXPECT_TRUE(file->isMostlyHoles(uint64_t{1} << 20));
}

TEST_F(FileTest, AnInterruptedAllocationGoesOn) {
  const auto file = File::create(options.place, "a", 0644);
  Fault::arm("posix_fallocate", 1, EINTR);
  file->allocate(0, 4096);
  EXPECT_EQ(lengthOf("a"), 4096);
}

TEST_F(FileTest, EachFailingCallIsNamed) {
  struct Call {
    const char* name;
    std::string text;
    std::function<void(File&)> act;
  };
  const Call calls[] = {
      {"fcntl", "fcntl(F_OFD_SETLK) " + path("a"), [](File& file) { file.tryLock(); }},
      {"fcntl", "fcntl(F_DUPFD_CLOEXEC) " + path("a"),
       [](File& file) { static_cast<void>(file.duplicate()); }},
      {"fstat", "fstat() " + path("a"), [](File& file) { static_cast<void>(file.status()); }},
      {"fstat", "fstat() " + path("a"), [](File& file) { static_cast<void>(file.allocated()); }},
      {"getrlimit", "getrlimit() " + path("a"), [](File& file) { file.allocate(0, 4096); }},
      {"open", "open() " + path("a"), [](File& file) { static_cast<void>(file.reopenAs("n")); }},
      {"rename", "rename() " + path("b"), [](File& file) { file.rename("b"); }},
      {"linkat", "linkat() " + path("b"), [](File& file) { file.link("b"); }},
      {"fchmod", "fchmod() " + path("c"),
       [this](File&) { static_cast<void>(File::create(options.place, "c", 0644)); }},
  };
  std::optional<File> file = File::create(options.place, "a", 0644);
  for (const Call& call : calls) {
    // The sanitizer may make that call itself, at any time.
    if (kIsSanitized && call.name == std::string("getrlimit")) continue;
    Fault::arm(call.name, 1, EIO);
    EXPECT_EQ(errorOf([&] { call.act(*file); }),
              "table 't': " + call.text + ": Input/output error");
  }
  EXPECT_TRUE(file->isAt("a"));
}

TEST_F(FileTest, ALockThatAnotherHasIsNotTaken) {
  const auto file = File::create(options.place, "a", 0644);
  for (const int error : {EAGAIN, EACCES}) {
    Fault::arm("fcntl", 1, error);
    EXPECT_FALSE(file->tryLock());
    Fault::arm("fcntl", 1, error);
    EXPECT_FALSE(file->tryLockShared());
  }
  const auto again = File::open(options.place, "a", Access::kRead);
  EXPECT_TRUE(again->tryLockShared());
  EXPECT_TRUE(file->tryLockShared());
  EXPECT_FALSE(file->tryLock());
}

TEST_F(FileTest, WhatIsInThePlaceOfTheDirectoryHoldsNoFile) {
  options.place.directory = inRoot("file");
  std::ofstream(options.place.directory).close();
  EXPECT_FALSE(File::open(options.place, "a", Access::kRead).has_value());
  Table::removeFile(options.place, "a");  // counts as removed
}

TEST_F(FileTest, AFileThatCannotBeRemovedIsNamed) {
  ASSERT_EQ(::mkdir(path("a").c_str(), 0755), 0);
  EXPECT_THAT(errorOf([&] { Table::removeFile(options.place, "a"); }),
              HasSubstr("unlink() " + path("a") + ": "));
}

TEST_F(FileTest, MoreThanTheLimitOfFileSizesIsRefused) {
  const auto file = File::create(options.place, "a", 0644);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit tight = before;
  tight.rlim_cur = 8192;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  const std::string refused = errorOf([&] { file->allocate(0, 8193); });
  const std::string allowed = errorOf([&] { file->allocate(0, 8192); });
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(refused,
            "table 't': posix_fallocate() " + path("a") +
                ": File too large; raise the file size limit (ulimit -f), or ask for fewer "
                "records");
  EXPECT_EQ(allowed, "nothing was thrown");
  EXPECT_EQ(lengthOf("a"), 8192);
}

TEST_F(FileTest, MoreThanTheAddressSpaceIsNotMapped) {
  const auto file = File::create(options.place, "a", 0644);
  file->allocate(0, 4096);
  const std::string text = "table 't': mmap() " + path("a") +
                           ": Cannot allocate memory; raise the limit of address space (ulimit -v)";
  for (const uint64_t bytes : {~uint64_t{0}, uint64_t{SIZE_MAX} / 4 * 3}) {
    EXPECT_EQ(errorOf([&] { Mapping(options.place, *file, Access::kRead, bytes, 0); }), text);
  }
  const Mapping mapping(options.place, *file, Access::kRead, 4096, 0);
  EXPECT_EQ(mapping.size(), 4096u);
  const Mapping reserved(options.place, *file, Access::kRead, 4096, 1 << 20);
  EXPECT_EQ(reserved.size(), uint64_t{1} << 20);
}

TEST_F(FileTest, NoProgramThatIsExecutedHasIt) {
  const auto file = File::create(options.place, "a", 0644);
  const auto expectClosed = [](const File& opened) {
    EXPECT_EQ(::fcntl(opened.fd(), F_GETFD), FD_CLOEXEC);
  };
  expectClosed(*file);
  expectClosed(file->reopenAs("a"));
  expectClosed(file->duplicate());
  expectClosed(*File::open(options.place, "a", Access::kRead));
  expectClosed(*File::open(options.place, "a", Access::kWrite));
  if (const auto unnamed = File::createUnnamed(options.place, 0644)) expectClosed(*unnamed);
}

TEST_F(FileTest, IsOpenedForWhatItIsUsedFor) {
  const auto file = File::create(options.place, "a", 0644);
  const auto modeOf = [](const File& opened) { return ::fcntl(opened.fd(), F_GETFL) & O_ACCMODE; };
  EXPECT_EQ(modeOf(*file), O_RDWR);
  EXPECT_EQ(modeOf(file->reopenAs("a")), O_RDWR);
  EXPECT_EQ(modeOf(*File::open(options.place, "a", Access::kWrite)), O_RDWR);
  EXPECT_EQ(modeOf(*File::open(options.place, "a", Access::kRead)), O_RDONLY);
}

// A program without standard input, for one.
TEST_F(FileTest, ADescriptorMayBeZero) {
  const auto file = File::create(options.place, "a", 0644);
  const int input = ::fcntl(0, F_DUPFD_CLOEXEC, 3);
  ASSERT_EQ(::close(0), 0);
  const auto fdOf = [](const std::optional<File>& opened) { return opened ? opened->fd() : -1; };
  EXPECT_EQ(fdOf(File::open(options.place, "a", Access::kRead)), 0);
  EXPECT_EQ(fdOf(File::create(options.place, "b", 0644)), 0);
  EXPECT_EQ(file->reopenAs("a").fd(), 0);
  EXPECT_EQ(errorOf([&] { Table::currentBoot(options.place); }), "nothing was thrown");
  if (const auto unnamed = File::createUnnamed(options.place, 0644)) {
    EXPECT_EQ(unnamed->fd(), 0);
  }
  EXPECT_EQ(::dup2(input, 0), 0);
  EXPECT_EQ(::close(input), 0);
}

TEST_F(FileTest, AWriterKeepsTwoDescriptorsAndAReaderOne) {
  const auto count = [] {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
  };
  const auto before = count();
  const auto writer = openWriter();
  for (uint64_t key = 0; key < 300; ++key) put(*writer, key, key);
  EXPECT_EQ(count(), before + 2);
  const auto reader = openReader();
  EXPECT_EQ(count(), before + 3);
}

class IdentityTest : public FileTest {
 protected:
  std::string bootIdOf(const std::string& text) {
    Fault::reset();
    std::ofstream(path("boot")) << text;
    Fault::redirect("open", "/proc/sys/kernel/random/boot_id", path("boot"));
    return errorOf([this] { boot = Table::currentBoot(options.place); });
  }

  static constexpr const char* kNoBootId =
      "table 't': read() /proc/sys/kernel/random/boot_id: Invalid argument";
  Identity boot;
};

TEST_F(IdentityTest, TheBootIdIsTwoNumbers) {
  EXPECT_EQ(bootIdOf("01234567-89ab-cdef-fedc-ba9876543210\n"), "nothing was thrown");
  EXPECT_EQ(boot.bootHigh, 0x0123456789abcdefu);
  EXPECT_EQ(boot.bootLow, 0xfedcba9876543210u);
  EXPECT_EQ(boot.incarnation, 0u);
}

TEST_F(IdentityTest, WhatIsNoBootIdIsRefused) {
  EXPECT_EQ(bootIdOf("01234567-89ab-cdef-fedc-ba987654321\n"), kNoBootId);
  EXPECT_EQ(bootIdOf("01234567-89ab-cdef-fedc-ba98765432101\n"), kNoBootId);
  EXPECT_EQ(bootIdOf("01234567-89ab-cdef-fedc-ba987654321g\n"), kNoBootId);
  Fault::reset();
  Fault::arm("read", 1, EIO);
  EXPECT_EQ(errorOf([this] { boot = Table::currentBoot(options.place); }),
            "table 't': read() /proc/sys/kernel/random/boot_id: Input/output error");
  Fault::arm("open", 1, ENOENT);
  EXPECT_EQ(errorOf([this] { boot = Table::currentBoot(options.place); }),
            "table 't': read() /proc/sys/kernel/random/boot_id: No such file or directory");
}

TEST_F(IdentityTest, ARandomNumberIsWaitedForAndNeverZero) {
  Fault::arm("getrandom", 1, EINTR);
  const unsigned before = Fault::calls("getrandom");
  EXPECT_NE(Table::randomNumber(options.place), 0u);
  EXPECT_EQ(Fault::calls("getrandom"), before + 2);
  for (const long bytes : {0, 3}) {  // too few
    Fault::armResult("getrandom", 1, bytes);
    errno = EIO;
    EXPECT_NE(Table::randomNumber(options.place), 0u);
  }
  EXPECT_EQ(Fault::calls("getrandom"), before + 6);
  Fault::arm("getrandom", 1, EIO);
  EXPECT_EQ(errorOf([this] { Table::randomNumber(options.place); }),
            "table 't': getrandom() " + options.place.directory + ": Input/output error");
}

TEST_F(IdentityTest, ABeginningThatIsNoneIsNamed) {
  const Identity identity{1, 2, 3};
  Table::Prologue prologue{};
  const auto isComplete = [&] {
    return Table::isComplete(options.place, "/x/slots", prologue, Table::kSlotsMagic);
  };
  const std::string start = "table 't' in " + options.place.directory + ": /x/slots ";
  Table::fillPrologue(prologue, identity, 4, 5);
  EXPECT_FALSE(isComplete());
  Table::release(prologue.magic, Table::magicOf(Table::kIndexMagic));
  EXPECT_EQ(errorOf(isComplete), start + "begins with 'ZTINDEX1' instead of 'ZTSLOTS1'");
  Table::release(prologue.magic, Table::magicOf(Table::kSlotsMagic));
  EXPECT_TRUE(isComplete());
  Table::release(prologue.byteOrder, 77);
  EXPECT_EQ(errorOf(isComplete), start + "has no byte order");
  Table::release(prologue.version, 77);
  EXPECT_EQ(errorOf(isComplete), start + "has no byte order");
  const Identity found = Table::identityIn(prologue);
  EXPECT_EQ(found.incarnation, 1u);
  EXPECT_EQ(found.bootLow, 2u);
  EXPECT_EQ(found.bootHigh, 3u);
  EXPECT_EQ(Table::acquire(prologue.generation), 4u);
  EXPECT_EQ(Table::acquire(prologue.size), 5u);
}

}  // namespace
}  // namespace Zorbe::Test
