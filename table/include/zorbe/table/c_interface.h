// SPDX-License-Identifier: MIT
//
// The table in C (C11), for programs in C and for bindings to other languages. Programs include
// <zorbe/table.h>.
//
//     typedef struct { double bid, ask; } quote;
//     const zorbe_field fields[] = {{"id", ZORBE_KEY, 'u', 4, 0, 0},
//                                   ZORBE_VALUE_FIELD(quote, bid), ZORBE_VALUE_FIELD(quote, ask)};
//     uint32_t id = 7;
//     quote now = {99.5, 100.5};
//
//     zorbe_table *quotes;
//     if (zorbe_writer_open(&quotes, "quotes", fields, 3, NULL) < 0)
//     puts(zorbe_error_text(quotes)); zorbe_put(quotes, &id, sizeof id, &now, sizeof now);
//     zorbe_publish(quotes);
//     zorbe_close(quotes);
//
//     zorbe_reader_open(&quotes, "quotes", NULL);                    // in another process
//     if (zorbe_get(quotes, &id, sizeof id, &now, sizeof now) == 0) show(&now);
//
// RESULTS. A function that returns `int` returns 0 for success, a positive ZORBE_ code for a
// result that is none (ZORBE_NOT_FOUND, ...), and a negative one, ZORBE_E_..., for a failure, whose
// text zorbe_error_text() returns. Unless a function says otherwise, a failed call changes nothing.
// Every function takes NULL and a handle whose opening failed, and fails: with ZORBE_E_USAGE, and
// with ZORBE_E_CLOSED. A closed handle may not be used. No exception leaves a function.
//
// BYTES. Keys and values are passed as bytes with their size, which is compared with the table's
// description: a value has exactly its `value_bytes`; a key its `key_bytes`, or, where the key is
// one text, at most that text's length: see zorbe_put(). No alignment is needed.
//
// THREADS. A writer's handle may be used by any threads at once, but opened and closed by one. A
// reader's is for one thread at a time; several threads open several. Threads that share a
// writer learn from the returned code what happened; who needs the text as well prevents other
// calls until it was read. The library's threads block all signals. pthread_cancel(3) must not
// interrupt a call. Nothing may be called from a signal handler.
//
// FORK. After fork(2) a handle belongs to the parent. In the child zorbe_close() changes nothing
// there, zorbe_get(), zorbe_scan() and zorbe_count() of a reader continue to work, and every other
// call fails with ZORBE_E_CLOSED.
#pragma once

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// A writer or a reader of a table.
typedef struct zorbe_table zorbe_table;

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

/// Becomes the writer of the table `name`: creates it, or continues the one that is there. A
/// thread of its own accepts and wakes the readers, and publishes what was put a millisecond ago.
/// The handle belongs to the caller, also when this fails: it then has the text of the error, and
/// zorbe_close() releases it. Only for `out` == NULL there is none.
///
/// `fields` (`n` of them, key and value each in the order of the struct) are copied. With NULL and
/// 0 they are those of the table that is there. `options` may be NULL.
///
/// ZORBE_E_DUPLICATE: another process writes the table, and still did after `wait_for_lock`.
/// ZORBE_E_SCHEMA: the table has other fields. ZORBE_E_NO_TABLE: neither fields nor a table.
/// ZORBE_E_USAGE: name, fields or options. ZORBE_E_VERSION, _DENIED, _NO_SPACE, _SYSTEM,
/// _NO_MEMORY: see zorbe_code. The table that is there then stays as it was.
int zorbe_writer_open(zorbe_table** out, const char* name, const zorbe_field* fields, size_t n,
                      const zorbe_options* options);

/// Reads the table `name`, which need not exist yet. The reader follows the next writer and a table
/// that is removed and made again whenever zorbe_wait(), zorbe_next(), zorbe_process() or
/// zorbe_refresh() is called, and creates nothing. For the handle see zorbe_writer_open().
///
/// It takes the description of the first table that it finds, and keeps it: a later one whose
/// description does not begin with it is refused (ZORBE_REFUSED; zorbe_next() fails once).
///
/// ZORBE_E_USAGE: name or options. ZORBE_E_SYSTEM: the process has no descriptor left.
/// ZORBE_E_NO_MEMORY.
int zorbe_reader_open(zorbe_table** out, const char* name, const zorbe_options* options);

/// A writer publishes and releases its lock; the files stay. Releases the handle with all that
/// its functions have returned. NULL is ignored.
void zorbe_close(zorbe_table* table);

