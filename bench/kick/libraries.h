// SPDX-License-Identifier: MIT
//
// The schemes of other libraries, each compiled only where its package is found.
#pragma once

#include <memory>

#include "kick/scheme.h"

namespace Bench {

std::unique_ptr<Scheme> makeZeromq();
std::unique_ptr<Scheme> makeNng();
std::unique_ptr<Scheme> makeDbus();
std::unique_ptr<Scheme> makeRedis();
std::unique_ptr<Scheme> makeIceoryx();

}  // namespace Bench
