/* SPDX-License-Identifier: MIT */
#include <stdio.h>

#include "quote.h"

/* Whether the records are what this program takes them for. */
static int fits(const zorbe_table* prices) {
  zorbe_info info = {.size = sizeof info};
  return zorbe_get_info(prices, &info) == 0 && info.key_bytes == sizeof(symbol) &&
         info.value_bytes == sizeof(quote);
}

int main(void) {
  zorbe_table* prices;
  symbol key = {"", 0};
  quote now = {0, 0};
  zorbe_change change = {.key = NULL, .value = NULL};
  int result = zorbe_reader_open(&prices, "prices", NULL);
  while (result >= 0) {
    result = zorbe_wait(prices, -1); /* until zorbe_next() has something */
    while (result == 0 && (result = zorbe_next(prices, &change)) == 0) {
      if (change.kind == ZORBE_RESET) {
        change.key = &key; /* from here on there is a description */
        change.value = &now;
        if (fits(prices)) continue;
        fprintf(stderr, "table-c-reader: the table has other records\n");
        zorbe_close(prices);
        return 2;
      }
      if (change.kind != ZORBE_PUT) continue;
      printf("%.*s %g %g\n", key.length, key.text, now.bid, now.ask);
      fflush(stdout);
    }
  }
  fprintf(stderr, "table-c-reader: %s\n", zorbe_error_text(prices));
  zorbe_close(prices);
  return 1;
}
