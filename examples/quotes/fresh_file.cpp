// SPDX-License-Identifier: MIT
#include "fresh_file.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace Quotes {

namespace {

Mapping createOver(const std::string& path, size_t bytes) {
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    const int error = errno;
    throw Brask::RuntimeException("unlink() " + path + ": " + std::strerror(error));
  }
  return Mapping::create(path, bytes);
}

}  // namespace

FreshFile::FreshFile(const Zorbe::RootPath& root, const char* firstName, const char* lastName,
                     size_t bytes)
    : firstPath_(root.fullPath(firstName)),
      lastPath_(root.fullPath(lastName)),
      mapping_(createOver(firstPath_, bytes)) {}

FreshFile::~FreshFile() {
  // A failure leaves a file that the next FreshFile of that name removes.
  if (!placed_) static_cast<void>(::unlink(firstPath_.c_str()));
}

void FreshFile::putInPlace() {
  if (std::rename(firstPath_.c_str(), lastPath_.c_str()) != 0) {
    const int error = errno;
    throw Brask::RuntimeException("rename() " + firstPath_ + " to " + lastPath_ + ": " +
                                  std::strerror(error));
  }
  placed_ = true;
}

}  // namespace Quotes
