// SPDX-License-Identifier: MIT
//
// The Prometheus text exposition format.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Zorbe::Tool {

/// A value as text, so that numbers of 64 bits stay exact; none: there is no such number.
using MetricValue = std::optional<std::string>;

/// A label value in double quotes.
std::string label(const std::string& bytes);

/// The lines that describe a metric, on standard output.
void printHead(const char* name, const char* type, const char* help);

std::string decimal(double number, int places);

/// Nanoseconds since 1970 in seconds, to the last digit; none for 0, which is "never".
MetricValue seconds(int64_t nanoseconds);

}  // namespace Zorbe::Tool
