// SPDX-License-Identifier: MIT
//
// What the functions of <zorbe/table/c_interface.h> take and return. Programs include
// <zorbe/table.h>.
#pragma once

#include <stddef.h>
#include <stdint.h>

// NOLINTBEGIN(modernize-use-using, readability-identifier-naming): this is C

/// What functions return besides 0.
enum zorbe_code {
  ZORBE_NOT_FOUND = 1,    ///< the key has no record; or there is no such information
  ZORBE_END = 2,          ///< there is no further record or change
  ZORBE_TIMEOUT = 3,      ///< nothing has happened within the time
  ZORBE_INTERRUPTED = 4,  ///< a signal handler has run
  ZORBE_REPLACED = 5,     ///< another table has taken the place of the one before

  ZORBE_E_FULL = -1,        ///< the table holds `max_records`, or all that its format allows
  ZORBE_E_NO_SPACE = -2,    ///< the file system, a quota or RLIMIT_FSIZE leaves no room
  ZORBE_E_TOO_LARGE = -3,   ///< the text is longer than the table's keys
  ZORBE_E_SCHEMA = -4,      ///< the table has another description
  ZORBE_E_VERSION = -5,     ///< the files are of another version or byte order
  ZORBE_E_DENIED = -6,      ///< the directory or a file may not be written, read or trusted
  ZORBE_E_USAGE = -7,       ///< an argument is wrong: a size, an option, the kind of handle
  ZORBE_E_CLOSED = -8,      ///< the handle belongs to the parent process, or was never opened
  ZORBE_E_SYSTEM = -9,      ///< any other failing system call
  ZORBE_E_DUPLICATE = -10,  ///< another process writes the table: see zorbe_duplicate()
  ZORBE_E_CORRUPT = -11,    ///< the files contradict themselves
  ZORBE_E_NO_MEMORY = -12,  ///< an allocation failed
  ZORBE_E_NO_TABLE = -13    ///< there is no table whose description a writer could take
};

/// What a field is a part of.
enum zorbe_part {
  ZORBE_KEY = 1,   ///< the key
  ZORBE_VALUE = 2  ///< the value
};

/// One field of a table's records. The description of a table is the list of its fields; the key
/// has at least one of them and at most 1,024 bytes, the value has at most 1 MiB.
typedef struct {
  const char* name;  ///< without blanks and control characters
  int part;          ///< a zorbe_part
  char type;  ///< 'i' and 'u': integers of 1, 2, 4 or 8 bytes; 'f': of 4 or 8 bytes, not in a key;
              ///< 'b': a boolean of one byte; 'S': text; 'V': bytes
  uint32_t bytes;   ///< of one element
  uint32_t count;   ///< of elements; 0 when it is no array
  uint32_t offset;  ///< from the beginning of key or value
} zorbe_field;

/// How a table is opened: zorbe_options.flags.
enum zorbe_flag {
  ZORBE_REPLACE_SCHEMA = 1,  ///< writer: replaces a table of another description or version by an
                             ///< empty one instead of failing (ZORBE_E_SCHEMA, ZORBE_E_VERSION)
  ZORBE_POPULATE = 2,        ///< maps all pages at once (MAP_POPULATE)
  ZORBE_HUGE_PAGES = 4,      ///< asks for huge pages (MADV_HUGEPAGE); a kernel without ignores it
  ZORBE_CHECK_OWNER = 8      ///< reader: refuses files of other users than `owner`
};

