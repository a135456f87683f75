// SPDX-License-Identifier: MIT
//
// JSON output of the commands. Bytes that are not UTF-8 and backslashes are escaped: see
// utf8().
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "host/table.h"

namespace Zorbe::Tool {

using Json = nlohmann::ordered_json;

Json toJson(const Table& table);
Json toJson(const std::optional<Writer>& writer, bool listening);
Json toJson(const Listing& directory);

/// One line on standard output.
void print(const Json& json);

}  // namespace Zorbe::Tool
