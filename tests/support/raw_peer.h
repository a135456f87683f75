// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <zorbe/root_path.h>

#include <cstdint>
#include <string>

namespace Zorbe::Test {

/// A process that connects to the writer and then does as it pleases.
class RawPeer {
 public:
  /// Connects. Throws std::system_error when that fails.
  RawPeer(Brask::Platform::DebugHandler& handler, const RootPath& root);
  ~RawPeer();
  RawPeer(RawPeer&& other) noexcept;
  RawPeer& operator=(RawPeer&&) = delete;

  /// Sends a message of these bytes, possibly none. False when the writer has closed.
  bool send(const std::string& bytes);

  /// A report as a reader sends it.
  bool report(uint64_t sequence);
  static std::string reportOf(uint64_t sequence);

  /// Waits for a kick. False when the writer closes instead, or nothing comes in time.
  bool isKicked();

  /// Waits until the writer has closed. False when that takes too long.
  bool isCutOff();

 private:
  enum class Heard { kick, end, nothing };
  Heard hear();

  int fd_;
};

}  // namespace Zorbe::Test