/// How a table is made, and how it is opened. Options of one side only are marked; the other side
/// ignores them. Begin with ZORBE_OPTIONS_INIT: what is zero or NULL has its default.
///
/// Later versions append members. A `size` from before has defaults for what follows; a larger one
/// is ZORBE_E_USAGE unless all that this version does not know is zero.
typedef struct {
  size_t size;           ///< sizeof(zorbe_options)
  const char* root;      ///< the directory in which the tables' directories are, an absolute path;
                         ///< NULL or empty: from the environment, see zorbe(7)
  unsigned flags;        ///< of zorbe_flag
  unsigned mode;         ///< writer: of new files, regardless of the umask; 0: 0644
  uint32_t key_bytes;    ///< writer: of a key; 0: up to the end of its last field
  uint32_t value_bytes;  ///< writer: of a value; 0: up to the end of its last field. A C struct may
                         ///< be longer: use sizeof
  uint64_t records;      ///< writer: room from the start, in records; 0: 1,024
  uint64_t max_records;  ///< writer: the most records; 0: as many as memory allows
  uint64_t log_entries;  ///< writer: changes that a follower may be behind; 0: by `records`
  int64_t
      wait_for_lock;  ///< writer: nanoseconds to wait for another writer to end; negative: for ever
  /// Where messages go instead of those of level 0 to standard error: called with one line,
  /// without a line break, that is valid during the call. Called by the threads that call, and by
  /// the thread of a writer until zorbe_close() has returned. Must not call the library.
  void (*log)(void* context, int level, const char* text);
  void* log_context;  ///< passed to `log`
  int log_level;      ///< the highest level that `log` gets, see docs/operations.md; 0: failures
  uint32_t owner;     ///< reader: the user whose files it reads, with ZORBE_CHECK_OWNER
} zorbe_options;

/// The defaults: `zorbe_options options = ZORBE_OPTIONS_INIT;`
#define ZORBE_OPTIONS_INIT \
  { sizeof(zorbe_options), NULL, 0, 0, 0, 0, 0, 0, 0, 0, NULL, NULL, 0, 0 }

/// What zorbe_next() delivers.
enum zorbe_kind {
  ZORBE_PUT = 1,     ///< a record, with its newest value
  ZORBE_ERASED = 2,  ///< the record of a key was erased
  ZORBE_RESET = 3,   ///< every record follows again: at first, after an overrun, for a new table
  ZORBE_COMPLETE =
      4  ///< every record was delivered since ZORBE_RESET: drop what was not among them
};

/// One change. What is not filled in key and value is undefined.
typedef struct {
  int kind;           ///< a zorbe_kind
  uint64_t sequence;  ///< of the record's last change; of the table for reset and complete
  void* key;    ///< set by the caller: room for `key_bytes`, or NULL; filled for put and erased
  void* value;  ///< set by the caller: room for `value_bytes`, or NULL; filled for put
} zorbe_change;

/// The state of a handle.
enum zorbe_state {
  ZORBE_WAITING = 0,    ///< there is no table yet: zorbe_get() finds nothing
  ZORBE_CONNECTED = 1,  ///< the writer is there, and followed
  ZORBE_ORPHANED = 2,   ///< there is no writer: the records stay as they are
  ZORBE_REFUSED = 3,    ///< the table cannot be read: see zorbe_next()
  ZORBE_WRITING = 4     ///< the handle is a writer
};

/// Where the records come from.
enum zorbe_origin {
  ZORBE_LOCAL = 0,         ///< this host's writer
  ZORBE_MIRRORED = 1,      ///< another host's, which is connected
  ZORBE_MIRRORED_LOST = 2  ///< another host's, to which the connection is lost
};

/// What is known about a table. Of a writer: state, records, key_bytes and value_bytes; the rest
/// is zero. Of a reader without a table everything but the state is zero, unless it has found
/// one before: then the sizes are not.
typedef struct {
  size_t size;           ///< set by the caller: sizeof(zorbe_info); later versions append members
  int state;             ///< a zorbe_state
  int origin;            ///< a zorbe_origin
  uint32_t key_bytes;    ///< of every key
  uint32_t value_bytes;  ///< of every value
  uint64_t incarnation;  ///< another one after the table was replaced; 0: no table
  uint64_t published;    ///< the sequence of the last change that was published
  uint64_t position;     ///< up to which zorbe_next() has delivered
  uint64_t lag;          ///< published - position: changes; a key may have several of them
  uint64_t records;  ///< reader: slots in the file, not all of which hold a record; writer: records
  int64_t published_at;  ///< CLOCK_REALTIME of the last publish, nanoseconds; 0: none yet
  int64_t origin_since;  ///< CLOCK_REALTIME since when, nanoseconds; 0: from the start
} zorbe_info;

