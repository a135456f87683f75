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
// there, zorbe_get(), zorbe_scan(), zorbe_count() and zorbe_fields() of a reader continue to work,
// and every other call fails with ZORBE_E_CLOSED.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <zorbe/table/c_types.h>

// NOLINTBEGIN(modernize-use-using, readability-identifier-naming): this is C
#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// A writer or a reader of a table.
typedef struct zorbe_table zorbe_table;

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
// NOLINTEND(modernize-use-using, readability-identifier-naming)
