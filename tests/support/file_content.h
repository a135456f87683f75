// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"

#include <fstream>
#include <iterator>
#include <string>

namespace Zorbe::Test {

/// All bytes of a file; none when it cannot be read. Its calls neither count nor fail.
inline std::string contentOf(const std::string& path) {
  const Fault::Bypass bypass;
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Makes a file, or replaces what it holds.
inline void putContent(const std::string& path, const std::string& content) {
  const Fault::Bypass bypass;
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace Zorbe::Test
