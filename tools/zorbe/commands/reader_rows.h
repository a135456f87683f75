// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>

#include "host/readers.h"
#include "output/fit.h"

namespace Zorbe::Tool {

/// The name of a user, or the number of one without a name.
std::string userName(uid_t uid);

/// A heading, and a row for each reader.
Rows readerRows(const ReaderList& list);

}  // namespace Zorbe::Tool
