/* SPDX-License-Identifier: MIT */
/* A program in C: compiled as such, and called by a test. */
#include <stdbool.h>
#include <string.h>
#include <zorbe/table.h>

typedef struct {
  double bid;
  float asks[3];
  uint64_t sizes[2];
  char venue[5];
  char side;
  bool open;
  int8_t small;
  struct {
    int inner;
  } other;
  int16_t levels[2][2];
  long long wide;
  bool flags[4];
} quote;

static const zorbe_field kFields[] = {
    ZORBE_TEXT_KEY("symbol", 15),    ZORBE_VALUE_FIELD(quote, bid),
    ZORBE_VALUE_FIELD(quote, asks),  ZORBE_VALUE_FIELD(quote, sizes),
    ZORBE_VALUE_FIELD(quote, venue), ZORBE_VALUE_FIELD(quote, side),
    ZORBE_VALUE_FIELD(quote, open),  ZORBE_VALUE_FIELD(quote, small),
    ZORBE_VALUE_FIELD(quote, other), ZORBE_VALUE_FIELD(quote, levels),
    ZORBE_VALUE_FIELD(quote, wide),  ZORBE_VALUE_FIELD(quote, flags)};
enum { kCount = sizeof kFields / sizeof *kFields };

typedef struct {
  uint32_t market;
  int32_t id;
} pair;
static const zorbe_field kPair[] = {ZORBE_KEY_FIELD(pair, market), ZORBE_KEY_FIELD(pair, id)};

#define CHECK(condition) \
  if (!(condition)) return __LINE__

static int checkField(const zorbe_field* field, char type, uint32_t bytes, uint32_t count) {
  return field->type == type && field->bytes == bytes && field->count == count;
}

static int checkMacros(void) {
  CHECK(kCount == 13);
  CHECK(checkField(&kFields[0], 'S', 15, 0) && checkField(&kFields[1], 'u', 1, 0));
  CHECK(strcmp(kFields[1].name, "symbol.length") == 0 && kFields[1].offset == 15);
  CHECK(checkField(&kFields[2], 'f', 8, 0) && checkField(&kFields[3], 'f', 4, 3));
  CHECK(checkField(&kFields[4], 'u', 8, 2) && checkField(&kFields[5], 'S', 5, 0));
  CHECK(checkField(&kFields[6], 'S', 1, 0) && checkField(&kFields[7], 'b', 1, 0));
  CHECK(checkField(&kFields[8], 'i', 1, 0) && checkField(&kFields[9], 'V', sizeof(int), 0));
  CHECK(checkField(&kFields[10], 'V', 8, 0) && checkField(&kFields[11], 'i', 8, 0));
  CHECK(checkField(&kFields[12], 'b', 1, 4));
  CHECK(kFields[12].offset == offsetof(quote, flags) && kFields[12].part == ZORBE_VALUE);
  CHECK(checkField(&kPair[0], 'u', 4, 0) && checkField(&kPair[1], 'i', 4, 0));
  CHECK(kPair[1].offset == 4 && kPair[1].part == ZORBE_KEY);
  return 0;
}

static int writeQuotes(zorbe_table* table) {
  quote now;
  memset(&now, 0, sizeof now);
  now.bid = 99.5;
  now.sizes[1] = 300;
  CHECK(zorbe_put(table, "ABC", 3, &now, sizeof now) == 0);
  now.bid = 1;
  CHECK(zorbe_put(table, "XYZ", 3, &now, sizeof now) == 0);
  CHECK(zorbe_publish(table) == 0);
  CHECK(zorbe_erase(table, "XYZ", 3) == 0);
  return zorbe_count(table) == 1 ? 0 : __LINE__;
}

static int readQuotes(zorbe_table* table) {
  quote now;
  CHECK(zorbe_get(table, "ABC", 3, &now, sizeof now) == 0);
  CHECK(now.sizes[1] == 300);
  CHECK(zorbe_get(table, "XYZ", 3, &now, sizeof now) == ZORBE_NOT_FOUND);
  size_t n = 0;
  CHECK(zorbe_fields(table, &n) != NULL && n == kCount);
  CHECK(zorbe_wait(table, -1) == 0);
  zorbe_change change = {0, 0, NULL, NULL};
  CHECK(zorbe_next(table, &change) == 0 && change.kind == ZORBE_RESET);
  return 0;
}

int zorbeProgramInC(const char* root);

/* Returns the line of the first thing that is not as it should be, or 0. */
int zorbeProgramInC(const char* root) {
  const int macros = checkMacros();
  if (macros != 0) return macros;
  zorbe_options options = ZORBE_OPTIONS_INIT;
  options.root = root;
  options.value_bytes = sizeof(quote);
  zorbe_table* writer;
  zorbe_table* reader;
  const int opened = zorbe_writer_open(&writer, "c", kFields, kCount, &options);
  const int written = opened == 0 ? writeQuotes(writer) : opened;
  const int found = zorbe_reader_open(&reader, "c", &options);
  const int read = found == 0 ? readQuotes(reader) : found;
  zorbe_close(reader);
  zorbe_close(writer);
  return written != 0 ? written : read;
}
