// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/fields.h>

using Symbol = Zorbe::Table::Text<8>;

struct Quote {
  double bid, ask;
};
ZORBE_FIELDS(Quote, bid, ask);
