/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <string.h>

#include "quote.h"

static const zorbe_field kFields[] = {
    ZORBE_TEXT_KEY("key", 8),
    ZORBE_VALUE_FIELD(quote, bid),
    ZORBE_VALUE_FIELD(quote, ask),
};

int main(void) {
  zorbe_table* prices;
  int result =
      zorbe_writer_open(&prices, "prices", kFields, sizeof kFields / sizeof *kFields, NULL);
  char name[64];
  quote now;
  while (result == 0 && scanf("%63s %lf %lf", name, &now.bid, &now.ask) == 3) {
    result = zorbe_put(prices, name, strlen(name), &now, sizeof now);
    if (result == 0) result = zorbe_publish(prices);
  }
  if (result < 0) fprintf(stderr, "table-c-writer: %s\n", zorbe_error_text(prices));
  zorbe_close(prices);
  return result < 0;
}
