// SPDX-License-Identifier: MIT
//
// Free functions: codecs whose results are stored in shared memory, the small
// files of a root directory, sockets, the writer lock and who holds it.
//
// Functions that take a DebugHandler log through it and keep no reference to it.
#pragma once

#include <brask/platform.h>
#include <zorbe/export.h>
#include <zorbe/root_path.h>

#include <cstdint>
#include <string>

namespace Zorbe::Util {

// ---- Codecs: pure, bit-exact on every host, any thread -----------------------

/// 32-bit FNV-1a over the bytes of `s`, each taken as a signed value: bytes from
/// 0x80 up differ from the textbook (Fowler, Noll, Vo), and stored hashes depend
/// on it. The empty string hashes to 0x811c9dc5.
ZORBE_EXPORT uint32_t hash(const std::string& s);

/// Jenkins's one-at-a-time hash over exactly `len` bytes, each taken as a signed
/// value. 0 when `len` is 0.
ZORBE_EXPORT uint32_t hash(const char* p, unsigned len);

/// Checksum of the 16-bit words from `begin` up to `end`, modulo 2^16: words with
/// the top bit set are added without that bit, all others are subtracted. Not the
/// Internet checksum, despite the name. Both pointers are aligned for
/// uint16_t; words are read in host byte order.
ZORBE_EXPORT uint16_t ipChecksumRange(const uint16_t* begin, const uint16_t* end);

/// The bytes of `magic` in memory order as text, up to the first zero byte.
ZORBE_EXPORT std::string decodeMagic(uint64_t magic);

/// Packs two halves into an incarnation id.
ZORBE_EXPORT void encodeFenix(uint16_t low, uint16_t high, uint32_t& fenix);

/// Unpacks an incarnation id.
ZORBE_EXPORT void decodeFenix(uint32_t fenix, uint16_t& low, uint16_t& high);

/// The readable form of a mangled C++ name, or the name itself when it is not one;
/// empty for null.
ZORBE_EXPORT std::string demangleName(const char* mangled);

// ---- Files -------------------------------------------------------------------

/// The whole content of a file, empty when it is missing or empty alike; what
/// could be read when reading failed. Never blocks: only regular files of at most
/// 16 MiB are read (those of /proc are regular); any other is logged as a failed
/// read (`EINVAL`, `EFBIG`; level 1) and counts as empty. `reportOpenFailure` logs
/// a file that cannot be opened (level 5). Throws nothing.
ZORBE_EXPORT std::string fileRead(Brask::Platform::DebugHandler& handler, const std::string& path,
                                  bool reportOpenFailure);

/// Replaces a file's content by `content` and a newline, and makes it
/// world-writable (mode 0666 regardless of the umask). When it cannot be opened: logs,
/// and throws Brask::RuntimeException with `errno` as open(2) left it, unless
/// `noThrow`. A failing write is not noticed: on a full disk the file ends up empty
/// or short, without a message. Read back what matters. Follows symbolic links, and
/// waits for a reader where the path is a FIFO.
ZORBE_EXPORT void fileWrite(Brask::Platform::DebugHandler& handler, const std::string& path,
                            const std::string& content, bool noThrow);

/// Creates an empty file of mode 0666 when there is none. False, and a message,
/// when it cannot be opened or closed. Changes the process's umask for the
/// duration of the call. Follows symbolic links.
ZORBE_EXPORT bool touch(Brask::Platform::DebugHandler& handler, const std::string& path);

/// The bytes of storage that a file occupies, which for a sparse file is less than
/// its length; modulo 2^32. 0, and a message, when it cannot be examined.
ZORBE_EXPORT uint32_t memSize(Brask::Platform::DebugHandler& handler, const std::string& path);

/// Leaves the file "corruption-detected" in the directory `dir`, saying which
/// process found what. A directory that does not exist is no error; any other file
/// that cannot be opened throws Brask::RuntimeException. Otherwise as `fileWrite`.
ZORBE_EXPORT void writeCorruptionFile(Brask::Platform::DebugHandler& handler,
                                      const std::string& dir, const std::string& reason);

/// True when `name`, a bare file name, is one that a table's root directory holds.
ZORBE_EXPORT bool isZorbeFile(Brask::Platform::DebugHandler& handler, const std::string& name);

// ---- Sockets -----------------------------------------------------------------

/// socket(2) inside the network namespace named by DEFAULT_NS, where the abstract
/// names of all tables live. Afterwards the calling thread is in the namespace of the
/// process's main thread (/proc/self/ns/net): a thread that has entered another one by
/// itself does not get back there. Where the well-known namespace, or
/// /proc/self/ns/net, cannot be entered or opened, the socket is opened in the
/// caller's.
///
/// Returns the descriptor, which the caller owns, or -1 with `errno` set. Throws
/// Brask::RuntimeException, without a message and leaving the new socket open, when
/// the thread cannot get back (no later socket of this thread would be where it is
/// expected) and when the descriptor of the namespace cannot be closed. What
/// the handler throws passes through, with the thread back and nothing left open.
ZORBE_EXPORT int socket(Brask::Platform::DebugHandler& handler, int domain, int type, int protocol);

/// Fills `addr`, a caller's `struct sockaddr_un`, with the abstract address of the
/// table whose root directory is `name`, and returns the length for bind(2) and
/// connect(2). Throws Brask::RuntimeException, leaving `addr` alone, when the last
/// component of `name` is longer than 91 bytes. See unix(7).
ZORBE_EXPORT unsigned int createSockaddr(Brask::Platform::DebugHandler& handler, void* addr,
                                         const std::string& name);

// ---- Writer lock -------------------------------------------------------------

/// Becomes the table's only writer by binding its abstract socket name, and leaves
/// a note of who did in "last-owner". Returns the bound socket: the caller owns it
/// and is the writer for as long as it stays open in any process.
///
/// The name follows from the spelling of `rootPath.path`, while "last-owner" is
/// written through the file system: two spellings of one directory are two locks.
/// When the directory does not exist any more, it is resolved again from
/// `rootPath.name` and the environment of that moment, and created.
///
/// Throws Zorbe::DuplicateWriterException, naming the holder as far as /proc shows
/// it, when there is a writer; Brask::InvalidInitializeException when the directory
/// does not exist and cannot be created; Brask::RuntimeException on any other
/// failure. After any of them there is no lock. A note that cannot be written is
/// logged and nothing else.
ZORBE_EXPORT int acquireWriterLock(Brask::Platform::DebugHandler& handler,
                                   const RootPath& rootPath);

/// Gives the lock up by closing its socket; returns what close(2) returned.
ZORBE_EXPORT int releaseWriterLock(Brask::Platform::DebugHandler& handler, int fd);

// ---- Who holds it ------------------------------------------------------------

/// The process that holds the abstract socket of the table whose root directory is
/// `socketName`, or 0 when none is found: it may live in another network namespace,
/// or belong to a user whose descriptors the caller cannot see. `owner` receives its
/// executable, and is left alone otherwise. Walks every descriptor of every process.
/// Throws Brask::RuntimeException when /proc cannot be read, and what `createSockaddr`
/// throws for a name that is too long.
///
/// A hint for people, not evidence: any local user can bind a socket whose name
/// contains the table's, and have a process of its choice named.
ZORBE_EXPORT unsigned int readOwnerPid(Brask::Platform::DebugHandler& handler,
                                       const std::string& socketName, std::string& owner);

/// The executable of a process, empty when it cannot be read. See proc(5).
ZORBE_EXPORT std::string readOwner(Brask::Platform::DebugHandler& handler, unsigned int pid);

/// The command line of a process, each argument followed by a blank, empty when it
/// cannot be read. See proc(5).
ZORBE_EXPORT std::string readCmdline(Brask::Platform::DebugHandler& handler, int pid);

}  // namespace Zorbe::Util
