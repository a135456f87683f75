// SPDX-License-Identifier: MIT
#include "number_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace {

[[noreturn]] void fail(const std::string& what, int error) {
  throw Brask::RuntimeException(what + ": " + std::strerror(error));
}

// An id that no earlier incarnation had. The former id cannot be counted up: when the directory
// was removed, there is none.
unsigned newId() {
  std::random_device random;
  unsigned id = 0;
  while (id == 0) id = random();
  return id;
}

// Every block is allocated here, so that a full disk fails now, and not in a later store.
void makeFile(Brask::Platform::DebugHandler& handler, const std::string& path, off_t size) {
  Zorbe::Util::touch(handler, path);  // mode 0666, regardless of the umask
  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (const int error = errno; fd < 0) fail("cannot make " + path, error);
  const int error = ::posix_fallocate(fd, 0, size);
  static_cast<void>(::close(fd));  // the size does not depend on it
  if (error != 0) fail("cannot fill " + path, error);
}

}  // namespace

void NumberTable::Unmap::operator()(Memory* memory) const {
  static_cast<void>(::munmap(memory, sizeof *memory));  // fails for a wrong address only
}

std::optional<NumberTable> NumberTable::map(const std::string& path, bool writable) {
  const int fd = ::open(path.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC);
  const int refusal = errno;
  if (fd < 0 && refusal == ENOENT) return {};
  if (fd < 0) fail("cannot open " + path, refusal);
  struct stat status {};
  const bool complete = ::fstat(fd, &status) == 0 && status.st_size == sizeof(Memory);
  void* memory = ::mmap(nullptr, sizeof(Memory), writable ? PROT_READ | PROT_WRITE : PROT_READ,
                        MAP_SHARED, fd, 0);
  const int error = errno;
  static_cast<void>(::close(fd));  // the mapping keeps the file
  if (memory == MAP_FAILED) fail("cannot map " + path, error);
  NumberTable table(static_cast<Memory*>(memory));
  if (!complete) throw Zorbe::CorruptionDetectedException(path + " is no table");
  return table;
}

std::optional<NumberTable> NumberTable::open(Brask::Platform::DebugHandler& handler,
                                             const Zorbe::RootPath& root) {
  const unsigned id = Zorbe::FenixFile::read(handler, root.path);         // 1. the id
  if (id == 0) return {};                                                 // there is no table yet
  std::optional<NumberTable> table = map(root.fullPath("slots"), false);  // 2. map
  if (!table || table->id() != id) return {};          // the writer is replacing it
  Zorbe::FenixFile::validate(handler, root.path, id);  // 3. still the same id, or throws
  return table;                                        // 4. use
}

NumberTable NumberTable::openForWriting(Brask::Platform::DebugHandler& handler,
                                        const Zorbe::RootPath& root, bool startNew) {
  std::optional<NumberTable> found;
  if (!startNew) found = map(root.fullPath("slots"), true);
  if (!found) return create(handler, root);
  if (Zorbe::FenixFile::read(handler, root.path) != found->id()) {  // its writer was killed before
    Zorbe::FenixFile::write(handler, root.path, found->id());
  }
  return std::move(*found);
}

NumberTable NumberTable::create(Brask::Platform::DebugHandler& handler,
                                const Zorbe::RootPath& root) {
  const std::string fresh = root.fullPath("slots.new");
  makeFile(handler, fresh, sizeof(Memory));
  std::optional<NumberTable> table = map(fresh, true);
  if (!table) fail(fresh + " was removed", ENOENT);
  table->memory_->id = newId();
  // Complete: only now does it take the place of the former table, and its id that of the former.
  const std::string path = root.fullPath("slots");
  if (std::rename(fresh.c_str(), path.c_str()) != 0) {
    const int error = errno;
    fail("cannot rename " + fresh, error);
  }
  Zorbe::FenixFile::write(handler, root.path, table->id());
  Zorbe::FenixFile::validate(handler, root.path, table->id());  // a full disk leaves no id
  return std::move(*table);
}
