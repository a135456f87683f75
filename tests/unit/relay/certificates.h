// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace Zorbe::Test {

/// An authority, and the certificates that it signs, as PEM files of a directory.
class Certificates {
 public:
  /// The certificate and its key.
  struct Pair {
    std::string certificate;
    std::string key;
  };

  /// Its own files begin with `name`.
  explicit Certificates(const std::string& directory, const std::string& name = "authority");

  const std::string& authority() const { return authority_.certificate; }

  /// For what `names` lists, as "DNS:localhost,IP:127.0.0.1".
  Pair sign(const std::string& name, const std::string& names) const;

 private:
  Pair make(const std::string& name, const std::vector<std::string>& more) const;

  std::string directory_;
  Pair authority_;
};

}  // namespace Zorbe::Test
