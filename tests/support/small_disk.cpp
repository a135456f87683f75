// SPDX-License-Identifier: MIT
#include "support/small_disk.h"

#include "support/child_process.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <utility>

namespace Zorbe::Test {

namespace {

constexpr std::size_t kPage = 4096;

bool enterNamespace() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

SmallDisk::SmallDisk(std::string path) : path_(std::move(path)) {}

void SmallDisk::run(const char* options, const std::function<void()>& body) const {
  const std::string result = resultInChild([&]() -> std::string {
    if (!mount(options)) return "skip";
    body();
    return "done";
  });
  if (result == "skip") GTEST_SKIP() << "only root can mount a file system";
  EXPECT_EQ("done", result);
}

bool SmallDisk::mount(const char* options) const {
  return enterNamespace() && ::mount("tmpfs", path_.c_str(), "tmpfs", 0, options) == 0;
}

void SmallDisk::remount(unsigned long flags, const char* options) const {
  EXPECT_EQ(0, ::mount("none", path_.c_str(), "tmpfs", MS_REMOUNT | flags, options));
}

void SmallDisk::setOptions(const char* options) const {
  remount(0, options);
}

void SmallDisk::makeReadOnly() const {
  remount(MS_RDONLY, nullptr);
}

void SmallDisk::makeWritable() const {
  remount(0, nullptr);
}

void SmallDisk::makeReadOnlyHere() const {
  const char* const path = path_.c_str();
  EXPECT_TRUE(enterNamespace());
  EXPECT_EQ(0, ::mount(path, path, "none", MS_BIND, nullptr));
  EXPECT_EQ(0, ::mount("none", path, "none", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
}

void SmallDisk::fill() const {
  std::ofstream file(filler(), std::ios::app);
  while (file << std::string(kPage, 'x') << std::flush) {
  }
}

void SmallDisk::freePage() const {
  const auto size = std::filesystem::file_size(filler());
  ASSERT_GE(size, kPage) << "there is no room although nothing else is on the disk";
  std::filesystem::resize_file(filler(), size - kPage);
}

void SmallDisk::relieve() const {
  EXPECT_EQ(0, ::unlink(filler().c_str()));
}

}  // namespace Zorbe::Test
