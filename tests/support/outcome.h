// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Zorbe::Test {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

/// What a run of a program came to.
struct Outcome {
  int status;
  std::string out;
  std::string err;

  Json json() const { return Json::parse(out); }
  Words lines() const;
};

/// Runs a program to its end. Its path comes first.
Outcome runProgram(const Words& words);

}  // namespace Zorbe::Test
