// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "status/row.h"

namespace Zorbe::Relay {

/// Print on standard output: columns for people, an object of JSON, metrics for Prometheus.
void printStatus(const std::vector<Row>& rows, bool isWide);
void printJson(const std::vector<Row>& rows, const std::string& server);
void printMetrics(const std::vector<Row>& rows);

}  // namespace Zorbe::Relay
