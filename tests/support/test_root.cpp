// SPDX-License-Identifier: MIT
#include "support/test_root.h"

#include "fault/fault.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace Zorbe::Test {
namespace fs = std::filesystem;
namespace {

std::string makeDirectory() {
  std::string pattern = (fs::temp_directory_path() / "zorbe-test-").string() + std::string(6, 'X');
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), pattern);
  }
  return pattern;
}

// An ordinary user cannot empty a directory whose permissions a test has removed.
void openDirectories(const fs::path& top) {
  std::error_code ignored;
  fs::permissions(top, fs::perms::owner_all, fs::perm_options::add, ignored);
  for (const fs::directory_entry& entry : fs::directory_iterator(top, ignored)) {
    if (fs::is_directory(entry.symlink_status(ignored))) openDirectories(entry.path());
  }
}

}  // namespace

TestRoot::Variable::Variable(const char* name) : name_(name) {
  if (const char* const value = std::getenv(name)) value_ = value;
  unsetenv(name);
}

TestRoot::Variable::~Variable() {
  if (value_) {
    setenv(name_, value_->c_str(), 1);
  } else {
    unsetenv(name_);
  }
}

TestRoot::TestRoot() {
  const Fault::Bypass bypass;
  workingDirectory_ = fs::current_path().string();
  path_ = makeDirectory();
  umask_ = umask(022);
  setenv("SHMEM_ROOT", path_.c_str(), 1);
}

TestRoot::~TestRoot() {
  const Fault::Bypass bypass;
  umask(umask_);
  std::error_code error;
  fs::current_path(workingDirectory_, error);
  if (error) ADD_FAILURE() << "cannot go back to " << workingDirectory_ << ": " << error.message();
  openDirectories(path_);
  fs::remove_all(path_, error);
  if (error) ADD_FAILURE() << "cannot remove " << path_ << ": " << error.message();
}

}  // namespace Zorbe::Test