/// Writer: stores a record as a whole. Bytes of the value that belong to no field are stored as
/// zero.
///
/// A key has the table's `key_bytes`. Where the description of the key is one text (ZORBE_TEXT_KEY:
/// a field 'S' and its length; or a lone field 'S'), it may be the bytes of the text alone, without
/// a zero byte at the end: the library adds what follows them. zorbe_scan() and zorbe_next() return
/// the stored form, which is taken as well.
///
/// ZORBE_E_FULL, ZORBE_E_NO_SPACE, ZORBE_E_TOO_LARGE (a text), ZORBE_E_USAGE (sizes; a reader),
/// ZORBE_E_NO_MEMORY.
int zorbe_put(zorbe_table* table, const void* key, size_t key_size, const void* value,
              size_t value_size);

/// Writer: erases a record; ZORBE_NOT_FOUND when there is none. For keys see zorbe_put().
int zorbe_erase(zorbe_table* table, const void* key, size_t key_size);

/// Writer: shows followers everything up to here, and wakes those that sleep.
int zorbe_publish(zorbe_table* table);

/// Copies the value of a key; ZORBE_NOT_FOUND when there is no record, or no table yet: `value` is
/// then undefined. With `value` == NULL and 0 it only searches. For keys see zorbe_put(); a text
/// that is too long is not found. Of a reader: without a system call, unless the table has grown
/// or was replaced. ZORBE_E_USAGE (sizes), ZORBE_E_CORRUPT.
int zorbe_get(zorbe_table* table, const void* key, size_t key_size, void* value, size_t value_size);

/// The next record from `*cursor` on, which starts at 0; ZORBE_END after the last one. `key` and
/// `value` have room for the table's `key_bytes` and `value_bytes`; each may be NULL. Each record
/// is whole; what is put or erased meanwhile may or may not be visited. ZORBE_E_USAGE,
/// ZORBE_E_CORRUPT.
int zorbe_scan(zorbe_table* table, uint64_t* cursor, void* key, void* value);

/// Reader: sleeps until zorbe_next() has something, for `nanoseconds` at most; negative, or longer
/// than a day: for ever. Returns 0 when zorbe_next() has something (that may be an error),
/// ZORBE_TIMEOUT, or ZORBE_INTERRUPTED. 0 nanoseconds: looks, and does not sleep. ZORBE_E_SYSTEM.
int zorbe_wait(zorbe_table* table, int64_t nanoseconds);

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

/// Reader: the next change, or ZORBE_END when there is none; never sleeps. The first change of
/// every table is ZORBE_RESET, which fills neither key nor value: before it both may be NULL, and
/// from it on zorbe_fields() and zorbe_get_info() say what room they need.
///
/// Fails once for every table that cannot be read (ZORBE_E_SCHEMA, ZORBE_E_VERSION, ZORBE_E_DENIED,
/// ZORBE_E_CORRUPT, ZORBE_E_SYSTEM), and continues by itself when that has ended.
int zorbe_next(zorbe_table* table, zorbe_change* change);

/// Reader, for another event loop: a descriptor that is readable when zorbe_process() has something
/// to do or zorbe_next() has something to deliver. It stays the handle's. Negative: ZORBE_E_USAGE
/// (a writer), ZORBE_E_CLOSED.
int zorbe_fd(const zorbe_table* table);

/// Reader: to be called when zorbe_fd() is readable, and then zorbe_next() until it has nothing.
int zorbe_process(zorbe_table* table);

/// Reader, for programs that only call zorbe_get(): checks whether another table has taken the
/// place of this one, and maps it then: ZORBE_REPLACED. That includes the first one.
int zorbe_refresh(zorbe_table* table);

/// How many records there are; a reader counts them by reading all. 0 also for a failure: see
/// zorbe_error().
size_t zorbe_count(const zorbe_table* table);

/// The description: those of the key, then those of the value, each in the order of the struct.
/// They are the handle's, and do not change once they are there. NULL with 0 while a reader has
/// found no table, for a table without a description, and for a failure. `n` may be NULL.
const zorbe_field* zorbe_fields(const zorbe_table* table, size_t* n);

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

/// Fills in the first `info->size` bytes; what this version does not know becomes zero.
/// ZORBE_E_USAGE: a size that does not even hold the state.
int zorbe_get_info(const zorbe_table* table, zorbe_info* info);

/// The negative code of the last call with this handle; 0 when it did not fail. ZORBE_E_USAGE for
/// NULL. This function and the following two do not count as calls.
int zorbe_error(const zorbe_table* table);

/// Its text, in English: the table, what failed, and what to do about it, with the names of options
/// as in C++; cut off after 4 KiB. Empty after a call that did not fail. Never NULL; the handle's,
/// until the next call with it.
const char* zorbe_error_text(const zorbe_table* table);

/// After ZORBE_E_DUPLICATE: the process that seems to hold the writer lock, 0 when it was not
/// found, and its executable, empty then, which is the handle's. Each may be NULL. ZORBE_NOT_FOUND
/// for a handle whose opening did not fail so.
int zorbe_duplicate(const zorbe_table* table, uint32_t* pid, const char** owner);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

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