// NOLINTEND(modernize-use-using, readability-identifier-naming)

/// The two fields of a text of at most `n` bytes, a literal: what Zorbe::Table::Text<n> is in C++.
/// In memory it is the text, zero bytes up to `n` (one more when `n` is odd and above 255), and its
/// length: uint8_t up to 255, uint16_t above. `name` is a literal, too.
#define ZORBE_TEXT_FIELD(part, name, n, offset)                                                   \
  {name, part, 'S', (n), 0, (offset)}, {                                                          \
    name ".length", part, 'u', (n) > 255 ? 2 : 1, 0, (offset) + ((n) > 255 ? (n) + (n) % 2 : (n)) \
  }

/// The two fields of a key that is one text: zorbe_put() and others take the text alone.
#define ZORBE_TEXT_KEY(name, n) ZORBE_TEXT_FIELD(ZORBE_KEY, name, n, 0)

#ifndef __cplusplus

/// The field that a member of a struct is, by its type: integers, floating point, _Bool, char and
/// char[n] (text), and arrays of numbers. Anything else is 'V' as a whole. No pointers: they mean
/// nothing to another process. A constant, also for static initialisers.
#define ZORBE_KEY_FIELD(Struct, member) ZORBE_C_FIELD(ZORBE_KEY, Struct, member)
/// As above, of the value.
#define ZORBE_VALUE_FIELD(Struct, member) ZORBE_C_FIELD(ZORBE_VALUE, Struct, member)

// An array decays to a pointer to its elements, by which its type is recognised.
// clang-format off
#define ZORBE_C_FIELD(part, Struct, member) \
  {#member, part, ZORBE_C_LETTER(((Struct *)0)->member), ZORBE_C_BYTES(((Struct *)0)->member), \
   ZORBE_C_COUNT(((Struct *)0)->member), (uint32_t)offsetof(Struct, member)}
#define ZORBE_C_LETTER(m) \
  _Generic((m), char: 'S', char *: 'S', _Bool: 'b', _Bool *: 'b', \
    signed char: 'i', signed char *: 'i', \
    short: 'i', short *: 'i', \
    int: 'i', int *: 'i', \
    long: 'i', long *: 'i', \
    long long: 'i', long long *: 'i', \
    unsigned char: 'u', unsigned char *: 'u', \
    unsigned short: 'u', unsigned short *: 'u', \
    unsigned: 'u', unsigned *: 'u', \
    unsigned long: 'u', unsigned long *: 'u', \
    unsigned long long: 'u', unsigned long long *: 'u', \
    float: 'f', float *: 'f', \
    double: 'f', double *: 'f', \
    default: 'V')
#define ZORBE_C_ELEMENT(m) /* of an array of numbers; 0: the member is none */ \
  (uint32_t)_Generic((m), \
    _Bool *: sizeof(_Bool), \
    signed char *: sizeof(signed char), \
    short *: sizeof(short), \
    int *: sizeof(int), \
    long *: sizeof(long), \
    long long *: sizeof(long long), \
    unsigned char *: sizeof(unsigned char), \
    unsigned short *: sizeof(unsigned short), \
    unsigned *: sizeof(unsigned), \
    unsigned long *: sizeof(unsigned long), \
    unsigned long long *: sizeof(unsigned long long), \
    float *: sizeof(float), \
    double *: sizeof(double), \
    default: 0)
#define ZORBE_C_BYTES(m) (ZORBE_C_ELEMENT(m) != 0 ? ZORBE_C_ELEMENT(m) : (uint32_t)sizeof(m))
#define ZORBE_C_COUNT(m) (ZORBE_C_ELEMENT(m) != 0 ? (uint32_t)sizeof(m) / ZORBE_C_BYTES(m) : 0)
// clang-format on

#endif
