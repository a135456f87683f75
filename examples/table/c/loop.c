/* SPDX-License-Identifier: MIT
 *
 * A table in a loop of the program's own, which waits for other things, too: each line of standard
 * input is a symbol whose quote is printed, its end ends the program. Changes are counted. */
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "quote.h"

static int count(zorbe_table* prices, unsigned long* changes) {
  zorbe_change change = {.key = NULL, .value = NULL}; /* what it is does not matter here */
  int result = zorbe_process(prices);
  while (result == 0 && (result = zorbe_next(prices, &change)) == 0) ++*changes;
  return result;
}

static int answer(zorbe_table* prices, const char* name, unsigned long changes) {
  quote now;
  const int result = zorbe_get(prices, name, strlen(name), &now, sizeof now);
  if (result == ZORBE_NOT_FOUND) printf("%s has no record, %lu changes\n", name, changes);
  if (result == 0) printf("%s %g %g, %lu changes\n", name, now.bid, now.ask, changes);
  fflush(stdout);
  return result;
}

int main(void) {
  zorbe_table* prices;
  unsigned long changes = 0;
  int result = zorbe_reader_open(&prices, "prices", NULL);
  struct pollfd waiting[] = {{.fd = STDIN_FILENO, .events = POLLIN},
                             {.fd = zorbe_fd(prices), .events = POLLIN}};
  while (result >= 0 && poll(waiting, 2, -1) > 0) {
    char line[64];
    if (waiting[1].revents != 0) result = count(prices, &changes);
    if (result < 0 || waiting[0].revents == 0) continue;
    const ssize_t length = read(STDIN_FILENO, line, sizeof line - 1);
    if (length <= 0) break;
    line[length] = 0;
    line[strcspn(line, "\n")] = 0;
    result = answer(prices, line, changes);
  }
  if (result < 0) fprintf(stderr, "table-c-loop: %s\n", zorbe_error_text(prices));
  zorbe_close(prices);
  return result < 0;
}
