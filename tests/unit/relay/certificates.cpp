// SPDX-License-Identifier: MIT
#include "unit/relay/certificates.h"

#include "support/outcome.h"

#include <gtest/gtest.h>

namespace Zorbe::Test {

Certificates::Certificates(const std::string& directory, const std::string& name)
    : directory_(directory), authority_(make(name, {})) {}

Certificates::Pair Certificates::sign(const std::string& name, const std::string& names) const {
  return make(name, {"-CA", authority_.certificate, "-CAkey", authority_.key, "-addext",
                     "subjectAltName=" + names, "-addext", "basicConstraints=CA:FALSE"});
}

Certificates::Pair Certificates::make(const std::string& name, const Words& more) const {
  const std::string path = directory_ + "/" + name;
  const Pair files{path + ".pem", path + ".key"};
  Words words{ZORBE_OPENSSL,
              "req",
              "-x509",
              "-newkey",
              "ec",
              "-pkeyopt",
              "ec_paramgen_curve:P-256",
              "-nodes",
              "-days",
              "1",
              "-subj",
              "/CN=" + name,
              "-keyout",
              files.key,
              "-out",
              files.certificate};
  words.insert(words.end(), more.begin(), more.end());
  const Outcome outcome = runProgram(words);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  return files;
}

}  // namespace Zorbe::Test
